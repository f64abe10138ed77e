#!/bin/sh
# The library exports exactly the names of its list and needs nothing but the C library.
# Usage: symbols_test.sh LIBRARY LIST
set -eu
library=$1
list=$2
nm -D --defined-only "$library" | awk '$2 != "A" { sub(/@.*/, "", $3); print $3 }' | LC_ALL=C sort | diff "$list" - ||
    { echo "the exported names differ from $list"; exit 1; }
# Of the C library it uses three functions; the rest is what any program's start-up and the compiler's stack protector
# bring in. Memory comes from the caller alone, and nothing is ever printed.
foreign=$(nm -D --undefined-only "$library" | awk '{ sub(/@.*/, "", $NF); print $(NF - 1), $NF }' |
    awk '!/^U (memcpy|memset|strlen|__stack_chk_fail)$/ &&
         !/^w (__cxa_finalize|__gmon_start__|_ITM_(de)?registerTMCloneTable)$/')
[ -z "$foreign" ] || { printf 'the library imports what it must not:\n%s\n' "$foreign"; exit 1; }
needed=$(readelf -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | tr '\n' ' ')
[ "$needed" = 'libc.so.6 ' ] || { echo "the library needs $needed"; exit 1; }
readelf -d "$library" | grep -q 'SONAME.*\[libnyx.so.1\]' || { echo 'wrong soname'; exit 1; }
