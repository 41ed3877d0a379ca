#!/usr/bin/env bash
# The real program through real web servers with the configurations that docs/server ships: it
# installs, is updated, rolled back and paused, and pays next to nothing when nothing is new.
#
#   servers.sh BIN [SERVER...]    BIN: the folder of the programs; SERVER: nginx, caddy; both by default
source "$(dirname "${BASH_SOURCE[0]}")/../../scripts/lib.sh"
source "$root/scripts/demo.sh"
source "$root/scripts/server.sh"

bin=$1
servers=("${@:2}")
[ ${#servers[@]} -gt 0 ] || servers=(nginx caddy)
work=$(mktemp -d)
chmod 755 "$work" # the server may run as somebody else
trap 'stop_started; rm -rf "$work"' EXIT
export QT_QPA_PLATFORM=offscreen QT_FORCE_STDERR_LOGGING=1 XDG_CACHE_HOME=$work/cache XDG_RUNTIME_DIR=$work

# until COMMAND... : waits for it to succeed.
until_true() {
    local deadline=$((SECONDS + 100))
    until "$@"; do
        [ "$SECONDS" -lt "$deadline" ] || {
            tail -n 20 "$work/log" >&2
            fail "never came true: $*"
        }
        sleep 0.1
    done
}

installed() {
    setting "$work/app/brekka.ini" pver
    [ "$value" = "$1" ] && [ "$(cat "$work/game/mods/a" 2>/dev/null)" = "$1" ]
}

said() { [ "$(grep -c "$1" "$work/log")" -ge "$2" ]; }

# publish VERSION
publish() {
    printf '%s\n' "$1" >"$work/plugin/mods/a"
    "$bin/brekka-publish" --plugin-dir "$work/plugin" --plugin-version "$1" \
        --base-url "http://127.0.0.1:$port" --out "$work/out" >/dev/null
}

refused_by_check() {
    ! bash "$root/scripts/check-server.sh" "http://127.0.0.1:$port" >"$work/check" 2>/dev/null || fail 'the check found nothing'
    grep -q "$1" "$work/check" || fail "the check did not say '$1'"
}

# downloads : how many packages the program has asked for.
downloads() { grep -c 'plugin start download' "$work/log"; }

walk() {
    local first checks
    rm -rf "$work/app" "$work/game" "$work/plugin" "$work/out" "$work/cache"
    mkdir -p "$work/app" "$work/game" "$work/plugin/mods"
    cp "$bin/Brekka" "$bin/ver.dll" "$work/app/"
    port=$(free_port)
    publish 1
    "start_$1" "$work/$1" "$port" "$work/out"
    started+=("$server")
    write_settings "$work/app/brekka.ini" "$work/game" 1
    (cd "$work/app" && exec ./Brekka -s) 2>"$work/log" &
    started+=($!)

    until_true installed 1
    first=$("$bin/brekka-publish" --out "$work/out" --list | awk '{ print $3 }')
    bash "$root/scripts/check-server.sh" "http://127.0.0.1:$port" >"$work/check" || fail "$(cat "$work/check")"
    publish 2
    until_true installed 2
    "$bin/brekka-publish" --out "$work/out" --rollback "$first" >/dev/null
    until_true installed 1
    "$bin/brekka-publish" --out "$work/out" --pause >/dev/null
    until_true said 'http request error' 2
    publish 3
    until_true installed 3
    checks=$(grep -c 'OnAutoUpdate start' "$work/log")
    until_true said 'OnAutoUpdate start' $((checks + 3))
    until_true said '^CACHE' 2
    [ "$(downloads)" = 4 ] || fail "$(downloads) downloads in place of 4"

    "$bin/brekka-publish" --plugin-dir "$work/plugin" --plugin-version 4 --out "$work/out" \
        --base-url "http://127.0.0.1:$port/elsewhere" >/dev/null
    refused_by_check 'is --base-url right'
    publish 5
    gzip -nc "$work/out/history/000001.json" >"$work/out/cms/upgrade.gz"
    refused_by_check 'the compressed manifest is another one'
    stop_started
    printf '%s: installed, updated, rolled back, paused, and unchanged for nothing\n' "$1"
}

for name in "${servers[@]}"; do
    walk "$name"
done
