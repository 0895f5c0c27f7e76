#!/usr/bin/env bash
# Checks format, C++ and scripts. The build directory must have been configured and built.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=tools/common.sh
source tools/common.sh

lint_format() {
  cpp_sources | xargs clang-format --dry-run -Werror
}

# Only what this computer compiles: the bodies for another system have no entry in the database.
lint_tidy() {
  local database=build/dev/compile_commands.json
  [[ -f $database ]] || fail "Build first: ./dev test, or cmake --preset dev"
  cpp_sources | grep '\.cpp$' | while read -r source; do
    if grep -q "\"$PWD/$source\"" "$database"; then printf '%s\0' "$source"; fi
  done | xargs -0 -n 1 -P "$(nproc)" clang-tidy -p build/dev --quiet
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
