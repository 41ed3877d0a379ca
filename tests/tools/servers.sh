#!/usr/bin/env bash
# The real program through real web servers with the configurations that docs/server ships: it
# installs, is updated, rolled back and paused, and pays next to nothing when nothing is new.
#
#   servers.sh BIN SERVER...    BIN: the folder of the programs; SERVER: nginx, caddy
source "$(dirname "${BASH_SOURCE[0]}")/../../scripts/lib.sh"
source "$root/scripts/demo.sh"
source "$root/scripts/server.sh"
source "$root/tests/support/program.sh"

export QT_QPA_PLATFORM=offscreen
must [ $# -gt 1 ]

refused_by_check() {
    ! bash "$root/scripts/check-server.sh" "http://127.0.0.1:$port" >"$work/check" 2>/dev/null || fail 'the check found nothing'
    grep -q "$1" "$work/check" || fail "the check did not say '$1'"
}

for name in "${@:2}"; do
    new_program
    port=$(free_port)
    publish 1
    "start_$name" "$work/$name" "$port" "$work/out"
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
    eventually said 'OnAutoUpdate start' $(($(grep -c 'OnAutoUpdate start' "$log") + 3))
    eventually said 'CACHE QUrl' 2
    must [ "$(grep -c 'plugin start download' "$log")" = 4 ]

    publish 4 --base-url "http://127.0.0.1:$port/elsewhere"
    refused_by_check 'is --base-url right'
    publish 5
    gzip -nc "$work/out/history/000001.json" >"$work/out/cms/upgrade.gz"
    refused_by_check 'the compressed manifest is another one'
    stop_started
    printf '%s: installed, updated, rolled back, paused, and unchanged for nothing\n' "$name"
done
