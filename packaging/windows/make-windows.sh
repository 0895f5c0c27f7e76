#!/usr/bin/env bash
# Makes a fresh Windows for under-wine.sh, with one desktop of its own as on a real one: make-windows.sh DIRECTORY
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
rm -rf "$1"
mkdir -p "$1"
WINEPREFIX=$(cd "$1" && pwd)
export WINEPREFIX
explorer='HKCU\Software\Wine\Explorer'
"$here/under-wine.sh" wineboot -i
"$here/under-wine.sh" reg add "$explorer" /v Desktop /d Default /f
"$here/under-wine.sh" reg add "$explorer\\Desktops" /v Default /d 1024x768 /f
# Qt knows no family by these names, else, and takes one with serifs.
for family in "MS Shell Dlg" "MS Shell Dlg 2" "Segoe UI"; do
  "$here/under-wine.sh" reg add 'HKCU\Software\Wine\Fonts\Replacements' /v "$family" /d Tahoma /f
done
# Its own fonts are left out by the program that is called here.
cp /usr/share/wine/fonts/tahoma*.ttf "$WINEPREFIX/drive_c/windows/Fonts"
/usr/lib/wine/wineserver64 -w

# The user's folders lead into this computer's home.
find "$WINEPREFIX/drive_c/users" -type l | while read -r link; do
  rm "$link"
  mkdir "$link"
done
