#!/bin/sh
# Installs Brekka for the user who runs this, or puts this version in the place of another.
set -eu
here=$(CDPATH='' cd -- "$(dirname "$0")" && pwd -P)
# shellcheck source=/dev/null
. "$here/places.sh"

# packages LIBRARY... : what Debian calls the packages that they come in.
packages() {
    for library in "$@"; do
        case $library in
        libQt5Core.so.*) printf ' libqt5core5a' ;;
        libQt5*) printf ' lib%s5' "$(expr "$library" : 'lib\(.*\)\.so' | tr '[:upper:]' '[:lower:]')" ;;
        libsodium.so.*) printf ' libsodium23' ;;
        libcrypto.so.*) printf ' libssl3' ;;
        libz.so.*) printf ' zlib1g' ;;
        *) printf ' %s' "$library" ;;
        esac
    done
}

# check_libraries : Qt comes from the distribution; without it nothing is changed.
check_libraries() {
    # On a disk that nothing may be run from, even looking at them fails.
    [ -x "$here/program/Brekka" ] || fail "这个文件夹中的程序不能运行。请解压到你自己的用户文件夹，然后重试：$here"
    command -v ldd >/dev/null || return 0
    strange=
    report=$(LC_ALL=C ldd "$here/program/Brekka" 2>&1) || strange=yes
    missing=$(printf '%s\n' "$report" | sed -n 's/^[[:space:]]*\([^ ]*\) => not found.*/\1/p')
    # shellcheck disable=SC2086 # a list of words
    [ -z "$missing" ] || fail "缺少以下软件包，请先安装，例如：sudo apt install$(packages $missing)"
    old=$(printf '%s\n' "$report" | grep 'version .* not found' || true)
    [ -z "$old" ] || fail "系统中的库版本太旧（需要 Debian 12 或更新的发行版）：$old"
    [ -z "$strange" ] || fail "这台电脑不能运行此程序：$report"
}

# A desktop entry has no way to name such a folder that all desktops understand.
check_folder() {
    case $program in
    *[%=[:cntrl:]]*) fail "文件夹路径中不能有百分号、等号或控制字符：$program" ;;
    esac
}

# value TEXT : as a value of a desktop entry.
value() {
    printf '%s' "$1" | sed 's/\\/\\\\/g'
}

# word TEXT : as a word of a command in such a value.
word() {
    value "\"$(printf '%s' "$1" | sed 's/[\\"`$]/\\&/g')\""
}

# put ENTRY MODE : standard input becomes the file, in one step: neither an interruption nor a full
# disk leaves half of it.
put() {
    target "$1" &&
        mkdir -p "$(dirname "$file")" &&
        cat >"$file.new" &&
        chmod "$2" "$file.new" &&
        mv -f "$file.new" "$file" && return 0
    printf '%s\n' "不能写入：$file" >&2
    rm -f "$file.new"
    return 1
}

# entries : what this version installs.
entries() {
    (cd "$here" && find program share -type f && printf 'bin/brekka\n') | LC_ALL=C sort
}

# The program's folder is the current one wherever it is started: its settings lie there.
write_desktop_entry() {
    while IFS= read -r line; do
        case $line in
        Exec=*) printf 'Exec=%s\nPath=%s\n' "$(word "$program/Brekka")" "$(value "$program")" ;;
        *) printf '%s\n' "$line" ;;
        esac
    done
}

write_command() {
    printf '#!/bin/sh\ncd %s && exec ./Brekka "$@"\n' "'$(printf '%s' "$program" | sed "s/'/'\\\\''/g")'"
}

copy_files() {
    entries | while IFS= read -r entry; do
        case $entry in
        bin/brekka) write_command | put "$entry" 755 ;;
        share/applications/*) write_desktop_entry <"$here/$entry" | put "$entry" 644 ;;
        program/ver.dll | share/*) put "$entry" 644 <"$here/$entry" ;;
        *) put "$entry" 755 <"$here/$entry" ;;
        esac
    done
}

# remove_outdated : what the version before had and this one hasn't.
remove_outdated() {
    entries >"$list.new"
    LC_ALL=C grep -vxFf "$list.new" "$list" | while IFS= read -r entry; do
        remove_entry "$entry"
    done
    mv -f "$list.new" "$list"
}

restart() {
    [ -n "$ran" ] || return 0
    if [ -z "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]; then
        printf '%s\n' "请重新启动Brekka助手。"
        return 0
    fi
    (cd "$program" && exec nohup ./Brekka -s </dev/null >/dev/null 2>&1) &
}

refuse_sudo
check_folder
check_libraries
mkdir -p "$program"
end_copy
trap 'printf "%s\n" "安装没有完成。解决以上问题后，请再次运行 install.sh。" >&2' EXIT
# Before the files, so that what an interruption leaves can be removed.
entries >>"$list"
copy_files
remove_outdated
# Else a cache there, older than our icons, would hide them.
touch "$data/icons/hicolor"
trap - EXIT
restart
printf '%s\n' "Brekka助手已安装。可以从应用程序菜单启动，或运行：$commands/brekka"
printf '%s\n' "卸载：$program/uninstall.sh"
