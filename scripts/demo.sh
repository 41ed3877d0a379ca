# A plugin, a server and a game for Brekka to work with; source it after lib.sh.

# The server is on this machine, whatever proxy leads out of it.
export no_proxy=127.0.0.1

# Processes to stop when the script ends, in whichever way it ends.
started=()
stop_started() {
    local pid try
    for pid in "${started[@]}"; do
        kill "$pid" 2>/dev/null || continue
        # A process that hangs must not make the script hang.
        for try in {1..50}; do
            kill -0 "$pid" 2>/dev/null || continue 2
            sleep 0.1
        done
        kill -KILL "$pid" 2>/dev/null || true
    done
    started=()
}
trap stop_started EXIT
trap 'exit 129' HUP
trap 'exit 130' INT
trap 'exit 143' TERM

# sample_plugin FOLDER VERSION : makes a small plugin as it would lie in the game folder.
sample_plugin() {
    local own=$1/mods/1.24.0/corvane
    mkdir -p "$1/mods/configs" "$own/assets/icons" "$own/scripts/client"
    head -c 1572864 /dev/urandom >"$own/assets/atlas.bin"
    printf 'icons for tier %s\n' 1 2 3 4 5 6 7 8 9 10 >"$own/assets/icons/tiers.txt"
    printf 'version = "%s"\n' "$2" >"$own/scripts/client/corvane.py"
    printf '把此文件夹留在游戏目录中。\n' >"$own/说明.txt"
    : >"$own/assets/icons/empty.dds"
    cat >"$1/mods/configs/corvane.xml" <<XML
<?xml version="1.0" encoding="UTF-8"?>
<root>
    <setting>3674276352</setting>
    <version>$2</version>
    <game_version>1.24.0.0</game_version>
</root>
XML
}

# serve FOLDER : serves it on loopback, at port 8102 or the first free one after; sets $port.
serve() {
    local token="$$-$RANDOM" try pid
    mkdir -p "$1"
    printf '%s' "$token" >"$1/server-id"
    for port in {8102..8201}; do
        busybox httpd -f -p "127.0.0.1:$port" -h "$1" 2>/dev/null &
        pid=$!
        started+=("$pid")
        for try in {1..50}; do
            # Somebody else's server may answer at the port while ours fails to get it.
            [ "$(curl -fs --max-time 2 "http://127.0.0.1:$port/server-id")" != "$token" ] || return 0
            kill -0 "$pid" 2>/dev/null || break
            sleep 0.1
        done
    done
    fail 'no free port between 8102 and 8201'
}

# ini_text TEXT : TEXT as a value of the settings file, which knows no encoding of its own.
ini_text() {
    printf '"'
    printf '%s' "$1" | iconv -f UTF-8 -t UTF-16BE | od -An -v -tx1 | tr -d ' \n' | sed 's/..../\\x&/g'
    printf '"'
}

# write_settings FILE GAME INTERVAL : what a user would have set, with the server at $port.
write_settings() {
    cat >"$1" <<INI
[General]
game=$(ini_text "$2")
interval=$3

[hosts]
update="127.0.0.1:$port"
INI
}

# remove_unsaved FILE : what a kill while FILE was being saved left beside it.
remove_unsaved() {
    rm -f "$1".?????? "$1.lock"
}

# setting FILE KEY : sets $value to a top-level key's value, empty when there is none. Forks nothing,
# so that a tight loop around it takes no time away from the program that it watches.
setting() {
    local line
    value=
    [ -r "$1" ] || return 0
    while IFS= read -r line; do
        case $line in
        "$2"=*) value=${line#*=} && return ;;
        '[General]') ;;
        '['*) return ;;
        esac
    done 2>/dev/null <"$1" || return 0
}
