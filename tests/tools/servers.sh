#!/usr/bin/env bash
# The real program through real web servers with the configurations that docs/server ships: it
# installs, is updated, rolled back and paused, and pays next to nothing when nothing is new.
#
#   servers.sh BIN [SERVER...]    BIN: the folder of the programs; SERVER: nginx, caddy; both by default
source "$(dirname "${BASH_SOURCE[0]}")/../../scripts/lib.sh"
source "$root/scripts/demo.sh"
source "$root/scripts/server.sh"
source "$root/tests/support/program.sh"

servers=("${@:2}")
[ ${#servers[@]} -gt 0 ] || servers=(nginx caddy)
export QT_QPA_PLATFORM=offscreen

refused_by_check() {
    ! bash "$root/scripts/check-server.sh" "http://127.0.0.1:$port" >"$work/check" 2>/dev/null || fail 'the check found nothing'
    grep -q "$1" "$work/check" || fail "the check did not say '$1'"
}

# downloads : how many packages the program has asked for.
downloads() { grep -c 'plugin start download' "$log"; }

walk() {
    local first checks
    new_program
    port=$(free_port)
    publish 1
    "start_$1" "$work/$1" "$port" "$work/out"
    started+=("$server")
    write_settings "$ini" "$work/game" 1
    start_program -s

    eventually installed 1
    first=$("$bin/brekka-publish" --out "$work/out" --list | awk '{ print $3 }')
    bash "$root/scripts/check-server.sh" "http://127.0.0.1:$port" >"$work/check" || fail "$(cat "$work/check")"
    publish 2
    eventually installed 2
    "$bin/brekka-publish" --out "$work/out" --rollback "$first" >/dev/null
    eventually installed 1
    "$bin/brekka-publish" --out "$work/out" --pause >/dev/null
    eventually said 'http request error' 2
    publish 3
    eventually installed 3
    checks=$(grep -c 'OnAutoUpdate start' "$log")
    eventually said 'OnAutoUpdate start' $((checks + 3))
    eventually said 'CACHE QUrl' 2
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
