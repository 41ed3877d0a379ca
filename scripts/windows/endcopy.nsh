; Ends the copy of the program that runs from the folder $INSTDIR, for the installer and, with "un."
; as argument, for the uninstaller. It is asked to quit as its tray menu would; copies elsewhere go on.

Var ran ; "1" once a running copy was asked

!macro EndCopyFunctions un
; The path of the file or program $0 with every link in it followed, empty when there is none.
Function ${un}FollowLinks
    System::Call 'kernel32::CreateFileW(w r0, i 0, i 7, p 0, i 3, i 0, p 0) p .r1'
    StrCpy $0 ""
    System::Call 'kernel32::GetFinalPathNameByHandleW(p r1, w .r0, i ${NSIS_MAX_STRLEN}, i 0)'
    System::Call 'kernel32::CloseHandle(p r1)'
FunctionEnd

; The window that a copy keeps for this has no other use (platform/windows/TerminationSignal.cpp).
Function ${un}AskCopy
    StrCpy $0 "$INSTDIR\Brekka.exe"
    Call ${un}FollowLinks
    StrCpy $3 $0
    StrCpy $4 0
    ${Do}
        System::Call 'user32::FindWindowExW(p -3, p r4, w "BrekkaTermination", p 0) p .r4'
        ${If} $4 P= 0
            ${Break}
        ${EndIf}
        System::Call 'user32::GetWindowThreadProcessId(p r4, *i .r5)'
        System::Call 'kernel32::OpenProcess(i 0x1000, i 0, i r5) p .r6'
        StrCpy $0 ""
        System::Call 'kernel32::QueryFullProcessImageNameW(p r6, i 0, w .r0, *i ${NSIS_MAX_STRLEN})'
        System::Call 'kernel32::CloseHandle(p r6)'
        Call ${un}FollowLinks
        ${If} $0 != ""
        ${AndIf} $0 == $3
            StrCpy $ran 1
            System::Call 'user32::PostMessageW(p r4, i ${WM_CLOSE}, p 0, p 0)'
        ${EndIf}
    ${Loop}
FunctionEnd

; Whether the copy's file is free is all that counts: until its end a process keeps it from being
; written to, whoever started it. An extraction that is under way is finished first.
Function ${un}EndCopy
    ${Do}
        StrCpy $7 0
        ${While} $7 < 240
            Call ${un}AskCopy
            ${IfNot} ${FileExists} "$INSTDIR\Brekka.exe"
                Return
            ${EndIf}
            ClearErrors
            FileOpen $8 "$INSTDIR\Brekka.exe" a
            ${IfNot} ${Errors}
                FileClose $8
                Return
            ${EndIf}
            DetailPrint "正在等待${TITLE}退出……"
            Sleep 250
            IntOp $7 $7 + 1
        ${EndWhile}
        ${If} ${Silent}
            SetErrorLevel 3
            Quit
        ${EndIf}
    ${LoopUntil} ${Cmd} `MessageBox MB_RETRYCANCEL|MB_ICONEXCLAMATION "${TITLE}仍在运行。请先退出它，然后点击“重试”。" IDCANCEL`
    Abort "${TITLE}仍在运行。"
FunctionEnd
!macroend
