#!/usr/bin/env bash
# Runs the real program against servers that mean to hurt it, and prints how much memory each of them
# costs at most, above what the program takes when there is nothing to do. Fails when that is more
# than 64 MiB, or when the program doesn't live through it. One entry of an archive is reported only:
# each is unpacked whole in memory, however large. Writes some GB below the temporary folder.
#
#   scripts/memory.sh [CASE...]    all by default; "-l" lists them
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

most=64     # MiB
patience=20 # seconds for a case to come to its end; some never do

# Each case: its name, and the debug line that it ends with.
cases='
endless-manifest|http failed
gzip-manifest|http failed
deflate-manifest|http failed
nested-manifest|no need update plugin
largest-manifest|no need update plugin
slow-manifest|http failed
many-headers|http failed
endless-headers|http failed
endless-header|http failed
login-manifest|http failed
endless-package|downloadFinished
endless-sized-package|downloadFinished
gzip-package|downloadFinished
gzip-sized-package|downloadFinished
empty-blocks-package|downloadFinished
slow-package|downloadFinished
package-headers|downloadFinished
redirected-package|downloadFinished
overlapping-zip|extract failed
one-entry-zip|extract CompleteValue: 100
largest-directory-zip|extract failed
long-names-zip|extract failed'

# What the server sends. Its input and output are the connection.

# head_of STATUS [HEADER...] : of an answer that ends with the connection.
head_of() {
    printf 'HTTP/1.1 %s Status\r\nConnection: close\r\n' "$1"
    [ $# = 1 ] || printf '%s\r\n' "${@:2}"
    printf '\r\n'
}

# manifest [FIELD] : that offers the package of this case.
manifest() {
    head_of 200
    printf '{"errno": 0, "data": {"version_name": "2", "md5": "%s", %s "link": "http://127.0.0.1:%s/package"}}' \
        "$(md5sum <"$work/package" | cut -d ' ' -f 1)" "${1-}" "$port"
}

# slowly BYTE : one a second.
slowly() {
    while printf '%s' "$1"; do sleep 1; done
}

answer() {
    local target line case
    case=$(cat "$work/case")
    IFS=' ' read -r _ target _
    while IFS= read -r line && [ "$line" != $'\r' ]; do :; done
    case $case:$target in
    endless-manifest:*upgrade*) head_of 200 && yes ' ' ;;
    gzip-manifest:*upgrade*) head_of 200 'Content-Encoding: gzip' && cat "$work/zeros-1024.gz" ;;
    deflate-manifest:*upgrade*) head_of 200 'Content-Encoding: deflate' && cat "$work/zeros-1024" ;;
    nested-manifest:*upgrade*) head_of 200 && head -c 2000000 /dev/zero | tr '\0' '[' ;;
    largest-manifest:*upgrade*)
        head_of 200
        printf '{"data": {"version_name": "", "upgrade_info": "{'
        seq -f '\"mods/a/folder/%06.0f.pyc\":\"00000000000000000000000000000000\",' 1 29000 | tr -d '\n'
        printf '\\"z\\":\\"\\"}"}}'
        ;;
    slow-manifest:*upgrade*) head_of 200 && slowly ' ' ;;
    many-headers:*upgrade* | package-headers:*package)
        printf 'HTTP/1.1 200 OK\r\n' && seq -f 'X-%.0f: 1' 20000 && printf '\r\n{}'
        ;;
    endless-headers:*upgrade*) printf 'HTTP/1.1 200 OK\r\n' && yes 'X: 1' ;;
    endless-header:*upgrade*) printf 'HTTP/1.1 200 OK\r\nX: ' && tr '\0' x </dev/zero ;;
    login-manifest:*upgrade*) head_of 401 'WWW-Authenticate: NTLM' && yes ;;
    *-sized-package:*upgrade*) manifest '"size": "1000000",' ;;
    *-package:*upgrade* | package-*:*upgrade* | *-zip:*upgrade*) manifest ;;
    endless-*:*package) head_of 200 && head -c 1G /dev/zero ;;
    gzip-*:*package) head_of 200 'Content-Encoding: gzip' && cat "$work/zeros-1024.gz" ;;
    empty-blocks-*:*package) head_of 200 'Content-Encoding: deflate' && yes $'\t' | tr -d '\n' ;;
    slow-*:*package) head_of 200 && slowly p ;;
    redirected-*:*package) head_of 302 'Location: /elsewhere' && yes ;;
    *-zip:*package) head_of 200 && cat "$work/package" ;;
    *) head_of 200 && printf '{}' ;;
    esac
} 2>/dev/null # the program hangs up sooner or later

if [ "${1-}" = answer ]; then
    answer
    exit
fi

# What it sends of that.

# number BYTES VALUE : as archives hold them.
number() {
    local shift text=
    for ((shift = 0; shift < $1 * 8; shift += 8)); do
        printf -v text '%s\\x%02x' "$text" $((($2 >> shift) & 255))
    done
    printf '%b' "$text"
}

