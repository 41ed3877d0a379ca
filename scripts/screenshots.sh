#!/usr/bin/env bash
# Shows the real program in each of its states on a virtual desktop and takes pictures of it.
#
#   scripts/screenshots.sh [SCALE FOLDER]    1 and docs/screenshots by default
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
source "$root/scripts/demo.sh"

scale=${1:-1}
shots=${2:-$root/docs/screenshots}
stage=/tmp/brekka-demo # its paths are seen in the pictures
app=$stage/app
game=$stage/drive_c/Games/Tanks_China
log=$root/build/screenshots.log
patience=30 # seconds for any one step

# The desktop. Its size is a whole number of millimetres at 96 dots per inch; with any other the
# Qt would find a scale factor of its own.
start_desktop() {
    exec {ready}<> <(:)
    Xvfb -displayfd "$ready" -screen 0 1920x1440x24 -dpi 96 -nolisten tcp -noreset &>/dev/null &
    started+=($!)
    read -r -t "$patience" -u "$ready" number || fail 'no virtual X server'
    export DISPLAY=:$number
    hsetroot -solid '#a9b1c6' &>/dev/null
    openbox &>/dev/null &
    started+=($!)
    start_compositor
    trayer --edge bottom --align right --widthtype request --height 32 &>/dev/null &
    started+=($!)
    await 'a window manager' xdotool get_desktop
    await 'a tray' xdotool search --name '^panel$'
}

# Without one neither the dimmed window nor the toast would be see-through.
start_compositor() {
    picom --config /dev/null --backend xrender &>/dev/null &
    compositor=$!
    started+=("$compositor")
}

stop_compositor() {
    kill "$compositor"
    wait "$compositor" 2>/dev/null || true
}

# await WHAT COMMAND... : returns when the command succeeds.
await() {
    local what=$1 deadline=$((SECONDS + patience))
    shift
    until "$@" &>/dev/null; do
        [ "$SECONDS" -lt "$deadline" ] || fail "waited in vain for $what; see $log"
        sleep 0.05
    done
}

# await_line TEXT : returns when the program has written it since the last await_line.
line=0
await_line() {
    await "the line '$1'" has_line "$1"
    line=$(wc -l <"$log")
}
has_line() {
    tail -n "+$((line + 1))" "$log" | grep -qF "$1"
}

start_brekka() {
    line=0
    (cd "$app" && WINEPREFIX=$stage QT_SCALE_FACTOR=$scale QT_FORCE_STDERR_LOGGING=1 exec ./Brekka) 2>"$log" &
    brekka=$!
    started=("$brekka" "${started[@]}")
    await 'the window' xdotool search --onlyvisible --name '^Brekka助手$'
    eval "$(xdotool search --onlyvisible --name '^Brekka助手$' getwindowgeometry --shell)"
    # shellcheck disable=SC2153 # xdotool has set them
    left=$X top=$Y width=$WIDTH height=$HEIGHT
}

stop_brekka() {
    kill "$brekka"
    wait "$brekka" 2>/dev/null || true
}

# scaled NUMBER : in pixels of the desktop.
scaled() {
    LC_ALL=C awk "BEGIN { print int($1 * $scale) }"
}

# point X Y : moves the mouse to a place in the window, in unscaled pixels.
point() {
    xdotool mousemove $((left + $(scaled "$1"))) $((top + $(scaled "$2")))
}
# click X Y [BUTTON]
click() {
    point "$1" "$2"
    sleep 0.1
    xdotool click "${3:-1}"
}
nowhere() { point 450 500; }

# tab COUNT : moves the focus on by the keyboard.
tab() {
    xdotool key --repeat "$1" --delay 60 Tab
}

# picture NAME [GEOMETRY] : takes one of the window, or of a part of the desktop.
picture() {
    sleep 0.4
    import -silent -window root -crop "${2:-${width}x$height+$left+$top}" +repage -strip "$shots/$1.png"
    printf '%s\n' "$shots/$1.png"
}

# register_game : as the game's installer would under Wine.
register_game() {
    cat >"$stage/user.reg" <<'REG'
WINE REGISTRY Version 2

[Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\WOT.CN.PRODUCTION]
"InstallLocation"="C:\\Games\\Tanks_China"
REG
}

publish() {
    "$root/build/release/bin/brekka-publish" --plugin-dir "$stage/plugin" --plugin-version "$1" \
        --base-url "http://127.0.0.1:$port" --out "$stage/server" >/dev/null
}

