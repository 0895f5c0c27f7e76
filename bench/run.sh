#!/usr/bin/env bash
# Measures the client on a display and in a home of its own: run.sh BUILD_DIRECTORY RESULT TOPIC...
# Writes the rows to RESULT and prints them.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=tools/common.sh
source tools/common.sh

build=$(cd "$1" && pwd)
result=$(cd "$(dirname "$2")" && pwd)/$(basename "$2")
shift 2
scratch=$(mktemp -d)
rm -f "$result"

exec {display_pipe}<> <(:)
Xvfb -displayfd "$display_pipe" -screen 0 1024x768x24 -nolisten tcp -noreset >"$scratch/xvfb.log" 2>&1 &
display=$!
trap 'kill "$display"; rm -rf "$scratch"' EXIT
read -rt 30 -u "$display_pipe" number || fail "No display"
export DISPLAY=:$number LC_ALL=C.UTF-8 QT_QPA_PLATFORM=xcb

for topic in "$@"; do
  say "Measuring: $topic"
  in_trial_home "$scratch/$topic"
  dbus-run-session -- "$build/bench/orvel_bench" "$topic" "$result"
done
QT_QPA_PLATFORM=offscreen "$build/bench/orvel_bench" table "$result"
