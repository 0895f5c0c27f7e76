#!/usr/bin/env bash
# Tries the installed program out the way a user of Windows does: under Wine, on a display of its own with a desktop
# and a tray, with mouse and keyboard.
#   tour-windows.sh BUILD_DIRECTORY HOME
# BUILD_DIRECTORY is a build for Windows with the local engine. HOME gets the Windows and the screenshots. Ends with one
# verdict line; the exit status is 0 when everything was seen to work.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=tools/common.sh
source tools/common.sh
# shellcheck source=tools/tourlib.sh
source tools/tourlib.sh

build=$1
mkdir -p "$2"
home=$(cd "$2" && pwd)
shots=$home/screenshots
log=$home/client.log
export WINEPREFIX=$home/windows
# A name beyond ASCII reaches this computer's files only so.
export LC_ALL=C.UTF-8
patience=$((60 * ${ORVEL_TEST_TIMEOUT_FACTOR:-1})) # seconds
started=

# shellcheck disable=SC2317,SC2329 # called by the trap
tidy_up() {
  if [[ $started ]]; then
    /usr/lib/wine/wineserver64 -k || true
    /usr/lib/wine/wineserver64 -w || true
  fi
  ((${#helpers[@]} == 0)) || kill "${helpers[@]}" 2>/dev/null || true
  wait 2>/dev/null || true
}
trap tidy_up EXIT

under_wine() {
  packaging/windows/under-wine.sh "$@"
}

# But for what marks the folder on this computer.
same_files() {
  diff -r --exclude '*.cache' --exclude desktop.ini "$folder" "$cloud"
}

engine_left() {
  local process
  for process in $(pgrep -f 'erts-9\.0.*erl\.exe'); do
    ! tr '\0' '\n' <"/proc/$process/environ" 2>/dev/null | grep -qxF "WINEPREFIX=$WINEPREFIX" || return 0
  done
  return 1
}

start_client() {
  : >"$log"
  (cd "$installation" && exec "$under_wine" ./orvel.exe) >"$home/client.out" 2>"$log" &
  client=$!
}

whole_desktop() {
  import -window root "$shots/$1"
}

# corner_of ID: the corner at the lower right, as the display counts. What xdotool says is wrong inside another window.
corner_of() {
  xwininfo -id "$1" 2>/dev/null |
    awk '/Absolute upper-left X/{x=$4} /Absolute upper-left Y/{y=$4} /Width:/{w=$2} /Height:/{h=$2} END{print x + w, y + h}'
}

# The menu has the window's title, and is the one that reaches into the corner where the tray is.
menu_window() {
  local id right bottom
  for id in $(windows); do
    read -r right bottom < <(corner_of "$id")
    if ((right > 1000 && bottom > 740)); then
      printf '%s\n' "$id"
      return
    fi
  done
  return 1
}

menu_gone() {
  ! menu_window
}

tray_shot() {
  import -window root -crop 24x20+1000+748 +repage "$1"
}

open_menu() {
  xdotool mousemove 500 700 mousemove 1013 758 click 3
  await "the tray menu" menu_window
}

# choose Y: an entry of the open menu, counted from its upper edge or, where negative, from its lower one.
choose() {
  click "$(menu_window)" 60 "$1"
  await "the menu closes" menu_gone
}

pause_entry=57 update_entry=-34 exit_entry=-12

# sign_in E-MAIL PASSWORD
sign_in() {
  click "$(window_of "Orvel Storage")" 300 80
  xdotool key ctrl+a type --delay 20 "$1"
  xdotool key Tab type --delay 20 "$2"
  xdotool key Return
}

# The window without a title that asks for a missing folder bears the program's name; it is the smaller one.
question() {
  local id
  for id in $(windows --name '^Orvel Storage$'); do
    [[ $(xwininfo -id "$id" 2>/dev/null) != *"Width: 436"* ]] || printf '%s\n' "$id"
  done
}

question_shown() {
  [[ $(question) ]]
}

leave() {
  local status=0
  open_menu
  click "$(menu_window)" 60 $exit_entry
  local leaving=$client end=$((SECONDS + patience))
  client=
  while kill -0 "$leaving" 2>/dev/null; do
    ((SECONDS < end)) || give_up "the client ends by its menu"
    read -rt 0.05 <> <(:) || true
  done
  wait "$leaving" || status=$?
  [[ $status == 1 ]] || give_up "the client ended with $status instead of 1"
  if engine_left; then give_up "an engine was left behind"; fi
  seen "Exit, with code 1, and no engine left behind"
}

say "The tour of the program for Windows, in $home"
rm -rf "$shots" "$home/packages"
mkdir -p "$shots"
under_wine=$PWD/packaging/windows/under-wine.sh
fake_browser
start_feed
start_display
say "Installing"
installer=$(packaging/windows/package.sh "$build" "" "$home/packages" 2>"$home/package.log") || give_up "an installer"
bytes=$(stat -c %s "$installer")
((bytes < 25000000)) || give_up "the installer has $bytes bytes"
seen "an installer, $bytes bytes"
started=yes
packaging/windows/make-windows.sh "$WINEPREFIX" >"$home/windows.log" 2>&1 || give_up "a Windows"
seen "a fresh Windows"
user=$(find "$WINEPREFIX/drive_c/users" -mindepth 1 -maxdepth 1 ! -name Public)
installation="$user/AppData/Local/Programs/Orvel Storage"
folder="$user/Orvel Storage"
cloud=$WINEPREFIX/drive_c/cloud/1001
export ORVEL_LOCAL_CLOUD='C:\cloud'
export ORVEL_LANGUAGE=en # the names of windows below are English
under_wine "$installer" /S >"$home/install.log" 2>&1 || give_up "installing ended with $?"
[[ -f $installation/orvel.exe && -f $installation/orvel-watch.exe && -f $installation/licences/openssl.txt ]] ||
  give_up "the program is installed"
seen "the program, its engine and their licences"

say "The guide"
start_client
await "the main window" window_shown "Orvel Storage"
await "the guide of the first start" window_shown "Welcome to Orvel Storage"
await "an icon in the tray" icon_in_tray
shoot_window "Welcome to Orvel Storage" guide.png
whole_desktop first-start.png
click "$(window_of "Welcome to Orvel Storage")" -88 -36
shoot_window "Welcome to Orvel Storage" guide-2.png
xdotool key Escape
await "the guide closes" window_gone "Welcome to Orvel Storage"

say "Signing in"
await "the engine asks for a sign-in" logged "maindlg: network state  logout"
shoot_window "Orvel Storage" sign-in.png
tray_shot "$shots/tray-signed-out.png"
sign_in trial@orvel.example trial
await "signed in" logged "maindlg: network state  ok"
await "the sync folder" test -d "$folder"
await "the tray icon follows" tray_differs_from "$shots/tray-signed-out.png"
shoot_window "Orvel Storage" settings.png
tray_shot "$shots/tray-synced.png"
whole_desktop signed-in.png
grep -qF '"C:/' "$user/AppData/Local/orvel/1001.json" || give_up "the folder's drive as Windows writes it"

say "Files"
mkdir -p "$folder/Počitnice ob morju/maček 😂"
printf 'Pozdravljen, oblak!\n' >"$folder/Beležka za žejne.txt"
printf 'smeh\n' >"$folder/Počitnice ob morju/maček 😂/😂🦊 smeh.txt"
head -c 300000000 /dev/urandom >"$folder/Počitnice ob morju/film.raw"
for number in $(seq 1 40); do printf '%s\n' "$number" >"$folder/Počitnice ob morju/slika $number.txt"; done
await "the transfer" logged "maindlg: network state  transferring"
whole_desktop transfer.png
await "the files in the cloud, 300 MB and names with č, blanks and 😂 among them" same_files
printf 'spremenjeno\n' >>"$folder/Beležka za žejne.txt"
mv "$folder/Počitnice ob morju" "$folder/Slike 🦊"
rm "$folder/Slike 🦊/slika 1.txt"
await "a change, a rename and a deletion in the cloud" same_files
printf 'iz oblaka\n' >"$cloud/Iz oblaka ☁ 😂.txt"
mkdir "$cloud/Šola"
head -c 1000000 /dev/urandom >"$cloud/Šola/naloga 1.pdf"
await "a file and a directory from the cloud in the folder" same_files
mv "$cloud/Iz oblaka ☁ 😂.txt" "$cloud/Šola/Drugo ime 🐈.txt"
await "a rename from the cloud in the folder" same_files
[[ ! -e $cloud/desktop.ini ]] || give_up "the icon of the folder stays on this computer"
await "synced again" last_state_is ok

say "The tray and its menu"
open_menu
whole_desktop menu.png
choose $pause_entry
await "sync stops" tray_differs_from "$shots/tray-synced.png"
whole_desktop paused.png
reports=$(times_logged "Servercomm received paths changed")
printf 'med premorom\n' >"$folder/Premor.txt"
await "a change is noticed meanwhile" logged_again "$reports" "Servercomm received paths changed"
[[ ! -e $cloud/Premor.txt ]] || give_up "a file was copied while sync was stopped"
open_menu
choose $pause_entry
await "sync goes on and takes the change along" same_files

say "A new version"
open_menu
choose $update_entry
await "a new version is offered" window_shown "Software Update"
shoot_window "Software Update" update.png
xdotool key Return
await "its download in the browser" opened '/orvel-9.9.exe$'
await "the offer closes" window_gone "Software Update"

say "A folder that was moved"
leave
moved="$user/Drugje/Moj oblak"
mkdir -p "$user/Drugje"
mv "$folder" "$moved"
start_client
await "the question for the missing folder" question_shown
await "the new version is offered again, by itself" window_shown "Software Update"
xdotool windowraise "$(window_of "Software Update")"
click "$(window_of "Software Update")" 200 4
xdotool key Escape
await "the offer is put off" window_gone "Software Update"
xdotool windowraise "$(question)" # which Wine shows behind the others
shoot "$(question)" missing.png
click "$(question)" -79 -92
await "the folder chooser" window_shown "Select Folder"
xdotool type --delay 20 "C:\\users\\$(basename "$user")\\Drugje\\Moj oblak"
whole_desktop chooser.png
xdotool key Return
folder=$moved
await "the folder at its new place is synced" logged "maindlg: network state  ok"
printf 'na novem mestu\n' >"$folder/Novo mesto.txt"
await "its files in the cloud" same_files
whole_desktop found.png

say "The end"
leave
under_wine "$installation/uninstall.exe" /S /PURGE >"$home/uninstall.log" 2>&1 || give_up "uninstalling ended with $?"
await "the program is gone" test ! -e "$installation"
await "its settings are gone" test ! -e "$user/AppData/Local/orvel"
same_files >/dev/null || give_up "a file of the user's went along"
seen "the user's files stayed"

rm -f "$shots"/.*.png
say "Screenshots: $shots"
say "VERDICT: OK: installed, signed in, $(find "$cloud" -type f | wc -l) files the same in the folder and the cloud, uninstalled"
