#!/usr/bin/env bash
# The project's first minutes on a bare Debian: everything that a newcomer's commands do, and how long they take.
#   debian.sh CODENAME RECORD
# What was seen stands in RECORD afterwards. Needs root; the commands run as a user who may use sudo.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=tools/common.sh
source tools/common.sh

codename=$1
record=$(mkdir -p "$2" && realpath "$2")

# In namespaces of its own, so that no process and no mount is ever left behind.
if [[ $$ != 1 ]]; then
  rm -rf "${record:?}"/*
  unshare --mount --ipc --pid --fork --kill-child --mount-proc \
    bash tools/debian.sh "$codename" "$record" 2>&1 | tee "$record/record.txt"
  exit
fi

user=ana
project=/home/$user/orvel
failed=

root=$(mktemp -d /var/tmp/orvel-debian.XXXXXX)
chmod 755 "$root"
# shellcheck disable=SC2317,SC2329 # called by the trap
tidy_up() {
  umount --recursive "$root" 2>/dev/null || true
  rm -rf --one-file-system "$root"
}
trap tidy_up EXIT

mirror() {
  # shellcheck disable=SC2016  # apt's own variables
  apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Origin: Debian' 'Component: main' | head -n 1
}

as_user() {
  chroot --userspec="$user:$user" --groups="$user" "$root" env -i PATH=/usr/local/bin:/usr/bin:/bin LC_ALL=C.UTF-8 \
    HOME="/home/$user" USER="$user" ${http_proxy:+http_proxy="$http_proxy"} \
    ${https_proxy:+https_proxy="$https_proxy"} sh -c "cd '$project' && $1"
}

# timed NAME COMMAND: its output goes to RECORD/NAME.log.
timed() {
  local name=$1 start=$SECONDS result=ok
  as_user "$2" >"$record/$name.log" 2>&1 </dev/null || result=FAILED
  [[ $result == ok ]] || failed="$failed $name"
  say "  $name: $result after $((SECONDS - start)) s ($(grep -E 'VERDICT|tests passed|tests failed' "$record/$name.log" |
    tail -n 1))"
}

say "A bare Debian, $codename"
debootstrap --variant=minbase --include=sudo "$codename" "$root" "$(mirror)" >"$record/debootstrap.log" 2>&1 || {
  tail -n 5 "$record/debootstrap.log"
  fail "VERDICT: FAILED: debootstrap"
}
mount --bind "$root" "$root"
mount -t proc proc "$root/proc"
mount -t tmpfs -o mode=1777 shm "$root/dev/shm"
chroot "$root" useradd --create-home "$user"
printf '%s ALL=(ALL) NOPASSWD: ALL\nDefaults env_keep += "http_proxy https_proxy"\n' "$user" >"$root/etc/sudoers.d/$user"
mkdir "$root$project"
git ls-files --cached --others --exclude-standard -z | tar --create --null --files-from - | tar --extract -C "$root$project"
chroot "$root" chown -R "$user:$user" "$project"

timed run './dev run'
as_user 'rm -rf build ~/.cache'
timed run-with-packages './dev run'
timed test './dev test'
timed package './dev package --check'
cp -r "$root$project/build/trial/home/screenshots" "$record/" 2>/dev/null || true
cp -r "$root$project/build/package-check" "$record/" 2>/dev/null || true

[[ -z $failed ]] || fail "VERDICT: FAILED:$failed"
say "VERDICT: PASSED in $SECONDS s"
