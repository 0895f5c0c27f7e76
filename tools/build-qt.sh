#!/usr/bin/env bash
# Builds a Qt that Debian does not offer from Debian's source package, and prints the directory it lies in:
# build-qt.sh windows   for the program for Windows
# build-qt.sh tsan      for this computer under ThreadSanitizer, without windows: Core, Network and Test
#
# The result is kept under ORVEL_CACHE (default: orvel in the user's cache directory), one directory for
# each version of the package and of this script. A build that fails leaves nothing there.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source=tools/common.sh
source "$here/common.sh"

cache=${ORVEL_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/orvel}
source_package=qtbase-opensource-src

packages=(dpkg-dev g++ make perl python3 qtbase5-dev qtbase5-dev-tools)
configure_options=(-opensource -confirm-license -release -shared -nomake examples -nomake tests -nomake tools)
case ${1:-} in
  windows)
    packages+=(g++-mingw-w64-x86-64-posix)
    configure_options+=(
      -platform linux-g++ -xplatform win32-g++ -device-option "CROSS_COMPILE=x86_64-w64-mingw32-"
      -external-hostbindir /usr/lib/qt5/bin
      -no-opengl -no-dbus -no-openssl -schannel -no-icu -no-libjpeg
      -qt-zlib -qt-pcre -qt-libpng -qt-freetype -qt-harfbuzz
      -no-feature-sql -no-feature-tabletevent -no-feature-vulkan -no-feature-printer -no-feature-concurrent
      -no-feature-direct2d
      -no-feature-xml -no-feature-graphicsview -no-feature-statemachine -no-feature-undocommand
      -no-feature-mdiarea -no-feature-wizard -no-feature-calendarwidget -no-feature-dial
    )
    sources=1210 ;; # that are compiled, to tell how far it is
  tsan)
    configure_options+=(
      -platform linux-g++ -sanitize thread
      -no-gui -no-widgets -no-dbus -no-openssl -no-icu -no-glib -qt-zlib -qt-pcre -qt-doubleconversion
      -no-feature-sql -no-feature-xml -no-feature-concurrent
    )
    sources=582 ;;
  *) fail "build-qt.sh: windows or tsan" ;;
esac
name=qt-$1

# The packages that this computer's own package lists offer, as sources.
write_source_lists() {
  local list
  for list in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
    [[ ! -e $list ]] || sed -n 's/^deb\([[:space:]]\)/deb-src\1/p' "$list"
  done >"$1/orvel.list"
  for list in /etc/apt/sources.list.d/*.sources; do
    [[ ! -e $list ]] || { sed 's/^Types:.*/Types: deb-src/' "$list"; echo; }
  done >"$1/orvel.sources"
}

# Downloads and unpacks the sources into DIRECTORY; apt checks the signatures.
fetch() {
  local directory=$1 version=$2
  mkdir -p "$directory"/apt/{parts,lists/partial,cache/archives/partial}
  write_source_lists "$directory/apt/parts"
  local own_lists=(
    -o "Dir::Etc::SourceList=/dev/null" -o "Dir::Etc::SourceParts=$directory/apt/parts"
    -o "Dir::State::Lists=$directory/apt/lists" -o "Dir::Cache=$directory/apt/cache"
    -o "APT::Sandbox::User=$(id -un)"
  )
  apt-get "${own_lists[@]}" -qq update
  (cd "$directory" && apt-get "${own_lists[@]}" -qq source "$source_package=$version")
  mv "$directory"/"$source_package"-*/ "$directory/source"
}

# Debian's import libraries are named in lower case, as the linker on Debian needs them.
lower_case_libraries() {
  grep -rlE --include='*.pr[iof]' --include='*.json' -- '-l(Secur32|Crypt32)' "$1/src" |
    xargs -r sed -i 's/-lSecur32/-lsecur32/g; s/-lCrypt32/-lcrypt32/g'
}

# A line each half minute, until it is killed.
report_progress() {
  local compiled
  while read -rt 30 <> <(:) || true; do
    compiled=$(grep -cE '^[^ ]*(g\+\+|gcc) .*-c ' "$log" || true)
    say "  Qt ($1): $compiled of about $sources sources, $((SECONDS / 60)) min $((SECONDS % 60)) s"
  done
}

install_packages "${packages[@]}" >&2

version=$(dpkg-query -W -f='${source:Version}' qtbase5-dev)
key=$(sha256sum "${BASH_SOURCE[0]}" | cut -c1-12)
installed=$cache/$name/$version-$key
if [[ -d $installed ]]; then
  say "$installed"
  exit 0
fi

mkdir -p "$cache/$name"
work=$(mktemp -d "$cache/$name/building.XXXXXX")
log=$cache/$name/build.log
: >"$log"

# shellcheck disable=SC2317,SC2329 # called by the trap
tidy_up() {
  kill "$progress"
  if [[ ! -d $installed ]]; then
    tail -n 40 "$log" >&2 || true
    say "Qt could not be built; the whole log is $log" >&2
  fi
  rm -rf "$work"
}
trap tidy_up EXIT

say "Building Qt $version ($1, a quarter of an hour on two cores); see $log" >&2
report_progress "$1" >&2 &
progress=$!
exec 3>&1 >"$log" 2>&1
fetch "$work" "$version"
lower_case_libraries "$work/source"
mkdir "$work/build"
cd "$work/build"
# The directory of a later use is known now, and nothing is in it until the installation is whole.
../source/configure "${configure_options[@]}" -prefix "$installed" -extprefix "$work/qt"
make -j"$(($(nproc) + 1))" sub-src
make install
mv "$work/qt" "$installed"
say "$installed" >&3
