#!/usr/bin/env bash
# Somebody on the wire answers in place of the update server, once; then the honest server is back,
# real and configured as docs/server has it. A program with keys takes the honest plugin at its next
# check. One without keys believes a forgery that is well-formed, but no longer than until it asks
# without a condition, which its next start does.
#
#   forged.sh BIN SERVER...    BIN: the folder of the programs; SERVER: nginx, caddy
source "$(dirname "${BASH_SOURCE[0]}")/../../scripts/lib.sh"
source "$root/scripts/demo.sh"
source "$root/scripts/server.sh"

# answer FOLDER : one request, from standard input; the head of the manifest's answer lies beside its
# body. Packages are whatever the forger's own folder has.
answer() {
    local target line
    IFS=' ' read -r _ target _
    while IFS= read -r line && [ "$line" != $'\r' ]; do :; done
    case $target in
    *upgrade*)
        printf 'HTTP/1.1 200 OK\r\nConnection: close\r\n' && cat "$1/head"
        printf '\r\n' && cat "$1/body"
        ;;
    *) printf 'HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n' && cat "$1/evil/packages/${target##*/}" ;;
    esac
}
if [ "$2" = answer ]; then
    answer "$1"
    exit
fi
source "$root/tests/support/program.sh"
export QT_QPA_PLATFORM=offscreen

stop() {
    kill "$1"
    wait "$1" 2>/dev/null || true
}

# make_evil : a plugin of the forger's, unsigned, fetched from the same address.
make_evil() {
    cp -R "$work/plugin" "$work/evil-plugin"
    printf 'evil\n' >"$work/evil-plugin/mods/a"
    "$bin/brekka-publish" --plugin-dir "$work/evil-plugin" --plugin-version evil \
        --base-url "http://127.0.0.1:$port" --out "$work/evil" >/dev/null
}

# forge KIND : what the forger answers. The honest answer's names for its version are known to all.
forge() {
    cp "$work/evil/cms/upgrade" "$work/body"
    curl -fsI "http://127.0.0.1:$mirror//cms/upgrade" | grep -iE '^(etag|last-modified):' >"$work/head"
    case $1 in
    'from the future') printf 'Last-Modified: Thu, 01 Jan 2099 00:00:00 GMT\r\n' >"$work/head" ;;
    'the same version') ;;
    'no manifest') printf 'welcome to the hotspot' >"$work/body" ;;
    'half a manifest') printf '{"errno": 0, "data": {"version_name": "evil"}}' >"$work/body" ;;
    'an error') printf '{"errno": 7}' >"$work/body" ;;
    *) fail "no such forgery: $1" ;;
    esac
}

# meet_forger : in place of the server, until the program has had an answer of its.
meet_forger() {
    local forger seen
    seen=$(grep -c ReadPlginUpdateRequestBody "$log")
    busybox nc -ll -p "$port" 127.0.0.1 -e "$0" "$work" answer 2>/dev/null &
    forger=$!
    started+=("$forger")
    eventually said ReadPlginUpdateRequestBody $((seen + 1))
    [ "$believed" = no ] || eventually installed evil
    stop "$forger"
}

# story SERVER PROGRAM KIND
story() {
    local keys=() believed=no
    [ "$2" = Brekka ] || keys=(--key "$root/docs/signing/example-key.pem")
    case $2:$3 in Brekka:'from the future' | Brekka:'the same version') believed=yes ;; esac
    new_program
    cp "$bin/$2" "$work/app/Brekka"
    port=$(free_port)
    publish 1 "${keys[@]}"
    rm -rf "$work/evil" "$work/evil-plugin"
    make_evil
    "start_$1" "$work/$1" "$port" "$work/out"
    started+=("$server")
    write_settings "$ini" "$work/game" 1
    start_program -s
    eventually installed 1

    # The program must not see this one before the forger has answered in its place.
    stop "$server"
    publish 2 "${keys[@]}"
    mirror=$(free_port)
    "start_$1" "$work/mirror" "$mirror" "$work/out"
    forge "$3"
    stop "$server"
    meet_forger
    "start_$1" "$work/$1" "$port" "$work/out"
    started+=("$server")
    if [ "$believed" = yes ]; then
        stop "$program"
        start_program -s
    fi
    eventually installed 2
    stop_started
    printf '%s, %s, %s: forgotten\n' "$1" "$2" "$3"
}

install_packages "${test_packages[@]}"
for name in "${@:2}"; do
    for program_name in Brekka BrekkaWithKeys; do
        for kind in 'from the future' 'the same version' 'no manifest' 'half a manifest' 'an error'; do
            story "$name" "$program_name" "$kind"
        done
    done
done
