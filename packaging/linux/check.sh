#!/usr/bin/env bash
# Installs the packages in a clean Debian, starts the client there as a user does, and purges it again:
#   check.sh PACKAGES RECORD
# What was seen stands in RECORD afterwards. Needs root.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/../.."
# shellcheck source=tools/common.sh
source tools/common.sh

packages=$(realpath "$1")
record=$(mkdir -p "$2" && realpath "$2")

# In namespaces of its own, so that no process and no mount is ever left behind.
if [[ $$ != 1 ]]; then
  rm -f "$record"/*
  unshare --mount --ipc --pid --fork --kill-child --mount-proc \
    bash packaging/linux/check.sh "$packages" "$record" 2>&1 | tee "$record/record.txt"
  exit
fi

patience=$((30 * ${ORVEL_TEST_TIMEOUT_FACTOR:-1})) # seconds
user=ana
home=/home/$user
program=/usr/lib/orvel
client=

seen() {
  say "  seen: $*"
}

give_up() {
  import -window root "$record/failure.png" 2>/dev/null || true
  tail -n 20 "$record/install.log" "$record"/client-*.log >&2 2>/dev/null || true
  say "VERDICT: FAILED: $*"
  exit 1
}

# expect DESCRIPTION COMMAND...
expect() {
  local what=$1
  shift
  "$@" || give_up "$what"
  seen "$what"
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

# This computer's own source of packages.
mirror() {
  # shellcheck disable=SC2016  # apt's own variables
  apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Origin: Debian' 'Component: main' \
    "Codename: $1" | head -n 1
}

in_root() {
  chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive \
    ${http_proxy:+http_proxy="$http_proxy"} ${https_proxy:+https_proxy="$https_proxy"} "$@"
}

# start NAME DIRECTORY COMMAND: as the desktop does, in that current directory.
start() {
  log=$record/client-$1.log
  chroot --userspec="$user:$user" "$root" env -i PATH=/usr/bin:/bin LC_ALL=C.UTF-8 HOME="$home" USER="$user" \
    DISPLAY="$DISPLAY" XDG_RUNTIME_DIR="$home/.run" ORVEL_LANGUAGE=en \
    sh -c "cd '$2' && exec $3" >"$log" 2>&1 &
  client=$!
}

entry() {
  sed -n "s/^$2=//p" "$1"
}

engine() {
  pgrep -P "$client" -x beam.smp
}

runs_installed() {
  [[ $(readlink "/proc/$1/exe") == "$root$2" ]]
}

is_in() {
  [[ $(readlink "/proc/$1/cwd") == "$root$2" ]]
}

belongs_to_user() {
  [[ $(stat -c %U "/proc/$1") == "$(stat -c %U "$root$home")" && $(stat -c %u "/proc/$1") != 0 ]]
}

window() {
  xdotool search --all --onlyvisible --pid "$client" --name '^Orvel Storage$' | head -n 1 | grep .
}

# The tray is the bar that trayer draws; the icon is a window that the client puts into it.
tray_window() {
  xdotool search --class trayer | tail -n 1 | grep .
}

icon_in_tray() {
  eval "$(xdotool getwindowgeometry --shell "$(tray_window)" | grep -E '^(X|Y|WIDTH|HEIGHT)=')"
  import -window root -crop "${WIDTH}x$HEIGHT+$X+$Y" +repage "$record/tray.png"
  xwininfo -tree -id "$(tray_window)" | grep -q '"orvel"' && (($(identify -format '%k' "$record/tray.png") > 8))
}

look_at_the_client() {
  await "the client runs, $program/orvel" runs_installed "$client" "$program/orvel"
  expect "its user is $user" belongs_to_user "$client"
  expect "its current directory is $program" is_in "$client" "$program"
  await "its engine runs" engine
  expect "the engine's user is $user" belongs_to_user "$(engine)"
  await "the engine works in $program/srv/ebin" is_in "$(engine)" "$program/srv/ebin"
  await "the client has written the configuration for it" test -s "$root$home/.local/share/orvel/config.json"
  await "the client's window" window
  await "the client's icon in the tray" icon_in_tray
  import -window root "$record/screen-$1.png"
}

sign_in() {
  local main
  main=$(window)
  xdotool windowactivate --sync "$main"
  eval "$(xdotool getwindowgeometry --shell "$main" | grep -E '^(WIDTH|HEIGHT)=')"
  xdotool mousemove --window "$main" $((WIDTH / 2)) 72 click 1
  xdotool key ctrl+a type --delay 20 trial@orvel.example
  xdotool key Tab ctrl+a type --delay 20 trial
  xdotool key Return
}

engine_gone() {
  ! pgrep -x beam.smp
}

stop() {
  local stopping=$client
  client=
  kill "$stopping"
  wait "$stopping" || true
  await "no engine is left behind" engine_gone
}

start_display() {
  local number
  exec {display_pipe}<> <(:)
  Xvfb -displayfd "$display_pipe" -screen 0 1024x768x24 -nolisten tcp >"$record/xvfb.log" 2>&1 &
  read -rt 20 -u "$display_pipe" number || give_up "no X server"
  export DISPLAY=:$number
  unset WAYLAND_DISPLAY DBUS_SESSION_BUS_ADDRESS
  openbox >/dev/null 2>&1 &
  trayer --edge bottom --align right --widthtype request --height 36 >/dev/null 2>&1 &
  await "a desktop with a tray" tray_window
}

# What the packages own in the root and nothing else owns.
owned_files() {
  in_root dpkg -L orvel orvel-localengine | sort -u | while read -r path; do
    if ! in_root dpkg -S "$path" 2>/dev/null | sed 's/: .*//' | tr -d ' ' | tr , '\n' |
      grep -qvxE 'orvel|orvel-localengine'; then printf '%s\n' "$path"; fi
  done
}

