#!/usr/bin/env bash
# The publisher on its command line, story by story, each in an empty folder with a plugin of one file.
#
#   publish.sh BIN [STORY...]    BIN: the folder of the programs; all stories by default
# Names here are of our own making, so that quotes would only be in the way.
# shellcheck disable=SC2046,SC2012,SC2094
source "$(dirname "${BASH_SOURCE[0]}")/../../scripts/lib.sh"

publisher=$(cd "$1" && pwd)/brekka-publish
examples=$root/docs/signing
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# p OPTION... publishes the plugin, o OPTION... does something else in the same folder.
p() { "$publisher" --plugin-dir plugin --plugin-version 1 --base-url http://h/base/ --out out "$@"; }
o() { "$publisher" --out out "$@"; }

# no COMMAND... : it fails.
no() {
    if "$@"; then
        echo "unexpected: $*" >&2
        exit 1
    fi
}

# Of the manifest that is offered.
value() { jq -r ".data.$1" out/cms/upgrade; }
md5() { value md5; }
serial() { value serial; }

# refuse STATUS COMPLAINT OPTION... : publishing ends with it, one line and without a trace.
refuse() {
    local status=0
    find . | sort >"$work/before"
    # The limit stands in for a full disk; nothing else that is refused writes as much.
    (
        trap '' XFSZ
        ulimit -f 50
        set +x
        p "${@:3}"
    ) >"$work/output" 2>"$work/complaint" || status=$?
    cat "$work/complaint"
    [ "$status" = "$1" ]
    [ "$(wc -l <"$work/complaint")" = 1 ]
    grep -F -- "$2" "$work/complaint"
    find . | sort | diff "$work/before" -
}

# What every byte can be, what packs well, and every kind of name.
story_whole() {
    rm plugin/*
    mkdir -p plugin/mods/1.0/deep/er 'plugin/mods/empty folder'
    echo one >plugin/a.txt
    { head -c 3000000 /dev/zero && head -c 100000 /dev/urandom; } >plugin/mods/1.0/deep/er/large.bin
    : >plugin/mods/empty.pyc
    echo zh >'plugin/mods/中文 名.txt'
    echo 'no BMP' >plugin/mods/😀.txt
    echo 'a dot below the top is fine' >plugin/mods/.hidden
    p --plugin-version '1.2 测试' --date '2021-03-05 10:20:30'
    [ "$(value version_name)" = '1.2 测试' ]
    [ "$(value updated_at)" = '2021-03-05 10:20:30' ]
    [ "$(jq .errno out/cms/upgrade)" = 0 ]
    [ "$(value link)" = "http://h/base/packages/$(md5).zip" ]
    [ "$(md5sum <"out/packages/$(md5).zip")" = "$(md5)  -" ]
    [ "$(cd out && echo ./*/*)" = "./cms/upgrade ./cms/upgrade.gz ./history/000001.json ./packages/$(md5).zip" ]
    # The players' program reads the list one byte a character.
    value upgrade_info | LC_ALL=C grep -c '[^ -~]' && exit 1
    value upgrade_info | jq -r 'to_entries[] | "\(.value)  \(.key)"' >list
    [ "$(wc -l <list)" = 6 ]
    mkdir unpacked
    unzip -q "out/packages/$(md5).zip" -d unpacked
    [ "$(find unpacked -type f | wc -l)" = 6 ]
    # Names are marked as UTF-8, for readers that would take them for the system's.
    [ "$(head -c 8 "out/packages/$(md5).zip" | tail -c 2 | od -An -tx1)" = ' 00 08' ]
    (cd unpacked && md5sum --quiet -c ../list)
}

story_failure_harms_nothing() {
    p
    cp -rp out before
    touch plugin/nul
    no p
    diff -r out before
    rm plugin/nul
    p
}

story_again() {
    p
    find out -type f -printf '%p %T+\n' >a
    touch plugin/good
    p | grep 'already offered'
    find out -type f -printf '%p %T+\n' | cmp a -
}

story_again_with_another_date() {
    p
    p --date '2021-03-05 10:20:30'
    grep 2021-03-05 out/cms/upgrade
}

story_again_under_another_address() {
    p
    p --base-url http://other
    grep other out/cms/upgrade
}

story_again_as_another_version() {
    p
    p --plugin-version 2
    grep '"2"' out/cms/upgrade
}

