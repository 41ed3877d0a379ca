#!/usr/bin/env bash
# Runs what scripts/windows/build.sh made, for real, under Wine: the program of the archive, the
# installer, and the tests compiled for Windows, with windows on a display of its own. Renews
# docs/screenshots/windows-*.
source "$(dirname "${BASH_SOURCE[0]}")/../lib.sh"
source "$root/scripts/windows/toolkit.sh"
source "$root/scripts/demo.sh"
source "$root/scripts/display.sh"
source "$root/scripts/walk.sh"
source "$root/scripts/windows/walk.sh"
source "$root/scripts/windows/installer-walk.sh"

work=$root/build/windows/test
name=Brekka-$(project_version)-win64

# Wine gets a home and a prefix of its own, and a player in China: a user name in Chinese, and the
# system's code page for it, which Wine takes from the locale and needs for shortcuts. Without the
# overrides it would offer to fetch two run-time environments and write to the desktop's menus.
# Variables of the toolkit only get through under Wine's names for them.
set_environment() {
    export USER=坦克玩家 HOME=$work/home WINEPREFIX=$work/prefix WINEDEBUG=-all LOCPATH=$work/locale
    mkdir -p "$LOCPATH"
    localedef -i zh_CN -f UTF-8 "$LOCPATH/zh_CN.UTF-8"
    unset LC_ALL
    # Bash itself would look for it elsewhere, and say so.
    export LANG=C.UTF-8 LC_CTYPE=zh_CN.UTF-8 2>/dev/null
    export WINEDLLOVERRIDES='mscoree,mshtml=;winemenubuilder.exe=' WINEQT_FORCE_STDERR_LOGGING=1
    mkdir -p "$HOME"
}

make_prefix() {
    wineboot -i >"$work/wineboot.log" 2>&1 || fail "no Wine prefix, see $work/wineboot.log"
    # While one program of the prefix runs, its services stay; without it a program may start just as
    # they end, and hang.
    coproc keeper { exec wine cmd /k >/dev/null 2>&1; }
    started=("$keeper_PID" "${started[@]}")
    # The forms name a font that comes with Windows only.
    wine reg add 'HKCU\Software\Wine\Fonts\Replacements' /v 'Microsoft YaHei' /d 'Noto Sans CJK SC' /f >/dev/null
}

# Translucent windows are black without it.
start_compositor() {
    picom --backend xrender 2>"$work/picom.log" &
    started=($! "${started[@]}")
}

# run_tests : the suite, with the DLLs of the archive and, for what only tests need, the toolkit's.
run_tests() {
    local log=$work/tests.log result=0
    (
        cd "$root"
        export BREKKA_TOOLKIT=$toolkit
        WINEPATH=$(winepath -w "$app")\;$(winepath -w "$toolkit/bin")
        WINEQT_PLUGIN_PATH=$(winepath -w "$app")
        export WINEPATH WINEQT_PLUGIN_PATH
        ctest --preset windows --verbose "$@"
    ) >"$log" 2>&1 || result=$?
    printf 'Not run under Wine, and why:\n'
    sed -n 's/^[0-9]*: \(SKIP   : .*\)/    \1/p' "$log" | tr -d '\r'
    # Most programs close with totals; one runs each row in a process of its own and tells row by row.
    tr -d '\r' <"$log" | awk '/^[0-9]+: Totals: / { passed += $3; failed += $5; skipped += $7 }
        /^[0-9]+: PASS: / { ++passed }
        /^[0-9]+: FAIL: / { ++failed }
        END { printf "Cases under Wine: %d passed, %d failed, %d skipped\n", passed, failed, skipped }'
    grep -E '^[0-9]+% tests passed|The following tests FAILED' -A 20 "$log" || true
    [ "$result" = 0 ] || fail "the tests failed under Wine, see $log"
}

end_wine() {
    wineserver -k 2>/dev/null || true
    wineserver -w 2>/dev/null || true
    stop_started
}

install_packages "${mingw_packages[@]}" "${windows_test_packages[@]}"
archive=$root/build/windows/$name.zip
setup=$root/build/windows/Brekka-$(project_version)-setup.exe
for file in "$archive" "$setup"; do
    [ -f "$file" ] || fail "there is no $file: run scripts/windows/build.sh first"
done
rm -rf "$work"
set_environment
trap end_wine EXIT
# First, because Wine's desktop doesn't come to a display later.
start_display "$work"
start_compositor
make_prefix
mkdir -p "$WINEPREFIX/drive_c/Program Files"
unzip -q "$archive" -d "$WINEPREFIX/drive_c/Program Files"
app="$WINEPREFIX/drive_c/Program Files/$name"
walk
walk_setup
setup_frozen
app=$portable_app run_tests "$@"
setup_thawed
# Since the end of the walk no game is registered, and many searches were made.
! wine reg query "$registration" >/dev/null 2>&1 || fail 'a search for the game left its key in the registry'
