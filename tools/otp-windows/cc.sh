#!/bin/sh
# The compiler. It writes no path of the build into what it makes.
exec x86_64-w64-mingw32-gcc-posix "-ffile-prefix-map=$ORVEL_BUILD_ROOT=." "$@"
