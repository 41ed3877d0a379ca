#!/usr/bin/env bash
# Makes what players on 64-bit Windows download: build/windows/Brekka-VERSION-setup.exe, and the
# portable archive Brekka-VERSION-win64.zip. The first run makes the toolkit, too, and keeps it in the
# user's cache folder. BREKKA_SIGN may name a program that signs the file it is given. Arguments go to
# CMake, for this run alone.
source "$(dirname "${BASH_SOURCE[0]}")/../lib.sh"
source "$root/scripts/windows/toolkit.sh"
source "$root/scripts/windows/installer.sh"

jobs=${BREKKA_JOBS:-$(nproc)}
tree=$root/build/windows/tree

compile() {
    export BREKKA_TOOLKIT=$toolkit
    cd "$root"
    cmake --fresh --preset windows "$@" >/dev/null
    cmake --build --preset windows -j "$jobs"
}

# collect FOLDER : puts what players get there.
collect() {
    local file library
    mkdir -p "$1/platforms" "$1/styles" "$1/translations" "$1/licenses"
    for file in Brekka.exe BrekkaUpdater.exe brekka-publish.exe ver.dll; do
        cp "$tree/bin/$file" "$1/"
    done
    for library in Core Gui Network Widgets Xml; do
        cp "$toolkit/bin/Qt5$library.dll" "$1/"
    done
    cp "$toolkit/plugins/platforms/qwindows.dll" "$1/platforms/"
    cp "$toolkit/plugins/styles/qwindowsvistastyle.dll" "$1/styles/"
    cp /usr/share/qt5/translations/qtbase_zh_CN.qm "$1/translations/"
    for file in libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll; do
        cp "$(x86_64-w64-mingw32-g++-posix -print-file-name="$file")" "$1/"
    done
    find "$1" \( -name '*.exe' -o -name '*.dll' \) -exec x86_64-w64-mingw32-strip --strip-unneeded {} +
    collect_licenses "$1/licenses"
}

# The toolkit's and the compilers' terms ask that their texts go along.
collect_licenses() {
    local doc=/usr/share/doc common=/usr/share/common-licenses
    cp "$doc/qtbase5-dev/copyright" "$1/toolkit.txt"
    cp "$doc/qttranslations5-l10n/copyright" "$1/translations.txt"
    cp "$doc/gcc-mingw-w64-x86-64-posix-runtime/copyright" "$1/compiler-runtime.txt"
    cp "$doc/mingw-w64-common/copyright" "$1/windows-runtime.txt"
    cp "$doc/libz-mingw-w64-dev/copyright" "$1/zlib.txt"
    cp "$doc/libsodium-dev/copyright" "$1/libsodium.txt"
    cp "$common/LGPL-3" "$common/LGPL-2.1" "$common/GPL-3" "$common/GPL-2" "$1/"
    cat >"$1/README.txt" <<TEXT
Brekka uses Qt $toolkit_version under the LGPL, version 3, as the DLLs whose names begin with Qt5 and those in the
folders "platforms" and "styles"; others of the same version may take their place. They were made from
the source package qtbase-opensource-src $(cat "$toolkit/complete") of Debian with
scripts/windows/toolkit.sh of Brekka's sources, which holds the options and the one change.
"toolkit.txt" tells who holds which rights in it, the other files do so for its translation in the folder
"translations", for the compiler's runtime DLLs, for zlib and for libsodium.
TEXT
}

# sign FOLDER : what is ours in it, if somebody signs.
sign() {
    local file
    [ -n "${BREKKA_SIGN:-}" ] || return 0
    for file in "$1"/*.exe; do
        "$BREKKA_SIGN" "$file"
    done
}

# pack FOLDER ARCHIVE : the same bytes for the same files.
pack() {
    rm -f "$2"
    (cd "$(dirname "$1")" && find "$(basename "$1")" | LC_ALL=C sort | TZ=UTC zip -qX9 "$2" -@)
}

# Every DLL that a program or a DLL of the archive asks for must be in it, or be Windows' own.
check_imports() {
    local file name absent=0
    while IFS= read -r file; do
        while IFS= read -r name; do
            [ ! -e "$1/$name" ] || continue
            # The linker has an import library for each DLL that Windows brings along.
            [ ! -e "/usr/x86_64-w64-mingw32/lib/lib$(basename "${name,,}" .dll).a" ] || continue
            [ "${name,,}" != msvcrt.dll ] || continue
            printf '%s needs %s, which is not in the archive\n' "${file#"$1/"}" "$name" >&2
            absent=1
        done < <(x86_64-w64-mingw32-objdump -p "$file" | sed -n 's/^\tDLL Name: //p')
    done < <(find "$1" -name '*.exe' -o -name '*.dll')
    [ "$absent" = 0 ] || fail 'the archive is not complete'
}

# check_hardening FOLDER : everything may be loaded anywhere in a large address space and runs no data;
# the programs watch their stack.
check_hardening() {
    local file header
    while IFS= read -r file; do
        header=$(x86_64-w64-mingw32-objdump -p "$file")
        [[ $header = *HIGH_ENTROPY_VA*DYNAMIC_BASE*NX_COMPAT* && $header != *'relocations stripped'* ]] ||
            fail "not hardened: ${file#"$1/"}"
    done < <(find "$1" -name '*.exe' -o -name '*.dll')
    for file in "$1"/*.exe; do
        grep -qF 'stack smashing detected' "$file" || fail "no stack protector: ${file#"$1/"}"
    done
}

install_packages "${build_packages[@]}" "${mingw_packages[@]}" "${windows_packages[@]}"
make_toolkit
compile "$@"
set_source_date
name=Brekka-$(project_version)
work=$root/build/windows/archive
rm -rf "$work" "$root/build/windows/"Brekka-*-{win64.zip,setup.exe}
collect "$work/$name-win64"
check_imports "$work/$name-win64"
check_hardening "$work/$name-win64"
sign "$work/$name-win64"
level "$work/$name-win64"
pack "$work/$name-win64" "$root/build/windows/$name-win64.zip"
rm "$work/$name-win64/brekka-publish.exe"
make_installer "$work/$name-win64" "$root/build/windows/$name-setup.exe"
(cd "$root" && stat -c '%n: %s bytes' build/windows/Brekka-*)
