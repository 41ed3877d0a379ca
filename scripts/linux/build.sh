#!/usr/bin/env bash
# Makes what players on Linux download, build/linux/Brekka-VERSION-linux-MACHINE.tar.gz. Qt comes from
# their distribution. Arguments go to CMake, for this run alone.
source "$(dirname "${BASH_SOURCE[0]}")/../lib.sh"

name=Brekka-$(project_version)-linux-$(uname -m)
work=$root/build/linux/archive
id=example.brekka.Brekka

compile() {
    cd "$root"
    cmake --fresh --preset release -B build/linux/tree "$@" >/dev/null
    cmake --build build/linux/tree -j "$(nproc)"
}

# render_icons FOLDER : in all the sizes that desktops look for.
render_icons() {
    local size source=$root/ui/resources/art/icon.svg
    for size in 16 22 24 32 48 64 96 128 256 512; do
        mkdir -p "$1/${size}x$size/apps"
        rsvg-convert --width "$size" --height "$size" --output "$1/${size}x$size/apps/$id.png" "$source"
    done
    mkdir -p "$1/scalable/apps"
    cp "$source" "$1/scalable/apps/$id.svg"
}

# collect FOLDER : what players get there.
collect() {
    local source=$root/scripts/linux/archive
    mkdir -p "$1/program" "$1/share/applications" "$1/share/metainfo"
    cp "$root/build/linux/tree/bin/"{Brekka,BrekkaUpdater,brekka-publish,ver.dll} "$1/program/"
    strip "$1/program/"{Brekka,BrekkaUpdater,brekka-publish}
    cp "$source/"{install.sh,uninstall.sh,places.sh,README.txt} "$1/"
    cp "$source/"{uninstall.sh,places.sh} "$1/program/"
    render_icons "$1/share/icons/hicolor"
    cp "$source/$id.desktop" "$1/share/applications/"
    sed -e "s/@VERSION@/$(project_version)/; s/@DATE@/$(date -u -d "@$SOURCE_DATE_EPOCH" +%F)/" \
        "$source/$id.metainfo.xml" >"$1/share/metainfo/$id.metainfo.xml"
}

check() {
    desktop-file-validate "$1/share/applications/$id.desktop"
    appstreamcli validate --no-net "$1/share/metainfo/$id.metainfo.xml"
    ! grep -rlF -- "$root" "$1" >&2 || fail 'these files name the folder that they were made in'
}

# pack FOLDER ARCHIVE : the same bytes for the same files.
pack() {
    tar -C "$(dirname "$1")" --sort=name --owner=0 --group=0 --numeric-owner --format=gnu -cf - "$(basename "$1")" |
        gzip -9n >"$2"
}

install_packages "${build_packages[@]}" "${linux_packages[@]}"
set_source_date
compile "$@"
rm -rf "$work" "$root/build/linux/"Brekka-*.tar.gz
collect "$work/$name"
check "$work/$name"
level "$work/$name"
pack "$work/$name" "$root/build/linux/$name.tar.gz"
(cd "$root" && stat -c '%n: %s bytes' build/linux/Brekka-*)
