#!/usr/bin/env bash
# Measures the client on a display and in a home of its own: run.sh BUILD_DIRECTORY RESULT TOPIC...
# Writes the rows to RESULT and prints them. With ORVEL_BENCH_WINDOWS, the directory of the programs for
# Windows, these are measured, under Wine.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=tools/common.sh
source tools/common.sh

build=$(cd "$1" && pwd)
result=$(cd "$(dirname "$2")" && pwd)/$(basename "$2")
shift 2
scratch=$(mktemp -d)
rm -f "$result"
displays=()
trap 'kill "${displays[@]}"; wait; rm -rf "$scratch"' EXIT
export LC_ALL=C.UTF-8 QT_QPA_PLATFORM=xcb

start_display() {
  local number
  exec {display_pipe}<> <(:)
  Xvfb -displayfd "$display_pipe" -screen 0 1024x768x24 -nolisten tcp -noreset >"$scratch/xvfb.log" 2>&1 &
  displays+=($!)
  read -rt 30 -u "$display_pipe" number || fail "No display"
  export DISPLAY=:$number
}

# The programs dock in the display's own tray, not in that of a desktop of Wine's.
make_windows() {
  ORVEL_BENCH_WINDOWS=$(cd "$ORVEL_BENCH_WINDOWS" && pwd)
  export ORVEL_BENCH_WINDOWS ORVEL_BENCH_WINE=$PWD/packaging/windows/under-wine.sh WINEPREFIX=$scratch/windows
  start_display
  packaging/windows/make-windows.sh "$WINEPREFIX" >"$scratch/wine.log" 2>&1
  QT_QPA_PLATFORM='' "$ORVEL_BENCH_WINE" reg delete 'HKCU\Software\Wine\Explorer' /f >>"$scratch/wine.log" 2>&1
}

measure() {
  say "Measuring: $1"
  # What is left of an earlier program belongs to that one's display.
  if [[ ${ORVEL_BENCH_WINDOWS:-} ]]; then /usr/lib/wine/wineserver64 -w; fi
  if [[ ${ORVEL_BENCH_WINDOWS:-} && $1 != start-windows ]]; then
    QT_QPA_PLATFORM=windows "$ORVEL_BENCH_WINE" "$ORVEL_BENCH_WINDOWS/orvel_bench.exe" "$1" "Z:$result"
    return
  fi
  in_trial_home "$scratch/$1"
  # What the session bus has to say is not ours.
  dbus-run-session -- "$build/bench/orvel_bench" "$1" "$result" 2> >(grep -v ^dbus-daemon >&2)
}

if [[ ${ORVEL_BENCH_WINDOWS:-} ]]; then make_windows; fi
# Programs that idle disturb nobody; only one client can run at a time.
idle=
for topic in "$@"; do
  if [[ $topic == idle ]]; then
    start_display
    (trap - EXIT && measure idle) &
    idle=$!
    continue
  fi
  if [[ $topic == start && $idle ]]; then wait "$idle"; fi
  start_display
  measure "$topic"
done
if [[ $idle ]]; then wait "$idle"; fi
QT_QPA_PLATFORM=offscreen "$build/bench/orvel_bench" table "$result"
