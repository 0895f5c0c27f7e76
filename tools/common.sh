# Shared by the project's scripts.
# shellcheck shell=bash

say() {
  printf '%s\n' "$*"
}

fail() {
  printf '%s\n' "$*" >&2
  exit 1
}

missing_packages() {
  local package
  for package in "$@"; do
    [[ $(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null) == installed ]] || printf '%s\n' "$package"
  done
}

common=$(realpath "${BASH_SOURCE[0]}")

# Installs those of the named Debian packages that are missing, and says which. One at a time: apt lets no second in.
install_packages() {
  [[ $(missing_packages "$@") ]] || return 0
  (
    flock 9
    mapfile -t missing < <(missing_packages "$@")
    ((${#missing[@]})) || exit 0
    say "Installing ${missing[*]}"
    as_root=()
    [[ $(id -u) == 0 ]] || as_root=(sudo)
    "${as_root[@]}" apt-get update -qq
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
      "${missing[@]}" >/dev/null
  ) 9<"$common"
}

# Points everything that a program keeps for its user into the given directory.
in_trial_home() {
  local home=$1
  mkdir -p "$home"/{.config,.local/share,.cache,run,tmp}
  chmod 700 "$home/run"
  export HOME=$home XDG_CONFIG_HOME=$home/.config XDG_DATA_HOME=$home/.local/share XDG_CACHE_HOME=$home/.cache
  export XDG_RUNTIME_DIR=$home/run TMPDIR=$home/tmp
}

# The C++ files that the project consists of.
cpp_sources() {
  git ls-files --cached --others --exclude-standard -- '*.cpp' '*.h'
}

# Lays out a fresh installation of what was built, as a user has it: lay_out BUILD_DIRECTORY PREFIX
lay_out() {
  rm -rf "$2"
  cmake --install "$1" --prefix "$2" --component client >/dev/null
  cmake --install "$1" --prefix "$2" --component localengine >/dev/null
}
