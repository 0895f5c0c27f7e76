#!/usr/bin/env bash
# Runs a Windows program: under-wine.sh PROGRAM [ARGUMENT...]
#
# WINEPREFIX decides about its Windows. Without one it gets a fresh Windows of its own that is gone
# afterwards, a copy of the one that ORVEL_WINE_TEMPLATE names.
set -euo pipefail

# Debian's wrapper of that name only looks for the 32-bit one first, and says that it is missing.
export WINELOADER=/usr/lib/wine/wine64 WINESERVER=/usr/lib/wine/wineserver64
export WINEARCH=win64 WINEDEBUG=${WINEDEBUG:--all}
# No browser and no .NET are offered for download, and no menu entry goes to this computer's own desktop.
export WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=;${WINEDLLOVERRIDES:-}"
# A program without a console writes its log where the caller reads it.
export QT_FORCE_STDERR_LOGGING=1

if [[ ! ${WINEPREFIX:-} ]]; then
  WINEPREFIX=$(mktemp -d "${TMPDIR:-/tmp}/orvel-wine.XXXXXX")
  export WINEPREFIX
  trap '"$WINESERVER" -k || true; "$WINESERVER" -w || true; rm -rf "$WINEPREFIX"' EXIT
  if [[ ${ORVEL_WINE_TEMPLATE:-} ]]; then
    # The system's own files are many, and nobody writes to them.
    cp -a "$ORVEL_WINE_TEMPLATE"/{*.reg,dosdevices} "$WINEPREFIX"
    mkdir "$WINEPREFIX/drive_c"
    cp -al "$ORVEL_WINE_TEMPLATE"/drive_c/{Program*,windows} "$WINEPREFIX/drive_c"
    cp -a "$ORVEL_WINE_TEMPLATE/drive_c/users" "$WINEPREFIX/drive_c"
    cp -a "$ORVEL_WINE_TEMPLATE/.update-timestamp" "$WINEPREFIX"
  fi
  # Only programs in a Windows of their own may take over its user's folders.
  export ORVEL_OWN_WINDOWS=1
  "$WINELOADER" "$@"
else
  exec "$WINELOADER" "$@"
fi