story_again_without_its_package() {
    p
    rm out/packages/*
    p
    [ "$(ls out/packages | wc -l)" = 1 ]
}

story_same_everywhere() {
    echo b >plugin/b
    p
    mv out one
    cp plugin/good good
    rm plugin/good
    cp good plugin
    touch -d '2 days' plugin/b
    chmod 700 plugin/b
    # Archives know times to two seconds.
    local now
    now=$(date +%s)
    until [ "$(date +%s)" -gt $((now + 2)) ]; do sleep 0.1; done
    umask 077
    p
    diff -r one/packages out/packages
    [ "$(stat -c %a out out/cms out/packages | sort -u)" = 755 ]
    [ "$(stat -c %a out/cms/* out/packages/* | sort -u)" = 644 ]
}

story_compressed() {
    p
    gzip -dc out/cms/upgrade.gz | cmp - out/cms/upgrade
    no [ out/cms/upgrade -nt out/cms/upgrade.gz ]
    : >out/cms/upgrade.gz
    p
    gzip -dc out/cms/upgrade.gz | cmp - out/cms/upgrade
}

story_rolled_back() {
    p
    old=$(md5)
    echo 2 >plugin/good
    p --plugin-version 2
    o --rollback "$old"
    [ $(md5) = "$old" ]
    o --list >a
    [ $(grep -c "$old" a) = 2 ]
    grep '^3 .*(offered)$' a
    no grep '^2 .*(offered)$' a
    o --rollback "$(echo "$old" | tr a-f A-F)" --base-url http://moved
    grep "http://moved/packages/$old" out/cms/*
    p --plugin-version 2
    no [ $(md5) = "$old" ]
}

story_rolled_back_to_nothing() {
    p
    no o --rollback 0
    for z in out/packages/*; do echo x >>"$z"; done
    cp out/cms/upgrade a
    no o --rollback $(md5)
    cmp a out/cms/upgrade
}

story_in_a_wrong_folder() {
    no o --list
    no o --pause
    no [ -e out ]
    mkdir out
    o --list
    no o --pause
    rmdir out
}

story_paused() {
    p
    old=$(md5)
    o --pause
    grep '"errno": 1' out/cms/upgrade
    gzip -dc out/cms/upgrade.gz | cmp - out/cms/upgrade
    o --list | grep paused
    p
    [ $(md5) = "$old" ]
    sed -i '/errno/s/0/1/' out/cms/upgrade
    o --list | grep paused
}

story_told_apart_by_time() {
    p
    a=$(stat -c %Y out/cms/upgrade)
    p --plugin-version 2
    [ $(stat -c %Y out/cms/upgrade) -gt "$a" ]
    a=$(stat -c %Y out/cms/upgrade.gz)
    p --plugin-version 3
    [ $(stat -c %Y out/cms/upgrade.gz) -gt "$a" ]
}

story_without_a_history() {
    p
    old=$(md5)
    rm -r out/history
    echo 2 >plugin/good
    p
    o --rollback "$old"
}

story_with_another_history() {
    o --new-key k
    p --key k
    cp -r out/history a
    mv out/history/000001.json out/history/x.json
    echo 2 >plugin/good
    p --key k
    o --list >b
    [ $(wc -l <b) = 2 ]
    rm -r out/history
    cp -r a out/history
    no p --plugin-version 3
    o --list >b
    [ $(wc -l <b) = 2 ]
    grep "^2 .*$(md5)" b
    ls out/history
    [ $(ls out/history | wc -l) = 1 ]
}

story_kept() {
    p
    old=$(md5)
    for i in 2 3 4; do echo $i >plugin/good; p; done
    touch out/packages/other.zip
    touch -d '-2 days' out/packages/* out/history/*
    echo 5 >plugin/good
    p --keep 3
    [ $(ls out/packages | wc -l) = 4 ]
    o --list | grep "$old.*removed"
    no o --rollback "$old"
}

story_kept_for_a_day() {
    for i in 1 2 3; do echo $i >plugin/good; p --keep 1; done
    [ $(ls out/packages | wc -l) = 3 ]
    touch -d '-2 days' out/packages/*
    p --plugin-version 2 --keep 1
    [ $(ls out/packages | wc -l) = 3 ]
    touch out/packages/*
    touch -d '-2 days' out/history/*
    p --plugin-version 3 --keep 1
    [ $(ls out/packages | wc -l) = 3 ]
}

story_left_out() {
    mkdir -p plugin/.git plugin/d/e
    touch plugin/.git/x plugin/a~ plugin/d/e/x plugin/d/thumbs.DB plugin/d/x
    p --exclude 'd/e' --exclude '?.tmp' | grep 'left out: .git, a~, d/e, d/thumbs.DB$'
    [ "$(unzip -Z1 out/packages/*)" = "$(printf 'd/x\ngood')" ]
}

story_removed_files() {
    touch plugin/a plugin/b
    p
    old=$(md5)
    rm plugin/a
    no p >a
    grep 'no longer there: a$' a
    [ $(md5) = "$old" ]
    p --allow-removed | grep ': a$'
    new=$(md5)
    no [ "$new" = "$old" ]
    touch plugin/a
    p
    o --rollback "$new" | grep ': a$'
}

story_two_at_a_time() {
    p
    cp $(command -v sleep) brekka-publish
    ./brekka-publish 60 &
    printf '%s\nbrekka-publish\n%s\n' $! $(uname -n) >out/.publishing
    cp out/cms/upgrade a
    no p --plugin-version 2 2>b
    grep 'another publisher' b
    cmp a out/cms/upgrade
    kill $!
    wait $! || p --plugin-version 2
    printf '1\nbrekka-publish\nelsewhere\n' >out/.publishing
    no p 2>b
    grep 'on elsewhere.*out/.publishing$' b
}

story_killed_before() {
    p
    touch out/packages/a.part
    p
    no [ -e out/packages/a.part ]
}

story_keys() {
    o --new-key k >pub
    [ $(stat -c %a k) = 600 ]
    openssl pkey -in k -pubout -outform DER | tail -c 32 | base64 | cmp - pub
    no o --new-key k
    openssl genpkey -algorithm ed25519 | sed 's/$/\r/' >l
    p --key l
    openssl genpkey -algorithm x25519 >x
    sed '2s/IE.*/IEIA==/' k >short
    sed '$d' k >open
    for i in pub x short open; do
        no p --key $i 2>a
        grep 'holds no private key' a
    done
}

