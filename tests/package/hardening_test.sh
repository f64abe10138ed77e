#!/bin/sh
# An installed library or program bears what the compiler and linker options of a release promise.
# Usage: hardening_test.sh FILE KIND SCRATCH_DIR
#   plain     a library without arrays on its stack: there is nothing that a canary or a fortified function would guard
#   buffers   a library that has some
#   program   a program; it needs the C library's start files, which bear no marks of control-flow checks
set -eu
file=$1
kind=$2
scratch=$3
status=0

complain() {
    echo "$file: $*"
    status=1
}

# wants TEXT PATTERN COMPLAINT, refuses TEXT PATTERN COMPLAINT
wants() {
    echo "$1" | grep -qE "$2" || complain "$3"
}
refuses() {
    if echo "$1" | grep -qE "$2"; then complain "$3"; fi
}

# Functions that other libraries can call, and those that begin with the instruction that a checked jump must meet.
exported_functions() {
    nm -D --defined-only "$file" | awk '$2 == "T" || $2 == "W" { sub(/@.*/, "", $3); print $3 }' | LC_ALL=C sort -u
}
landing_functions() {
    objdump -d --no-show-raw-insn "$file" | awk '
        /^[0-9a-f]+ <.*>:$/ { name = substr($2, 2, length($2) - 3); sub(/@.*/, "", name); is_first = 1; next }
        is_first { if ($2 == "endbr64") { print name } is_first = 0 }' | LC_ALL=C sort -u
}

segments=$(readelf -Wl "$file")
dynamic=$(readelf -Wd "$file")
imports=$(nm -D --undefined-only "$file")
mkdir -p "$scratch"

wants "$segments" '^ *GNU_STACK ' 'nothing says that the stack is not run'
refuses "$segments" '^ *GNU_STACK .* RWE ' 'the stack can be run'
refuses "$segments" '^ *LOAD .* RWE ' 'a segment can be written and run'
wants "$segments" '^ *LOAD +0x[0-9a-f]*000 .* R E ' 'code begins amid a page'
refuses "$segments" '^ *LOAD +0x0+ .* R E ' 'code shares a page with tables'
wants "$segments" '^ *GNU_RELRO ' 'relocated tables stay writable'
wants "$dynamic" '\(FLAGS\).*BIND_NOW' 'symbols are bound late: no BIND_NOW'
wants "$dynamic" '\(FLAGS_1\).*NOW' 'symbols are bound late: no NOW'
refuses "$dynamic" 'TEXTREL' 'code is relocated'

# Where the libraries are is the system's choice. Only the viewer looks beside itself, wherever both are installed.
paths=$(echo "$dynamic" | sed -nE 's/.*\((RPATH|RUNPATH)\).*\[(.*)\]/\2/p')
if [ "$kind" = program ]; then
    refuses "$paths" ':' "looks for libraries in several places: $paths"
    # shellcheck disable=SC2016
    wants "$paths" '^\$ORIGIN/\.\./' "looks for libraries in '$paths'"
    wants "$dynamic" '\(FLAGS_1\).*PIE' 'is loaded at a fixed place'
else
    [ -z "$paths" ] || complain "looks for libraries in '$paths'"
    marks=$(readelf -nW "$file" | grep 'x86 feature:' || true)
    wants "$marks" 'IBT' 'bears no mark of indirect-branch tracking'
    wants "$marks" 'SHSTK' 'bears no mark of the shadow stack'
    # The marks have to be true.
    exported_functions >"$scratch/exported"
    landing_functions >"$scratch/landing"
    [ -s "$scratch/exported" ] || complain 'exports no function'
    astray=$(LC_ALL=C comm -23 "$scratch/exported" "$scratch/landing")
    # shellcheck disable=SC2086
    [ -z "$astray" ] || complain "no checked jump can go to" $astray
    refuses "$dynamic" '\((INIT|FINI)\)' 'has start code of the C library, to which no checked jump can go'
fi

if [ "$kind" != plain ]; then
    wants "$imports" ' __stack_chk_fail@' 'return addresses go unguarded'
    wants "$imports" ' __[a-z]+_chk@' 'no C function is fortified'
fi
exit $status
