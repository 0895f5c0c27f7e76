#!/usr/bin/env bash
# Takes pictures of every window in both languages, on a display of its own.
#   screenshots.sh BUILD_DIRECTORY TARGET
# TARGET/en and TARGET/sl get one picture a window, those of the guide and the settings also at 200 %
# (NAME@2x.png); TARGET/en.png and TARGET/sl.png show all of a language at once.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=tools/common.sh
source tools/common.sh

program=$1/tests/screenshots
mkdir -p "$2"
target=$(cd "$2" && pwd)
log=$(mktemp)
display=

# shellcheck disable=SC2317,SC2329  # called by the trap
tidy_up() {
  [[ -z $display ]] || kill "$display" 2>/dev/null || true
  wait 2>/dev/null || true
  rm -f "$log"
}
trap tidy_up EXIT

take() {
  "$program" "$@" >"$log" 2>&1 || { cat "$log" >&2; fail "No pictures"; }
}

exec {display_pipe}<> <(:)
Xvfb -displayfd "$display_pipe" -screen 0 2560x1600x24 -dpi 96 -nolisten tcp >/dev/null 2>&1 &
display=$!
read -rt 20 -u "$display_pipe" number || fail "no X server"
export DISPLAY=:$number QT_QPA_PLATFORM=xcb LC_ALL=C.UTF-8
unset WAYLAND_DISPLAY DBUS_SESSION_BUS_ADDRESS QT_QPA_PLATFORMTHEME QT_STYLE_OVERRIDE QT_SCALE_FACTOR

for language in en sl; do
  rm -rf "${target:?}/$language"
  mkdir "$target/$language"
  take "$target/$language" "$language"
  pictures=("$target/$language"/*.png)
  QT_SCALE_FACTOR=2 take "$target/$language" "$language" guide-{1,2,3,4} main-settings
  montage -label '%t' "${pictures[@]}" -font DejaVu-Sans -pointsize 13 -tile 4x -geometry '560x460>+16+8' \
    -background '#b8bcc0' "$target/$language.png"
  say "$target/$language: ${#pictures[@]} windows; all of them in $target/$language.png"
done