story_signed() {
    o --new-key k
    p --key k
    p --key k | grep 'already offered'
    no p
    old=$(md5)
    no p --date '2021-03-05 10:20:30'
    s=$(serial)
    echo 2 >plugin/good
    p --key k
    [ $(serial) -gt "$s" ]
    s=$(serial)
    no o --rollback "$old"
    o --key k --rollback "$old"
    [ $(serial) -gt "$s" ]
    o --list | grep signed
    sed -i "s/$s/$((s + 30))/" out/*/*
    p --unsigned
    no grep signature out/cms/upgrade
    p
    p --key k
    [ $(serial) -gt $((s + 30)) ]
}

story_key_in_reach() {
    o --new-key plugin/k
    no p --key plugin/k
    no [ -e out ]
    p
    o --new-key out/k
    no p --key out/k 2>a
    grep 'could fetch' a
}

story_resigned() {
    o --new-key k
    o --new-key l
    p
    p --key k
    p --key l >a
    no grep already a
}

story_serial_ahead() {
    o --new-key k
    p --key k
    sed -i "s/$(serial)/9$(serial)/" out/*/*
    no p --key k --plugin-version 2 2>a
    grep 'go back' a
}

story_manifest_does_not_fit() {
    p
    find out | sort >a
    cp out/cms/upgrade b
    trap '' XFSZ
    (
        set +x
        ulimit -f 20
        no p --plugin-version "$(head -c 99999 /dev/zero | tr '\0' v)" 2>c
    )
    grep 'File too large' c
    find out | sort | cmp a -
    cmp b out/cms/upgrade
}

story_misuse() {
    p --help | grep -F -- --rollback
    refuse 2 'Missing --out.' --out ' '
    refuse 2 force --force
    refuse 2 "'stray'" stray
    refuse 2 'Not a web address' --base-url 127.0.0.1:8102
    refuse 2 'Not a web address' --base-url http:///x
    refuse 2 'Not a web address' --base-url 'http://h/?a=b'
    refuse 2 'Missing --key.' --key ''
    refuse 2 'Not a web address' --rollback 0 --base-url h
    refuse 2 'One thing' --list --pause
    refuse 2 'Not a number above 0' --keep 0
    refuse 2 'Not a date' --date '2021-02-30 10:00:00'
}

