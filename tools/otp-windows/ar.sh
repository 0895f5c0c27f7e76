#!/bin/sh
# The archiver, also when it is asked as Microsoft's is: -out:LIBRARY OBJECT...
case $1 in
  -out:*)
    library=${1#-out:}
    shift
    rm -f "$library"
    exec x86_64-w64-mingw32-ar rcsD "$library" "$@"
    ;;
esac
exec x86_64-w64-mingw32-ar "$@"
