#!/usr/bin/env bash
# Asks an update server as players' programs do and says what is wrong with its answers.
#
#   scripts/check-server.sh URL    URL: http://HOST[:PORT], what the program was built for
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

[ $# = 1 ] || fail 'usage: check-server.sh http://HOST[:PORT]'
base=${1%/}
install_packages curl jq unzip
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
problems=0

good() { printf 'ok       %s\n' "$*"; }
bad() {
    printf 'PROBLEM  %s\n' "$*"
    problems=$((problems + 1))
}

# ask NAME URL [OPTION...] : sets $status; head and body go to files of that name.
ask() {
    status=$(curl -sS --max-time 300 -o "$work/$1" -D "$work/$1.head" -w '%{http_code}' "${@:3}" "$2") || status=000
}

# header NAME FIELD : of the answer NAME.
header() {
    tr -d '\r' <"$work/$1.head" | sed -n "s/^$2: *//Ip" | tail -n 1
}

check_manifest() {
    local query='cms/upgrade?platform=102&v=0'
    # The program follows redirects to the manifest, though not to the package.
    ask single "$base/$query" -L
    [ "$status" = 200 ] || bad "the manifest with one slash: status $status, expected 200"
    ask manifest "$base//$query" -L
    [ "$status" = 200 ] || bad "the manifest with two slashes: status $status, expected 200"
    if cmp -s "$work/single" "$work/manifest"; then
        good 'the manifest, with one slash and with two'
    else
        bad 'the manifest differs with one slash and with two'
    fi
    jq -e 'type == "object"' "$work/manifest" >/dev/null 2>&1 || {
        bad 'the manifest is no JSON object'
        return 1
    }
    [ "$(jq '.errno // 0' "$work/manifest")" = 0 ] || {
        good 'paused: nothing is offered'
        return 1
    }
}

check_compressed() {
    ask packed "$base//cms/upgrade" -L -H 'Accept-Encoding: gzip'
    if [ "$(header packed Content-Encoding)" != gzip ]; then
        bad 'the manifest is not compressed for who takes gzip; that costs about half of the bytes'
    elif gzip -dc <"$work/packed" 2>/dev/null | cmp -s - "$work/manifest"; then
        good "compressed, $(stat -c %s "$work/manifest") to $(stat -c %s "$work/packed") bytes"
        check_vary
    else
        bad 'the compressed manifest is another one'
    fi
}

# Of both forms: the one that a cache has met first decides for the other.
check_vary() {
    local form
    for form in manifest packed; do
        header "$form" Vary | grep -qi accept-encoding || {
            bad 'no "Vary: Accept-Encoding": a cache in between would mix up the two forms'
            return
        }
    done
}

check_unchanged() {
    local tag date
    tag=$(header packed ETag)
    date=$(header packed Last-Modified)
    if [ -z "$tag$date" ]; then
        bad 'the manifest has neither an ETag nor a Last-Modified: each poll costs all of it'
        return
    fi
    ask again "$base//cms/upgrade" -L -H 'Accept-Encoding: gzip' ${tag:+-H "If-None-Match: $tag"} \
        ${date:+-H "If-Modified-Since: $date"}
    if [ "$status" = 304 ]; then
        good 'unchanged, a second ask brings a 304'
    else
        bad "unchanged, a second ask brings status $status, expected 304"
    fi
}

check_package() {
    local link md5 sha256
    link=$(jq -r '.data.link // ""' "$work/manifest")
    md5=$(jq -r '.data.md5 // ""' "$work/manifest")
    sha256=$(jq -r '.data.sha256 // ""' "$work/manifest")
    case $link in
    http://* | https://*) ;;
    *)
        bad "the package's address is none of the web: '$link'"
        return
        ;;
    esac
    ask package "$link"
    if [ "$status" != 200 ]; then
        bad "the package $link: status $status, expected 200 without a redirect; is --base-url right?"
    elif [ "$(md5sum <"$work/package" | cut -c 1-32)" != "$md5" ]; then
        bad "the package $link has another MD5 than the manifest says"
    elif [ -n "$sha256" ] && [ "$(sha256sum <"$work/package" | cut -c 1-64)" != "$sha256" ]; then
        bad "the package $link has another SHA-256 than the manifest says"
    else
        good "the package, $(stat -c %s "$work/package") bytes"
        check_files
    fi
}

# The program spells paths with either slash.
check_files() {
    jq -r '.data.upgrade_info | fromjson | to_entries[] | "\(.value)  \(.key | gsub("\\\\"; "/"))"' \
        "$work/manifest" >"$work/list"
    mkdir "$work/files"
    if unzip -qo "$work/package" -d "$work/files" >/dev/null 2>&1 &&
        (cd "$work/files" && md5sum --quiet -c "$work/list") >"$work/wrong" 2>&1; then
        good "its files, $(wc -l <"$work/list") of them"
    else
        bad "the package does not hold what the manifest lists: $(head -n 1 "$work/wrong" 2>/dev/null)"
    fi
}

if check_manifest; then
    check_compressed
    check_unchanged
    check_package
fi
[ "$problems" = 0 ] || fail "$problems problem(s) at $base"