# with COMMAND COMPLAINT : what the command has prepared is refused; then the plugin is as before.
with() {
    eval "$1"
    refuse 1 "$2"
    rm -rf plugin out
    mkdir plugin
    touch plugin/good
}

story_bad_plugins() {
    with 'rm -r plugin; touch plugin' 'no such folder'
    with 'rm plugin/*; mkdir -p plugin/a/b' 'no files'
    with 'ln -s none plugin/link' 'link is a symbolic link'
    with 'ln -s . plugin/link' 'link is a symbolic link'
    with 'mkfifo plugin/pipe' 'pipe is not a regular file'
    with 'mkdir plugin/Ä plugin/ä' 'only in case'
    with "mkdir plugin/d; touch 'plugin/d/a\\b'" "d/a\\b has the character"
    with "touch $'plugin/a\nb'" 'a?b has a control character'
    with "touch plugin/$(printf 'a\377')" 'cannot be listed whole'
    with 'touch plugin/a.' 'a. has a name that ends with'
    with "mkdir 'plugin/a '" 'has a name that ends with'
    with 'touch plugin/Aux' 'Aux has the name of a device'
    with 'touch plugin/LPT².tar.gz' 'has the name of a device'
    with 'mkdir plugin/.x' '.x begins with a dot'
    with 'truncate -s 2000000001 plugin/huge' 'huge is larger than'
    with 'mkdir plugin/new; ln -s plugin/new out' 'in the plugin folder'
    with 'touch out' 'cannot create the folder'
    with 'mkdir -p out/cms/upgrade' 'out/cms/upgrade: '
    with 'head -c 200000 /dev/urandom >plugin/random' 'cannot write to'
}

story_interrupted() {
    local i
    for i in {1..40}; do
        head -c 4000000 /dev/zero >"plugin/$i"
    done
    "$publisher" --plugin-dir plugin --plugin-version 1 --base-url http://h --out out 2>complaint &
    # From here on it is packing.
    until [ -e out/cms ]; do
        kill -0 $! # else it has ended before
        sleep 0.01
    done
    kill $!
    no wait $!
    grep interrupted complaint
    no [ -e out ]
}

# What docs/signing.md shows others is what is signed.
story_signing_example() {
    openssl pkey -in "$examples/example-key.pem" -pubout >public
    jq -j .data.signature "$examples/example-manifest.json" | base64 -d >signature
    openssl pkeyutl -verify -pubin -inkey public -rawin -in "$examples/example-signed.txt" -sigfile signature
    p --key "$examples/example-key.pem"
    signed_bytes out/cms/upgrade >bytes
    value signature | base64 -d >signature
    openssl pkeyutl -verify -pubin -inkey public -rawin -in bytes -sigfile signature
    signed_bytes "$examples/example-manifest.json" | cmp - "$examples/example-signed.txt"
}

# signed_bytes MANIFEST : as docs/signing.md describes them.
signed_bytes() {
    local name
    printf 'brekka manifest 1\n'
    for name in version_name md5 sha256 updated_at upgrade_info link serial; do
        printf '%s %d\n' "$name" "$(jq -j ".data.$name" "$1" | wc -c)"
        jq -j ".data.$name" "$1"
        printf '\n'
    done
}

stories=("${@:2}")
[ ${#stories[@]} -gt 0 ] || mapfile -t stories < <(compgen -A function story_)
failed=0
for story in "${stories[@]}"; do
    mkdir -p "$work/$story/plugin"
    echo 1 >"$work/$story/plugin/good"
    # In no condition, where the shell would go on after a failure.
    set +e
    (
        set -e
        cd "$work/$story"
        # Not among what the commands complain.
        exec 9>&1
        BASH_XTRACEFD=9
        set -x
        "$story"
    ) >"$work/log" 2>&1
    status=$?
    set -e
    [ "$status" = 0 ] || {
        printf 'FAIL %s\n' "$story"
        tail -n 30 "$work/log" | cut -c 1-300
        failed=$((failed + 1))
    }
done
printf '%d stories, %d failed\n' "${#stories[@]}" "$failed"
[ "$failed" = 0 ]
