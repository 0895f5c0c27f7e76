#!/usr/bin/env bash
# Runs a Windows program: under-wine.sh PROGRAM [ARGUMENT...]
#
# WINEPREFIX decides about its Windows. Without one it gets a fresh Windows of its own that is gone
# afterwards, a copy of the one that ORVEL_WINE_TEMPLATE names. Without DISPLAY that one gets a display, too.
set -euo pipefail

# Debian's wrapper of that name only looks for the 32-bit one first, and says that it is missing.
export WINELOADER=/usr/lib/wine/wine64 WINESERVER=/usr/lib/wine/wineserver64
export WINEARCH=win64 WINEDEBUG=${WINEDEBUG:--all}
# No browser and no .NET are offered for download, and no menu entry goes to this computer's own desktop.
export WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=;${WINEDLLOVERRIDES:-}"
# A program without a console writes its log where the caller reads it.
export QT_FORCE_STDERR_LOGGING=1
# Wine keeps the variables of this computer's own Qt from its programs, but for those that say they are for them.
for variable in $(compgen -e QT_); do export "WINE$variable=${!variable}"; done

[[ ! ${WINEPREFIX:-} ]] || exec "$WINELOADER" "$@"

WINEPREFIX=$(mktemp -d "${TMPDIR:-/tmp}/orvel-wine.XXXXXX")
export WINEPREFIX
display=

# shellcheck disable=SC2317,SC2329 # called by the trap
tidy_up() {
  "$WINESERVER" -k || true
  "$WINESERVER" -w || true
  # A console of a program that was killed can be left, and would hold the caller's output open.
  grep -lsz "^WINEPREFIX=$WINEPREFIX\$" /proc/[0-9]*/environ | cut -d/ -f3 | grep -vxE "$$|$display" |
    xargs -r kill -9 2>/dev/null || true
  [[ ! $display ]] || kill "$display" || true
  rm -rf "$WINEPREFIX"
}
trap tidy_up EXIT

if [[ ${ORVEL_WINE_TEMPLATE:-} ]]; then
  # The system's own files are many, and nobody writes to them.
  cp -a "$ORVEL_WINE_TEMPLATE"/{*.reg,.update-timestamp,dosdevices} "$WINEPREFIX"
  mkdir "$WINEPREFIX/drive_c"
  cp -al "$ORVEL_WINE_TEMPLATE"/drive_c/{Program*,windows} "$WINEPREFIX/drive_c"
  cp -a "$ORVEL_WINE_TEMPLATE/drive_c/users" "$WINEPREFIX/drive_c"
fi
if [[ ! ${DISPLAY:-} ]]; then
  exec {display_pipe}<> <(:)
  Xvfb -displayfd "$display_pipe" -screen 0 1024x768x24 -nolisten tcp >/dev/null 2>&1 &
  display=$!
  read -rt 20 -u "$display_pipe" number
  export DISPLAY=:$number
fi
# Only programs in a Windows of their own may take over its user's folders.
export ORVEL_OWN_WINDOWS=1
"$WINELOADER" "$@"
