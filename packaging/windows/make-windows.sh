#!/usr/bin/env bash
# Makes a fresh Windows for under-wine.sh: make-windows.sh DIRECTORY
#
# Its windows are drawn nowhere, so that no display is needed; ORVEL_WINE_DRAWS=yes makes one that draws.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
rm -rf "$1"
mkdir -p "$1"
WINEPREFIX=$(cd "$1" && pwd)
export WINEPREFIX
"$here/under-wine.sh" wineboot -i
if [[ ${ORVEL_WINE_DRAWS:-} != yes ]]; then
  "$here/under-wine.sh" reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f
fi
/usr/lib/wine/wineserver64 -w

# The user's folders lead into this computer's home.
find "$WINEPREFIX/drive_c/users" -type l | while read -r link; do
  rm "$link"
  mkdir "$link"
done
