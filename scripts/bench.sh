#!/usr/bin/env bash
# Measures speed and memory against ordinary tools, side by side, and prints the ratios. Not a test:
# the numbers say nothing about right or wrong, and a busy machine spoils them. Its data, about
# 2 GB, lie under build/bench and are made once.
#
#   scripts/bench.sh [PART...]    PART: verify, unpack, update, memory, growth, start, guard; all by default
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
source "$root/scripts/demo.sh"

bench=$root/build/bench
data=$bench/data
target=$bench/target
worker=$bench/bin/brekka-bench
version=1.0
runs=5

# Making the data.

# random_text BYTES : text that packs to about three quarters, so that unpacking has work to do.
# BYTES is a multiple of 4.
random_text() {
    head -c $(($1 * 3 / 4)) /dev/urandom | base64 -w 0
}

# publish FOLDER : packs it into FOLDER.out and lists its files' checksums in FOLDER.md5.
publish() {
    (cd "$1" && find . -type f -printf '%P\0' | sort -z | xargs -0 md5sum) >"$1.md5"
    "$root/build/release/bin/brekka-publish" --plugin-dir "$1" --plugin-version "$version" \
        --base-url http://127.0.0.1:1 --out "$1.out" >/dev/null
}

make_data() {
    local count
    [ ! -e "$data/complete" ] || return 0
    printf 'Making the data; this takes a minute or two.\n'
    rm -rf "$data"
    mkdir -p "$data/small/mods/a" "$data/large/mods/b" "$data/whole"
    random_text $((2000 << 16)) | split -b 65536 -a 4 - "$data/small/mods/a/f"
    random_text $((256 << 20)) >"$data/large/mods/b/large.bin"
    cp -al "$data/small/mods" "$data/large/mods" "$data/whole/"
    for count in 1000 4000 16000; do
        mkdir -p "$data/$count/mods"
        random_text $((count * 100)) | split -b 100 -a 4 - "$data/$count/mods/f"
    done
    for count in small large whole 1000 4000 16000; do
        publish "$data/$count"
    done
    : >"$data/complete"
}

# Measuring.

# seconds COMMAND... : sets $took to its wall-clock time.
seconds() {
    local start=$EPOCHREALTIME
    "$@" >"$bench/output" 2>&1 || fail "failed: $* ($(tail -n 1 "$bench/output"))"
    took=$(awk "BEGIN { print $EPOCHREALTIME - $start }")
}

median() {
    printf '%s\n' "$@" | sort -g | sed -n "$((($# + 1) / 2))p"
}

heading() {
    printf '\n%-34s %10s %10s %7s   %s\n' "$@"
}

# compare NAME GOAL OURS TOOL BEFORE : runs OURS and TOOL in turn, each after BEFORE, and prints
# their medians. A first run of each, not counted, warms the page cache.
compare() {
    local name=$1 goal=$2 ours=() tool=() run
    for run in $(seq 0 "$runs"); do
        "$5"
        seconds "$3"
        [ "$run" = 0 ] || ours+=("$took")
        "$5"
        seconds "$4"
        [ "$run" = 0 ] || tool+=("$took")
    done
    awk -v name="$name" -v goal="$goal" -v ours="$(median "${ours[@]}")" \
        -v tool="$(median "${tool[@]}")" \
        'BEGIN { printf "%-34s %8.3f s %8.3f s %7.2f   %s\n", name, ours, tool, ours / tool, goal }'
}

# Our debug lines are not wanted: a line or two a file, and a terminal takes long to show them.

check_ours() { "$worker" check "$data/$set" "$data/$set.md5" 2>/dev/null; }
check_tool() { (cd "$data/$set" && md5sum --quiet -c "$data/$set.md5"); }

bench_verify() {
    local set
    make_data
    heading 'verification' 'ours' 'md5sum' 'ratio' 'goal'
    set=small && compare '2,000 files of 64 KiB' 1.10 check_ours check_tool true
    set=large && compare 'one file of 256 MiB' 1.10 check_ours check_tool true
}

unpack_ours() { "$worker" unpack "$package" "$target" 2>/dev/null; }
unpack_tool() { unzip -qo "$package" -d "$target"; }

# Both start from nothing, without the last run's pages still on their way to the disk.
clear_target() {
    rm -rf "$target"
    mkdir "$target"
    sync -f "$target"
}

# Or from the same files, which are then replaced.
fill_target() {
    clear_target
    unpack_tool
    sync -f "$target"
}

# compare_unpacking NAME SET GOAL [BEFORE]
compare_unpacking() {
    local package
    package=$(echo "$data/$2.out/packages/"*.zip)
    compare "$1" "$3" unpack_ours unpack_tool "${4-clear_target}"
}

