#!/usr/bin/env bash
# Tries the client out the way a user does: on a display of its own, with mouse and keyboard.
#   tour.sh BUILD_DIRECTORY HOME [PICTURES]
# PICTURES gets at-work.png, and recording.gif from the sign-in to the pause, with a file manager on the folder. Ends with one verdict line; the exit status is 0 when everything was seen to work.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=tools/common.sh
source tools/common.sh
# shellcheck source=tools/tourlib.sh
source tools/tourlib.sh

mkdir -p "$2"
home=$(cd "$2" && pwd)
pictures=${3:+$(mkdir -p "$3" && cd "$3" && pwd)}
installation=$home/program
shots=$home/screenshots
log=$home/client.log
folder="$home/Orvel Storage"
cloud=$home/cloud/1001
patience=$((30 * ${ORVEL_TEST_TIMEOUT_FACTOR:-1})) # seconds

# press WINDOW KEY...: by way of the window manager, which may still be passing the keyboard on from a window that
# has just closed.
press() {
  local window=$1
  shift
  xdotool windowactivate --sync "$window" key "$@"
}

window_manager_runs() {
  xprop -root _NET_SUPPORTING_WM_CHECK | grep -q 'window id'
}

is_above() {
  local upper lower
  upper=$(printf '0x%x' "$(window_of "$1")")
  lower=$(printf '0x%x' "$(window_of "$2")")
  xprop -root _NET_CLIENT_LIST_STACKING | grep -qE "$lower\b.*$upper\b"
}

# The visible windows of the client that are of one of these types, such as TOOLTIP or UTILITY.
windows_of_kind() {
  local id
  for id in $(windows); do
    if xprop -id "$id" _NET_WM_WINDOW_TYPE 2>/dev/null | grep -qE "_TYPE_($1)"; then printf '%s\n' "$id"; fi
  done
}

kind_shown() {
  [[ -n $(windows_of_kind "$1") ]]
}

kind_gone() {
  ! kind_shown "$1"
}

shoot_kind() {
  shoot "$(windows_of_kind "$1" | head -n 1)" "$2"
}

# The tray is the bar that trayer draws; the icon is the client's window in it.
tray_window() {
  xdotool search --class trayer 2>/dev/null | tail -n 1
}

tray_shot() {
  import -window root -crop "$(xdotool getwindowgeometry --shell "$(tray_window)" |
    awk -F= '/^X=/{x=$2} /^Y=/{y=$2} /^WIDTH=/{w=$2} /^HEIGHT=/{h=$2} END{print w "x" h "+" x "+" y}')" +repage "$1"
}

# After the client: its icon has to come with the tray.
start_tray() {
  trayer --edge bottom --align right --widthtype request --height 36 --SetPartialStrut true \
    --transparent true --alpha 0 --tint 0xdddddd >/dev/null 2>&1 &
  helpers+=($!)
}

prepare_recording() {
  [[ $pictures ]] || return 0
  xsetroot -solid '#31606a'
  xdotool windowmove "$(window_of "Orvel Storage")" 542 396
  ffmpeg -v error -y -f x11grab -framerate 10 -video_size 1024x768 -i "$DISPLAY" -c:v ffv1 "$home/recording.mkv" \
    </dev/null &
  recorder=$!
}

show_folder() {
  [[ $pictures ]] || return 0
  # It would warn of root, in the picture.
  unshare --user --map-user=1000 thunar "$folder" >/dev/null 2>&1 &
  helpers+=($!)
  await "the folder in a file manager" xdotool search --onlyvisible --class thunar
  local manager
  manager=$(xdotool search --onlyvisible --class thunar | tail -n 1)
  xdotool windowsize "$manager" 620 320 windowmove "$manager" 24 24
}

# Twice as long as it took: nobody reads that fast.
end_recording() {
  [[ $pictures ]] || return 0
  kill -INT "$recorder"
  wait "$recorder" || true
  ffmpeg -v error -y -i "$home/recording.mkv" -filter_complex \
    "setpts=2*PTS,fps=5,scale=800:-1:flags=lanczos,split[a][b];[a]palettegen=max_colors=64[p];[b][p]paletteuse=dither=none:diff_mode=rectangle" \
    "$pictures/recording.gif" </dev/null
  seen "a recording, $(stat -c %s "$pictures/recording.gif") bytes"
}

# What the file manager's extension does: one message in UTF-16 on the local pipe.
shell_command() {
  perl -MIO::Socket::UNIX -MEncode -e '
    my $message = encode("UTF-16LE", decode("UTF-8", $ARGV[0]));
    my $pipe = IO::Socket::UNIX->new(Peer => "$ENV{TMPDIR}/kestaextcommands") or die "no pipe";
    print $pipe $message;' "$1"
}

start_client() {
  : >"$log"
  (cd "$installation" && exec ./orvel) >"$home/client.out" 2>"$log" &
  client=$!
}

