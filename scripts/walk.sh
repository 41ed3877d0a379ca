# What the walks through the program's life share on both systems; source it after demo.sh.

step() {
    printf '%s\n' "$*"
}

# is_plugin_there : whether $game holds $plugin as published; its configuration is the program's to
# change.
is_plugin_there() {
    local file
    while IFS= read -r file; do
        case $file in
        *.xml) [ -f "$game/$file" ] ;;
        *) cmp -s "$plugin/$file" "$game/$file" ;;
        esac || return 1
    done < <(cd "$plugin" && find . -type f)
}

# no_copy / one_copy_after PID : whether none, or another one alone, is among what "copies" prints.
no_copy() {
    [ -z "$(copies)" ]
}

one_copy_after() {
    local now
    now=$(copies)
    [ -n "$now" ] && [ "$now" != "$1" ] && [ "$(wc -l <<<"$now")" = 1 ]
}
