# A display of a script's own, with a window manager; source it after demo.sh, which ends both.

# start_display FOLDER : an X server on the first free number; its logs go into the folder.
start_display() {
    local try
    Xvfb -displayfd 3 -screen 0 1100x760x24 -dpi 96 -nolisten tcp 3>"$1/display" 2>"$1/xvfb.log" &
    started=($! "${started[@]}")
    for try in {1..300}; do
        [ ! -s "$1/display" ] || break
        sleep 0.1
    done
    [ -s "$1/display" ] || fail "no display, see $1/xvfb.log"
    DISPLAY=:$(cat "$1/display")
    export DISPLAY
    openbox >"$1/openbox.log" 2>&1 &
    started=($! "${started[@]}")
}
