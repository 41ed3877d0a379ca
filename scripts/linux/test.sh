#!/usr/bin/env bash
# Walks through the life of the archive that scripts/linux/build.sh made: installed, started from its
# desktop entry, installed over the running copy, removed while it runs, and what goes wrong with that;
# on a display of its own, in a home whose name is as awkward as they come, beside a portable copy.
source "$(dirname "${BASH_SOURCE[0]}")/../lib.sh"
source "$root/scripts/demo.sh"
source "$root/scripts/display.sh"
source "$root/scripts/walk.sh"

work=$root/build/linux/test
name=Brekka-$(project_version)-linux-$(uname -m)
archive=$root/build/linux/$name.tar.gz
unpacked=$work/$name
id=example.brekka.Brekka
window_title='^Brekka助手$'

set_environment() {
    export HOME="$work/坦克 \"玩家\" \$HOME 'x' \`id\` \\n" XDG_RUNTIME_DIR=$work/run QT_FORCE_STDERR_LOGGING=1
    unset XDG_DATA_HOME XDG_CACHE_HOME XDG_CONFIG_HOME SUDO_USER
    mkdir -p "$HOME/.config/autostart" "$HOME/游戏/mods" "$HOME/.local/share/other"
    mkdir -m 700 "$XDG_RUNTIME_DIR"
    program=$HOME/.local/share/brekka
    entry=$HOME/.local/share/applications/$id.desktop
    icons=$HOME/.local/share/icons/hicolor
    logon=$HOME/.config/autostart/BrekkaTask.desktop
    portable=$HOME/portable
    game=$HOME/游戏
    plugin=$work/plugin
}

# wait_for WHAT COMMAND... : until the command succeeds.
wait_for() {
    local deadline=$((SECONDS + 120)) what=$1
    shift
    until "$@"; do
        if [ "$SECONDS" -ge "$deadline" ]; then
            tail -n 20 "$work/log" >&2
            fail "did not come: $what"
        fi
        sleep 0.1
    done
}

copies() {
    local link target
    # Processes that end meanwhile make it fail.
    { find /proc/[0-9]*/exe -maxdepth 0 -printf '%p %l\n' 2>/dev/null || true; } | while read -r link target; do
        case $target in
        "$program/Brekka"*) printf '%s\n' "$link" | tr -dc '0-9\n' ;;
        esac
    done
}

is_shown() {
    [ -n "$(xdotool search --onlyvisible --name "$window_title" 2>/dev/null)" ]
}

stored() {
    setting "$program/brekka.ini" "$1"
    [ "$value" = "$2" ]
}

is_installed() {
    is_plugin_there && stored lastcheckret true
}

# contents : all files of the home that are the player's.
contents() {
    (cd "$HOME" && find . -type f ! -name 'brekka.ini.*' -exec md5sum {} + | LC_ALL=C sort -k2)
}

has_program() {
    local file
    for file in "$unpacked/program/"*; do
        cmp "$file" "$program/$(basename "$file")" || return 1
    done
}

