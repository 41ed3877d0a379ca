#!/usr/bin/env bash
# Makes a release of the commit that is checked out, in build/release-VERSION: the installer and the
# archive for Windows, the archive for Linux, their checksums, and the notes for players. Arguments go
# to CMake; a release needs at least -DBREKKA_UPDATE_HOST=... and -DBREKKA_PUBLIC_KEYS=..., or --no-keys
# for programs that check no signatures. What is made twice has the same bytes.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

version=$(project_version)
out=$root/build/release-$version

# release_notes : the version's part of the change log, without its heading.
release_notes() {
    awk -v heading="## $version" '/^## / { inside = $0 == heading; next } inside' "$root/CHANGELOG.md" |
        sed -e '/[^[:space:]]/,$!d'
}

# check_trust ARGUMENT... : nobody forgets the keys; sets $options to what is left for CMake.
check_trust() {
    local argument keys='' unchecked='' serial=''
    options=()
    for argument in "$@"; do
        case $argument in
        --no-keys) unchecked=meant && continue ;;
        -DBREKKA_PUBLIC_KEYS=*) keys=${argument#*=} ;;
        -DBREKKA_LOWEST_SERIAL=*) serial=${argument#*=} ;;
        esac
        options+=("$argument")
    done
    [ -n "$keys$unchecked" ] || fail 'without -DBREKKA_PUBLIC_KEYS=... these programs would install what anybody on the
wire offers them; give the keys (docs/signing.md), or --no-keys if that is meant'
    [ -z "$keys" ] || [ -z "$unchecked" ] || fail '--no-keys and -DBREKKA_PUBLIC_KEYS=... exclude each other'
    [ -z "$keys" ] || [ -n "$serial" ] || printf '%s\n' \
        'Without -DBREKKA_LOWEST_SERIAL=... new players take any manifest that was ever signed. Take the serial of the' \
        'manifest on offer, never the time of this build: the manifest is older, and they would get nothing.'
}

check_tree() {
    local changes
    changes=$(git -C "$root" status --porcelain --untracked-files) || fail 'a release is made of a commit, and this is no clone'
    [ -z "$changes" ] || fail "commit these first, or take them away:"$'\n'"$changes"
    [ -n "$(release_notes)" ] || fail "CHANGELOG.md has no notes for version $version"
}

# collect FOLDER : what players download, and what they read.
collect() {
    cp "$root/build/windows/Brekka-$version-setup.exe" "$root/build/windows/Brekka-$version-win64.zip" \
        "$root/build/linux/Brekka-$version-linux-$(uname -m).tar.gz" "$1/"
    release_notes >"$1/NOTES.md"
    (cd "$1" && sha256sum Brekka-* >SHA256SUMS)
}

check_trust "$@"
install_packages git
check_tree
case " ${options[*]} " in
*' -DBREKKA_UPDATE_HOST='*) ;;
*) printf 'Without -DBREKKA_UPDATE_HOST=... these programs will look for updates on the machine they run on.\n' ;;
esac
set_source_date
rm -rf "$out" "$out.part" # nobody is to take an earlier one for what failed
"$root/scripts/windows/build.sh" "${options[@]}"
"$root/scripts/linux/build.sh" "${options[@]}"
mkdir -p "$out.part"
collect "$out.part"
mv "$out.part" "$out"
(cd "$root" && cat "build/release-$version/SHA256SUMS" && stat -c '%n: %s bytes' "build/release-$version/"*)
