#!/usr/bin/env bash
# Makes a release of the commit that is checked out, in build/release-VERSION: the installer and the
# archive for Windows, the archive for Linux, their checksums, and the notes for players. Arguments go
# to CMake; a release needs at least -DBREKKA_UPDATE_HOST=... What is made twice has the same bytes.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

version=$(project_version)
out=$root/build/release-$version

# release_notes : the version's part of the change log, without its heading.
release_notes() {
    awk -v heading="## $version" '/^## / { inside = $0 == heading; next } inside' "$root/CHANGELOG.md" |
        sed -e '/[^[:space:]]/,$!d'
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

install_packages git
check_tree
case " $* " in
*' -DBREKKA_UPDATE_HOST='*) ;;
*) printf 'Without -DBREKKA_UPDATE_HOST=... these programs will look for updates on the machine they run on.\n' ;;
esac
set_source_date
rm -rf "$out" "$out.part" # nobody is to take an earlier one for what failed
"$root/scripts/windows/build.sh" "$@"
"$root/scripts/linux/build.sh" "$@"
mkdir -p "$out.part"
collect "$out.part"
mv "$out.part" "$out"
(cd "$root" && cat "build/release-$version/SHA256SUMS" && stat -c '%n: %s bytes' "build/release-$version/"*)
