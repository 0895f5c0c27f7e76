#!/usr/bin/env bash
# Tries the client out the way a user does: on a display of its own, with mouse and keyboard.
#   tour.sh BUILD_DIRECTORY HOME
# Ends with one verdict line; the exit status is 0 when everything was seen to work.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=tools/common.sh
source tools/common.sh

mkdir -p "$2"
home=$(cd "$2" && pwd)
installation=$home/program
shots=$home/screenshots
log=$home/client.log
folder="$home/Orvel Storage"
cloud=$home/cloud/1001
patience=$((30 * ${ORVEL_TEST_TIMEOUT_FACTOR:-1})) # seconds
client=

seen() {
  say "  seen: $*"
}

give_up() {
  import -window root "$shots/failure.png" 2>/dev/null || true
  tail -n 20 "$log" >&2 2>/dev/null || true
  say "Screenshots: $shots"
  say "VERDICT: FAILED: $*"
  exit 1
}

# await DESCRIPTION COMMAND...: until the command succeeds, which is tried again and again.
await() {
  local what=$1 end=$((SECONDS + patience))
  shift
  until "$@" >/dev/null 2>&1; do
    ((SECONDS < end)) || give_up "$what"
    [[ -z $client ]] || kill -0 "$client" 2>/dev/null || give_up "the client ended before: $what"
    read -rt 0.05 <> <(:) || true
  done
  seen "$what"
}

logged() {
  grep -qF -- "$1" "$log"
}

same_files() {
  diff -r --exclude '*.cache' "$folder" "$cloud"
}

window_of() {
  xdotool search --all --onlyvisible --pid "$client" --name "^$1\$" 2>/dev/null | head -n 1
}

window_shown() {
  [[ -n $(window_of "$1") ]]
}

window_gone() {
  ! window_shown "$1"
}

shoot_window() {
  import -window "$(window_of "$1")" "$shots/$2"
}

# The tray is the bar that trayer draws; the icon is the client's window in it.
tray_window() {
  xdotool search --class trayer 2>/dev/null | tail -n 1
}

tray_shot() {
  import -window root -crop "$(xdotool getwindowgeometry --shell "$(tray_window)" |
    awk -F= '/^X=/{x=$2} /^Y=/{y=$2} /^WIDTH=/{w=$2} /^HEIGHT=/{h=$2} END{print w "x" h "+" x "+" y}')" +repage "$1"
}

tray_differs_from() {
  tray_shot "$shots/.tray-now.png"
  [[ $(compare -metric AE "$1" "$shots/.tray-now.png" null: 2>&1) != 0 ]]
}

icon_in_tray() {
  tray_shot "$shots/.tray-now.png"
  (($(identify -format '%k' "$shots/.tray-now.png") > 8))
}

start_display() {
  local number
  exec {display_pipe}<> <(:)
  Xvfb -displayfd "$display_pipe" -screen 0 1024x768x24 -nolisten tcp >"$home/xvfb.log" 2>&1 &
  helpers+=($!)
  read -rt 20 -u "$display_pipe" number || give_up "no X server"
  export DISPLAY=:$number
  unset WAYLAND_DISPLAY DBUS_SESSION_BUS_ADDRESS QT_QPA_PLATFORM
  openbox >/dev/null 2>&1 &
  helpers+=($!)
}

# After the client: its icon has to come with the tray.
start_tray() {
  trayer --edge bottom --align right --widthtype request --height 36 --SetPartialStrut true \
    --transparent true --alpha 0 --tint 0xdddddd >/dev/null 2>&1 &
  helpers+=($!)
}

start_client() {
  : >"$log"
  (cd "$installation" && exec ./orvel) >"$home/client.out" 2>"$log" &
  client=$!
}

