#!/usr/bin/env bash
# The life of the program as a player sees it, on a display of its own: it recovers from being killed
# at bad moments, lives in the tray, meets second starts, leaves politely and takes its files along.
#
#   program.sh BIN VERSION    BIN: the folder of the programs; VERSION: what they say of themselves
source "$(dirname "${BASH_SOURCE[0]}")/../../scripts/lib.sh"
source "$root/scripts/demo.sh"
source "$root/scripts/display.sh"
source "$root/tests/support/program.sh"

# on_display COMMAND... : what the libraries for X keep can't be told by name once they are unloaded,
# so leaks are looked for in the runs without a display.
on_display() { LSAN_OPTIONS=${LSAN_OPTIONS-}:exitcode=0 QT_QPA_PLATFORM=xcb "$@"; }

is_shown() { xdotool search --onlyvisible --name '^Brekka助手$' >"$work/found" 2>/dev/null; }

# windows COUNT : of the program's, visible.
windows() { [ "$(xdotool search --onlyvisible --class Brekka 2>/dev/null | wc -l)" -ge "$1" ]; }
no_windows() { ! windows 1; }

# press_install : the toast tells that it was right.
press_install() {
    is_shown && xdotool mousemove --window "$(tail -n 1 "$work/found")" 684 316 click 1 && said 'check zip pack'
}

ended() { wait "$program" || fail "the program ended with $?: $(tail -n 5 "$log")"; }

install_packages "${test_packages[@]}"
export QT_QPA_PLATFORM=offscreen
start_display "$work"
program=$! eventually xprop -root _NET_SUPPORTING_WM_CHECK >"$work/wm" 2>&1
new_program
serve "$work/out"
write_settings "$ini" "$work/game" 1

printf 'It recovers from kills\n'
# Each line belongs to an update of its own, so that none can be over before.
number=0
for line in 'OnAutoUpdate start' 'plugin start download' 'Downloading...' 'downloadFinished' \
    'unzip OutExtractZipFile' 'extract file:' 'plugin local files match' \
    '"lastcheckret" QVariant(bool, true)' 'dom saved'; do
    publish $((number += 1))
    start_program -s
    eventually said "$line"
    kill -KILL "$program"
    wait "$program" 2>/dev/null || true
done
publish 1.2.4
start_program
eventually installed 1.2.4
kill "$program"
ended
remove_unsaved "$ini"
remove_unsaved "$work/game/mods/configs/corvane.xml"
must [ "$(cd "$work/app" && find . -type f | LC_ALL=C sort | xargs)" = \
    './Brekka ./brekka.ini ./brekka.ini.whole ./plugins/pluginsconfig ./ver.dll' ]

printf 'It lives in the tray\n'
on_display start_program -s
eventually said '本地插件文件正确'
must said "self version: \"$2\""
must no_windows
starts=0
for argument in '' -s -u; do
    (cd "$work/app" && ./Brekka ${argument:+"$argument"}) 2>"$work/second" || fail "a second start ended with $?"
    for line in 'i am the second process exit' 'App already running.' "Primary instance PID:  $program"; do
        must grep -qF "$line" "$work/second"
    done
    eventually said 'Active main wnd' $((starts += 1))
    eventually is_shown
done
# The toast, the last window then, goes after the main window.
eventually press_install
eventually windows 2
wmctrl -c Brekka助手
eventually no_windows
eventually said 'OnAutoUpdate start' $(($(grep -c 'OnAutoUpdate start' "$log") + 2))
must installed 1.2.4

printf 'It leaves with the session, whose end sends one signal after the other\n'
kill "$program"
while kill -HUP "$program" 2>/dev/null; do
    read -r -t 0.001 <>"$work/nothing" || true
done
ended

printf 'A hang-up that the caller ignores stays ignored, and the keys end it\n'
trap '' HUP
start_program -s
trap 'exit 129' HUP
eventually said 'OnAutoUpdate start'
kill -HUP "$program"
eventually said 'OnAutoUpdate start' 3
kill -INT "$program"
ended

printf 'It takes its files along\n'
for arguments in -u '-u -s' --uninstall; do
    cp -R "$work/plugin/." "$work/game/"
    cp "$ini" "$work/before"
    # shellcheck disable=SC2086 # several words
    (cd "$work/app" && ./Brekka $arguments) 2>"$log" || fail "Brekka $arguments ended with $?"
    must [ "$(cd "$work/game" && find . -type f)" = ./WorldOfTanks.exe ]
    must cmp "$work/before" "$ini"
done

printf 'It is started as at logon: in its folder, and with the arguments as they are\n'
folder="$work/应用 1"
install -D "$bin/BrekkaUpdater" "$folder/BrekkaUpdater"
printf '#!/bin/sh\n{ pwd; printf "%%s\\n" "$@"; } >told.part; mv told.part told\n' |
    install -m 755 /dev/stdin "$folder/Brekka"
must "$folder/BrekkaUpdater" -s 'a b'
program=$$ eventually test -e "$folder/told"
must [ "$(cat "$folder/told")" = "$(printf '%s\n-s\na b' "$folder")" ]
rm "$folder/Brekka"
! "$folder/BrekkaUpdater" -s 2>"$work/alone" || fail 'the updater found nothing to start and did not say so'
must grep -qF "$folder/Brekka" "$work/alone"

printf 'It names a folder that nobody, not even root, can make files in\n'
(cd /proc && on_display exec "$work/app/Brekka") >"$log" 2>&1 &
program=$!
started+=("$program")
eventually said "can't write to the folder \"/proc\""
# The window, its veil, this message and that no game was found.
eventually windows 4
kill "$program"
ended
