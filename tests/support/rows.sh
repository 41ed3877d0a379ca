#!/usr/bin/env bash
# Runs each row of a test function in a process and a program folder of its own, several side by side.
#
#   rows.sh PROGRAM FUNCTION [EMULATOR...]
set -euo pipefail

export program=$1 function=$2 work
shift 2
work=$(mktemp -d -p "$(dirname "$program")")
trap 'rm -rf "$work"' EXIT

# run ROW [EMULATOR...] : in a hard link of the program, which keeps its files where it lies.
run() {
    local folder
    folder=$(mktemp -d -p "$work")
    ln "$program" "$folder/"
    local result=0
    "${@:2}" "$folder/$(basename "$program")" "$function:$1" >"$folder/log" 2>&1 || result=$?
    # Wine kills a process that takes more than half a second to go, as on a busy machine.
    if [ $# -gt 1 ] && [ "$result" = 137 ] && grep -q '^Totals: .* 0 failed,' "$folder/log"; then
        result=0
    fi
    if [ "$result" = 0 ]; then
        printf 'PASS: %s\n' "$1"
    else
        printf 'FAIL: %s ended with %s\n' "$1" "$result"
        cat "$folder/log"
        return 1
    fi
}
export -f run

# Each line is "class function row".
"$@" "$program" -datatags | tr -d '\r' | sed -n "s/^[^ ]* $function //p" >"$work/rows"
[ -s "$work/rows" ]
# Most of the time a row waits.
xargs -a "$work/rows" -d '\n' -I '{}' -P $((2 * $(nproc) + 2)) bash -c 'run "$@"' _ '{}' "$@"
