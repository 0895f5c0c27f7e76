# Shared by the tours, which set home, shots, log (the client's), folder, cloud and patience.
# shellcheck shell=bash
# shellcheck disable=SC2154 # those variables

client=
helpers=()

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

times_logged() {
  grep -cF -- "$1" "$log" || true
}

# logged_again TIMES TEXT: more often than so many times
logged_again() {
  (($(times_logged "$2") > $1))
}

same_files() {
  diff -r --exclude '*.cache' "$folder" "$cloud"
}

# The client's visible windows. One that goes while xdotool looks at it ends the search, which is begun again then.
windows() {
  local found
  until found=$(xdotool search --all --onlyvisible --pid "$client" "$@" 2>&1) || [[ $found != *"X Error"* ]]; do :; done
  grep -E '^[0-9]+$' <<<"$found"
}

window_of() {
  windows --name "^$1\$" | head -n 1
}

window_shown() {
  [[ -n $(window_of "$1") ]]
}

window_gone() {
  ! window_shown "$1"
}

# shoot WINDOW FILE: once two pictures are the same, that is, once it has painted what another window had covered.
shoot() {
  local file=$shots/$2 before=$shots/.before.png tries
  import -window "$1" "$file"
  for ((tries = 0; tries < 20; ++tries)); do
    mv "$file" "$before"
    read -rt 0.1 <> <(:) || true
    import -window "$1" "$file"
    [[ $(compare -metric AE "$before" "$file" null: 2>&1) != 0 ]] || break
  done
}

shoot_window() {
  shoot "$(window_of "$1")" "$2"
}

# Each tour has a tray_shot FILE of its own: where the tray is differs.
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
}

# A browser that only writes down what it is asked to open, found before any other.
fake_browser() {
  mkdir -p "$home/bin"
  # shellcheck disable=SC2016  # the browser's own argument
  printf '#!/bin/sh\nprintf "%%s\\n" "$1" >>"%s"\n' "$home/opened" >"$home/bin/xdg-open"
  chmod +x "$home/bin/xdg-open"
  : >"$home/opened"
  export PATH=$home/bin:$PATH
}

start_feed() {
  local port
  exec {feed_pipe}<> <(:)
  perl tools/feedserver.pl >&"$feed_pipe" &
  helpers+=($!)
  read -rt 20 -u "$feed_pipe" port || give_up "no update server"
  export ORVEL_UPDATE_FEED=http://127.0.0.1:$port/feed
}

opened() {
  grep -qE -- "$1" "$home/opened"
}

# click WINDOW X Y: counted from the right and the bottom where negative.
click() {
  eval "$(xdotool getwindowgeometry --shell "$1" | grep -E '^(WIDTH|HEIGHT)=')"
  xdotool mousemove --window "$1" $(($2 < 0 ? WIDTH + $2 : $2)) $(($3 < 0 ? HEIGHT + $3 : $3)) click 1
}

last_state_is() {
  [[ $(grep -F 'maindlg: network state  ' "$log" | tail -n 1 | tr -d '\r') == *"  $1" ]]
}