# write_logon_entry FOLDER : what the program writes when it is to be started at logon.
write_logon_entry() {
    printf '[Desktop Entry]\nType=Application\nName=BrekkaTask\nExec="%s" "-s"\n' \
        "$(printf '%s' "$1/BrekkaUpdater" | sed 's/[\\"`$]/\\&/g; s/\\/\\\\/g')" >"$logon"
}

prepare() {
    tar -C "$work" -xf "$archive"
    cp -R "$unpacked/program" "$portable"
    printf '[hosts]\nupdate=127.0.0.1:1\n' >"$portable/brekka.ini"
    : >"$game/WorldOfTanks.exe"
    : >"$game/mods/own.txt"
    sample_plugin "$plugin" 1.2.0
    serve "$work/server"
    "$unpacked/program/brekka-publish" --plugin-dir "$plugin" --plugin-version 1.2.0 \
        --base-url "http://127.0.0.1:$port" --out "$work/server" >/dev/null
    (cd "$portable" && exec ./Brekka -s) >"$work/portable.log" 2>&1 &
    portable_copy=$!
    started+=("$portable_copy")
    wait_for 'the portable copy' grep -q 'gamefind ret:' "$work/portable.log"
    # It adds to its settings once, and is to leave them alone from then on.
    wait_for 'its settings' grep -q '^pluginloaderplayopen=' "$portable/brekka.ini"
}

# refuses WORDS COMMAND... : with a program that the command was used on nothing is installed, and
# these words tell why.
refuses() {
    local poor=$work/poor message words=$1
    shift
    rm -rf "$poor"
    cp -R "$unpacked" "$poor"
    "$@" "$poor/program/Brekka"
    ! message=$("$poor/install.sh" 2>&1) || fail 'it was installed'
    [[ $message = *"$words"* ]] || fail "it said: $message"
    [ ! -e "$program" ] || fail 'something was installed'
}

# check_hardening : what the compiler and the linker are told to protect from memory errors.
check_hardening() {
    step 'The programs are hardened.'
    # The start-up code of the distribution lacks the mark for indirect branches, so nothing has it.
    hardening-check --nocfprotection "$unpacked/program/"{Brekka,BrekkaUpdater,brekka-publish} >"$work/hardening.log" || {
        cat "$work/hardening.log" >&2
        fail 'a program is not hardened'
    }
}

walk_refusal() {
    step 'Without the libraries that it needs it says which packages are missing, and does nothing.'
    refuses 'apt install libqt5axl5' sed -i 's/libQt5Xml\.so\.5/libQt5Axl.so.5/g'
    refuses 'apt install libqt5core5a' sed -i 's/libQt5Core\.so\.5/libQt5Core.so.9/g'
    refuses '版本太旧' sed -i 's/GLIBCXX_3\.4/GLIBCXX_9.4/g'
    refuses '这台电脑不能运行' sed -i 's/^.ELF/text/'
    refuses '请解压到' chmod -x
    ! SUDO_USER=me "$unpacked/install.sh" 2>/dev/null || fail 'it was installed for the administrator'
    ! XDG_DATA_HOME=$work/50% "$unpacked/install.sh" 2>/dev/null || fail 'it was installed where desktops do not find it'
}

walk_failure() {
    step 'An installation that can not write a file fails, and what is there of it can be removed.'
    mkdir -p "$program/Brekka"
    ! "$unpacked/install.sh" >"$work/install.log" 2>&1 || fail 'it took a part for the whole'
    [ "$(grep -cE '不能写入|请再次运行' "$work/install.log")" = 2 ] || fail 'it does not say so'
    rmdir "$program/Brekka"
    printf 'cut of' >"$program/ver.dll.new" # by an interruption
    walk_removal "$unpacked/uninstall.sh"
}

walk_install() {
    step 'Installed, and started from the desktop entry with its own folder as the current one.'
    (cd "$work" && CDPATH=$work "$name/install.sh" >install.log)
    has_program || fail 'not what the archive holds'
    no_copy || fail 'started by the installation'
    desktop-file-validate "$entry"
    write_settings "$program/brekka.ini" "$game" 5
    gio launch "$entry" >"$work/log" 2>&1
    wait_for 'the window' is_shown
    wait_for 'the plugin' is_installed
    wait_for 'its version' stored pver 1.2.0
    "$HOME/.local/bin/brekka" >"$work/second.log" 2>&1 || fail "the command ended with $?"
    grep -qF 'i am the second process exit' "$work/second.log" || fail 'the command started another copy'
}

# As if an older version had been installed, with more files; and somebody had altered its list.
age_installation() {
    mkdir "$program/old"
    printf 'old' | tee "$program/old/more" "$program/ver.dll" >"$HOME/.local/share/other/file"
    printf '%s\n' program/old/more program/../other/file share/other/file ../file program/plugins nonsense \
        >>"$program/installed.txt"
    touch -d @0 "$icons"
}

walk_upgrade() {
    step 'Installed over the running copy: ended and started again, with its settings and its package.'
    local before package
    before=$(copies)
    package=$(md5sum <"$program/plugins/pluginsconfig")
    age_installation
    "$unpacked/install.sh" >"$work/install.log"
    wait_for 'another copy' one_copy_after "$before"
    has_program || fail 'not what the archive holds'
    [ ! -e "$program/old" ] || fail 'a file of the older version was left'
    [ -e "$HOME/.local/share/other/file" ] || fail 'a file outside was removed'
    [ "$(stat -c %Y "$icons")" != 0 ] || fail 'desktops would trust a cache that lacks new icons'
    { stored interval 5 && stored pver 1.2.0; } || fail 'the settings were not kept'
    [ "$(md5sum <"$program/plugins/pluginsconfig")" = "$package" ] || fail 'the package was not kept'
    ! is_shown || fail 'it opened its window'
}

walk_frozen() {
    step 'A copy that does not end keeps the installation from changing anything.'
    local impatient=$work/impatient result=0 frozen
    frozen=$(copies)
    cp -R "$unpacked" "$impatient"
    sed -i 's/^patience=60 /patience=2 /' "$impatient/places.sh"
    printf 'new' >"$impatient/program/ver.dll"
    kill -STOP "$frozen"
    "$impatient/install.sh" 2>"$work/frozen.log" || result=$?
    kill -CONT "$frozen"
    [ "$result" = 3 ] || fail "the installation ended with $result"
    has_program || fail 'files were changed'
    wait_for 'the end that it was asked for' no_copy
}

walk_locked() {
    step 'A plugin that can not be removed keeps everything, so that it can be tried again.'
    local file=$game/mods/1.24.0/corvane/assets/atlas.bin
    rm "$file"
    mkdir "$file"
    ! "$unpacked/uninstall.sh" >"$work/uninstall.log" 2>&1 || fail 'it took a part for the whole'
    stored pver 1.2.0 || fail 'the settings were not kept'
    rmdir "$file"
}

# walk_removal COMMAND... : whatever is there and runs.
walk_removal() {
    step "Removed by $(basename "$(dirname "$1")")/$(basename "$1")${2:+ $2}: nothing is left but what is the player's."
    "$@" >"$work/uninstall.log" 2>&1 || fail "the removal ended with $?"
    no_copy || fail 'a copy goes on'
    diff <(printf '%s\n' "$contents") <(contents) >&2 || fail 'other files than before'
    ! find "$HOME" -name portable -prune -o -iname '*brekka*' ! -name BrekkaTask.desktop -print | grep . >&2 || fail 'left behind'
    kill -0 "$portable_copy" || fail 'the portable copy was ended'
}

walk() {
    printf 'old' >"$HOME/.local/share/other/file"
    write_logon_entry "$portable"
    contents=$(contents)
    walk_refusal
    walk_failure
    walk_install
    walk_upgrade
    walk_frozen
    gio launch "$entry" >"$work/log" 2>&1
    wait_for 'the window' is_shown
    truncate -s -1 "$program/installed.txt" # an editor's doing
    walk_removal "$program/uninstall.sh"
    [ -e "$logon" ] || fail 'the logon entry of the portable copy is gone'
    rm "$logon"
    contents=$(contents)
    walk_install
    write_logon_entry "$program"
    walk_locked
    walk_removal "$unpacked/uninstall.sh" --keep-plugin
    [ ! -e "$logon" ] || fail 'its logon entry is left'
}

install_packages "${run_packages[@]}" "${linux_test_packages[@]}"
[ -f "$archive" ] || fail "there is no $archive: run scripts/linux/build.sh first"
rm -rf "$work"
mkdir -p "$work"
set_environment
start_display "$work"
prepare
check_hardening
walk
printf 'Nothing was left behind.\n'
