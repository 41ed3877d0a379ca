# Shared by the scripts; source it. Sets $root to the project's folder.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# File names and texts are UTF-8, also on a machine without a locale.
export LC_ALL=C.UTF-8

# What building and running need, what the tests need on top.
build_packages=(g++ cmake make pkg-config qtbase5-dev qtbase5-private-dev zlib1g-dev libsodium-dev libssl-dev fonts-noto-cjk)
run_packages=(busybox curl qttranslations5-l10n)
bench_packages=(busybox curl unzip)
test_packages=(zip unzip openssl zbar-tools busybox nginx-light curl jq xvfb openbox x11-utils xdotool wmctrl)
lint_packages=(clang clang-format clang-tidy clazy shellcheck git)
mingw_packages=(g++-mingw-w64-x86-64-posix wine wine64 desktop-file-utils libglib2.0-bin)

linux_packages=(librsvg2-bin desktop-file-utils appstream)
linux_test_packages=(xvfb openbox xdotool libglib2.0-bin desktop-file-utils busybox curl devscripts)
windows_packages=(libz-mingw-w64-dev zip qttranslations5-l10n nsis)
windows_test_packages=(locales xvfb openbox picom xdotool imagemagick unzip busybox curl fonts-liberation fonts-noto-cjk)

fail() {
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit 1
}

# install_packages PACKAGE... : installs those that are missing, as root or through sudo. Without
# either it prints the exact list and stops; without apt-get it prints the list and carries on.
install_packages() {
    local missing=() package
    if ! command -v apt-get >/dev/null; then
        printf 'No apt-get here; these packages, or what your distribution calls them, are needed: %s\n' "$*"
        return
    fi
    for package in "$@"; do
        [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    local as_root=()
    if [ "$(id -u)" != 0 ]; then
        command -v sudo >/dev/null || fail "missing packages, install them first: ${missing[*]}"
        as_root=(sudo)
    fi
    printf 'Installing: %s\n' "${missing[*]}"
    "${as_root[@]}" apt-get update -qq || true
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" \
        >"${TMPDIR:-/tmp}/brekka-apt.log" 2>&1 || {
        cat "${TMPDIR:-/tmp}/brekka-apt.log" >&2
        fail "could not install: ${missing[*]}"
    }
}

# build PRESET : configures and builds a preset with all cores.
build() {
    (cd "$root" && cmake --preset "$1" >/dev/null && cmake --build --preset "$1" -j "$(nproc)")
}

# project_version : the version that the programs carry.
project_version() {
    sed -n 's/^project(Brekka VERSION \([0-9.]*\) .*/\1/p' "$root/CMakeLists.txt"
}

# set_source_date : the time that files and archives of a release carry, that of the commit. Tools of
# others read the variable, too.
set_source_date() {
    export SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git -C "$root" log -1 --format=%ct 2>/dev/null || date +%s)}
}

# level FOLDER : nothing of the files in it tells who made them when, but for their contents.
level() {
    chmod -R u=rwX,go=rX "$1"
    find "$1" -exec touch -d "@$SOURCE_DATE_EPOCH" {} +
}
