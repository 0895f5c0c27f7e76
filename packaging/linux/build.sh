#!/usr/bin/env bash
# Makes the Debian packages, lists what is in them and has them checked: build.sh BUILD_DIRECTORY
# They end in BUILD_DIRECTORY/packages.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/../.."
# shellcheck source=tools/common.sh
source tools/common.sh

build=$1
packages=$build/packages
umask 022
# Two builds of one commit are the same to the byte.
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct 2>/dev/null || stat -c %Y CHANGELOG.md)}
DEB_CXXFLAGS_MAINT_STRIP=-g
export SOURCE_DATE_EPOCH DEB_CXXFLAGS_MAINT_STRIP

make_packages() {
  CXXFLAGS="$(dpkg-buildflags --get CXXFLAGS) $(dpkg-buildflags --get CPPFLAGS)" \
    LDFLAGS=$(dpkg-buildflags --get LDFLAGS) \
    cmake --preset release --fresh -B "$build" -D ORVEL_DEB=ON &&
    cmake --build "$build" --parallel "$(nproc)" &&
    cpack --config "$build/CPackConfig.cmake"
}

say "Building for the packages"
mkdir -p "$build"
rm -rf "$packages"
make_packages >"$build/package.log" 2>&1 || {
  tail -n 50 "$build/package.log"
  exit 1
}

for package in "$packages"/*.deb; do
  say "$(basename "$package"), $(stat -c %s "$package") bytes"
  dpkg-deb --info "$package" control
  dpkg-deb --contents "$package"
done

say "Checking"
contents=$(mktemp -d)
trap 'rm -rf "$contents"' EXIT
dpkg-deb --extract "$packages"/orvel_*.deb "$contents"
desktop-file-validate "$contents"/usr/share/applications/*.desktop
appstreamcli validate --no-net "$contents"/usr/share/metainfo/*.metainfo.xml
as_root=()
[[ $(id -u) != 0 ]] || as_root=(--allow-root)
# The packages are not uploaded to Debian, so no bug there asks for them.
lintian "${as_root[@]}" --fail-on error --suppress-tags initial-upload-closes-no-bugs "$packages"/*.deb
say "lintian finds no error"
