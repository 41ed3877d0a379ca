# Where Brekka lies for the user who runs this, and how its running copy is ended; install.sh and
# uninstall.sh read it. Plain POSIX shell, because it runs wherever players are.

id=example.brekka.Brekka

# Folders that are not absolute are to be ignored.
case ${XDG_DATA_HOME:-} in
/*) data=$XDG_DATA_HOME ;;
*) data=$HOME/.local/share ;;
esac
case ${XDG_CACHE_HOME:-} in
/*) cache=$XDG_CACHE_HOME/Brekka/http ;;
*) cache=$HOME/.cache/Brekka/http ;;
esac
program=$data/brekka
commands=$HOME/.local/bin
list=$program/installed.txt # what the last installation put where, a line for each file
patience=60                 # seconds for a running copy to end, which may be unpacking a package

fail() {
    printf '%s\n' "$*" >&2
    exit 1
}

refuse_sudo() {
    [ -z "${SUDO_USER:-}" ] || fail "请直接运行，不要使用 sudo：Brekka助手只安装在你自己的用户文件夹中。"
}

# target ENTRY : sets $file to where an entry of the list lies; fails for what no installation puts
# there. The list is anybody's to edit.
target() {
    case /$1/ in
    */../*) return 1 ;;
    /program/?*) file=$program/${1#program/} ;;
    /share/*/"$id".*) file=$data/${1#share/} ;;
    /bin/brekka/) file=$commands/brekka ;;
    *) return 1 ;;
    esac
    [ ! -d "$file" ]
}

# remove_entry ENTRY : the file, what an interrupted installation left of it, and the folders that it
# leaves empty.
remove_entry() {
    target "$1" || return 0
    rm -f "$file" "$file.new"
    folder=$(dirname "$file")
    while [ "$folder" != "${HOME%/}" ] && [ "$folder" != / ] && rmdir "$folder" 2>/dev/null; do
        folder=$(dirname "$folder")
    done
}

# running : the processes of the installed copy; others elsewhere go on.
running() {
    real=$(cd "$program" 2>/dev/null && pwd -P) || return 0
    for link in /proc/[0-9]*/exe; do
        case $(readlink "$link" 2>/dev/null) in
        "$real/Brekka" | "$real/Brekka (deleted)")
            link=${link#/proc/}
            printf '%s\n' "${link%/exe}"
            ;;
        esac
    done
}

# end_copy : ends it as its tray menu would. $ran tells whether there was one. Ends the script with 3
# when it stays.
end_copy() {
    ran=
    left=$((patience * 5))
    for process in $(running); do
        ran=yes
        kill "$process" 2>/dev/null || true
    done
    while [ -n "$(running)" ]; do
        if [ "$left" = 0 ]; then
            printf '%s\n' "Brekka助手仍在运行。请先退出它，然后重试。" >&2
            exit 3
        fi
        left=$((left - 1))
        sleep 0.2
    done
}
