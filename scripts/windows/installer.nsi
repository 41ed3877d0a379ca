; The installer for one user, without an administrator's rights. scripts/windows/installer.sh gives
; VERSION, SIZE (KiB), OUTPUT, the folder FILES with the lists of what is installed, and perhaps SIGN,
; a program that signs the file it is given.

Unicode true
Target amd64-unicode
SetCompressor /SOLID lzma

!define TITLE "Brekka助手"
!define ENTRY "Software\Microsoft\Windows\CurrentVersion\Uninstall\Brekka"
!define MUI_ICON "..\..\app\brekka.ico"
!define MUI_UNICON "..\..\app\brekka.ico"
!define MUI_WELCOMEFINISHPAGE_BITMAP "installer.bmp"

!include MUI2.nsh
!include LogicLib.nsh
!include WinMessages.nsh
!include endcopy.nsh
!include "${FILES}\files.nsh" ; the macros InstallFiles and RemoveFiles

Name "${TITLE}"
OutFile "${OUTPUT}"
!ifdef SIGN
    !finalize '"${SIGN}" "%1"' = 0
    !uninstfinalize '"${SIGN}" "%1"' = 0
!endif
BrandingText "${TITLE} ${VERSION}"
RequestExecutionLevel user
ManifestDPIAware true
ManifestSupportedOS all
AllowSkipFiles off
ShowInstDetails nevershow ; but for the latest line
ShowUninstDetails nevershow
; The font that the language file asks for lacks on today's systems, and shows boxes.
SetFont "Microsoft YaHei" 9

VIProductVersion "${VERSION}"
VIAddVersionKey /LANG=2052 "ProductName" "${TITLE}"
VIAddVersionKey /LANG=2052 "ProductVersion" "${VERSION}"
VIAddVersionKey /LANG=2052 "FileDescription" "${TITLE}安装程序"
VIAddVersionKey /LANG=2052 "FileVersion" "${VERSION}"
VIAddVersionKey /LANG=2052 "CompanyName" "Brekka"
VIAddVersionKey /LANG=2052 "LegalCopyright" "Brekka"

!define MUI_WELCOMEPAGE_TITLE "安装${TITLE}"
!define MUI_WELCOMEPAGE_TEXT "${TITLE}为你安装游戏插件，并让它保持最新。$\r$\n$\r$\n程序安装在你自己的用户文件夹中，不需要管理员权限。如果${TITLE}正在运行，它会先退出，安装完成后再次启动；你的设置会保留。$\r$\n$\r$\n点击“安装”继续。"
!define MUI_FINISHPAGE_NOREBOOTSUPPORT
!define MUI_FINISHPAGE_RUN
!define MUI_FINISHPAGE_RUN_FUNCTION StartProgram
; The page's second box, meant for a text to read.
!define MUI_FINISHPAGE_SHOWREADME
!define MUI_FINISHPAGE_SHOWREADME_TEXT "创建桌面快捷方式"
!define MUI_FINISHPAGE_SHOWREADME_FUNCTION CreateDesktopEntry
!insertmacro MUI_PAGE_WELCOME
!insertmacro MUI_PAGE_INSTFILES
!define MUI_PAGE_CUSTOMFUNCTION_SHOW ShowFinishPage
!insertmacro MUI_PAGE_FINISH

!define MUI_UNCONFIRMPAGE_TEXT_TOP "请先退出游戏：游戏运行时插件文件被占用，会留在游戏文件夹中。$\r$\n$\r$\n${TITLE}、它安装的游戏插件和它的设置都将被删除。点击“卸载”继续。"
!insertmacro MUI_UNPAGE_CONFIRM
!insertmacro MUI_UNPAGE_INSTFILES
!insertmacro MUI_LANGUAGE SimpChinese

!insertmacro EndCopyFunctions ""
!insertmacro EndCopyFunctions "un."

!macro OnlyOnce
    System::Call 'kernel32::CreateMutexW(p 0, i 0, w "BrekkaSetup") p .r0 ?e'
    Pop $0
    ${If} $0 = 183 ; it exists already
        Abort
    ${EndIf}
!macroend

Function .onInit
    !insertmacro OnlyOnce
    ; Always there, whatever "/D=" says: the entry in the list of programs is for one copy.
    StrCpy $INSTDIR "$LOCALAPPDATA\Programs\Brekka"
FunctionEnd

Function un.onInit
    !insertmacro OnlyOnce
FunctionEnd

; Removes what the version before installed and this one doesn't. The list is anybody's to edit.
Function RemoveOutdated
    StrLen $4 "$INSTDIR\"
    StrCpy $0 1
    ${Do}
        ReadINIStr $1 "$INSTDIR\installed.ini" files $0
        ${If} $1 == ""
            Return
        ${EndIf}
        ReadINIStr $2 "$PLUGINSDIR\installed.ini" known $1
        GetFullPathName $3 "$INSTDIR\$1"
        StrCpy $5 $3 $4
        ${If} $2 == ""
        ${AndIf} $5 == "$INSTDIR\"
            System::Call 'kernel32::DeleteFileW(w r3)'
            RMDir "$3\.."
        ${EndIf}
        IntOp $0 $0 + 1
    ${Loop}
FunctionEnd

