#!/usr/bin/env bash
# Checks format, C++ and scripts. The build directory must have been configured and built.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=tools/common.sh
source tools/common.sh

# What the sources are written for: another version wants them otherwise, or finds what this one does not.
readonly clang_version=14

# is_meant TOOL: whether it has that version; another one is named and passed over.
is_meant() {
  local version
  version=$("$1" --version | grep -oE 'version [0-9]+' | head -n 1)
  [[ $version == "version $clang_version" ]] && return
  say "$1 passed over: it is ${version:-unknown}, and meant is $clang_version"
  return 1
}

lint_format() {
  is_meant clang-format || return 0
  cpp_sources | xargs clang-format --dry-run -Werror
}

# Only what this computer compiles: the bodies for another system are not in the build. What was found clean
# once is not looked at again while nothing of it changes.
lint_tidy() {
  is_meant clang-tidy || return 0
  [[ -f build/dev/compile_commands.json ]] || fail "Build first: ./dev test, or cmake --preset dev"
  local clean=${ORVEL_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/orvel}/tidy
  mkdir -p "$clean"
  local keys unread=() key source
  keys=$(ninja -C build/dev -t deps | perl tools/tidykeys.pl build/dev "$(cat .clang-tidy; clang-tidy --version)")
  [[ $keys ]] || fail "Nothing to read"
  while read -r key source; do
    [[ -f $clean/$key ]] || unread+=("$clean/$key" "$source" "$((${#unread[@]} / 3 + 1))")
  done <<<"$keys"
  ((${#unread[@]})) || return 0
  export -f tidy
  export tidy_count=$((${#unread[@]} / 3))
  printf '%s\0' "${unread[@]}" | xargs -0 -n 3 -P "$(nproc)" bash -c 'tidy "$@"' tidy
}

# tidy KEY SOURCE NUMBER
tidy() {
  printf 'clang-tidy %d of %d: %s\n' "$3" "$tidy_count" "$2"
  clang-tidy -p build/dev --quiet "$2" && touch "$1"
}

lint_shell() {
  shellcheck -x dev .ci/run tools/*.sh fuzz/*.sh resources/*.sh packaging/*/*.sh packaging/linux/orvel.in tests/packaging/*.sh localengine/erl.exe
}

case ${1:-all} in
  format) lint_format ;;
  tidy) lint_tidy ;;
  shell) lint_shell ;;
  all) lint_format && lint_shell && lint_tidy ;;
  *) fail "lint: format, tidy, shell or nothing" ;;
esac
