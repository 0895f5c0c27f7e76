# Shared by the scripts that build from Debian's source packages and keep the result.
# shellcheck shell=bash
# shellcheck disable=SC2034,SC2154 # variables of the script that takes this in

cache=${ORVEL_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/orvel}

# The packages that this computer's own package lists offer, as sources: open_sources DIRECTORY
open_sources() {
  local list
  mkdir -p "$1"/{parts,lists/partial,cache/archives/partial}
  for list in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
    [[ ! -e $list ]] || sed -n 's/^deb\([[:space:]]\)/deb-src\1/p' "$list"
  done >"$1/parts/orvel.list"
  for list in /etc/apt/sources.list.d/*.sources; do
    [[ ! -e $list ]] || { sed 's/^Types:.*/Types: deb-src/' "$list"; echo; }
  done >"$1/parts/orvel.sources"
  source_options=(
    -o "Dir::Etc::SourceList=/dev/null" -o "Dir::Etc::SourceParts=$1/parts"
    -o "Dir::State::Lists=$1/lists" -o "Dir::Cache=$1/cache"
    -o "APT::Sandbox::User=$(id -un)"
  )
  apt-get "${source_options[@]}" -qq update
}

# The versions of a source package, the newest first. The lists may name one that the archive has no more.
offered_versions() {
  apt-cache "${source_options[@]}" showsrc --only-source "$1" | sed -n 's/^Version: //p' |
    perl -e 'print sort { system("dpkg", "--compare-versions", $a =~ s/\n//r, "gt", $b =~ s/\n//r) ? 1 : -1 } <>' |
    uniq
}

# fetch_source PACKAGE DIRECTORY VERSION...: unpacks the first of these that is really there; apt checks the
# signatures. Sets fetched_version.
fetch_source() {
  local package=$1 directory=$2 place
  shift 2
  place=$(mktemp -d "$directory.XXXXXX")
  for fetched_version in "$@"; do
    if (cd "$place" && apt-get "${source_options[@]}" -qq source "$package=$fetched_version"); then
      mv "$place/$package"-*/ "$directory"
      rm -rf "$place"
      return 0
    fi
  done
  return 1
}

# report_progress NAME PATTERN TOTAL: how many lines of the log match, each half minute, until it is killed.
report_progress() {
  while read -rt 30 <> <(:) || true; do
    say "  $1: $(grep -cE -- "$2" "$log" || true) of about $3 sources, $((SECONDS / 60)) min $((SECONDS % 60)) s"
  done
}

# begin_build NAME PATTERN TOTAL: goes on in a new directory, $work, with everything written to the log and
# progress told meanwhile. Only what is moved to $installed outlasts the script; file descriptor 3 is its output.
begin_build() {
  mkdir -p "$(dirname "$installed")"
  work=$(mktemp -d "$(dirname "$installed")/building.XXXXXX")
  log=$(dirname "$installed")/build.log
  : >"$log"
  trap end_build EXIT
  report_progress "$@" >&2 &
  progress=$!
  exec 3>&1 4>&2 >"$log" 2>&1
  cd "$work" || return
}

# shellcheck disable=SC2317,SC2329 # called by the trap
end_build() {
  kill "$progress" || true
  if [[ ! -d $installed ]]; then
    tail -n 40 "$log" >&4 || true
    say "It could not be built; the whole log is $log" >&4
  fi
  rm -rf "$work"
}
