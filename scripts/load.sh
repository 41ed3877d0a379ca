#!/usr/bin/env bash
# Loads nginx, with the configuration of docs/server and on loopback, with polls for manifests of
# several sizes, and prints what a million players would ask of a server.
#
#   scripts/load.sh [SECONDS]    how long each measurement takes; 5 by default
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
source "$root/scripts/server.sh"

seconds=${1:-5}
players=1000000
interval=300
work=$(mktemp -d)
chmod 755 "$work" # nginx may run as somebody else
server=
trap '[ -z "$server" ] || kill "$server"; rm -rf "$work"' EXIT

# poll_bytes OPTION... : of one answer, head and body.
poll_bytes() {
    curl -s -o /dev/null -w '%{size_header} %{size_download}' "$@" "$url" | awk '{ print $1 + $2 }'
}

# measure FILES KIND OPTION... : a line of the table.
measure() {
    local rate bytes
    bytes=$(poll_bytes "${@:3}")
    rate=$(wrk -t 2 -c 64 -d "${seconds}s" "${@:3}" "$url" | awk '/^Requests\/sec/ { print $2 }')
    awk -v files="$1" -v kind="$2" -v bytes="$bytes" -v rate="$rate" -v polls="$((players / interval))" \
        'BEGIN { printf "%6d  %-12s %9d %12.0f %14.4f\n", files, kind, bytes, rate, polls * bytes * 8 / 1e9 }'
}

install_packages "${build_packages[@]}" "${server_packages[@]}" wrk
build release
printf '%d players every %d s: %d polls a second\n' "$players" "$interval" $((players / interval))
printf '%6s  %-12s %9s %12s %14s\n' files poll bytes requests/s Gbit/s
for files in 20 500 5000; do
    mkdir -p "$work/$files/mods"
    for number in $(seq "$files"); do
        printf '%s\n' "$number" >"$work/$files/mods/scripted_module_$number.pyc"
    done
    "$root/build/release/bin/brekka-publish" --plugin-dir "$work/$files" --plugin-version 1 \
        --base-url http://127.0.0.1 --out "$work/$files.out" >/dev/null
    port=$(free_port)
    start_nginx "$work/nginx-$files" "$port" "$work/$files.out"
    url=http://127.0.0.1:$port/cms/upgrade
    tag=$(curl -sI -H 'Accept-Encoding: gzip' "$url" | tr -d '\r' | sed -n 's/^ETag: //Ip')
    measure "$files" plain
    measure "$files" gzip -H 'Accept-Encoding: gzip'
    measure "$files" unchanged -H 'Accept-Encoding: gzip' -H "If-None-Match: $tag"
    kill "$server"
    wait "$server" 2>/dev/null || true
    server=
done
