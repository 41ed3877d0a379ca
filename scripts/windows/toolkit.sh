# The toolkit for Windows, made once from the distribution's source package; source it after lib.sh.

toolkit_version=5.15.8
toolkit_options=(
    -xplatform win32-g++ -device-option CROSS_COMPILE=x86_64-w64-mingw32-
    -opensource -confirm-license -release -shared -silent
    -no-opengl -no-openssl -schannel -no-dbus -no-icu -no-pch
    -nomake examples -nomake tests -nomake tools
    -no-feature-sql -no-feature-printer -no-feature-concurrent -no-feature-direct2d
    # The distribution's source comes without the tablet's header.
    -no-feature-tabletevent
    -qt-zlib -qt-pcre -qt-libpng -qt-libjpeg -qt-freetype -qt-harfbuzz)
toolkit_packages=(g++ g++-mingw-w64-x86-64-posix make perl dpkg-dev)

# The folder holds a complete toolkit when "complete" lies in it.
toolkit_key=$(printf '%s\n' "$toolkit_version" "${toolkit_options[@]}" | sha256sum)
toolkit_cache=${XDG_CACHE_HOME:-$HOME/.cache}/brekka
toolkit=$toolkit_cache/toolkit-$toolkit_version-${toolkit_key:0:12}

toolkit_is_there() {
    [ -f "$toolkit/complete" ]
}

# fetch_toolkit_source FOLDER : unpacks the source package into FOLDER/source. The deb-src entries
# stand in a configuration of our own, made from the package entries that the system has.
fetch_toolkit_source() {
    local apt=$1/apt
    mkdir -p "$apt/lists/partial" "$apt/cache/archives/partial"
    apt-get indextargets 'Created-By: Packages' --format 'deb-src $(REPO_URI) $(RELEASE) $(COMPONENT)' |
        grep -E ' bookworm(-updates|-security)? main$' | sort -u >"$apt/sources.list"
    [ -s "$apt/sources.list" ] || fail 'apt knows no Debian 12 archive to take the source from'
    local options=(
        -o Dir::Etc::SourceList="$apt/sources.list" -o Dir::Etc::SourceParts=/dev/null
        -o Dir::State::Lists="$apt/lists" -o Dir::Cache="$apt/cache"
        -o APT::Sandbox::User="$(id -un)" -o Acquire::Languages=none)
    apt-get "${options[@]}" update -qq
    (cd "$1" && apt-get "${options[@]}" source -qq --only-source qtbase-opensource-src)
    [ -d "$1/qtbase-opensource-src-$toolkit_version+dfsg" ] ||
        fail "the archive's source package is not of version $toolkit_version: adapt scripts/windows/toolkit.sh"
    mv "$1/qtbase-opensource-src-$toolkit_version+dfsg" "$1/source"
}

# make_toolkit : makes it unless it is in the cache. BREKKA_JOBS limits the compilers at a time.
make_toolkit() {
    if toolkit_is_there; then
        printf 'The toolkit is in the cache: %s\n' "$toolkit"
        return
    fi
    install_packages "${toolkit_packages[@]}"
    # The makefiles name the compiler without its thread model, and only one of the two has std::mutex.
    x86_64-w64-mingw32-g++ -v 2>&1 | grep -q '^Thread model: posix' ||
        fail 'x86_64-w64-mingw32-g++ must be the variant with POSIX threads: choose it with update-alternatives'
    local work=$toolkit.work
    rm -rf "$work" "$toolkit"
    mkdir -p "$work/build"
    printf 'Making the toolkit in %s; this takes some 20 minutes on two cores.\n' "$work"
    fetch_toolkit_source "$work" >"$work/log" 2>&1 || fail "no source package, see $work/log"
    # The libraries' names are written as Windows spells them, where case makes no difference.
    sed -i -E 's/-l[A-Z][A-Za-z0-9]*/\L&/g' "$work/source/src/network/ssl/ssl.pri"
    (
        cd "$work/build"
        "$work/source/configure" -prefix "$toolkit" "${toolkit_options[@]}"
        make -j "${BREKKA_JOBS:-$(nproc)}"
        make install
    ) >>"$work/log" 2>&1 || fail "the toolkit could not be made, see $work/log"
    sed -n 's/^Version: //p' "$work"/*.dsc | head -n 1 >"$toolkit/complete"
    rm -rf "$work"
}