# entry NAME MIB : of an archive's directory, for so many zeros at its start.
entry() {
    zeros "$2"
    printf 'PK\1\2' && number 2 20 && number 2 20 && number 2 0 && number 2 8 && number 4 0
    cat "$work/sums-$2" && number 2 ${#1} && number 4 0 && number 4 0 && number 4 0 && number 4 0
    printf '%s' "$1"
}

# archive COUNT MIB : with the directory "entries", all of whose entries share the same zeros.
archive() {
    {
        printf 'PK\3\4' && number 2 20 && number 2 0 && number 2 8 && number 4 0
        cat "$work/sums-$2" && number 2 1 && number 2 0 && printf 0 && cat "$work/zeros-$2"
    } >"$work/package"
    local start
    start=$(stat -c %s "$work/package")
    {
        cat "$work/entries" && printf 'PK\5\6' && number 4 0 && number 2 "$1" && number 2 "$1"
        number 4 "$(stat -c %s "$work/entries")" && number 4 "$start" && number 2 0
    } >>"$work/package"
}

# zeros MIB : gzip of so many, the deflated data alone, and its checksum and sizes as archives want them.
zeros() {
    [ ! -e "$work/zeros-$1.gz" ] || return 0
    head -c "$1M" /dev/zero | gzip -9n >"$work/zeros-$1.gz"
    tail -c +11 "$work/zeros-$1.gz" | head -c -8 >"$work/zeros-$1"
    {
        tail -c 8 "$work/zeros-$1.gz" | head -c 4
        number 4 "$(stat -c %s "$work/zeros-$1")" && number 4 $(($1 << 20))
    } >"$work/sums-$1"
}

# long_names COUNT : an archive of so many entries.
long_names() {
    local index
    entry "$(head -c 65000 /dev/zero | tr '\0' n)" 1 >"$work/entry"
    for ((index = 0; index < $1; ++index)); do cat "$work/entry"; done >"$work/entries"
    archive "$1" 1
}

# make_package CASE
make_package() {
    local index
    printf none >"$work/package"
    : >"$work/entries"
    case $1 in
    gzip-* | deflate-*) zeros 1024 ;;
    overlapping-zip)
        for index in {1..40}; do entry "file$index" 64; done >"$work/entries"
        archive 40 64
        ;;
    one-entry-zip) entry 0 1024 >"$work/entries" && archive 1 1024 ;;
    largest-directory-zip) long_names 193 ;;
    long-names-zip) long_names 1600 ;;
    esac
}

# What it costs.

# run CASE LINE : sets $peak, in KiB, and $end to how it went.
run() {
    local deadline=$((SECONDS + patience))
    printf '%s' "$1" >"$work/case"
    new_program
    write_settings "$ini" "$work/game" 300
    start_program -s
    end=ended
    until said "$2"; do
        sleep 0.1
        kill -0 "$program" 2>/dev/null || { end=died && break; }
        peak=$(awk '/VmHWM/ { print $2 }' "/proc/$program/status")
        # Before it costs the machine its life.
        [ "${peak:-0}" -lt 1500000 ] || { end='too much' && break; }
        [ "$SECONDS" -lt "$deadline" ] || { end='goes on' && break; }
    done
    [ "$end" = died ] || peak=$(awk '/VmHWM/ { print $2 }' "/proc/$program/status")
    kill -KILL "$program" 2>/dev/null || true
    wait "$program" 2>/dev/null || true
    unset 'started[-1]'
}

if [ "${1-}" = -l ]; then
    sed -n 's,|.*,,p' <<<"$cases"
    exit
fi
source "$root/scripts/demo.sh"
source "$root/tests/support/program.sh" "$root/build/release/bin"
install_packages "${build_packages[@]}" busybox curl
build release
export work port QT_QPA_PLATFORM=offscreen LC_ALL=C.UTF-8
printf idle >"$work/case"
for port in {8202..8301} none; do
    busybox nc -ll -p "$port" 127.0.0.1 -e "$root/scripts/memory.sh" answer 2>/dev/null &
    started+=($!)
    sleep 0.3
    ! kill -0 $! 2>/dev/null || break
done
[ "$port" != none ] || fail 'no free port'

run idle 'no need update plugin'
idle=$peak
printf '%-24s %8s  %s\n' '' MiB '' idle $((idle / 1024)) "$end"
[ "$end" = ended ] || fail 'the program does not even run'
result=0
while IFS='|' read -r name line; do
    [ -n "$name" ] || continue
    [ $# = 0 ] || [[ " $* " == *" $name "* ]] || continue
    make_package "$name"
    run "$name" "$line"
    more=$(((peak - idle) / 1024))
    [ "$name" != one-entry-zip ] || end+=', not judged'
    printf '%-24s %8s  %s\n' "$name" "+$more" "$end"
    [ "$end" != died ] || result=1
    [[ $more -lt $most || $end == *judged ]] || result=1
done <<<"$cases"
[ "$result" = 0 ] || fail "more than $most MiB, or an end"
