#!/bin/sh
# A library exports exactly the names of its list, needs exactly the libraries named, and bears the soname that its
# users link. With a list of imports, it also uses nothing else from others.
# Usage: symbols_test.sh LIBRARY SONAME EXPORTS NEEDED [IMPORTS]   (NEEDED in the order of the alphabet)
set -eu
library=$1
soname=$2
exports=$3
needed=$4
imports=${5:-}
nm -D --defined-only "$library" | awk '$2 != "A" { sub(/@.*/, "", $3); print $3 }' | LC_ALL=C sort |
    diff "$exports" - || { echo "the exported names differ from $exports"; exit 1; }

got=$(readelf -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | LC_ALL=C sort | tr '\n' ' ' | sed 's/ $//')
[ "$got" = "$needed" ] || { echo "the library needs '$got' instead of '$needed'"; exit 1; }
readelf -d "$library" | grep -qF "Library soname: [$soname]" || { echo 'wrong soname'; exit 1; }

[ -n "$imports" ] || exit 0
# What any program's start-up and the compiler's stack protector bring in is nobody's choice.
foreign=$(nm -D --undefined-only "$library" | awk '{ sub(/@.*/, "", $NF); print $NF }' |
    grep -vE '^(__stack_chk_fail|__cxa_finalize|__gmon_start__|_ITM_(de)?registerTMCloneTable)$' |
    LC_ALL=C sort | comm -23 - "$imports")
[ -z "$foreign" ] || { printf 'the library imports what it must not:\n%s\n' "$foreign"; exit 1; }