bench_unpack() {
    make_data
    heading 'unpacking' 'ours' 'unzip' 'ratio' 'goal'
    compare_unpacking '2,000 files of 64 KiB' small 1.10
    compare_unpacking 'one file of 256 MiB' large 1.10
    compare_unpacking '2,000 files of 64 KiB, replaced' small 1.10 fill_target
}

bench_growth() {
    make_data
    heading 'unpacking files of 100 bytes' 'ours' 'unzip' 'ratio' 'goal'
    compare_unpacking '1,000 files' 1000 1.10
    compare_unpacking '4,000 files' 4000 1.10
    compare_unpacking '16,000 files' 16000 1.10
}

# run_update APP : from the start of the process to the recorded verification; ending the process
# comes later.
run_update() {
    local deadline=$((SECONDS + 120))
    (cd "$1" && exec ./Brekka) 2>/dev/null &
    brekka=$!
    started+=("$brekka")
    value=
    while [ "$value" != true ] && [ "$SECONDS" -lt "$deadline" ] && kill -0 "$brekka"; do
        read -r -t 0.01 <>"$bench/tick" || true
        setting "$1/brekka.ini" lastcheckret
    done
    [ "$value" = true ]
}

update_ours() { run_update "$bench/app"; }
update_signed() { run_update "$bench/keyed/app"; }

update_tool() {
    local server=http://127.0.0.1:$port md5
    md5=$(basename "$package" .zip)
    curl -fsS -o "$bench/fetched/manifest" "$server/cms/upgrade" &&
        curl -fsS -o "$bench/fetched/package" "$server/packages/$md5.zip" &&
        printf '%s  %s\n' "$md5" "$bench/fetched/package" | md5sum --quiet -c &&
        unzip -qo "$bench/fetched/package" -d "$target" &&
        (cd "$target" && md5sum --quiet -c "$data/whole.md5")
}

before_update() {
    if [ -n "$brekka" ]; then
        kill "$brekka" 2>/dev/null || true
        wait "$brekka" 2>/dev/null || true
        unset 'started[-1]'
        brekka=
    fi
    local app
    rm -rf "$bench/fetched" "$XDG_CACHE_HOME"
    mkdir "$bench/fetched"
    clear_target
    for app in "$bench/app" "$bench/keyed/app"; do
        rm -rf "$app/plugins" "$app/brekka.ini"
        write_settings "$app/brekka.ini" "$target" 300
    done
}

# The same program, but one that trusts nobody but the holder of a new key.
build_keyed() {
    local key
    rm -rf "$bench/keyed/app" "$bench/keyed/key"
    mkdir -p "$bench/keyed/app"
    key=$("$root/build/release/bin/brekka-publish" --new-key "$bench/keyed/key")
    cmake -S "$root" -B "$bench/keyed/tree" -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF \
        -DBREKKA_PUBLIC_KEYS="$key" >/dev/null
    cmake --build "$bench/keyed/tree" -j "$(nproc)" --target Brekka >/dev/null
    cp -R "$bench/keyed/tree/bin/." "$bench/keyed/app/"
}

bench_update() {
    local package brekka=
    make_data
    package=$(echo "$data/whole.out/packages/"*.zip)
    build_keyed
    serve "$data/whole.out"
    "$root/build/release/bin/brekka-publish" --plugin-dir "$data/whole" --plugin-version "$version" \
        --base-url "http://127.0.0.1:$port" --out "$data/whole.out" --key "$bench/keyed/key" >/dev/null
    rm -rf "$bench/app" "$bench/tick"
    mkdir "$bench/app"
    mkfifo "$bench/tick"
    cp -R "$root/build/release/bin/." "$bench/app/"
    export QT_QPA_PLATFORM=offscreen QT_FORCE_STDERR_LOGGING=1 XDG_CACHE_HOME=$bench/cache
    heading 'whole update' 'ours' 'pipeline' 'ratio' 'goal'
    compare 'all of these files' 1.25 update_ours update_tool before_update
    heading 'whole update' 'signed' 'unsigned' 'ratio' 'goal'
    compare 'all of these files' 1.05 update_signed update_ours before_update
    before_update
}

# peak COMMAND... : sets $peak to what the worker reports, in KiB.
peak() {
    peak=$("$worker" "$@" 2>/dev/null) || fail "failed: $worker $*"
}

# compare_memory NAME SMALL LARGE : prints two peaks.
compare_memory() {
    awk -v name="$1" -v small="$2" -v large="$3" 'BEGIN {
        printf "%-34s %6.1f MiB %6.1f MiB %7.2f   %s\n",
            name, small / 1024, large / 1024, large / small, "flat" }'
}

