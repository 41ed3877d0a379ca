#!/usr/bin/env bash
# Runs each row of a test function in a process and a program folder of its own, several side by side.
#
#   rows.sh PROGRAM FUNCTION [EMULATOR...]
set -uo pipefail

program=$1
function=$2
shift 2
work=$(mktemp -d -p "$(dirname "$program")")
trap 'rm -rf "$work"' EXIT

# run ROW : in a hard link of the program, which keeps its files where it lies.
run() {
    local folder
    folder=$(mktemp -d -p "$work")
    ln "$program" "$folder/"
    if "${@:2}" "$folder/$(basename "$program")" "$function:$1" >"$folder/log" 2>&1; then
        printf 'PASS: %s\n' "$1"
        return
    fi
    printf 'FAIL: %s\n' "$1"
    cat "$folder/log"
    : >"$folder/failed"
}

# Each line is "class function row".
mapfile -t rows < <("$@" "$program" -datatags | tr -d '\r' | sed -n "s/^[^ ]* $function //p")
for row in "${rows[@]}"; do
    # Most of the time a row waits.
    while [ "$(jobs -pr | wc -l)" -ge $((2 * $(nproc) + 2)) ]; do
        wait -n
    done
    run "$row" "$@" &
done
wait
failed=$(find "$work" -name failed | wc -l)
printf '%d rows, %d failed\n' "${#rows[@]}" "$failed"
[ "${#rows[@]}" -gt 0 ] && [ "$failed" = 0 ]
