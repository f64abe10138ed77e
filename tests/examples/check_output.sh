#!/bin/sh
# Runs a command and compares what it does with a file.
#   check_output.sh conversation EXIT_CODE FILE COMMAND...
#       the file holds all that is printed, on the standard output and the standard error
#   check_output.sh reply FILE COMMAND...
#       the file holds the last rpc-reply; the exit code has to be 1 when it is an error and 0 when it is not, and
#       nothing may be printed on the standard error
# Every rpc-reply that is printed has to keep to NETCONF's schema.
# The command's trace files and temporary files get a directory of their own, and no temporary file may be left there.
set -u
what=$1
shift
if [ "$what" = conversation ]; then
    expected_code=$1
    shift
fi
expected=$1
shift

here=$(dirname "$0")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/temporary"
export TMPDIR="$work/temporary" SKEIN_DIR="$work/traces"

# What differs from run to run and from source to source: times, process numbers, addresses, drawn ids, line numbers.
masked() {
    sed -E -e 's/[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:.]+Z/TIME/g' \
        -e 's|TIME +[0-9]+/[0-9]+ |TIME PROCESS/THREAD |' \
        -e 's/=0x[0-9a-f]+/=ADDRESS/g' \
        -e 's/session-id=[0-9]+/session-id=ID/g' \
        -e 's/([A-Z]{3}: [a-z_]+):[0-9]+ /\1:LINE /' "$1"
}

code=0
failed=0
if [ "$what" = conversation ]; then
    "$@" >"$work/raw" 2>&1 </dev/null || code=$?
    masked "$work/raw" >"$work/output"
    printed=$work/raw
else
    "$@" >"$work/replies" 2>"$work/errors" </dev/null || code=$?
    printed=$work/replies
    awk '/^]]>]]>$/ { text = ""; next } { text = text $0 "\n" } END { printf "%s", text }' \
        "$work/replies" >"$work/output"
    expected_code=0
    if grep -Eq '<([^ <>/:]+:)?rpc-error>' "$expected"; then
        expected_code=1
    fi
    if [ -s "$work/errors" ]; then
        echo "on the standard error:"
        cat "$work/errors"
        failed=1
    fi
fi

if [ "$code" != "$expected_code" ]; then
    echo "exit code $code instead of $expected_code"
    failed=1
fi
if [ -n "$(ls -A "$work/temporary")" ]; then
    echo "temporary files are left: $(ls -A "$work/temporary")"
    failed=1
fi
(unset TMPDIR && "$here/validate_replies.sh" "$printed" >"$work/validity") || {
    cat "$work/validity"
    failed=1
}
diff -u "$expected" "$work/output" || failed=1
exit $failed