bench_memory() {
    local size download=() check=()
    mkdir -p "$bench/holes"
    serve "$bench/holes"
    for size in 16 512; do
        truncate -s "${size}M" "$bench/holes/$size"
        (cd "$bench/holes" && md5sum "$size" >"$size.md5")
        peak download "http://127.0.0.1:$port/$size"
        download+=("$peak")
        peak check "$bench/holes" "$bench/holes/$size.md5"
        check+=("$peak")
    done
    rm -rf "$bench/bin/plugins"
    heading 'peak memory' '16 MiB' '512 MiB' 'ratio' 'goal'
    compare_memory 'download' "${download[@]}"
    compare_memory 'verification' "${check[@]}"
}

# Starting. The program in a folder of its own, without a game folder, so that nothing goes on.

# start_first : starts the program and sets $took to the time until it has read its settings; $brekka
# is the process, and $said the descriptor that its debug lines come from.
start_first() {
    local start=$EPOCHREALTIME
    (cd "$bench/app" && exec ./Brekka -s) 2>"$bench/said" &
    brekka=$!
    started+=("$brekka")
    exec {said}<"$bench/said"
    wait_for OnSettingRefreshed
    took=$(awk "BEGIN { print $EPOCHREALTIME - $start }")
}

# wait_for TEXT : returns when the program has said it.
wait_for() {
    local line
    while IFS= read -r -t 20 -u "$said" line; do
        [[ $line != *"$1"* ]] || return 0
    done
    fail "the program never said: $1"
}

stop_first() {
    kill "$brekka"
    wait "$brekka" 2>/dev/null || true
    unset 'started[-1]'
    exec {said}<&-
}

prepare_starts() {
    rm -rf "$bench/app" "$bench/said"
    mkdir "$bench/app"
    mkfifo "$bench/said"
    cp -R "$root/build/release/bin/." "$bench/app/"
    export QT_QPA_PLATFORM=offscreen QT_FORCE_STDERR_LOGGING=1
}

bare() { "$bench/bin/brekka-bare"; }

bench_start() {
    local run ours=() theirs=() memory brekka said
    prepare_starts
    for run in $(seq 0 "$runs"); do
        start_first
        memory=$(awk '/VmHWM/ { print $2 }' "/proc/$brekka/status")
        stop_first
        [ "$run" = 0 ] || ours+=("$took")
        seconds bare
        [ "$run" = 0 ] || theirs+=("$took")
    done
    heading 'start' 'ours' 'bare' 'ratio' ''
    awk -v ours="$(median "${ours[@]}")" -v bare="$(median "${theirs[@]}")" -v memory="$memory" 'BEGIN {
        printf "%-34s %8.3f s %8.3f s %7.2f\n", "until the settings are read", ours, bare, ours / bare
        printf "%-34s %6.1f MiB\n", "peak memory", memory / 1024 }'
}

second_start() { (cd "$bench/app" && exec ./Brekka); }

# Until the first instance is told to come to the front.
second_start_raises() {
    second_start &
    wait_for 'Active main wnd'
}

# compare_start NAME COMMAND : prints what a second start takes longer than a bare program.
compare_start() {
    local run ours=() theirs=() start
    for run in $(seq 0 $((2 * runs))); do
        start=$EPOCHREALTIME
        "$2" 2>/dev/null
        took=$(awk "BEGIN { print $EPOCHREALTIME - $start }")
        [ "$run" = 0 ] || ours+=("$took")
        [ "$2" != second_start ] || wait_for 'Active main wnd'
        seconds bare
        [ "$run" = 0 ] || theirs+=("$took")
    done
    awk -v name="$1" -v ours="$(median "${ours[@]}")" -v bare="$(median "${theirs[@]}")" 'BEGIN {
        printf "%-34s %8.3f s %8.3f s %4.0f ms   60 ms\n", name, ours, bare, (ours - bare) * 1000 }'
}

bench_guard() {
    local brekka said
    prepare_starts
    start_first
    heading 'second start' 'ours' 'bare' 'more' 'goal'
    compare_start 'to its end' second_start
    compare_start 'to the first being raised' second_start_raises
    stop_first
}

parts=("$@")
[ $# -gt 0 ] || parts=(verify unpack update memory growth start guard)
for part in "${parts[@]}"; do
    declare -F "bench_$part" >/dev/null || fail "no such part: $part"
done

install_packages "${build_packages[@]}" "${bench_packages[@]}"
(cd "$root" && cmake --preset release -DBREKKA_BENCH=ON >/dev/null)
build release
mkdir -p "$bench/bin"
cp "$root/build/release/bench/brekka-bench" "$root/build/release/bench/brekka-bare" "$bench/bin/"
for part in "${parts[@]}"; do
    "bench_$part"
done
