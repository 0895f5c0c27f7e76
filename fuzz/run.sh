#!/usr/bin/env bash
# Runs every fuzz target that lies in the build directory: fuzz/run.sh BUILD_DIRECTORY SECONDS [TARGET...]
# What it finds to be new is kept in BUILD_DIRECTORY/corpus, what broke a promise in BUILD_DIRECTORY/broken.
set -euo pipefail

build=$(cd "$1" && pwd) # the targets work in directories of their own
seconds=$2
shift 2
targets=("$@")
if ((!${#targets[@]})); then
  for program in "$build"/fuzz/*_fuzz; do
    name=${program##*/}
    targets+=("${name%_fuzz}")
  done
fi
seeds=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)/seeds
mkdir -p "$build"/{corpus,broken,logs}

fuzz() {
  local name=$1
  mkdir -p "$build/corpus/$name"
  # Qt and the font libraries keep some memory for good; what ours lose, the test suite finds.
  if ! ASAN_OPTIONS=detect_leaks=0 "$build/fuzz/${name}_fuzz" -max_total_time="$seconds" -print_final_stats=1 \
    -artifact_prefix="$build/broken/$name-" "$build/corpus/$name" "$seeds/$name" >"$build/logs/$name" 2>&1; then
    tail -n 40 "$build/logs/$name"
    return 1
  fi
  local executions covered
  executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$build/logs/$name")
  covered=$(grep -o 'cov: [0-9]* ft: [0-9]*' "$build/logs/$name" | tail -n 1)
  printf '%-16s %12s executions, %s\n' "$name" "$executions" "$covered"
}

export build seconds seeds
export -f fuzz
printf '%s\n' "${targets[@]}" | xargs -P "$(nproc)" -I NAME bash -euo pipefail -c 'fuzz NAME'
