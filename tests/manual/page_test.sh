#!/bin/sh
# A page's example is a program: its one C block compiles, as strictly as C11 can be, and prints what its one
# example-output block says.
# Usage: page_test.sh PAGE SCRATCH_DIR COMPILER [FLAGS...]
set -eu
page=$1
scratch=$2
compiler=$3
shift 3
[ ! -e "$scratch" ] || [ -d "$scratch/traces" ] || { echo "$scratch is not a scratch directory" >&2; exit 1; }
rm -rf "$scratch"
mkdir -p "$scratch/traces"

# The block that a fence opens, which has to be the only one of its kind.
block() {
    [ "$(grep -cx "$1" "$page")" = 1 ] || { echo "$page needs one block that begins with $1" >&2; exit 1; }
    awk -v fence="$1" '$0 == fence { on = 1; next } /^```$/ { on = 0 } on' "$page"
}

block '```c' >"$scratch/example.c"
block '```text example-output' >"$scratch/expected"
"$compiler" -std=c11 -Wall -Wextra -Wpedantic -Werror "$scratch/example.c" "$@" -o "$scratch/example"
SKEIN_DIR=$scratch/traces "$scratch/example" >"$scratch/printed" 2>"$scratch/complaints" ||
    { echo "the program failed: $?"; cat "$scratch/complaints"; exit 1; }
diff "$scratch/expected" "$scratch/printed"
diff /dev/null "$scratch/complaints"
