#!/bin/sh
# Checks every rpc-reply in files of replies and of whole conversations against NETCONF's schema.
#   validate_replies.sh FILE...            all have to be valid; files that hold no reply at all are passed over
#   validate_replies.sh --invalid FILE...  each has to hold one reply that is not
# XMLLINT names the checking program.
set -eu
schema=$(dirname "$0")/netconf.xsd
all_valid=true
if [ "$1" = --invalid ]; then
    all_valid=false
    shift
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
awk -v work="$work" '
    /^<([a-z]+:)?rpc-reply/ { file = sprintf("%s/%05d.xml", work, ++count) }
    file != "" { print > file }
    /^<\/([a-z]+:)?rpc-reply>|^<([a-z]+:)?rpc-reply[^>]*\/>/ { close(file); file = "" }
' "$@"

is_valid() {
    "${XMLLINT:-xmllint}" --nonet --noout --schema "$schema" "$@" 2>"$work/problems"
}

if $all_valid; then
    set -- "$work"/*.xml
    if [ -e "$1" ] && ! is_valid "$@"; then
        grep -v ' validates$' "$work/problems"
        exit 1
    fi
    echo "$(ls "$work" | grep -c '\.xml$' || true) replies are valid"
    exit 0
fi
if [ "$(ls "$work" | grep -c '\.xml$')" -ne $# ]; then
    echo "not one reply in each file"
    exit 1
fi
for reply in "$work"/*.xml; do
    if is_valid "$reply" || ! grep -q 'Schemas validity error' "$work/problems"; then
        echo "not refused by the schema:"
        cat "$reply" "$work/problems"
        exit 1
    fi
done
