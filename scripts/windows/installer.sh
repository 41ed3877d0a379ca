# Makes the installer for Windows; source it after lib.sh.

# payload_files PAYLOAD : their names with backslashes, in an order of their own.
payload_files() {
    (cd "$1" && find . -type f -printf '%P\n') | LC_ALL=C sort | sed 's|/|\\|g'
}

# write_macros PAYLOAD : prints what the installer puts into the player's folder, and what the
# uninstaller takes out.
write_macros() {
    printf '!macro InstallFiles\n'
    payload_files "$1" | awk -v payload="$1" '
        { folder = source = $0; gsub(/\\/, "/", source); sub(/\\?[^\\]*$/, "", folder) }
        NR == 1 || folder != last { print "SetOutPath \"$INSTDIR" (folder ? "\\" : "") folder "\"" }
        { print "File \"" payload "/" source "\""; last = folder }'
    printf '!macroend\n!macro RemoveFiles\n'
    payload_files "$1" | awk '{ print "Delete \"$INSTDIR\\" $0 "\"" }'
    # The innermost first.
    (cd "$1" && find . -mindepth 1 -type d -printf '%P\n') | LC_ALL=C sort -r | sed 's|/|\\|g' |
        awk '{ print "RMDir \"$INSTDIR\\" $0 "\"" }'
    printf '!macroend\n'
}

# write_list PAYLOAD : prints the file by which the next version finds what it has no more.
write_list() {
    printf '[files]\r\n'
    payload_files "$1" | awk '{ printf "%d=%s\r\n", NR, $0 }'
    printf '[known]\r\n'
    payload_files "$1" | awk '{ printf "%s=1\r\n", $0 }'
}

# make_installer PAYLOAD OUTPUT : of the files in the folder PAYLOAD, whose names must be plain: the
# lists have no way to quote others.
make_installer() {
    local work=$root/build/windows/installer
    ! find "$1" -mindepth 1 -printf '%f\n' | grep -v '^[A-Za-z0-9._+-]*$' >&2 ||
        fail 'the installer has no way to name these files'
    rm -rf "$work"
    mkdir -p "$work"
    write_macros "$1" >"$work/files.nsh"
    write_list "$1" >"$work/installed.ini"
    touch -d "@$SOURCE_DATE_EPOCH" "$work/installed.ini"
    makensis -V2 -INPUTCHARSET UTF8 -D"VERSION=$(project_version)" -D"SIZE=$(du -sk --apparent-size "$1" | cut -f 1)" \
        -D"FILES=$work" -D"OUTPUT=$2" ${BREKKA_SIGN:+-D"SIGN=$BREKKA_SIGN"} "$root/scripts/windows/installer.nsi"
}
