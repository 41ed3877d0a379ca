# Makes the installer for Windows; source it after lib.sh.

# Folders below the payload $1, the deepest last, each with a backslash in front; the payload itself
# is the empty one.
payload_folders() {
    (cd "$1" && find . -type d | LC_ALL=C sort | sed 's/^\.//') | tr / '\\'
}

# payload_files PAYLOAD FOLDER : the names of the files in one of them.
payload_files() {
    (cd "$1/${2//\\//}" && find . -maxdepth 1 -type f -printf '%f\n' | LC_ALL=C sort)
}

# write_macros PAYLOAD : prints what the installer puts into the player's folder, and what the
# uninstaller takes out.
write_macros() {
    local folder file
    printf '!macro InstallFiles\n'
    while IFS= read -r folder; do
        printf '    SetOutPath "$INSTDIR%s"\n' "$folder"
        while IFS= read -r file; do
            printf '    File "%s/%s"\n' "$1${folder//\\//}" "$file"
        done < <(payload_files "$1" "$folder")
    done < <(payload_folders "$1")
    printf '!macroend\n!macro RemoveFiles\n'
    while IFS= read -r folder; do
        while IFS= read -r file; do
            printf '    Delete "$INSTDIR%s\\%s"\n' "$folder" "$file"
        done < <(payload_files "$1" "$folder")
        [ -z "$folder" ] || printf '    RMDir "$INSTDIR%s"\n' "$folder"
    done < <(payload_folders "$1" | tac)
    printf '!macroend\n'
}

# write_list PAYLOAD : prints the file by which the next version finds what it has no more.
write_list() {
    local files
    mapfile -t files < <(cd "$1" && find . -type f -printf '%P\n' | LC_ALL=C sort | tr / '\\')
    printf '[files]\r\n'
    printf '%s\r\n' "${files[@]}" | awk '{ print NR "=" $0 }'
    printf '[known]\r\n'
    printf '%s=1\r\n' "${files[@]}"
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
