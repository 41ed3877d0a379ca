#!/usr/bin/env bash
# A disk that is full, or nearly. The program updates, a player switches the replay option, chooses
# another folder and quits. Afterwards every file is whole, old or new, and the next check with space
# again heals what is missing.
#
#   fulldisk.sh BIN FILESYSTEM...    BIN: the folder of the programs; FILESYSTEM: tmpfs, ext4
#
# The disks are mounted in a namespace of the script's own. A tmpfs needs no rights where users may
# have such namespaces; ext4 needs root and a loop device.
if [ -z "${BREKKA_OWN_MOUNTS-}" ]; then
    own=(unshare --mount)
    [ "$(id -u)" = 0 ] || own+=(--map-root-user)
    if ! "${own[@]}" mount -t tmpfs none /mnt 2>/dev/null; then
        printf 'SKIP   : no disk can be mounted here without more rights\n'
        exit 77
    fi
    BREKKA_OWN_MOUNTS=1 exec "${own[@]}" "$0" "$@"
fi
source "$(dirname "${BASH_SOURCE[0]}")/../../scripts/lib.sh"
source "$root/scripts/demo.sh"
source "$root/scripts/display.sh"
source "$root/tests/support/program.sh"

trap 'stop_started; umount "$disk/app/Brekka" "$disk" 2>/dev/null || true; rm -rf "$work"' EXIT
disk=$work/disk
ini=$disk/app/brekka.ini
disk_size=4 # MiB
export WINEPREFIX=$work/prefix

mount_disk() {
    case $1 in
    tmpfs) mount -t tmpfs -o size=${disk_size}m none "$disk" ;;
    ext4)
        truncate -s ${disk_size}M "$work/image"
        mkfs.ext4 -q -F -O ^has_journal -m 0 "$work/image"
        mount -o loop "$work/image" "$disk"
        ;;
    *) fail "no such file system: $1" ;;
    esac
}

# The program looks for its folder where its file is, which is too large for these disks.
bind_program() {
    mkdir -p "$disk/app"
    : >"$disk/app/Brekka"
    mount --bind "$bin/Brekka" "$disk/app/Brekka"
}

# make_version VERSION : a file that deflates to little, one that doesn't deflate, and the options.
make_version() {
    yes "$1" | head -c 300000 >"$work/plugin/mods/large" || true
    head -c 20000 /dev/urandom >"$work/plugin/mods/noise"
    publish "$1"
    rm -rf "$work/version-$1"
    cp -R "$work/plugin" "$work/version-$1"
}

start_visibly() {
    (cd "$disk/app" && LSAN_OPTIONS=${LSAN_OPTIONS-}:exitcode=0 QT_QPA_PLATFORM=xcb exec ./Brekka) >"$log" 2>&1 &
    program=$!
    started+=("$program")
}

stop_program() {
    kill "$program"
    wait "$program" || fail "the program ended with $?: $(tail -n 5 "$log")"
}

# installed_in GAME VERSION
installed_in() {
    setting "$ini" pver
    [ "$value" = "$2" ] && setting "$ini" lastcheckret && [ "$value" = true ] && diff -qr -x corvane.xml \
        "$1/mods" "$work/version-$2/mods" >/dev/null
}

# set_up_disk FILESYSTEM : version 1 in two game folders, of which the second is the registered one.
set_up_disk() {
    mount_disk "$1"
    bind_program
    mkdir -p "$disk/game" "$WINEPREFIX/dosdevices"
    : >"$disk/game/WorldOfTanks.exe"
    ln -sfn "$disk" "$WINEPREFIX/dosdevices/c:"
    printf '%s\n\n%s\n%s\n' 'WINE REGISTRY Version 2' \
        '[Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\WOT.CN.PRODUCTION]' \
        '"InstallLocation"="C:\\other"' >"$WINEPREFIX/user.reg"
    make_version 1
    write_settings "$ini" "$disk/game" 1
    start_visibly
    eventually installed_in "$disk/game" 1
    eventually said 'dom saved'
    stop_program
    cp -R "$disk/game" "$disk/other"
    tar -C "$disk" --exclude ./app/Brekka -cf "$work/template" .
}

