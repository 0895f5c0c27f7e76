#!/usr/bin/env bash
# Builds Erlang's virtual machine for Windows from Debian's source packages, and prints the directory it lies in:
#   erlang/    the virtual machine as the client starts it (erts-9.0/bin/erl.exe), with the libraries named below
#   licences/  what has to come along with it
#
# Erlang is of the version that is installed here, whose compiled libraries are taken as they are; what they need
# in C is built. The result is kept under ORVEL_CACHE (default: orvel in the user's cache directory), one
# directory for each version of the package and of this script. A build that fails leaves nothing there.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source=tools/common.sh
source "$here/common.sh"
# shellcheck source=tools/sourcebuild.sh
source "$here/sourcebuild.sh"

packages=(dpkg-dev erlang-base erlang-crypto g++-mingw-w64-x86-64-posix gcc libc6-dev make patch perl)
libraries=(kernel stdlib crypto)
programs=(erl.exe erlexec.dll inet_gethost.exe)
debian=/usr/lib/erlang
host=local-x86_64-windows

install_packages "${packages[@]}" >&2
version=$(dpkg-query -W -f='${source:Version}' erlang-base)
key=$(cat "${BASH_SOURCE[0]}" "$here/sourcebuild.sh" "$here"/otp-windows/* | sha256sum | cut -c1-12)
installed=$cache/otp-windows/${version#*:}-$key
if [[ -d $installed ]]; then
  say "$installed"
  exit 0
fi

# It compiles some of its sources with a program of its own, for this computer.
build_generator() {
  local sources=$otp/erts/lib_src/yielding_c_fun
  gcc -O1 -w -I"$sources" -I"$sources"/lib/{tiny_regex_c,simple_c_gc} \
    "$sources"/*.c "$sources"/lib/*/re.c "$sources"/lib/*/simple_c_gc.c -o "$work/generator"
}

configure() {
  # Cygwin with gcc is the way through its makefiles that leads to what is wanted here.
  sed -i 's#test -x /usr/bin/cygpath#true#; s#test -x /usr/bin/msys-?.0.dll#false#' configure
  # Its own answers for Windows to what cannot be tried out here.
  grep -E '^ac_cv_(func|header|decl|have_decl|member|struct|lib|working|sys|search)' \
    "$otp/make/autoconf/win64.config.cache.static" >"$work/answers"
  # They are written into the emulator.
  # shellcheck disable=SC2016 # variables of Perl's
  sed -i 's|^    $value =~ s/"|    $value =~ s{\\Q$ENV{ORVEL_BUILD_ROOT}\\E}{.}g;\n&|' emulator/utils/make_compiler_flags
  CC=cc.sh CXX=x86_64-w64-mingw32-g++-posix CFLAGS=-O2 LD=cc.sh AR=ar.sh RANLIB=x86_64-w64-mingw32-ranlib \
    CPPFLAGS="-D__WIN32__ -DWIN32 -DWINDOWS" \
    ./configure --build=x86_64-pc-linux-gnu --host=$host --target=$host --cache-file="$work/answers" \
    --disable-jit --without-termcap --without-javac --disable-sctp --enable-builtin-zlib \
    --disable-kernel-poll erl_xcomp_sysroot=/nonexistent
  find . "$otp/make/win32" -path '*/win32/*' \( -name Makefile -o -name '*.mk' \) -exec sed -i -E \
    's/-Werror=undef//g; s/-Wall -Wstrict-prototypes( -W[a-z-]*(prototypes|arith|statement))*/-w/' {} +
  sed -i 's,/\* #undef HAVE_IN6ADDR_\(ANY\|LOOPBACK\) \*/,#define HAVE_IN6ADDR_\1 1,' win32/config.h
  sed 's/@DEFAULT_VERBOSITY@/0/' "$otp/make/output.mk.in" >"$otp/make/output.mk"
  touch "$otp/make/win32/otp_ded.mk"
}

make_in() {
  make -j"$jobs" -C "$1" -f win32/Makefile "${@:2}" V=1 TYPE=opt FLAVOR=emu GIT_VSN= \
    LD=ld.sh AR=ar.sh RC=rc.sh RES_EXT=o MAKE_PRELOAD_EXTRA=-windres YCF_EXECUTABLE_PATH="$work/generator"
}

