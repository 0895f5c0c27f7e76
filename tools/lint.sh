#!/usr/bin/env bash
# Checks format, C++ and scripts. The build directory must have been configured and built.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=tools/common.sh
source tools/common.sh

lint_format() {
  cpp_sources | xargs clang-format --dry-run -Werror
}

# Only what this computer compiles: the bodies for another system are not in the build. What was found clean
# once is not looked at again while nothing of it changes.
lint_tidy() {
  [[ -f build/dev/compile_commands.json ]] || fail "Build first: ./dev test, or cmake --preset dev"
  local clean=${ORVEL_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/orvel}/tidy
  mkdir -p "$clean"
  export -f tidy
  ninja -C build/dev -t deps | perl tools/tidykeys.pl build/dev "$(cat .clang-tidy; clang-tidy --version)" |
    while read -r key source; do [[ -f $clean/$key ]] || printf '%s\0' "$clean/$key" "$source"; done |
    xargs -0 -r -n 2 -P "$(nproc)" bash -c 'tidy "$@"' tidy
}

tidy() {
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
