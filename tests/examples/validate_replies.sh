#!/bin/sh
# Checks every rpc-reply in files of replies and of whole conversations against NETCONF's schema.
#   validate_replies.sh FILE...            all have to be valid; files that hold no reply at all are passed over
#   validate_replies.sh --invalid FILE...  each has to hold one reply that is not
# What looks like a reply, or a part of one, and cannot be taken out of its file is a failure in either case.
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
    function give_up(what) { print FILENAME ", line " FNR ": " what; bad = 1; exit 1 }
    function must_have_ended() { if (file != "" || declared) give_up("the reply before this line has no end") }
    FNR == 1 { must_have_ended() }
    /^<\?xml/ { must_have_ended(); declared = 1; next }
    /^<([^ <>\/:]+:)?rpc-reply[ >\/]/ {
        if (file != "") give_up("a reply in a reply")
        file = sprintf("%s/%05d.xml", work, ++count)
        declared = 0
    }
    declared || (file == "" && /rpc-reply/) { give_up("not to be recognised as a reply") }
    file != "" { print > file }
    /^<\/([^ <>\/:]+:)?rpc-reply>|^<([^ <>\/:]+:)?rpc-reply[^>]*\/>/ { close(file); file = "" }
    END { if (!bad) must_have_ended(); exit bad }
' "$@"

# The checking program takes a document for valid that breaks the rules of namespaces, and just complains.
is_valid() {
    "${XMLLINT:-xmllint}" --nonet --noout --schema "$schema" "$@" 2>"$work/problems" &&
        ! grep -q 'namespace error' "$work/problems"
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
    if is_valid "$reply" || ! grep -Eq 'Schemas validity error|namespace error' "$work/problems"; then
        echo "not refused:"
        cat "$reply" "$work/problems"
        exit 1
    fi
done
