#!/usr/bin/env bash
# The linker, asked in Microsoft's words. All that is not Windows' own is linked in.
set -euo pipefail

libraries=(ws2_32 iphlpapi gdi32 user32 comctl32 comdlg32 shell32 ole32 uuid advapi32)
unicode=()
arguments=()
for argument in "$@"; do
  case $argument in
    -dll) arguments+=(-shared "-Wl,--disable-auto-image-base") ;; # which would depend on where it is built
    -def:*) arguments+=("${argument#-def:}") ;;
    -implib:*) arguments+=("-Wl,--out-implib,${argument#-implib:}") ;;
    -entry:*) arguments+=("-Wl,--entry,${argument#-entry:}") ;;
    -lsocket | -MD | -MT | -pdb:* | -incremental:*) ;;
    */erl.exe | */escript.exe) # begin with wmain
      unicode=(-municode)
      arguments+=("$argument")
      ;;
    *) arguments+=("$argument") ;;
  esac
done
exec x86_64-w64-mingw32-gcc-posix -s -Wl,--no-insert-timestamp "${unicode[@]}" "${arguments[@]}" \
  "${libraries[@]/#/-l}" -static -lpthread
