#!/usr/bin/env bash
# What a build or a release is refused for, since programs made so would trust anybody, or nothing.
source "$(dirname "${BASH_SOURCE[0]}")/../../scripts/lib.sh"

key=$(openssl rand -base64 32)

# refused COMPLAINT COMMAND... : ends with a failure that says so.
refused() {
    local output
    output=$("${@:2}" 2>&1) && fail "not refused: ${*:2}"
    grep -qF -- "$1" <<<"$output" || fail "${*:2}: $output"
}

configure() { cmake "${@}" -P "$root/cmake/Publishers.cmake"; }

configure -DBREKKA_PUBLIC_KEYS="$key,$key" -DBREKKA_LOWEST_SERIAL="$(date +%s)"
for keys in "$key," "$key,,$key" "${key%=}" "$key, $key" "$key;$key"; do
    refused BREKKA_PUBLIC_KEYS configure -DBREKKA_PUBLIC_KEYS="$keys"
done
for serial in '' -1 07 1x "$(date +%s%3N)" "$(($(date +%s) + 100))"; do
    refused BREKKA_LOWEST_SERIAL configure -DBREKKA_LOWEST_SERIAL="$serial"
done

# Without a clone it goes no further than its arguments.
mkdir "${work:=$(mktemp -d)}/scripts"
trap 'rm -rf "$work"' EXIT
cp "$root"/scripts/{release,lib}.sh "$work/scripts"
cp "$root/CMakeLists.txt" "$work"
release() { GIT_DIR=$work/none bash "$work/scripts/release.sh" "$@"; }

refused 'or --no-keys' release
refused 'or --no-keys' release -DBREKKA_PUBLIC_KEYS=
refused 'exclude each other' release --no-keys -DBREKKA_PUBLIC_KEYS="$key"
refused 'no clone' release --no-keys
refused 'never the time of this build' release -DBREKKA_PUBLIC_KEYS="$key"
output=$(release -DBREKKA_PUBLIC_KEYS="$key" -DBREKKA_LOWEST_SERIAL=7 2>&1) && exit 1
[[ $output != *'never the time'* ]]
