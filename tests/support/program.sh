# The real program in a folder of its own, for tests that look at it from outside; source it after
# lib.sh and demo.sh. Sets $work, and $bin to the folder of the programs, this script's first argument.

bin=$(cd "$1" && pwd)
work=$(mktemp -d)
chmod 755 "$work" # a web server may run as somebody else
trap 'stop_started; rm -rf "$work"' EXIT
mkdir -m 700 "$work/run"
export QT_FORCE_STDERR_LOGGING=1 XDG_CACHE_HOME=$work/cache XDG_RUNTIME_DIR=$work/run TMPDIR=$work/run
log=$work/log
ini=$work/app/brekka.ini

# new_program : without settings, beside an empty game folder.
new_program() {
    rm -rf "$work/app" "$work/game" "$work/plugin" "$work/out" "$work/cache"
    mkdir -p "$work/app" "$work/game" "$work/plugin/mods/configs"
    # The replay option, which the program switches on, is off in it.
    printf '<r><setting>0</setting><version>1</version></r>' >"$work/plugin/mods/configs/corvane.xml"
    : >"$work/game/WorldOfTanks.exe"
    cp "$bin/Brekka" "$bin/ver.dll" "$work/app/"
}

# start_program ARGUMENT... : $program is the process, and $log what it says.
start_program() {
    (cd "$work/app" && exec ./Brekka "$@") >"$log" 2>&1 &
    program=$!
    started+=("$program")
}

# eventually COMMAND... : waits for it to succeed. The program must be running then.
eventually() {
    local deadline=$((SECONDS + 120))
    until "$@"; do
        if ! kill -0 "$program" 2>/dev/null || [ "$SECONDS" -ge "$deadline" ]; then
            tail -n 30 "$log" >&2
            fail "never came true: $*"
        fi
        read -r -t 0.02 <>"$work/nothing" || true
    done
}
mkfifo "$work/nothing"

must() { "$@" || fail "not so: $*"; }

# said TEXT [TIMES]
said() { [ "$(grep -cF -- "$1" "$log")" -ge "${2:-1}" ]; }

# publish VERSION [OPTION...] : a plugin of which one file holds the version.
publish() {
    printf '%s\n' "$1" >"$work/plugin/mods/a"
    "$bin/brekka-publish" --plugin-dir "$work/plugin" --plugin-version "$1" \
        --base-url "http://127.0.0.1:$port" --out "$work/out" "${@:2}" >/dev/null
}

# installed VERSION : and verified.
installed() {
    setting "$ini" pver
    [ "$value" = "$1" ] || return 1
    setting "$ini" lastcheckret
    [ "$value" = true ] && [ "$(cat "$work/game/mods/a" 2>/dev/null)" = "$1" ]
}