Function WriteEntry
    WriteRegStr HKCU "${ENTRY}" DisplayName "${TITLE}"
    WriteRegStr HKCU "${ENTRY}" DisplayIcon "$INSTDIR\Brekka.exe"
    WriteRegStr HKCU "${ENTRY}" DisplayVersion "${VERSION}"
    WriteRegStr HKCU "${ENTRY}" Publisher "Brekka"
    WriteRegStr HKCU "${ENTRY}" InstallLocation "$INSTDIR"
    WriteRegStr HKCU "${ENTRY}" UninstallString '"$INSTDIR\uninstall.exe"'
    WriteRegStr HKCU "${ENTRY}" QuietUninstallString '"$INSTDIR\uninstall.exe" /S'
    WriteRegDWORD HKCU "${ENTRY}" EstimatedSize ${SIZE}
    WriteRegDWORD HKCU "${ENTRY}" NoModify 1
    WriteRegDWORD HKCU "${ENTRY}" NoRepair 1
FunctionEnd

Section
    Call EndCopy
    !insertmacro InstallFiles
    WriteUninstaller "$INSTDIR\uninstall.exe"
    ; The new list comes last: after an interruption the next installation still has the old one.
    InitPluginsDir
    File "/oname=$PLUGINSDIR\installed.ini" "${FILES}\installed.ini"
    Call RemoveOutdated
    SetOutPath "$INSTDIR" ; where the program, started by a shortcut, keeps its settings
    File "${FILES}\installed.ini"
    CreateShortcut "$SMPROGRAMS\${TITLE}.lnk" "$INSTDIR\Brekka.exe"
    Call WriteEntry
    ${If} $ran = 1
        Exec '"$INSTDIR\Brekka.exe" -s'
    ${EndIf}
SectionEnd

; Ticked for who is new here; later it is the player's own choice to have the entry or not.
Function ShowFinishPage
    ReadRegDWORD $0 HKCU "${ENTRY}" DesktopAsked
    ${If} $0 = 1
        SendMessage $mui.FinishPage.ShowReadme ${BM_SETCHECK} ${BST_UNCHECKED} 0
    ${EndIf}
    WriteRegDWORD HKCU "${ENTRY}" DesktopAsked 1
FunctionEnd

Function CreateDesktopEntry
    SetOutPath "$INSTDIR"
    CreateShortcut "$DESKTOP\${TITLE}.lnk" "$INSTDIR\Brekka.exe"
    WriteRegDWORD HKCU "${ENTRY}" DesktopEntry 1
FunctionEnd

; One that was started again meanwhile shows its window.
Function StartProgram
    SetOutPath "$INSTDIR"
    Exec '"$INSTDIR\Brekka.exe"'
FunctionEnd

Function un.RemoveLogonTask
    StrCpy $0 0
    ExecWait '"$INSTDIR\BrekkaUpdater.exe" --remove-logon-task' $0
    ${If} $0 = 0
    ${OrIf} ${Silent}
        Return
    ${EndIf}
    ; A task that starts with an administrator's rights takes one to remove it.
    ExecShellWait "runas" "$INSTDIR\BrekkaUpdater.exe" "--remove-logon-task"
    ExecWait '"$INSTDIR\BrekkaUpdater.exe" --remove-logon-task' $0
    ${If} $0 <> 0
        MessageBox MB_OK|MB_ICONINFORMATION "登录时自动启动${TITLE}的任务未能删除。你可以在“任务计划程序”中删除“Brekka”文件夹里的任务。"
    ${EndIf}
FunctionEnd

; The last manifest of versions before 1.2, as Qt lays its cache out. A copy elsewhere does without it.
Function un.RemoveCache
    ${ForEach} $0 0 15 + 1
        IntFmt $1 "%x" $0
        Delete "$LOCALAPPDATA\Brekka\cache\http\data8\$1\*.d"
        RMDir "$LOCALAPPDATA\Brekka\cache\http\data8\$1"
    ${Next}
    RMDir "$LOCALAPPDATA\Brekka\cache\http\data8"
    Delete "$LOCALAPPDATA\Brekka\cache\http\prepared\*.d"
    RMDir "$LOCALAPPDATA\Brekka\cache\http\prepared"
    RMDir "$LOCALAPPDATA\Brekka\cache\http"
    RMDir "$LOCALAPPDATA\Brekka\cache"
    RMDir "$LOCALAPPDATA\Brekka"
FunctionEnd

; What the program itself wrote: settings with what an end during their saving left, and the package.
Function un.RemoveData
    Delete "$INSTDIR\brekka.ini"
    Delete "$INSTDIR\brekka.ini.lock"
    Delete "$INSTDIR\brekka.ini.??????"
    Delete "$INSTDIR\brekka.ini.whole"
    Delete "$INSTDIR\brekka.ini.brekka-part"
    Delete "$INSTDIR\brekka.ini.whole.brekka-part"
    Delete "$INSTDIR\plugins\pluginsconfig"
    RMDir "$INSTDIR\plugins"
FunctionEnd

Section un.
    Call un.EndCopy
    SetOutPath "$INSTDIR"
    ExecWait '"$INSTDIR\Brekka.exe" -u'
    Call un.RemoveLogonTask
    SetOutPath "$TEMP" ; a current folder can't be removed
    Call un.RemoveData
    Call un.RemoveCache
    !insertmacro RemoveFiles
    Delete "$INSTDIR\installed.ini"
    Delete "$SMPROGRAMS\${TITLE}.lnk"
    ReadRegDWORD $0 HKCU "${ENTRY}" DesktopEntry
    ${If} $0 = 1
        Delete "$DESKTOP\${TITLE}.lnk"
    ${EndIf}
    Delete "$INSTDIR\uninstall.exe"
    RMDir "$INSTDIR"
    DeleteRegKey HKCU "${ENTRY}"
SectionEnd
