# The life of the installed program, from the installer to the uninstaller; source it after walk.sh.
# It needs what walk leaves behind, $setup, and a user name with Chinese characters.

entry='HKCU\Software\Microsoft\Windows\CurrentVersion\Uninstall\Brekka'

# copies : the processes of the installed program, of this prefix alone.
copies() {
    local pid
    for pid in $(pgrep -f -- '\\Programs\\Brekka\\Brekka\.exe'); do
        ! grep -qzxF "WINEPREFIX=$WINEPREFIX" "/proc/$pid/environ" 2>/dev/null || printf '%s\n' "$pid"
    done
}

entry_value() {
    wine reg query "$entry" /v "$1" 2>/dev/null | tr -d '\r' | sed -n "s/^ *$1 *REG_[A-Z]* *//p"
}

has_entry() {
    [ -n "$(entry_value "$1")" ]
}

# The uninstaller returns before it is done; the entry goes last.
is_removed() {
    ! has_entry DisplayName && [ ! -e "$app" ]
}

# payload FOLDER : the installed files below it with their sums, without what only the archive or
# only the installation has, and what the program writes.
payload() {
    (cd "$1" && find . -type f ! -name brekka-publish.exe ! -name uninstall.exe ! -name installed.ini \
        ! -name 'brekka.ini*' ! -path ./plugins/pluginsconfig -exec md5sum {} + | LC_ALL=C sort -k2)
}

has_payload() {
    diff <(payload "$portable_app") <(payload "$app") >&2
}

# setup_prepare : the portable copy knows no game, so that it leaves the one of this walk alone.
setup_prepare() {
    portable_app=$app
    profile=$WINEPREFIX/drive_c/users/$USER
    shortcut="$profile/AppData/Roaming/Microsoft/Windows/Start Menu/Programs/Brekka助手.lnk"
    desktop=$profile/Desktop/Brekka助手.lnk
    printf '[General]\r\ninterval=300\r\n\r\n[hosts]\r\nupdate=127.0.0.1:1\r\n' >"$app/brekka.ini"
    start_program portable.log Brekka.exe -s
    wait_for 60 'the portable copy' said 'gamefind ret:'
    portable=$program
    app=$profile/AppData/Local/Programs/Brekka
}

setup_install() {
    step 'The installer, silently: into the folder of the user, whatever it is told.'
    wine "$setup" /S '/D=C:\Elsewhere' >"$work/setup.log" 2>&1 || fail "the installer ended with $?"
    [ ! -e "$WINEPREFIX/drive_c/Elsewhere" ] || fail 'the folder of the installation can be changed'
    has_payload || fail 'not what the archive holds'
    [ "$(entry_value DisplayVersion)" = "$(project_version)" ] || fail 'no entry in the list of programs'
    [ ! -e "$desktop" ] || fail 'an entry on the desktop that nobody asked for'
    no_copy || fail 'started by a silent installation'
}

setup_start() {
    step 'The start menu starts it with its own folder as the current one; the plugin is installed.'
    local cache=$profile/AppData/Local/Brekka/cache/http
    mkdir -p "$cache/data8/1" && printf 'answer' >"$cache/data8/1/old.d"
    write_settings "$app/brekka.ini" "$game_path" 5
    wine start "$(winepath -w "$shortcut")" >"$work/installed.log" 2>&1
    wait_for 60 'the window' is_shown
    wait_for 120 'the installation' installed
    wait_for 30 'the stored version' stored pver 1.2.0
    [ ! -e "$cache" ] || fail 'answers that an older version kept are still there'
}

# age_installation : as if an older version had installed it, with more files than today's; and
# somebody had put a file outside into its list.
age_installation() {
    mkdir "$app/old"
    printf 'old' | tee "$app/old/more.dll" "$app/ver.dll" >"$app/../keep.txt"
    sed -i "s/^\[known\]/$(($(grep -c '^[0-9]*=' "$app/installed.ini") + 1))=..\\\\keep.txt\r\n&/" "$app/installed.ini"
    sed -i "s/^\[known\]/$(($(grep -c '^[0-9]*=' "$app/installed.ini") + 1))=old\\\\more.dll\r\n&/" "$app/installed.ini"
}

setup_upgrade() {
    step 'Installed over the running copy: ended and started again, with its settings and its package.'
    local before package
    before=$(copies)
    package=$(md5sum <"$app/plugins/pluginsconfig")
    age_installation
    wine "$setup" /S >"$work/upgrade.log" 2>&1 || fail "the installer ended with $?"
    wait_for 60 'another copy' one_copy_after "$before"
    log=$work/upgrade.log
    wait_for 60 'its settings' said 'OnSettingRefreshed'
    is_hidden || fail 'it opened its window'
    has_payload || fail 'not what the archive holds'
    [ ! -e "$app/old" ] || fail 'a file of the older version was left'
    [ -e "$app/../keep.txt" ] || fail 'a file outside was removed'
    { stored interval 5 && stored pver 1.2.0; } || fail 'the settings were not kept'
    [ "$(md5sum <"$app/plugins/pluginsconfig")" = "$package" ] || fail 'the package was not kept'
}

