#!/usr/bin/env bash
# Kills the program at random moments of an update, and looks at every file before anything heals it:
# each must be whole, of one version or another.
#
#   kills.sh BIN COUNT    BIN: the folder of the programs; COUNT: how many kills
source "$(dirname "${BASH_SOURCE[0]}")/../../scripts/lib.sh"
source "$root/scripts/demo.sh"
source "$root/tests/support/program.sh"

export QT_QPA_PLATFORM=offscreen

# make_version VERSION : each file of it says which version it is of, and how much of it there is.
make_version() {
    seq -f "$1 %06g" 8000 >"$work/plugin/mods/large"
    seq -f "$1 %06g" 100 >"$work/plugin/mods/small"
    printf '<r><setting>%s</setting><version>%s</version></r>' $(($1 % 2 * 4294967295)) "$1" \
        >"$work/plugin/mods/configs/corvane.xml"
    publish "$1"
}

# is_whole FILE COUNT : the lines are those of one version.
is_whole() {
    local version
    read -r version _ <"$1" && seq -f "$version %06g" "$2" | cmp -s - "$1"
}

judge() {
    is_whole "$work/game/mods/large" 8000 || fail "after $kill kills, large is torn"
    is_whole "$work/game/mods/small" 100 || fail "after $kill kills, small is torn"
    tr -d '\n ' <"$work/game/mods/configs/corvane.xml" |
        grep -qE '<r><setting>[0-9]+</setting><version>[0-9]+</version></r>$' || fail "after $kill kills, the options are torn"
    must grep -q '^update=' "$ini"
    must grep -qF 'mods\large=' "$ini"
}

left_nothing() { [ -z "$(find "$work/game" -name '*.brekka-part')" ]; }

install_packages "${test_packages[@]}"
new_program
serve "$work/out"
write_settings "$ini" "$work/game" 1
make_version 1
began=${EPOCHREALTIME/./}
start_program -s
eventually installed 1
# A kill may come at any moment until the update is over.
span=$(((${EPOCHREALTIME/./} - began) / 1000))
kill -KILL "$program"
wait "$program" 2>/dev/null || true

finished=0
for ((kill = 1; kill <= $2; ++kill)); do
    make_version $((kill + 1))
    start_program -s
    read -r -t "$(printf '0.%03d' $((RANDOM % (span < 1000 ? span : 1000))))" <>"$work/nothing" || true
    kill -KILL "$program"
    wait "$program" 2>/dev/null || true
    judge
    ! said 'plugin local files match' || ((finished += 1))
done
# One more version, since the last may be there already: it would end a program that has hardly begun.
make_version $((kill + 1))
start_program -s
eventually installed $((kill + 1))
eventually left_nothing # by the options, which are written last
kill "$program"
wait "$program"
printf '%d kills within %d ms, %d of them after the installation: every file was whole\n' "$2" "$span" "$finished"
