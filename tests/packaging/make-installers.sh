#!/usr/bin/env bash
# Makes what installer_test runs: make-installers.sh BUILD_DIRECTORY FAKE_ENGINE OUTPUT_DIRECTORY NEWER_VERSION
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
package=$here/../../packaging/windows/package.sh
build=$1 fake_engine=$2 output=$3 newer_version=$4

engine=$(mktemp -d)
trap 'rm -rf "$engine"' EXIT
mkdir -p "$engine"/{erlang/erts-9.0/bin,srv/ebin}
cp "$fake_engine" "$engine/erlang/erts-9.0/bin/erl.exe"
touch "$engine"/srv/ebin/{rtsp,earlier}.beam

"$package" "$build" "$engine" "$output"
rm "$engine/srv/ebin/earlier.beam"
"$package" "$build" "$engine" "$output" "$newer_version"
