; The installer and the uninstaller, per user and without administrator rights.
;
; Given with -D: VERSION, STAGE (the directory whose content is installed), OUTPUT (the installer's path),
; FILES (the generated lines that delete what STAGE contains) and, to sign, SIGN (a command that takes a file).
; Both take /S (no questions). The uninstaller also takes /PURGE (settings and the engine's data go, too).
;
; Exit codes: 0 done, 1 cancelled, 2 failed, 3 a newer version is installed, 4 the running client did not end.

Unicode true
Target amd64-unicode
SetCompressor /SOLID lzma
ManifestDPIAware true
ManifestSupportedOS all
RequestExecutionLevel user

!include MUI2.nsh
!include FileFunc.nsh
!include LogicLib.nsh
!include WordFunc.nsh
!include nsDialogs.nsh

!define NAME "Orvel Storage"
!define PUBLISHER "Velmora d.d."
!define APPLICATION_ID "Velmora.OrvelStorage"
!define SETTINGS_KEY "Software\${PUBLISHER}\${NAME}"
!define UNINSTALL_KEY "Software\Microsoft\Windows\CurrentVersion\Uninstall\OrvelStorage"
!define END_MESSAGE "OrvelStorage.End"
!define END_PATIENCE 75 ; times 200 ms

!define FILE_ATTRIBUTE_NORMAL 0x80
!define WITHOUT_SYSTEM 0xFFFFFFFB ; all attributes but FILE_ATTRIBUTE_SYSTEM

!define EXIT_NEWER 3
!define EXIT_RUNNING 4

Name "${NAME}"
OutFile "${OUTPUT}"
InstallDir "$LOCALAPPDATA\Programs\${NAME}"
InstallDirRegKey HKCU "${UNINSTALL_KEY}" "InstallLocation"
BrandingText "${NAME} ${VERSION}"
ShowInstDetails nevershow
ShowUninstDetails nevershow

VIProductVersion "${VERSION}.0"
VIAddVersionKey /LANG=0 "ProductName" "${NAME}"
VIAddVersionKey /LANG=0 "ProductVersion" "${VERSION}"
VIAddVersionKey /LANG=0 "FileVersion" "${VERSION}"
VIAddVersionKey /LANG=0 "FileDescription" "${NAME}"
VIAddVersionKey /LANG=0 "CompanyName" "${PUBLISHER}"
VIAddVersionKey /LANG=0 "LegalCopyright" "${PUBLISHER}"

!ifdef SIGN
  !finalize '"${SIGN}" "%1"' = 0
  !uninstfinalize '"${SIGN}" "%1"' = 0
!endif

!define MUI_ICON "${RESOURCES}/orvel.ico"
!define MUI_UNICON "${RESOURCES}/orvel.ico"
!define MUI_WELCOMEFINISHPAGE_BITMAP "${RESOURCES}/installer.bmp"
!define MUI_ABORTWARNING
!define MUI_FINISHPAGE_RUN
!define MUI_FINISHPAGE_RUN_FUNCTION startClient

!insertmacro MUI_PAGE_DIRECTORY
!insertmacro MUI_PAGE_INSTFILES
!insertmacro MUI_PAGE_FINISH
UninstPage custom un.askForData un.takeAnswer
!insertmacro MUI_UNPAGE_INSTFILES

!insertmacro MUI_LANGUAGE "English"
!insertmacro MUI_LANGUAGE "Slovenian"

LangString newerInstalled ${LANG_ENGLISH} "A newer version of ${NAME} ($0) is already installed. It has been left as it is."
LangString newerInstalled ${LANG_SLOVENIAN} "Nameščena je že novejša različica programa ${NAME} ($0). Ostala bo."
LangString stillRunning ${LANG_ENGLISH} "${NAME} is still running. Choose Exit from its menu, then try again."
LangString stillRunning ${LANG_SLOVENIAN} "${NAME} še teče. V njegovem meniju izberite Izhod in poskusite znova."
LangString dataTitle ${LANG_ENGLISH} "Remove ${NAME}"
LangString dataTitle ${LANG_SLOVENIAN} "Odstranitev programa ${NAME}"
LangString dataSubtitle ${LANG_ENGLISH} "Your files stay on this computer and in the cloud."
LangString dataSubtitle ${LANG_SLOVENIAN} "Vaše datoteke ostanejo na tem računalniku in v oblaku."
LangString dataQuestion ${LANG_ENGLISH} "Also remove the settings and the sign-in from this computer"
LangString dataQuestion ${LANG_SLOVENIAN} "Odstrani tudi nastavitve in prijavo na tem računalniku"

; Whether PATH can be written, which a running program's file cannot. A missing one can.
!macro isFree path result
  StrCpy ${result} yes
  ${If} ${FileExists} "${path}"
    ClearErrors
    FileOpen $R9 "${path}" a
    ${If} ${Errors}
      StrCpy ${result} no
    ${Else}
      FileClose $R9
    ${EndIf}
  ${EndIf}
!macroend

; Asks a running client to end and waits for it and for its engine. $R0: yes or no.
!macro endClient un
  Function ${un}endClient
    System::Call 'user32::RegisterWindowMessage(t "${END_MESSAGE}") i .R1'
    ${For} $R2 0 ${END_PATIENCE}
      !insertmacro isFree "$INSTDIR\orvel.exe" $R0
      ${If} $R0 == yes
        !insertmacro isFree "$INSTDIR\erlang\erts-9.0\bin\erl.exe" $R0
      ${EndIf}
      ${If} $R0 == yes
        !insertmacro isFree "$INSTDIR\orvel-watch.exe" $R0
      ${EndIf}
      ${If} $R0 == yes
        Return
      ${EndIf}
      ${If} $R2 = 0
        System::Call 'user32::PostMessage(p 0xffff, i R1, p 0, p 0)'
      ${EndIf}
      Sleep 200
    ${Next}
  FunctionEnd

  Function ${un}requireEnd
    ${Do}
      Call ${un}endClient
      ${If} $R0 == yes
        Return
      ${EndIf}
      MessageBox MB_RETRYCANCEL|MB_ICONEXCLAMATION "$(stillRunning)" /SD IDCANCEL IDRETRY again
      SetErrorLevel ${EXIT_RUNNING}
      Quit
      again:
    ${Loop}
  FunctionEnd
!macroend
!insertmacro endClient ""
!insertmacro endClient "un."

; Has the shortcut at PATH carry the application's id, so that its windows gather under it on the task bar.
!macro setApplicationId path
  ; The Windows calls by their numbers in the tables of IShellLinkW, IPersistFile and IPropertyStore.
  System::Call 'ole32::CoCreateInstance(g "{00021401-0000-0000-C000-000000000046}", p 0, i 1, g "{000214F9-0000-0000-C000-000000000046}", *p .R1) i .R0'
  ${If} $R0 = 0
    System::Call '$R1->0(g "{0000010b-0000-0000-C000-000000000046}", *p .R2) i .R0'
    ${If} $R0 = 0
      System::Call '$R2->5(w "${path}", i 2) i .R0' ; Load, STGM_READWRITE
      System::Call '$R1->0(g "{886D8EEB-8CF2-4446-8D02-CDBA1DBDCF99}", *p .R3) i .R0'
      ${If} $R0 = 0
        ; PKEY_AppUserModel_ID and a PROPVARIANT of type VT_LPWSTR
        System::Call '*(&g16 "{9F4C2855-9F79-4B39-A8D0-E1D42DE1D5F3}", i 5) p .R4'
        System::Call '*(&w${NSIS_MAX_STRLEN} "${APPLICATION_ID}") p .R5'
        System::Call '*(&i2 31, &i2 0, &i2 0, &i2 0, p R5, p 0) p .R6'
        System::Call '$R3->6(p R4, p R6) i .R0' ; SetValue
        System::Call '$R3->7() i .R0' ; Commit
        System::Free $R6
        System::Free $R5
        System::Free $R4
        System::Call '$R3->2() i .R0' ; Release
        System::Call '$R2->6(w "${path}", i 1) i .R0' ; Save
      ${EndIf}
      System::Call '$R2->2() i .R0'
    ${EndIf}
    System::Call '$R1->2() i .R0'
  ${EndIf}
!macroend

Function .onInit
  SetShellVarContext current
  ReadRegStr $0 HKCU "${UNINSTALL_KEY}" "DisplayVersion"
  ${If} $0 != ""
    ${VersionCompare} $0 "${VERSION}" $1
    ${If} $1 = 1
      MessageBox MB_OK|MB_ICONINFORMATION "$(newerInstalled)" /SD IDOK
      SetErrorLevel ${EXIT_NEWER}
      Quit
    ${EndIf}
  ${EndIf}
FunctionEnd

Function startClient
  SetOutPath "$INSTDIR"
  Exec '"$INSTDIR\orvel.exe"'
FunctionEnd

Section
  Call requireEnd
  ; What an earlier version installed, and only that. The rest of its work stays as it is.
  ReadRegStr $0 HKCU "${UNINSTALL_KEY}" "InstallLocation"
  ${If} $0 != ""
  ${AndIf} ${FileExists} "$0\uninstall.exe"
    CopyFiles /SILENT "$0\uninstall.exe" "$PLUGINSDIR\earlier.exe"
    ExecWait '"$PLUGINSDIR\earlier.exe" /S /UPGRADE _?=$0' $1
    ${If} $1 <> 0
      SetErrorLevel 2
      Abort
    ${EndIf}
    Delete "$0\uninstall.exe"
  ${EndIf}

  SetOutPath "$INSTDIR"
  ClearErrors
  File /r "${STAGE}/*"
  WriteUninstaller "$INSTDIR\uninstall.exe"
  CreateShortCut "$SMPROGRAMS\${NAME}.lnk" "$INSTDIR\orvel.exe"
  ${If} ${Errors}
    SetErrorLevel 2
    Abort
  ${EndIf}
  !insertmacro setApplicationId "$SMPROGRAMS\${NAME}.lnk"

  WriteRegStr HKCU "${UNINSTALL_KEY}" "DisplayName" "${NAME}"
  WriteRegStr HKCU "${UNINSTALL_KEY}" "DisplayVersion" "${VERSION}"
  WriteRegStr HKCU "${UNINSTALL_KEY}" "DisplayIcon" "$INSTDIR\orvel.exe,0"
  WriteRegStr HKCU "${UNINSTALL_KEY}" "Publisher" "${PUBLISHER}"
  WriteRegStr HKCU "${UNINSTALL_KEY}" "InstallLocation" "$INSTDIR"
  WriteRegStr HKCU "${UNINSTALL_KEY}" "UninstallString" '"$INSTDIR\uninstall.exe"'
  WriteRegStr HKCU "${UNINSTALL_KEY}" "QuietUninstallString" '"$INSTDIR\uninstall.exe" /S'
  WriteRegDWORD HKCU "${UNINSTALL_KEY}" "NoModify" 1
  WriteRegDWORD HKCU "${UNINSTALL_KEY}" "NoRepair" 1
  ${GetSize} "$INSTDIR" "/S=0K" $0 $1 $2
  WriteRegDWORD HKCU "${UNINSTALL_KEY}" "EstimatedSize" $0
SectionEnd

Var removeData
Var dataBox

Function un.onInit
  SetShellVarContext current
  ${GetParameters} $0
  ClearErrors
  ${GetOptions} $0 "/PURGE" $1
  ${IfNot} ${Errors}
    StrCpy $removeData yes
  ${EndIf}
FunctionEnd

Function un.askForData
  !insertmacro MUI_HEADER_TEXT "$(dataTitle)" "$(dataSubtitle)"
  nsDialogs::Create 1018
  Pop $0
  ${NSD_CreateCheckBox} 0 0 100% 12u "$(dataQuestion)"
  Pop $dataBox
  nsDialogs::Show
FunctionEnd

Function un.takeAnswer
  ${NSD_GetState} $dataBox $0
  ${If} $0 = ${BST_CHECKED}
    StrCpy $removeData yes
  ${EndIf}
FunctionEnd

; The path in $R2 as the system's functions take it however long it is, in $R4.
Function un.ofAnyLength
  StrCpy $R5 $R2 2
  ${If} $R5 == "\\"
    StrCpy $R4 $R2 "" 1
    StrCpy $R4 "\\?\UNC$R4"
  ${Else}
    StrCpy $R4 "\\?\$R2"
  ${EndIf}
FunctionEnd

; The sync folders look like any other folder again, unless somebody else has given them an icon since. What
; reads such a file takes no long path, so it reads a copy.
Function un.freeFolders
  InitPluginsDir
  StrCpy $R0 0
  ${Do}
    ClearErrors
    EnumRegValue $R1 HKCU "${SETTINGS_KEY}\iconfolders" $R0
    ${If} ${Errors}
    ${OrIf} $R1 == ""
      ${Break}
    ${EndIf}
    IntOp $R0 $R0 + 1
    ReadRegStr $R2 HKCU "${SETTINGS_KEY}\iconfolders" $R1
    Call un.ofAnyLength
    StrCpy $R5 "$R4\desktop.ini"
    StrCpy $R6 "$PLUGINSDIR\desktop.ini"
    System::Call 'kernel32::CopyFileW(w R5, w R6, i 0)'
    SetFileAttributes "$R6" NORMAL
    ReadINIStr $R3 "$R6" ".ShellClassInfo" "IconFile"
    Delete "$R6"
    ${If} $R3 == "$INSTDIR\orvel.exe"
      System::Call 'kernel32::SetFileAttributesW(w R5, i ${FILE_ATTRIBUTE_NORMAL})'
      System::Call 'kernel32::DeleteFileW(w R5)'
      System::Call 'shlwapi::PathUnmakeSystemFolderW(w R2) i.R7'
      ${If} $R7 == 0 ; too long for it
        System::Call 'kernel32::GetFileAttributesW(w R4) i.R7'
        IntOp $R7 $R7 & ${WITHOUT_SYSTEM}
        System::Call 'kernel32::SetFileAttributesW(w R4, i R7)'
      ${EndIf}
    ${EndIf}
  ${Loop}
  DeleteRegKey HKCU "${SETTINGS_KEY}\iconfolders"
FunctionEnd

Function un.leaveShell
  Delete "$SMPROGRAMS\${NAME}.lnk"
  Delete "$SMSTARTUP\${NAME}.lnk"
  ReadRegStr $0 HKCU "${SETTINGS_KEY}" "currentlink"
  ${If} $0 != ""
    Delete "$0"
    DeleteRegValue HKCU "${SETTINGS_KEY}" "currentlink"
  ${EndIf}
  Call un.freeFolders
  ; The next installation is a first one again in this respect.
  DeleteRegValue HKCU "${SETTINGS_KEY}" "runstartup"
FunctionEnd

Section "Uninstall"
  Call un.requireEnd
  !include "${FILES}"
  ${GetParameters} $0
  ClearErrors
  ${GetOptions} $0 "/UPGRADE" $1
  ${IfNot} ${Errors}
    Return
  ${EndIf}
  ; This is a copy of it, which goes on while the original ends.
  ${For} $R2 0 ${END_PATIENCE}
    !insertmacro isFree "$INSTDIR\uninstall.exe" $R0
    ${If} $R0 == yes
      ${ExitFor}
    ${EndIf}
    Sleep 200
  ${Next}
  Delete "$INSTDIR\uninstall.exe"
  SetOutPath "$TEMP"
  RMDir "$INSTDIR"
  Call un.leaveShell
  ${If} $removeData == yes
    DeleteRegKey HKCU "${SETTINGS_KEY}"
    DeleteRegKey /ifempty HKCU "Software\${PUBLISHER}"
    RMDir /r "$LOCALAPPDATA\orvel"
  ${EndIf}
  DeleteRegKey HKCU "${UNINSTALL_KEY}"
SectionEnd