helpers=()
# shellcheck disable=SC2317,SC2329  # called by the trap
tidy_up() {
  [[ -z $client ]] || kill "$client" 2>/dev/null || true
  ((${#helpers[@]} == 0)) || kill "${helpers[@]}" 2>/dev/null || true
  wait 2>/dev/null || true
}
trap tidy_up EXIT

lay_out "$1" "$installation"
rm -rf "$shots" "$folder" "$home/cloud" "$home/.local/share/orvel" "$home/.config/Velmora d.d."
mkdir -p "$shots"
in_trial_home "$home"
export ORVEL_LOCAL_CLOUD=$home/cloud
export ORVEL_LANGUAGE=${ORVEL_LANGUAGE-en} # the names of windows below are English
# Where the path would be too long for a socket, the temporary files go elsewhere.
if ((${#TMPDIR} > 80)); then TMPDIR=$(mktemp -d /tmp/orvel-tour.XXXXXX); export TMPDIR; fi

say "The tour, in $home"
start_display
start_client
await "the main window, on a desktop without a tray" window_shown "Orvel Storage"
start_tray
await "the tray comes up later" tray_window
await "the guide of the first start" window_shown "Welcome to Orvel Storage"
await "the engine asks for a sign-in" logged "maindlg: network state  logout"
await "an icon in the tray" icon_in_tray
shoot_window "Welcome to Orvel Storage" guide.png
xdotool windowfocus --sync "$(window_of "Welcome to Orvel Storage")" key Escape
await "the guide closes" window_gone "Welcome to Orvel Storage"

main=$(window_of "Orvel Storage")
xdotool windowactivate --sync "$main"
shoot_window "Orvel Storage" sign-in.png
tray_shot "$shots/tray-signed-out.png"
# The form as its fields follow each other: e-mail, password, Enter.
eval "$(xdotool getwindowgeometry --shell "$main" | grep -E '^(WIDTH|HEIGHT)=')"
xdotool mousemove --window "$main" $((WIDTH / 2)) 72 click 1
xdotool key ctrl+a type --delay 20 'trial@orvel.example'
xdotool key Tab type --delay 20 'trial'
shoot_window "Orvel Storage" typed.png
xdotool key Return
await "signed in" logged "maindlg: network state  ok"
await "the sync folder" test -d "$folder"
await "the tray icon follows" tray_differs_from "$shots/tray-signed-out.png"
shoot_window "Orvel Storage" settings.png
tray_shot "$shots/tray-synced.png"

mkdir -p "$folder/Fotografije/poletje"
printf 'Pozdravljen, oblak!\n' >"$folder/Beležka.txt"
head -c 20000000 /dev/urandom >"$folder/Fotografije/poletje/morje.raw"
for number in $(seq 1 40); do printf '%s\n' "$number" >"$folder/Fotografije/slika-$number.txt"; done
await "the transfer in the tray" logged "maindlg: network state  transferring"
await "the files in the cloud" same_files
printf 'spremenjeno\n' >>"$folder/Beležka.txt"
mv "$folder/Fotografije" "$folder/Slike"
rm "$folder/Slike/slika-1.txt"
await "a change, a rename and a deletion in the cloud" same_files
printf 'iz oblaka\n' >"$cloud/Iz oblaka.txt"
await "a file from the cloud in the folder" same_files
await "synced again" bash -c "grep -F 'network state  ' '$log' | tail -n 1 | grep -q 'ok\$'"

eval "$(xdotool getwindowgeometry --shell "$(tray_window)" | grep -E '^(X|Y|WIDTH|HEIGHT)=')"
xdotool mousemove 300 300
xdotool mousemove $((X + WIDTH / 2)) $((Y + HEIGHT / 2))
# Whether the client shows a window of this type, such as TOOLTIP or POPUP_MENU.
kind_shown() {
  local id
  for id in $(xdotool search --onlyvisible --pid "$client" 2>/dev/null); do
    if xprop -id "$id" _NET_WM_WINDOW_TYPE | grep -qE "_TYPE_($1)"; then return 0; fi
  done
  return 1
}
xdotool mousemove $((X + WIDTH / 2)) $((Y + HEIGHT / 2))
await "the tool tip" kind_shown TOOLTIP
import -window root "$shots/tooltip.png"

xdotool click 3
await "the tray menu" kind_shown 'POPUP_MENU|DROPDOWN_MENU|MENU'
import -window root "$shots/menu.png"
# "Exit" is the last entry: up from the top goes there.
xdotool key Up key Return
leaving=$client
client=
end=$((SECONDS + patience))
while kill -0 "$leaving" 2>/dev/null; do
  ((SECONDS < end)) || give_up "the client ends by its menu"
  read -rt 0.05 <> <(:) || true
done
status=0
wait "$leaving" || status=$?
[[ $status == 1 ]] || give_up "the client ended with $status instead of 1"
seen "Exit, with code 1"
pgrep -f "$installation/erlang" >/dev/null && give_up "an engine was left behind"

rm -f "$shots"/.*.png
say "Screenshots: $shots"
say "VERDICT: OK: signed in, $(find "$cloud" -type f | wc -l) files the same in the folder and the cloud, tray and panel followed"