setup_remove() {
    step 'Removed while it runs: nothing is left but what is the player'"'"'s.'
    local left
    : >"$game/mods/own.txt"
    wine "$app/uninstall.exe" /S >"$work/uninstall.log" 2>&1
    wait_for 120 'the removal' is_removed
    no_copy || fail 'a copy goes on'
    left=$(cd "$game" && find . -type f | LC_ALL=C sort | tr '\n' ' ')
    [ "$left" = './WorldOfTanks.exe ./mods/own.txt ' ] || fail "in the game folder: $left"
    left=$(find -L "$profile" -iname '*brekka*')
    [ -z "$left" ] || fail "left behind: $left"
    kill -0 "$portable" || fail 'the portable copy was ended'
    unzip -qo "$archive" -d "$work/again"
    app=$work/again/$name has_payload || fail 'the portable copy was changed'
    [ -f "$portable_app/brekka.ini" ] || fail 'the portable copy lost its settings'
    rm "$profile/AppData/Local/Programs/keep.txt" "$game/mods/own.txt"
}

# setup_window : the installer's, or with "卸载" the uninstaller's.
setup_window() {
    xdotool search --onlyvisible --name "^Brekka助手 *$1" 2>/dev/null | tail -n 1
}

shows_setup() {
    [ -n "$(setup_window "$1")" ]
}

# page PROGRAM [PICTURE] : goes on from the page, perhaps with a picture of it.
page() {
    sleep 2 # for its last repaint
    [ -z "${2:-}" ] || import -window "$(setup_window "$1")" "$root/docs/screenshots/windows-setup-$2.png"
    xdotool windowactivate --sync "$(setup_window "$1")" key Return
}

# The entry that a player took away stays away, and the window comes back at the end.
setup_pages_again() {
    local before
    before=$(copies)
    rm "$desktop"
    wine "$setup" >"$work/pages-again.log" 2>&1 &
    wait_for 60 'the installer' shows_setup 安装
    page 安装
    wait_for 60 'another copy' one_copy_after "$before"
    wait_for 60 'a copy without a window' is_hidden
    page 安装
    wait_for 60 'the window' is_shown
    [ ! -e "$desktop" ] || fail 'the entry on the desktop came back'
}

setup_pages() {
    step 'Page by page: it starts at the end, and is on the desktop.'
    wine "$setup" >"$work/pages.log" 2>&1 &
    wait_for 60 'the installer' shows_setup 安装
    page 安装 welcome
    wait_for 60 'the last page' has_entry DesktopAsked
    page 安装 finish
    wait_for 60 'the window' is_shown
    [ -f "$desktop" ] || fail 'no entry on the desktop'
    setup_pages_again
    wine "$app/uninstall.exe" >"$work/pages-uninstall.log" 2>&1 &
    wait_for 60 'the uninstaller' shows_setup 卸载
    page 卸载 confirm
    wait_for 120 'the removal' is_removed
    page 卸载 removed
    [ -z "$(find -L "$profile" -iname '*brekka*')" ] || fail 'something was left behind'
}

# A copy that doesn't end keeps the installer waiting for a minute, in which the tests can run.
setup_frozen() {
    wine "$setup" /S >"$work/frozen-setup.log" 2>&1
    start_program frozen.log Brekka.exe -s
    wait_for 60 'the copy' said 'gamefind ret:'
    printf 'old' >"$app/ver.dll"
    kill -STOP "$program"
    (
        result=0
        wine "$setup" /S >"$work/frozen-setup.log" 2>&1 || result=$?
        printf '%s' "$result" >"$work/frozen"
    ) &
}

setup_thawed() {
    step 'A copy that does not end keeps the installer from changing anything.'
    wait_for 120 'the end of the installer' test -s "$work/frozen"
    kill -CONT "$program"
    [ "$(cat "$work/frozen")" = 3 ] || fail "the installer ended with $(cat "$work/frozen")"
    [ "$(cat "$app/ver.dll")" = old ] || fail 'files were changed'
    wait "$program" || fail "asked to quit, the copy ended with $?"
    wine "$app/uninstall.exe" /S >"$work/uninstall.log" 2>&1
    wait_for 60 'the removal' is_removed
}

walk_setup() {
    setup_prepare
    setup_install
    setup_start
    setup_upgrade
    setup_remove
    setup_pages
    kill "$portable"
}
