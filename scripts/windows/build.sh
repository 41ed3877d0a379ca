#!/usr/bin/env bash
# Makes the portable archive for 64-bit Windows. The first run makes the toolkit, too, and keeps it
# in the user's cache folder.
source "$(dirname "${BASH_SOURCE[0]}")/../lib.sh"
source "$root/scripts/windows/toolkit.sh"

make_toolkit
