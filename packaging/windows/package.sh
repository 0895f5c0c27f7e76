#!/usr/bin/env bash
# Makes the installer and prints its path:
# package.sh BUILD_DIRECTORY ENGINE_DIRECTORY OUTPUT_DIRECTORY [VERSION]
#
# ENGINE_DIRECTORY holds the sync engine for Windows: "erlang" and "srv/ebin". When it is empty, the local engine of
# the build is taken. With ORVEL_SIGN_CERTIFICATE (a PKCS#12 file) the program, the uninstaller and the installer
# are signed; see sign.sh.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$here/../..
# shellcheck source=tools/common.sh
source "$root/tools/common.sh"

build=$1 engine=$2 output=$3
version=${4:-$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
stage=$work/stage

copy_engine() {
  if [[ ! $engine ]]; then
    cmake --install "$build" --prefix "$stage" --component localengine --strip >/dev/null
    [[ -f $stage/erlang/erts-9.0/bin/erl.exe ]] || fail "$build was configured without ORVEL_OTP_WINDOWS"
    return
  fi
  [[ -f $engine/erlang/erts-9.0/bin/erl.exe ]] || fail "$engine has no erlang/erts-9.0/bin/erl.exe"
  cp -rL "$engine/erlang" "$stage/erlang"
  # The engine looks for its code beside "erts-9.0".
  if [[ -d $engine/srv && ! -e $stage/erlang/srv ]]; then cp -rL "$engine/srv" "$stage/erlang/srv"; fi
  [[ -d $stage/erlang/srv/ebin ]] || fail "$engine has no srv/ebin"
}

copy_licences() {
  local documents=/usr/share/doc licences=/usr/share/common-licenses target=$stage/licences
  mkdir -p "$target"
  cp "$root/LICENSE" "$target/orvel.txt"
  cp "$licences/LGPL-3" "$target/LGPL-3.txt"
  cp "$licences/GPL-3" "$target/GPL-3.txt"
  cp "$documents/qtbase5-dev/copyright" "$target/qt.txt"
  cp "$documents/gcc-mingw-w64-x86-64-posix-runtime/copyright" "$target/gcc-runtime.txt"
  cp "$documents/mingw-w64-x86-64-dev/copyright" "$target/mingw-w64-runtime.txt"
}

# The lines that delete what is installed, and nothing else that may have come there.
# shellcheck disable=SC2016 # the variable is the installer's
list_files() {
  local path
  while IFS= read -r path; do
    path=${path//\$/\$\$}
    printf 'Delete "$INSTDIR\\%s"\n' "${path//\//\\}"
  done < <(cd "$stage" && find . -type f -printf '%P\n' | sort)
  while IFS= read -r path; do
    path=${path//\$/\$\$}
    printf 'RMDir "$INSTDIR\\%s"\n' "${path//\//\\}"
  done < <(cd "$stage" && find . -mindepth 1 -type d -printf '%P\n' | sort -r)
}

cmake --install "$build" --prefix "$stage" --component client --strip >/dev/null
x86_64-w64-mingw32-strip --strip-unneeded "$stage"/lib*.dll # Debian's come with everything for a debugger
copy_engine
copy_licences
list_files >"$work/files.nsh"

options=()
if [[ ${ORVEL_SIGN_CERTIFICATE:-} ]]; then
  for program in "$stage"/orvel*.exe; do "$here/sign.sh" "$program"; done
  options+=("-DSIGN=$here/sign.sh")
fi
mkdir -p "$output"
installer=$(cd "$output" && pwd)/orvel-storage-$version-setup.exe
makensis -V2 -INPUTCHARSET UTF8 "-DVERSION=$version" "-DSTAGE=$stage" "-DFILES=$work/files.nsh" \
  "-DRESOURCES=$root/resources" "-DOUTPUT=$installer" "${options[@]}" "$here/installer.nsi" >&2
say "$installer"