remaining() {
  local path
  while read -r path; do
    if [[ -e $root$path || -L $root$path ]]; then printf '%s\n' "$path"; fi
  done
}

root=$(mktemp -d /var/tmp/orvel-check.XXXXXX)
chmod 755 "$root"
# shellcheck disable=SC2317,SC2329  # called by the trap
tidy_up() {
  umount "$root/tmp/.X11-unix" "$root/proc" 2>/dev/null || true
  rm -rf --one-file-system "$root"
}
trap tidy_up EXIT

# shellcheck source=/dev/null
codename=$(source /etc/os-release && printf '%s' "$VERSION_CODENAME")
say "A clean Debian, $codename"
debootstrap --variant=minbase "$codename" "$root" "$(mirror "$codename")" >"$record/debootstrap.log" 2>&1 ||
  give_up "debootstrap"
mount -t proc proc "$root/proc"
in_root useradd --create-home "$user"
in_root install -d -o "$user" -m 700 "$home/.run"
seen "$(in_root dpkg-query -W | wc -l) packages, user $user"

say "Installing"
mkdir "$root/packages"
cp "$packages"/*.deb "$root/packages"
in_root sh -c 'apt-get update && apt-get install -y --no-install-recommends /packages/*.deb' \
  >"$record/install.log" 2>&1 || give_up "the packages install"
seen "$(in_root dpkg-query -W orvel orvel-localengine | tr '\t\n' ' ;')"
expect "nothing is missing or half done" in_root sh -c '! dpkg --audit | grep .'
expect "the engine's watcher runs" in_root "$program/orvel-watch" /tmp </dev/null
owned=$(owned_files)
seen "$(wc -l <<<"$owned") files and directories that only they own"

say "Started from the desktop's menu"
start_display
mkdir -p "$root/tmp/.X11-unix"
mount --bind /tmp/.X11-unix "$root/tmp/.X11-unix"
menu_entry=$(grep '/usr/share/applications/.*\.desktop$' <<<"$owned")
command=$(entry "$root$menu_entry" Exec)
seen "Exec=$command in $menu_entry"
start menu /tmp "$command"
look_at_the_client menu
expect "the menu's entry is the window's" test "$(xprop -id "$(window)" WM_CLASS | sed 's/.*, "\(.*\)"/\1/')" \
  = "$(entry "$root$menu_entry" StartupWMClass)"

say "Signing in"
sign_in
await "the folder, as the engine makes it" test -d "$root$home/Orvel Storage"
chroot --userspec="$user:$user" "$root" sh -c "date >'$home/Orvel Storage/note.txt'"
await "a file in the cloud's directory" cmp "$root$home/Orvel Storage/note.txt" \
  "$root$home/.local/share/orvel/cloud/1001/note.txt"
import -window root "$record/screen-signed-in.png"
stop

say "Started with the desktop"
startup_entry="$home/.config/autostart/Orvel Storage.desktop"
expect "the entry that the client wrote is valid" desktop-file-validate "$root$startup_entry"
command=$(entry "$root$startup_entry" Exec)
seen "Exec=$command"
start startup / "$command"
look_at_the_client startup
stop

say "Purging"
(cd "$root$home" && find . | sort) >"$record/home-before.txt"
in_root apt-get purge -y orvel orvel-localengine >"$record/purge.log" 2>&1 || give_up "the packages can be purged"
expect "none of their files is left" test -z "$(remaining <<<"$owned")"
expect "dpkg knows them no more" in_root sh -c '! dpkg-query -W orvel orvel-localengine 2>/dev/null | grep .'
(cd "$root$home" && find . | sort) >"$record/home-after.txt"
expect "the user's data is left as it was" cmp "$record/home-before.txt" "$record/home-after.txt"
rest=$(cd "$root" && find . -xdev -iname '*orvel*' ! -path "./home/*" ! -path './packages/*' ! -path './proc/*')
expect "no other file bears the name, but for: ${rest:-none}" test -z "$(grep -v '^\./tmp/' <<<"$rest")"

say "VERDICT: PASSED in $SECONDS s"
