# The life of the real program, from the first start to the removal; source it after scripts/walk.sh. It
# needs a Wine prefix, a display, and $app, the unpacked archive.

game_path='C:\Games\坦克世界'
window_title='^Brekka助手$'
registration='HKCU\SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall\WOT.CN.PRODUCTION'

# wait_for SECONDS WHAT COMMAND... : until the command succeeds.
wait_for() {
    local deadline=$((SECONDS + $1)) what=$2
    shift 2
    until "$@"; do
        if [ "$SECONDS" -ge "$deadline" ]; then
            import -window root "$work/failed.png" 2>/dev/null || true
            [ ! -f "$log" ] || tail -n 20 "$log" >&2
            fail "did not come: $what; the display is in $work/failed.png"
        fi
        sleep 0.2
    done
}

# start_program LOG ARGUMENT... : from its own folder, as a shortcut would; sets $log.
start_program() {
    log=$work/$1
    shift
    (cd "$app" && exec wine "$@") >"$log" 2>&1 &
    program=$!
    started=("$program" "${started[@]}")
}

said() {
    grep -qF -- "$1" "$log"
}

# stored KEY VALUE : whether the settings file has it. Windows programs end lines their own way.
stored() {
    grep -qxF -- "$1=$2" <(tr -d '\r' <"$app/brekka.ini")
}

window() {
    xdotool search --onlyvisible --name "$window_title" 2>/dev/null | head -n 1
}

is_shown() {
    [ -n "$(window)" ]
}

is_hidden() {
    ! is_shown
}

# shows_windows COUNT : whether the program has so many; a message box comes with a veil.
shows_windows() {
    [ "$(xdotool search --onlyvisible --class 'brekka\.exe' 2>/dev/null | wc -l)" = "$1" ]
}

# screenshot NAME : of the window alone.
screenshot() {
    # Two frames: the pointer's hover and the last repaint.
    sleep 1
    import -window "$(window)" "$root/docs/screenshots/windows-$1.png"
}

installed() {
    is_plugin_there && stored lastcheckret true
}

crash_program() {
    # Bash would tell of the killed job as soon as it sees the end of it.
    {
        wine taskkill /F /IM Brekka.exe >/dev/null
        wait "$program" || true
    } 2>/dev/null
    remove_unsaved "$game/mods/configs/corvane.xml"
}

publish() {
    wine "$app/brekka-publish.exe" --plugin-dir "$(winepath -w "$plugin")" --plugin-version "$1" \
        --base-url "http://127.0.0.1:$port" --out "$(winepath -w "$work/server")"
}

walk_prepare() {
    game=$WINEPREFIX/drive_c/Games/坦克世界
    plugin=$work/plugin
    mkdir -p "$game" "$root/docs/screenshots"
    : >"$game/WorldOfTanks.exe"
    sample_plugin "$plugin" 1.2.0
    serve "$work/server"
    publish 1.2.0
    wine reg add "$registration" /v InstallLocation /d "$game_path" /f >/dev/null
    # No game folder in it: the program has to find that by itself.
    printf '[General]\r\ninterval=5\r\n\r\n[hosts]\r\nupdate=127.0.0.1:%s\r\n' "$port" >"$app/brekka.ini"
}

walk_install() {
    step 'The first start finds the game and asks.'
    start_program first.log Brekka.exe
    wait_for 60 'the window' is_shown
    wait_for 60 'the search' said 'gamefind ret:'
    wait_for 60 'the question' shows_windows 3
    sleep 1
    import -window "$(xdotool search --onlyvisible --name '^消息$')" "$root/docs/screenshots/windows-question.png"
    xdotool key Return
    wait_for 60 'the answer' said 'set game path'
    step 'It installs the plugin.'
    wait_for 120 'the installation' installed
    # Each backslash is escaped in the file, and each Chinese character, too.
    wait_for 30 'the stored folder' stored game 'C:\\Games\\\x5766\x514b\x4e16\x754c'
    wait_for 30 'the stored version' stored pver 1.2.0
    said '\\plugins\\pluginsconfig' || fail 'the package was not saved under its name with backslashes'
    [ -f "$app/plugins/pluginsconfig" ] || fail 'the package is not beside the program'
    screenshot installed
}

walk_repair() {
    step 'It repairs what is missing or altered.'
    rm "$game/mods/1.24.0/corvane/说明.txt"
    printf 'altered' >"$game/mods/1.24.0/corvane/scripts/client/corvane.py"
    wait_for 120 'the repair' installed
}

walk_second_start() {
    step 'Closed, it goes on in the tray; a second start brings its window back.'
    local first=$program first_log=$log
    xdotool mousemove --window "$(window)" 877 24 click 1
    wait_for 30 'the closing' is_hidden
    start_program second.log Brekka.exe
    wait "$program" || fail "the second start ended with $?"
    said 'i am the second process exit' || fail 'the second start took itself for the first'
    program=$first log=$first_log
    wait_for 30 'the message of the second start' said 'Active main wnd'
    wait_for 30 'the window' is_shown
}

walk_crash() {
    step 'After a crash the updater starts it anew, silently.'
    crash_program
    rm "$game/mods/1.24.0/corvane/assets/atlas.bin"
    start_program third.log BrekkaUpdater.exe -s
    wait_for 60 'the first process' said 'i am the first process'
    wait_for 120 'the repair' installed
    # The crashed one's window may take a moment to go.
    wait_for 30 'a silent start without a window' is_hidden
}

walk_removal() {
    step '"-u" removes the plugin.'
    crash_program
    start_program removal.log Brekka.exe -u
    wait "$program" || fail "the removal ended with $?"
    local left
    left=$(cd "$game" && find . -type f)
    [ "$left" = ./WorldOfTanks.exe ] || fail "left behind: $left"
    # The tests that come next expect no game.
    wine reg delete "$registration" /f >/dev/null
}

walk() {
    walk_prepare
    walk_install
    walk_repair
    walk_second_start
    walk_crash
    walk_removal
}