# Serves the package in parts, with time for a picture in between.
serve_slowly() {
    local package size
    package=$(echo "$stage/server/packages/"*.zip)
    size=$(stat -c %s "$package")
    mkdir "$stage/server/cgi-bin"
    cat >"$stage/server/cgi-bin/package" <<CGI
#!/bin/sh
printf 'Content-Type: application/zip\r\nContent-Length: $size\r\n\r\n'
exec <"$package"
for part in 1 2 3 4 5 6 7 8 9; do
    head -c $((size / 8))
    sleep 0.5
done
CGI
    chmod +x "$stage/server/cgi-bin/package"
    sed -i 's|/packages/[^"]*"|/cgi-bin/package"|' "$stage/server/cms/upgrade"
}

# The package is right, but its files aren't what the list says.
spoil_checksums() {
    sed -i "s/$(md5sum <"$stage/plugin/mods/1.24.0/corvane/说明.txt" | cut -d ' ' -f 1)/$(printf '0%.0s' {1..32})/" \
        "$stage/server/cms/upgrade"
}

prepare() {
    mkdir "$stage" || fail "$stage is in the way; remove it first"
    trap 'stop_started; rm -rf "$stage"' EXIT
    mkdir -p "$app" "$game" "$stage/dosdevices" "$shots"
    ln -s ../drive_c "$stage/dosdevices/c:"
    : >"$game/WorldOfTanks.exe"
    cp -R "$root/build/release/bin/." "$app/"
    sample_plugin "$stage/plugin" 1.2.0
    serve "$stage/server"
    publish 1.2.0
    serve_slowly
    write_settings "$app/brekka.ini" '' 300
}

# With no game known: the pages, the popup, and the way to the first installation.
show_first_steps() {
    start_brekka
    await_line 'gamefind ret:'
    nowhere
    picture not-found
    xdotool key Tab
    picture focus-box
    xdotool key Escape
    picture first-page-empty
    tab 1
    picture focus-tab
    tab 4
    picture focus-button
    tab 2
    picture focus-qr-code
    tab 1
    picture focus-title-bar
    point 740 24
    picture qr-code
    click 190 85
    nowhere
    picture help-page
    tab 3
    picture focus-link
    click 684 210
    click 90 85
    click 684 208
    await 'the file dialog' xdotool search --onlyvisible --name '^打开游戏安装目录$'
    picture file-dialog
    xdotool key Escape
    register_game
    click 790 208
    await_line 'gamefind ret:'
    nowhere
    picture found-game
    xdotool key Return
    await_line 'currnt progress: 5'
    point 684 316
    picture download
    await_line 'plugin local files match'
    picture toast
    sleep 1.5
    nowhere
    picture first-page-installed
    click 300 208 3
    picture path-menu
    xdotool key Escape
    show_tray_menu tray-menu
    stop_brekka
}

# A new version that can't be installed.
show_failure() {
    sample_plugin "$stage/plugin" 1.3.0
    publish 1.3.0
    spoil_checksums
    start_brekka
    await_line 'MainWindow::ShowNew'
    nowhere
    picture new-version
    click 684 316
    await_line 'plugin file check failed'
    nowhere
    picture failed
    xdotool key Return
    stop_brekka
}

# A folder and versions that are longer than their places.
show_long_values() {
    local long
    long=$stage/drive_c/Games/很长的文件夹名称$(printf '/Tanks %s' {1..15})/China
    mkdir -p "$long"
    : >"$long/WorldOfTanks.exe"
    write_settings "$app/brekka.ini" "$long" 0
    sed -i "/^interval/a pver=1.3.0-rc.2+build.20260314.nightly\nPluginSupportGameVersion=1.24.0.0-hotfix.17" \
        "$app/brekka.ini"
    start_brekka
    nowhere
    picture long-values
    point 300 208
    sleep 1
    picture long-path-tip
    stop_brekka
}

# The question of the first start, where the desktop has no compositing manager.
show_uncomposited() {
    stop_compositor
    write_settings "$app/brekka.ini" '' 300
    start_brekka
    await_line 'gamefind ret:'
    nowhere
    picture uncomposited
    stop_brekka
}

# show_tray_menu NAME
show_tray_menu() {
    eval "$(xdotool search --name '^panel$' getwindowgeometry --shell)"
    xdotool mousemove $((X + WIDTH / 2)) $((Y + HEIGHT / 2)) click 3
    X=$(scaled 300) Y=$(scaled 200)
    picture "$1" "${X}x$Y+$((1920 - X))+$((1440 - Y))"
    xdotool key Escape
}

install_packages "${build_packages[@]}" "${run_packages[@]}" \
    xvfb openbox picom trayer xdotool imagemagick hsetroot
build release
prepare
start_desktop
show_first_steps
show_failure
show_long_values
show_uncomposited
