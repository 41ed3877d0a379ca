# The toolkit for Windows and the library for signatures, made once from the distribution's source
# packages; source it after lib.sh.

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
sodium_packages=(g++-mingw-w64-x86-64-posix make dpkg-dev autoconf automake libtool)

# The folder holds a complete toolkit when "complete" lies in it, and the library for signatures when
# "sodium-complete" does; each holds the version of the source package.
toolkit_key=$(printf '%s\n' "$toolkit_version" "${toolkit_options[@]}" | sha256sum)
toolkit_cache=${XDG_CACHE_HOME:-$HOME/.cache}/brekka
toolkit=$toolkit_cache/toolkit-$toolkit_version-${toolkit_key:0:12}

toolkit_is_there() {
    [ -f "$toolkit/complete" ] && [ -f "$toolkit/sodium-complete" ]
}

# fetch_source FOLDER PACKAGE : unpacks the source package into FOLDER/source. The deb-src entries
# stand in a configuration of our own, made from the package entries that the system has.
# The release comes first: where a version is in its archive and in the updates', mirrors may lack the latter's source.
fetch_source() {
    local apt=$1/apt
    mkdir -p "$apt/lists/partial" "$apt/cache/archives/partial"
    # shellcheck disable=SC2016 # apt-get fills these in
    apt-get indextargets 'Created-By: Packages' --format 'deb-src $(REPO_URI) $(RELEASE) $(COMPONENT)' |
        grep -E ' bookworm(-updates|-security)? main$' | sort -u | sort -s -k3,3 >"$apt/sources.list"
    [ -s "$apt/sources.list" ] || fail 'apt knows no Debian 12 archive to take the source from'
    local options=(
        -o Dir::Etc::SourceList="$apt/sources.list" -o Dir::Etc::SourceParts=/dev/null
        -o Dir::State::Lists="$apt/lists" -o Dir::Cache="$apt/cache"
        -o APT::Sandbox::User="$(id -un)" -o Acquire::Languages=none)
    apt-get "${options[@]}" update -qq
    (cd "$1" && apt-get "${options[@]}" source -qq --only-source "$2")
    mv "$1/$2"-*/ "$1/source"
}

# make_from_source PACKAGE MARK FUNCTION : runs the function in an empty folder, with the source
# package's folder as argument, and notes the package's version in the toolkit's file MARK.
make_from_source() {
    local work=$toolkit.$1.work
    rm -rf "$work"
    mkdir -p "$work/build"
    fetch_source "$work" "$1" >"$work/log" 2>&1 || fail "no source package, see $work/log"
    (cd "$work/build" && "$3" "$work/source") >>"$work/log" 2>&1 || fail "$1 could not be made, see $work/log"
    sed -n 's/^Version: //p' "$work"/*.dsc | head -n 1 >"$toolkit/$2"
    rm -rf "$work"
}

# Both are called where a failed command doesn't end the shell by itself.
build_qt() {
    grep -q "MODULE_VERSION = $toolkit_version\$" "$1/.qmake.conf" || {
        printf 'the source package is not of version %s: adapt scripts/windows/toolkit.sh\n' "$toolkit_version"
        return 1
    }
    # The libraries' names are written as Windows spells them, where case makes no difference.
    sed -i -E 's/-l[A-Z][A-Za-z0-9]*/\L&/g' "$1/src/network/ssl/ssl.pri" &&
        "$1/configure" -prefix "$toolkit" "${toolkit_options[@]}" &&
        make -j "${BREKKA_JOBS:-$(nproc)}" &&
        make install
}

build_sodium() {
    (cd "$1" && autoreconf -fi) &&
        "$1/configure" --host=x86_64-w64-mingw32 --prefix="$toolkit" --disable-shared --enable-static --disable-pie \
            CC=x86_64-w64-mingw32-gcc-posix &&
        make -j "${BREKKA_JOBS:-$(nproc)}" &&
        make install
}

# make_toolkit : makes what isn't in the cache. BREKKA_JOBS limits the compilers at a time.
make_toolkit() {
    if toolkit_is_there; then
        printf 'The toolkit is in the cache: %s\n' "$toolkit"
        return
    fi
    install_packages "${toolkit_packages[@]}" "${sodium_packages[@]}"
    # The makefiles name the compiler without its thread model, and only one of the two has std::mutex.
    x86_64-w64-mingw32-g++ -v 2>&1 | grep -q '^Thread model: posix' ||
        fail 'x86_64-w64-mingw32-g++ must be the variant with POSIX threads: choose it with update-alternatives'
    if [ ! -f "$toolkit/complete" ]; then
        rm -rf "$toolkit"
        printf 'Making the toolkit in %s; this takes some 40 minutes on two cores.\n' "$toolkit"
        make_from_source qtbase-opensource-src complete build_qt
    fi
    [ -f "$toolkit/sodium-complete" ] || make_from_source libsodium sodium-complete build_sodium
}