# restore KIB : as it was set up, with that much space left.
restore() {
    find "$disk" -xdev -type f ! -path "$disk/app/Brekka" -delete
    tar -C "$disk" -xf "$work/template"
    sync -f "$disk"
    cat /dev/zero >"$disk/filler" 2>/dev/null || true
    sync -f "$disk"
    truncate -s "-$1K" "$disk/filler"
    sync -f "$disk"
}

# press X Y LINE : a place in the window, until the program says LINE once more. Escape closes a
# message that lies over it; Return says yes to what the press asks.
press() {
    local count
    count=$(grep -cF -- "$3" "$log" || true)
    eventually try_press "$@" $((count + 1))
}
try_press() {
    xdotool key Escape
    xdotool search --onlyvisible --name '^Brekka助手$' >"$work/found" 2>/dev/null || return 1
    xdotool mousemove --window "$(head -n 1 "$work/found")" "$1" "$2" click 1
    local try
    for try in {1..40}; do
        ! said "$3" "$4" || return 0
        read -r -t 0.05 <>"$work/nothing" || true
        [ "$try" -lt 5 ] || xdotool key Return
    done
    return 1
}

# judge GAME : each file is that of one version.
judge() {
    local file
    for file in a large noise; do
        cmp -s "$1/mods/$file" "$work/version-1/mods/$file" || cmp -s "$1/mods/$file" "$work/version-2/mods/$file" ||
            fail "$1/mods/$file is neither old nor new: $(wc -c <"$1/mods/$file") bytes"
    done
    tr -d '\n ' <"$1/mods/configs/corvane.xml" |
        grep -qE '<r><setting>[0-9]+</setting><version>1</version></r>$' ||
        fail "the options in $1 are damaged: $(wc -c <"$1/mods/configs/corvane.xml") bytes"
}

# judge_settings : whatever value it has now, nothing that was there has gone.
judge_settings() {
    local key
    for key in game interval pver updatedate packagecheck lastcheckret pluginloaderplayopen \
        'mods\a' 'mods\large' 'mods\noise' update; do
        grep -qF "$key=" "$ini" || fail "the settings lost $key; they have $(wc -c <"$ini") bytes"
    done
}

walk() {
    local left=$1
    restore "$left"
    start_visibly
    eventually said 'plugin start download'
    press 661 434 '"pluginloaderplayopen" QVariant(bool'
    press 790 208 'OnSettingChanged "game"'
    eventually said '"pluginloaderplayopen" QVariant(bool'
    stop_program
    judge "$disk/game"
    judge "$disk/other"
    judge_settings
    [ -z "$(find "$disk" -name '*.brekka-part')" ] || fail 'a temporary file stayed behind'
    # A choice that can't be saved holds for its run only.
    setting "$ini" game
    [ "$value" = "$disk/other" ] || { [ "$value" = "$disk/game" ] && [ "$left" -lt 64 ]; } ||
        fail "the game's folder is $value"
    rm "$disk/filler"
    start_visibly
    eventually said 'OnAutoUpdate start'
    eventually installed_in "$value" 2
    stop_program
}

mkdir "$disk"
install_packages "${test_packages[@]}"
start_display "$work"
program=$! eventually xprop -root _NET_SUPPORTING_WM_CHECK >"$work/wm" 2>&1
for filesystem in "${@:2}"; do
    new_program
    serve "$work/out"
    set_up_disk "$filesystem"
    make_version 2
    for left in 0 1 2 4 8 64; do
        walk "$left"
        printf '%s, %s KiB left: every file was whole, and the next check healed\n' "$filesystem" "$left"
    done
    umount "$disk/app/Brekka" "$disk"
done
