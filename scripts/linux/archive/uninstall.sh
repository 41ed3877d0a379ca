#!/bin/sh
# Takes Brekka, the plugin that it installed and its settings away from the user who runs this.
set -eu
# shellcheck source=/dev/null
. "$(dirname "$0")/places.sh"

# remove_plugin : by the program itself, which knows what it put into the game's folder, but does not
# tell what it could not delete; a second run still finds that.
remove_plugin() {
    [ -f "$program/brekka.ini" ] || return 0 # never started, so there is none
    export QT_QPA_PLATFORM=offscreen QT_FORCE_STDERR_LOGGING=1
    report=$(cd "$program" && ./Brekka -u 2>/dev/null && ./Brekka -u 2>&1) ||
        fail "游戏插件未能移除，因为程序不能运行。加上参数 --keep-plugin 可以只删除程序。"
    case $report in
    *"delete plugin files true"* | *"second process"*)
        fail "游戏插件未能全部移除。请确认游戏文件夹可以写入，然后重试；加上参数 --keep-plugin 可以只删除程序。"
        ;;
    esac
}

# Only the entry that starts this copy.
remove_logon_task() {
    "$program/BrekkaUpdater" --remove-logon-task || printf '%s\n' "登录时自动启动的设置未能删除。" >&2
}

# remove_data : what the program wrote: settings with what an end during their saving left, the
# package, and the last manifest as Qt lays its cache out, which a copy elsewhere can do without.
remove_data() {
    rm -f "$program/brekka.ini" "$program/brekka.ini.lock" "$program/brekka.ini.whole" \
        "$program/brekka.ini.brekka-part" "$program/brekka.ini.whole.brekka-part" "$program"/brekka.ini.?????? \
        "$program/plugins/pluginsconfig" "$cache"/data8/?/*.d "$cache"/prepared/*.d
    # The last copy that meets in "run" or "brekka-UID" empties it.
    for folder in "$program/plugins" "$cache"/data8/? "$cache/data8" "$cache/prepared" "$cache" "${cache%/http}/run" \
        "${cache%/http}" "${TMPDIR:-/tmp}/brekka-$(id -u)"; do
        rmdir "$folder" 2>/dev/null || true
    done
}

remove_files() {
    while IFS= read -r entry || [ -n "$entry" ]; do
        remove_entry "$entry"
    done <"$list"
    remove_entry "program/$(basename "$list")"
}

refuse_sudo
[ -f "$list" ] || fail "没有找到已安装的Brekka助手：$program"
end_copy
[ "${1:-}" = --keep-plugin ] || remove_plugin
remove_logon_task
remove_data
remove_files
printf '%s\n' "Brekka助手已卸载。"
