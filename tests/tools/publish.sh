#!/usr/bin/env bash
# The publisher on its command line, story by story, each in an empty folder with a plugin of one file.
#
#   publish.sh BIN    BIN: the folder of the programs
# Names here are of our own making, so that quotes would only be in the way.
# shellcheck disable=SC2046,SC2012,SC2094
source "$(dirname "${BASH_SOURCE[0]}")/../../scripts/lib.sh"

publisher=$(cd "$1" && pwd)/brekka-publish
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

story() {
    cd "$(mktemp -d -p "$work")"
    mkdir plugin
    echo 1 >plugin/good
}

# p OPTION... publishes the plugin, o OPTION... does something else in the same folder.
p() { "$publisher" --plugin-dir plugin --plugin-version 1 --base-url http://h/base/ --out out "$@"; }
o() { "$publisher" --out out "$@"; }

# Of the manifest that is offered.
value() { jq -r ".data.$1" out/cms/upgrade; }

# traces FOLDER : every folder in it, and every file with the time of its last change.
traces() { find "$1" \( -type d -print \) -o -printf '%p %T@\n' | sort; }

# refused STATUS COMPLAINT COMMAND... : ends with the status and one line, and has changed nothing.
refused() {
    local status=0
    traces . >"$work/before"
    "${@:3}" 2>"$work/complaint" || status=$?
    cat "$work/complaint"
    [ "$status, $(wc -l <"$work/complaint") line" = "$1, 1 line" ]
    grep -F -- "$2" "$work/complaint"
    traces . | diff "$work/before" -
}

# on_full_disk COMMAND... : no file grows beyond 20 KiB.
on_full_disk() (
    trap '' XFSZ
    ulimit -f 20
    "$@"
)

# Not among what the commands complain.
exec 9>&1
BASH_XTRACEFD=9
set -x

story 'every kind of name, what packs well and what does not'
mkdir -p plugin/mods/1.0/deep/er 'plugin/mods/empty folder'
{ head -c 3000000 /dev/zero && head -c 100000 /dev/urandom; } >plugin/mods/1.0/deep/er/large.bin
: >plugin/mods/empty.pyc
# A dot is fine below the top.
echo text | tee 'plugin/mods/中文 名.txt' plugin/mods/😀.txt plugin/mods/.hidden
p --plugin-version '1.2 测试' --date '2021-03-05 10:20:30'
jq -e '.errno == 0 and .data.version_name == "1.2 测试" and .data.updated_at == "2021-03-05 10:20:30" and
    .data.link == "http://h/base/packages/\(.data.md5).zip"' out/cms/upgrade
[ "$(cd out && echo ./*/*)" = "./cms/upgrade ./cms/upgrade.gz ./history/000001.json ./packages/$(value md5).zip" ]
unzip -q out/packages/* -d unpacked
rmdir 'plugin/mods/empty folder'
diff -r plugin unpacked
# The players' program reads the list one byte a character.
value upgrade_info | LC_ALL=C grep '[^ -~]' && exit 1
value upgrade_info | jq -r 'to_entries[] | "\(.value)  \(.key)"' >list
[ "$(wc -l <list)" = 6 ]
(cd plugin && md5sum --quiet -c ../list)
# Names are marked as UTF-8, for readers that would take them for the system's.
[ "$(head -c 8 out/packages/* | tail -c 2 | od -An -tx1)" = ' 00 08' ]

story 'the same again, then with a difference'
p
traces out >before
touch plugin/good
p | grep 'already offered'
traces out | diff before -
for difference in --date='2021-03-05 10:20:30' --base-url=http://other --plugin-version=2; do
    p
    p "$difference" | grep '^published'
done

story 'the same anywhere and at any time'
echo b >plugin/b
p
mv out one
touch -d '2 days' plugin/b
chmod 700 plugin/b
sleep 2.1 # archives know times to two seconds
(umask 077 && p)
diff -r one/packages out/packages
[ "$(find out -printf '%y%m\n' | sort -u | xargs)" = 'd755 f644' ]

story 'what is damaged, left by a killed publisher, or in the hands of another one'
p
: >out/cms/upgrade.gz
p
gzip -dc out/cms/upgrade.gz | cmp - out/cms/upgrade
rm out/packages/*
touch out/packages/a.part
printf '99999999\nbrekka-publish\n%s\n' "$(uname -n)" >out/.publishing
p
[ "$(ls out/packages)" = "$(value md5).zip" ]
printf '1\nbrekka-publish\nelsewhere\n' >out/.publishing
touch -d '-2 days' out/.publishing
refused 1 'on elsewhere; if there is none, remove out/.publishing' p --plugin-version 2

story 'told apart by seconds, as web servers do it'
seconds() { stat -c %Y out/cms/* | sort -u; }
p
before=$(seconds)
p --plugin-version 2
[ $(seconds) -gt "$before" ]

story 'rolled back'
p
old=$(value md5)
echo 2 >plugin/good
p
o --rollback "$old"
[ "$(value link)" = "http://h/base/packages/$old.zip" ]
[ "$(o --list | grep offered | cut -d ' ' -f 1,3,5)" = "3 $old (offered)" ]
p | grep '^published'
o --rollback "${old^^}" --base-url http://moved
[ "$(value link)" = "http://moved/packages/$old.zip" ]
echo x | tee -a out/packages/*
refused 1 'gone or damaged' o --rollback "$old"
refused 1 'nothing with the checksum' o --rollback 0

story 'paused'
p
o --pause
[ "$(jq .errno out/cms/upgrade)" = 1 ]
gzip -dc out/cms/upgrade.gz | cmp - out/cms/upgrade
o --list | grep paused
p | grep '^published'
sed -i '/errno/s/0/1/' out/cms/upgrade
o --list | grep paused

story 'a wrong folder'
refused 1 'no such folder' o --list
refused 1 'no such folder' o --pause
mkdir out
refused 1 'nothing was published' o --pause
o --list
rmdir out

story 'another history'
p
old=$(value md5)
cp -r out/history first
mv out/history/000001.json out/history/x.json
echo 2 >plugin/good
p
o --list | grep "^1 .*$old"
rm out/history/*
cp first/* out/history
o --list | grep "^2 .*$(value md5)"
refused 1 'nothing with the checksum' o --rollback 0

story 'kept: what is young, what is offered to young ones, the last ones, and what is not ours'
for i in 1 2 3 4; do echo $i >plugin/good; p; done
touch out/packages/other.zip
touch -d '-2 days' out/packages/*
p --plugin-version 2 --keep 1
touch out/packages/*
touch -d '-2 days' out/history/*
p --plugin-version 3 --keep 1
[ $(ls out/packages | wc -l) = 5 ]
touch -d '-2 days' out/packages/* out/history/*
echo 5 >plugin/good
p --keep 5
[ $(ls out/packages | wc -l) = 4 ]
[ $(o --list | grep -c removed) = 2 ]

story 'left out'
mkdir -p plugin/.git plugin/d/e
touch plugin/.git/x plugin/a~ plugin/d/e/x plugin/d/thumbs.DB plugin/d/{x,c,k,a}
p --exclude 'd/e' --exclude '?.tmp' | grep 'left out: .git, a~, d/e, d/thumbs.DB$'
[ "$(unzip -Z1 out/packages/* | xargs)" = 'd/a d/c d/k d/x good' ]

story 'removed files'
touch plugin/a
p
rm plugin/a
refused 1 --allow-removed p
p --allow-removed | grep 'no longer there: a$'
old=$(value md5)
touch plugin/a
p
o --rollback "$old" | grep ': a$'

story 'keys'
o --new-key k >pub
[ $(stat -c %a k) = 600 ]
openssl pkey -in k -pubout -outform DER | tail -c 32 | base64 | cmp - pub
refused 1 'it exists' o --new-key k
openssl genpkey -algorithm x25519 >x
sed '2s/IE.*/IEIA==/' k >short
sed '$d' k >open
for key in pub x short open; do
    refused 1 'holds no private key' p --key $key
done
mkdir out
for key in plugin/k out/k; do
    cp k $key
    refused 1 'could fetch' p --key $key
done
rm plugin/k
sed 's/$/\r/' k >windows
p --key windows
p --key k | grep 'already offered'

story 'signed'
o --new-key k >k.pub
o --new-key l >l.pub
p --key l
p --key k | grep '^published'
sha256sum out/packages/* | grep "$(value sha256)"
[ "$(value size)" = "$(stat -c %s out/packages/*)" ]
refused 1 'was signed' p
old=$(value md5)
s=$(value serial)
echo 2 >plugin/good
p --key k
[ $(value serial) -gt "$s" ]
s=$(value serial)
o --key k --rollback "$old"
[ $(value serial) -gt "$s" ]
sha256sum "out/packages/$old.zip" | grep "$(value sha256)"
o --list | grep '(signed)' && exit 1
[ $(o --list --key k | grep -c '(signed)') = 3 ]
[ $(o --list --key k --public-keys "$(cat k.pub),$(cat l.pub)" | grep -c '(signed)') = 4 ]
p --key k
sed -i 's/"signature2": "/&x/' out/cms/upgrade
p --key k | grep '^published'
s=$(value serial)
sed -i "s/$s/$((s + 30))/" out/*/*
o --unsigned --rollback "$old"
grep signature out/cms/upgrade && exit 1
p --key k
[ $(value serial) -gt $((s + 30)) ]
sed -i "s/$(value serial)/9$(value serial)/" out/*/*
refused 1 'go back' p --key k --plugin-version 2

story 'rolled back to what other keys have signed'
o --new-key k >k.pub
o --new-key l >l.pub
p --key l
old=$(value md5)
# As publishers before 1.2 wrote it.
sed -i '/signature2/d; /"size"/d' out/history/* out/cms/upgrade
echo 2 >plugin/good
p --key k
refused 1 'no given key has signed entry 1' o --key k --rollback "$old"
o --key k --public-keys "$(cat l.pub)" --rollback "$old"
[ "$(value size)" = "$(stat -c %s "out/packages/$old.zip")" ]
o --new-key m
o --key m --rollback "$old" --resign | tee resigned
sha256sum "out/packages/$old.zip" | cut -d ' ' -f 1 | grep -f - resigned
grep -x '  good' resigned

story 'what somebody without a key put into the folder'
o --new-key k
p --key k
echo theirs >plugin/good
p --out theirs
cp theirs/packages/* out/packages
forged=out/history/000002.json
md5=$(jq -r .data.md5 theirs/cms/upgrade)
sha256=$(sha256sum <"out/packages/$md5.zip" | cut -d ' ' -f 1)
cp theirs/cms/upgrade $forged
refused 1 'no given key has signed entry 2' o --key k --rollback "$md5"
jq ".data.md5 = \"$md5\" | .data.sha256 = \"$sha256\"" out/history/000001.json >$forged
refused 1 'no given key has signed entry 2' o --key k --rollback "$md5"
o --list --key k | grep '^2 .*(claims a signature)'
jq '.data.sha256 = "0"' theirs/cms/upgrade >$forged
refused 1 'gone or damaged' o --key k --rollback "$md5" --resign
# Readers that find no directory at its end look for another one.
printf x | dd of="out/packages/$md5.zip" bs=1 seek=$(($(stat -c %s "out/packages/$md5.zip") - 22)) conv=notrunc
odd=$(md5sum <"out/packages/$md5.zip" | cut -d ' ' -f 1)
mv "out/packages/$md5.zip" "out/packages/$odd.zip"
sed "s/$md5/$odd/" theirs/cms/upgrade >$forged
refused 1 'was not written by this program' o --key k --rollback "$odd" --resign
# Without its better signature it would be an older publisher's.
old=$(value md5)
sed -i 's/"signature2": "/&x/' out/history/000001.json
rm out/cms/* $forged
refused 1 'no given key has signed entry 1' o --key k --rollback "$old"

story 'numbers of the history'
p
cp out/history/000001.json out/history/1000000.json
cp out/history/000001.json out/history/999999.json
p --plugin-version 2
[ "$(o --list | tail -n 1 | cut -d ' ' -f 1)" = 1000001 ]
cp out/history/000001.json out/history/2147483647.json
refused 1 'leaves no number' p --plugin-version 3

# signed_by_example MANIFEST : as docs/signing.md describes it to others.
signed_by_example() {
    local format signature=signature
    for format in 1 2; do
        jq -j ".data.$signature" "$1" | base64 -d >signature
        jq -j --arg format $format '.data as $texts | "brekka manifest \($format)\n", (
            "version_name", "md5", "sha256", "updated_at", "upgrade_info", "link", "serial",
            if $format == "2" then "size", "rollout" else empty end | ($texts[.] // "") as $text |
            "\(.) \($text | utf8bytelength)\n\($text)\n")' "$1" >bytes$format
        openssl pkeyutl -verify -pubin -inkey public -rawin -in bytes$format -sigfile signature
        signature=signature2
    done
}

story 'the example of signing'
openssl pkey -in "$root/docs/signing/example-key.pem" -pubout >public
p --key "$root/docs/signing/example-key.pem" --plugin-version 测试
signed_by_example out/cms/upgrade
signed_by_example "$root/docs/signing/example-manifest.json"
cmp bytes1 "$root/docs/signing/example-signed.txt"
cmp bytes2 "$root/docs/signing/example-signed2.txt"

story 'misuse'
p --help | grep -F -- --rollback
refused 2 'Missing --out.' p --out ' '
refused 2 force p --force
refused 2 "'stray'" p stray
refused 2 'Not a web address' p --base-url 127.0.0.1:8102
refused 2 'Not a web address' p --base-url http:///x
refused 2 'Not a web address' p --base-url 'http://h/?a=b'
refused 2 'Missing --key.' p --key ''
refused 2 'Missing --public-keys.' o --list --public-keys ''
refused 2 'Not public keys' o --list --public-keys k
refused 2 'Not a web address' o --rollback 0 --base-url h
refused 2 'One thing' o --list --pause
refused 2 'Not a number above 0' p --keep 0
refused 2 'Not a date' p --date '2021-02-30 10:00:00'
ln -s plugin link
refused 1 'in the plugin folder' p --out link/new

# with COMMAND COMPLAINT : what the command has prepared is refused.
with() {
    story "$2"
    eval "$1"
    refused 1 "$2" on_full_disk p
}

with 'rm -r plugin; touch plugin' 'no such folder'
with 'rm plugin/*; mkdir -p plugin/a/b' 'no files'
with 'ln -s none plugin/link' 'link is a symbolic link'
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
with 'touch out' 'cannot create the folder'
with 'mkdir -p out/cms/upgrade' 'out/cms/upgrade: '
with 'head -c 200000 /dev/urandom >plugin/random' 'cannot write to'

story 'interrupted'
truncate -s 1500M plugin/large
"$publisher" --plugin-dir plugin --plugin-version 1 --base-url http://h --out out 2>complaint &
# From here on it is packing.
until [ -e out/cms ]; do
    kill -0 $! # else it has ended before
    sleep 0.01
done
kill $!
wait $! && exit 1
grep interrupted complaint
[ ! -e out ]

story 'a manifest that programs would not read'
deep=plugin$(printf "/$(printf '深%.0s' {1..80})%.0s" {1..10})
mkdir -p "$deep"
touch "$deep"/{1..400}
set +x
refused 1 'programs read 2097152 at most' p
set -x

story 'a manifest that does not fit on the disk'
p
set +x # for the sake of who reads it
refused 1 'File too large' on_full_disk p --plugin-version "$(head -c 99999 /dev/zero | tr '\0' v)"
