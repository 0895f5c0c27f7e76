#!/usr/bin/env bash
# The resource compiler: rc.sh [-I DIRECTORY]... -o OBJECT FILE
set -euo pipefail

directories=() object='' file=''
while (($#)); do
  case $1 in
    -o) object=$2; shift ;;
    -I) directories+=(-I "$2"); shift ;;
    -I*) directories+=(-I "${1#-I}") ;;
    *) file=$1 ;;
  esac
  shift
done
exec x86_64-w64-mingw32-windres "${directories[@]}" -c 1252 -O coff -i "$file" -o "$object"
