#!/usr/bin/env bash
# Builds everything and shows it at work: publishes a sample plugin, serves it on loopback and has
# Brekka install it into a sample game folder. All of it lies under build/demo.
#
# With a display the window stays open until the user quits; without one the script ends when the
# installation is verified.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
source "$root/scripts/demo.sh"

demo=$root/build/demo
ini=$demo/app/brekka.ini
log=$demo/brekka.log
version=1.2.0
interval=10 # seconds between two checks: a repair is seen soon
patience=120 # seconds for the whole installation

# An earlier Brekka may sit in the tray, its window closed: its folder must not be wiped under it.
refuse_running() {
    local link
    for link in /proc/[0-9]*/exe; do
        [ "$(readlink "$link" || true)" != "$demo/app/Brekka" ] ||
            fail 'Brekka still runs from an earlier call: quit it from the menu of its tray icon first'
    done
}

prepare() {
    # Leftovers would make an installation look done that wasn't.
    rm -rf "$demo"
    mkdir -p "$demo/app" "$demo/game"
    : >"$demo/game/WorldOfTanks.exe"
    cp -R "$root/build/release/bin/." "$demo/app/"
    sample_plugin "$demo/plugin" "$version"
    serve "$demo/server"
    "$root/build/release/bin/brekka-publish" --plugin-dir "$demo/plugin" --plugin-version "$version" \
        --base-url "http://127.0.0.1:$port" --out "$demo/server"
    write_settings "$ini" "$demo/game" "$interval"
}

start_brekka() {
    (cd "$demo/app" && QT_FORCE_STDERR_LOGGING=1 exec ./Brekka) 2>"$log" &
    brekka=$!
    # Before the server, so that it never sees the server go.
    started=("$brekka" "${started[@]}")
}

# Returns when the program has recorded a verified installation.
wait_until_installed() {
    local deadline=$((SECONDS + patience)) verified
    while [ "$SECONDS" -lt "$deadline" ]; do
        setting "$ini" lastcheckret
        verified=$value
        setting "$ini" pver
        [ "$verified $value" != "true $version" ] || return 0
        kill -0 "$brekka" 2>/dev/null || return 1
        sleep 0.2
    done
    return 1
}

explain_failure() {
    local how="did not finish within $patience seconds"
    kill -0 "$brekka" 2>/dev/null || how='ended early'
    printf 'The installation %s. The last lines of %s:\n' "$how" "$log" >&2
    tail -n 20 "$log" >&2
}

# Prints what lies in the game folder beside what was published.
show_installed() {
    local file sum count=0 wrong=0
    while IFS= read -r -d '' file; do
        sum=missing
        [ ! -f "$demo/game/$file" ] || sum=$(md5sum <"$demo/game/$file")
        printf '%s  %s\n' "${sum%% *}" "$file"
        count=$((count + 1))
        if [ "$sum" != "$(md5sum <"$demo/plugin/$file")" ]; then
            printf 'not as published: %s\n' "$file" >&2
            wrong=$((wrong + 1))
        fi
    done < <(cd "$demo/plugin" && find . -type f -printf '%P\0' | LC_ALL=C sort -z)
    [ "$wrong" = 0 ] || fail "$wrong of $count files are not as published"
    printf 'installed: %s files verified\n' "$count"
}

install_packages "${build_packages[@]}" "${run_packages[@]}"
build release
refuse_running
prepare
[ -n "${DISPLAY:-}" ] || export QT_QPA_PLATFORM=offscreen
start_brekka
if ! wait_until_installed; then
    explain_failure
    exit 1
fi
show_installed
[ -n "${DISPLAY:-}" ] || exit 0

printf 'Delete or alter a file in %s and see it repaired within %s seconds.\n' "$demo/game" "$interval"
printf 'Quit from the menu of the tray icon, or with Ctrl-C here.\n'
wait "$brekka"
