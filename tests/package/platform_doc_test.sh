#!/bin/sh
# The page on the platform tells what libnyx relies on: its table has every platform function that the library may
# import, and its first column no other.
# Usage: platform_doc_test.sh PAGE SYMBOL_LISTS_DIR
set -eu
page=$1
lists=$2
# What the platform libraries have and the library imports; its other imports are the C library's.
imports=$(cat "$lists/rcode.symbols" "$lists/safestr.symbols" "$lists/umbra.symbols" "$lists/skein.symbols" |
    LC_ALL=C sort | LC_ALL=C comm -12 - "$lists/nyx.imports")
[ -n "$imports" ] || { echo "no imports in $lists"; exit 1; }
rows=$(awk '/^\| function \|/ { on = 1; next } !/^\|/ { on = 0 } on && !/^\|-/' "$page")
[ -n "$rows" ] || { echo "no table of functions in $page"; exit 1; }

status=0
for function in $imports; do
    echo "$rows" | grep -qE "\`$function[\`(]" || { echo "$page does not tell of $function"; status=1; }
done
for function in $(echo "$rows" | cut -d '|' -f 2 | grep -oE '`[A-Za-z0-9_]+' | tr -d '`'); do
    echo "$imports" | grep -qx "$function" || { echo "$page tells of $function, which is not imported"; status=1; }
done
exit $status