build_machine() {
  cd "$otp/erts"
  configure
  mkdir -p "$binaries"
  touch "$binaries/beam.emu.pdb" # Microsoft's compiler would have made it
  make_in emulator generate
  make_in emulator "$binaries/beam.smp.dll"
  make_in etc/common "${programs[@]/#/$binaries/}" RC_GENERATED= LOGMESS_GENERATED=
}

# Nothing of OpenSSL is looked for on the disk: no settings, no modules, no engines.
build_openssl() {
  cd "$openssl"
  CC=cc.sh AR=ar.sh RANLIB=x86_64-w64-mingw32-ranlib RC=x86_64-w64-mingw32-windres ./Configure mingw64 \
    no-shared no-dso no-module no-autoload-config no-tests no-engine no-legacy no-async no-ui-console
  make -j"$jobs" build_generated
  make -j"$jobs" libcrypto.a
}

build_crypto() {
  local sources=$otp/lib/crypto/c_src objects=$work/crypto source
  local flags=(
    -O2 -w -fno-strict-aliasing -D__WIN32__ -DWIN32 -DWINDOWS -D_WIN32_WINNT=0x0600 -DHAVE_OPENSSL_CRYPTO_MEMCMP
    "-DCRYPTO_VSN=\"$(sed -n 's/^CRYPTO_VSN = //p' "$sources/../vsn.mk")\""
    -I"$otp"/erts/emulator/{beam,sys/win32} -I"$otp"/erts/include{,/win32,/internal,/internal/win32}
    -I"$openssl/include"
  )
  mkdir "$objects"
  cd "$sources"
  for source in *.c; do
    [[ $source == otp_test_engine.c ]] || printf '%s\0' "$source"
  done | xargs -0 -P"$jobs" -I{} cc.sh "${flags[@]}" -c {} -o "$objects/{}.o"
  ld.sh -dll -o "$work/crypto.dll" "$objects"/*.o "$openssl/libcrypto.a" -lcrypt32
}

# The client asks for "erts-9.0", whatever version it is.
lay_out_machine() {
  local result=$1 erlang=$1/erlang library directory
  mkdir -p "$erlang"/{bin,erts-9.0/bin,lib} "$result/licences"
  cp "$binaries/beam.smp.dll" "${programs[@]/#/$binaries/}" "$erlang/erts-9.0/bin"
  cp "$debian"/bin/{start,start_clean,no_dot_erlang}.boot "$erlang/bin"
  for library in "${libraries[@]}"; do
    directory=$(basename "$debian/lib/$library"-*)
    mkdir "$erlang/lib/$directory"
    cp -rL "$debian/lib/$directory/ebin" "$erlang/lib/$directory"
  done
  install -D "$work/crypto.dll" "$(echo "$erlang/lib"/crypto-*)/priv/lib/crypto.dll"
  cp /usr/share/doc/erlang-base/copyright "$result/licences/erlang.txt"
  cp "$openssl/LICENSE.txt" "$result/licences/openssl.txt"
  printf 'erlang %s\nopenssl %s\n' "$version" "$openssl_version" >"$result/sources"
  find "$result" -exec touch -hd "@$SOURCE_DATE_EPOCH" {} +
}

say "Building Erlang ${version#*:} (for Windows, eight minutes on two cores); see $cache/otp-windows/build.log" >&2
begin_build Erlang '^[^ ]*(gcc|cc\.sh) .*-c ' 1085
jobs=$(($(nproc) + 1))
otp=$work/otp openssl=$work/openssl
open_sources "$work/apt"
fetch_source erlang "$otp" "$version"
mapfile -t versions < <(offered_versions openssl)
fetch_source openssl "$openssl" "${versions[@]}"
openssl_version=$fetched_version
SOURCE_DATE_EPOCH=$(dpkg-parsechangelog -l "$otp/debian/changelog" -S Timestamp)
export SOURCE_DATE_EPOCH ORVEL_BUILD_ROOT=$work
export ERL_TOP=$otp TARGET=win32 CONFIG_SUBTYPE=win64 PATH=$here/otp-windows:$PATH
binaries=$otp/bin/win32
cat "$here"/otp-windows/*.patch | patch -d "$otp" -p1
build_generator
(build_machine)
(build_openssl)
(build_crypto)
lay_out_machine "$work/result"
mv "$work/result" "$installed"
say "$installed" >&3