recorder=
elsewhere=
# shellcheck disable=SC2317,SC2329  # called by the trap
tidy_up() {
  [[ -z $client ]] || kill "$client" 2>/dev/null || true
  [[ -z $recorder ]] || kill "$recorder" 2>/dev/null || true
  ((${#helpers[@]} == 0)) || kill "${helpers[@]}" 2>/dev/null || true
  wait 2>/dev/null || true
  [[ -z $elsewhere ]] || rm -rf "$elsewhere"
}
trap tidy_up EXIT

lay_out "$1" "$installation"
rm -rf "$shots" "$home/log" "$folder" "$home/cloud" "$home/.local/share/orvel" "$home/.config/Velmora d.d."
mkdir -p "$shots" "$home/log"
in_trial_home "$home"
export ORVEL_LOCAL_CLOUD=$home/cloud
export ORVEL_LANGUAGE=${ORVEL_LANGUAGE-en} # the names of windows below are English
# Where the path would be too long for a socket, the temporary files go elsewhere.
if ((${#TMPDIR} > 80)); then
  elsewhere=$(mktemp -d /tmp/orvel-tour.XXXXXX)
  export TMPDIR=$elsewhere
fi

tray_side=-1
# Left and right of the icon's middle in turns: two clicks at once on the same place would count as a double click.
point_at_tray() {
  tray_side=$((-tray_side))
  eval "$(xdotool getwindowgeometry --shell "$(tray_window)" | grep -E '^(X|Y|WIDTH|HEIGHT)=')"
  xdotool mousemove 300 300
  xdotool mousemove $((X + WIDTH / 2 + tray_side * WIDTH / 4)) $((Y + HEIGHT / 2))
}

menus='POPUP_MENU|DROPDOWN_MENU|MENU'

open_menu() {
  point_at_tray
  xdotool click 3
  await "the tray menu" kind_shown "$menus"
}

# choose PRESSES KEY: an entry of the open menu, counted from its top (Down) or its end (Up).
choose() {
  local press
  for ((press = 0; press < $1; ++press)); do xdotool key "$2"; done
  xdotool key Return
}

# sign_in [KEY] E-MAIL PASSWORD: by the keyboard alone, as the form's fields follow each other. KEY leads to the
# e-mail address from where the cursor is.
sign_in() {
  local main to_address=()
  (($# == 2)) || { to_address=("key" "$1"); shift; }
  main=$(window_of "Orvel Storage")
  xdotool windowactivate --sync "$main" "${to_address[@]}"
  xdotool key ctrl+a type --delay 20 "$1"
  xdotool key Tab ctrl+a type --delay 20 "$2"
  xdotool key Return
}

# "Restore" is at the lower right of the question. With the mouse: a key that is lost would answer otherwise.
restore() {
  click "$(windows_of_kind UTILITY)" -74 -37
}

leave() {
  open_menu
  # "Exit" is the last entry. With the mouse: where no other window of the client is shown, the menu may have to wait
  # for the keyboard.
  click "$(windows_of_kind "$menus" | head -n 1)" 20 -12
  local leaving=$client end=$((SECONDS + patience)) status=0
  client=
  while kill -0 "$leaving" 2>/dev/null; do
    ((SECONDS < end)) || give_up "the client ends by its menu"
    read -rt 0.05 <> <(:) || true
  done
  wait "$leaving" || status=$?
  [[ $status == 1 ]] || give_up "the client ended with $status instead of 1"
  if pgrep -f "$installation/erlang" >/dev/null; then give_up "an engine was left behind"; fi
  cat "$log" >>"$home/log/orvel.log"
  seen "Exit, with code 1, and no engine left behind"
}

say "The tour, in $home"
fake_browser
start_feed
start_display
openbox >/dev/null 2>&1 &
helpers+=($!)
await "a window manager" window_manager_runs
start_client
await "the main window, on a desktop without a tray" window_shown "Orvel Storage"
start_tray
await "the tray comes up later" tray_window
await "an icon in the tray" icon_in_tray

say "The guide"
await "the guide of the first start" window_shown "Welcome to Orvel Storage"
await "the guide in front of the main window" is_above "Welcome to Orvel Storage" "Orvel Storage"
for page in 1 2 3 4; do
  shoot_window "Welcome to Orvel Storage" "guide-$page.png"
  press "$(window_of "Welcome to Orvel Storage")" Return
done
await "the guide closes" window_gone "Welcome to Orvel Storage"

say "Signing in"
await "the engine asks for a sign-in" logged "maindlg: network state  logout"
shoot_window "Orvel Storage" sign-in.png
tray_shot "$shots/tray-signed-out.png"
prepare_recording
refusals=$(times_logged "maindlg: network state  logout")
sign_in trial@orvel.example wrong
await "a wrong password is refused" logged_again "$refusals" "maindlg: network state  logout"
shoot_window "Orvel Storage" refused.png
sign_in shift+Tab team@orvel.example team # the cursor is in the refused password
await "two accounts to choose from" kind_shown UTILITY
shoot_kind UTILITY picker.png
press "$(windows_of_kind UTILITY)" Escape
await "the choice is put off" kind_gone UTILITY
sign_in shift+Tab trial@orvel.example trial
await "signed in" logged "maindlg: network state  ok"
await "the sync folder" test -d "$folder"
await "the tray icon follows" tray_differs_from "$shots/tray-signed-out.png"
shoot_window "Orvel Storage" settings.png
tray_shot "$shots/tray-synced.png"

say "Files"
show_folder
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
await "synced again" last_state_is ok

say "The tray and its menu"
point_at_tray
await "the tool tip" kind_shown TOOLTIP
import -window root "$shots/tooltip.png"
[[ ! $pictures ]] || pngquant --force --output "$pictures/at-work.png" "$shots/tooltip.png"
open_menu
import -window root "$shots/menu.png"
choose 2 Down
await "the web site in the browser" opened '^https://[^/]*/kesta/vse$'
open_menu
choose 3 Down
await "sync stops" tray_differs_from "$shots/tray-synced.png"
reports=$(times_logged "Servercomm received paths changed")
printf 'med premorom\n' >"$folder/Premor.txt"
await "a change is noticed meanwhile" logged_again "$reports" "Servercomm received paths changed"
[[ ! -e $cloud/Premor.txt ]] || give_up "a file was copied while sync was stopped"
open_menu
choose 3 Down
await "sync goes on and takes the change along" same_files
end_recording
shell_command "website|$folder"
shell_command "shareitem|$folder/Slike"
await "a shell command opens the page to share an item" opened '^http://[^/]*/datoteke/vse/#share=[0-9]+$'
shell_command "revs|$folder/Slike/slika-2.txt"
await "a shell command opens the versions of a file" opened '^http://[^/]*/datoteke/vse/[0-9]+/#versions=[0-9]+$'

say "A new version"
open_menu
choose 2 Up
await "a new version is offered" window_shown "Software Update"
shoot_window "Software Update" update.png
press "$(window_of "Software Update")" Return
await "its download in the browser" opened '/orvel-9.9.exe$'
await "the offer closes" window_gone "Software Update"

say "A folder that was moved"
leave
moved="$home/Drugje/Moj oblak"
mkdir -p "$home/Drugje"
mv "$folder" "$moved"
start_client
await "the question for the missing folder" kind_shown UTILITY
await "the new version is offered again, by itself" window_shown "Software Update"
press "$(window_of "Software Update")" Escape
await "the offer is put off" window_gone "Software Update"
shoot_kind UTILITY missing.png
press "$(windows_of_kind UTILITY)" space
await "the folder chooser" window_shown "Choose the Orvel Storage folder"
xdotool windowactivate --sync "$(window_of "Choose the Orvel Storage folder")" type --delay 20 "$moved"
xdotool key Return
folder=$moved
await "the folder at its new place is synced" logged "maindlg: network state  ok"
printf 'na novem mestu\n' >"$folder/Novo mesto.txt"
await "its files in the cloud" same_files

say "A folder that was deleted"
leave
rm -rf "$folder"
start_client
await "the question for the missing folder" kind_shown UTILITY
await "the offer" window_shown "Software Update"
press "$(window_of "Software Update")" Escape
await "is put off" window_gone "Software Update"
restore
await "the engine works again" logged "maindlg: network state  ok"
folder=$(sed -n 's/.*"homepath" : "\([^"]*\)".*/\1/p' "$home/.local/share/orvel/config.json")
folder=${folder:-$home}/$(sed -n 's/.*"homefolder" : "\([^"]*\)".*/\1/p' "$home/.local/share/orvel/config.json")
[[ $folder != "$home/" ]] || folder="$home/Orvel Storage"
await "the folder is restored from the cloud" same_files
leave

say "A log for support"
# The documentation's own words, for a user whose name is in the log, too.
echo "a disk at /media/visitor" >>"$home/log/orvel.log"
recipe=$(grep -m 1 '^sed -e' docs/reliability.md)
(cd "$home/log" && USER=visitor bash -c "$recipe" && [[ -s orvel-to-send.log ]]) || give_up "the steps fail"
for private in "$home" @orvel.example visitor; do
  grep -qF "$private" "$home/log/orvel.log" || give_up "$private would have to be replaced in the log"
  if grep -qF "$private" "$home/log/orvel-to-send.log"; then give_up "$private is in the log for support"; fi
done
for password in trial team; do
  if grep -qw "$password" "$home/log/orvel-to-send.log"; then give_up "a password is in the log for support"; fi
done
seen "neither the home, the user's name, an account nor a password"

rm -f "$shots"/.*.png
say "Screenshots: $shots"
say "VERDICT: OK: signed in, $(find "$cloud" -type f | wc -l) files the same in the folder and the cloud, tray and panel followed"
