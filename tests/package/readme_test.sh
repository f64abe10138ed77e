#!/bin/sh
# The README's example is a program: it compiles and prints what the README says.
# Usage: readme_test.sh README LIBRARY_DIR INCLUDE_DIR SCRATCH_DIR
set -eu
readme=$1
library=$2
include=$3
scratch=$4
rm -rf "$scratch"
mkdir -p "$scratch"
awk '/^```c$/ { on = 1; next } /^```$/ { on = 0 } on' "$readme" >"$scratch/example.c"
awk '/^```text example-output$/ { on = 1; next } /^```$/ { on = 0 } on' "$readme" >"$scratch/expected"
[ -s "$scratch/example.c" ] && [ -s "$scratch/expected" ] || { echo 'no example in the README'; exit 1; }
cc -std=c11 -Wall -Wextra -Wpedantic -Werror "$scratch/example.c" -I"$include" -L"$library" -lnyx \
    -Wl,-rpath,"$library" -o "$scratch/example"
"$scratch/example" | diff "$scratch/expected" -
