#!/usr/bin/env bash
# What is reported as installed is on the disk: one sync of the file system follows the last file.
#
#   power.sh BIN    BIN: the folder of the programs
set -euo pipefail

log=$(mktemp)
trap 'rm -f "$log"' EXIT
# Leaks can't be looked for in a traced process.
LSAN_OPTIONS=detect_leaks=0 strace -f -o "$log" -e trace=rename,syncfs "$1/tst_zip" unpacks:well >/dev/null
calls=$(sed -nE 's/.*rename\(.*brekka-part".*= 0$/file/p; s/.*syncfs\(.*= 0$/sync/p' "$log" | xargs)
[ "$calls" = 'file file file sync' ] || {
    printf 'expected three files and one sync, but saw: %s\n' "$calls" >&2
    exit 1
}
