#!/bin/sh
# Counts the instructions of one operation, of ours and of libprotobuf, with callgrind: unlike times, they are the same
# on every run and on a busy machine.
#
#   bench/instructions.sh NYX_BENCH [MESSAGE...]
#
# Messages default to the small ones. A number that callgrind cannot give (no such operation of libprotobuf) is "-".
set -eu

if [ $# -lt 1 ] || [ ! -x "$1" ]; then
    echo "usage: $0 NYX_BENCH [MESSAGE...]" >&2
    exit 2
fi
program=$1
shift
[ $# -gt 0 ] || set -- small_get_config rpc_error chain_20 edit_1k schemas_300

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
times=10

# Per operation; everything outside the operations themselves is not collected.
count() {
    valgrind --tool=callgrind --collect-atstart=no --callgrind-out-file="$scratch/out" \
        "$program" --loop "$1" "$2" "$times" "$3" >"$scratch/log" 2>&1 || {
        cat "$scratch/log" >&2
        exit 1
    }
    sed -n 's/^==[0-9]*== Collected : \([0-9]*\).*/\1/p' "$scratch/log" |
        awk -v times="$times" '{ printf "%.0f\n", $1 / times }'
}

# What libprotobuf does for an operation of ours: the same pairs as in the table.
peer_of() {
    case $1 in
        encode_segments) echo - ;;
        size_encode) echo encode ;;
        decode_arena) echo decode_malloc ;;
        *) echo "$1" ;;
    esac
}

printf '%-17s %-16s %12s %12s %6s  %s\n' message operation libnyx libprotobuf ratio 'operation of libprotobuf'
for message in "$@"; do
    for operation in size encode size_encode encode_segments decode_malloc decode_arena copy_arena copy_malloc release; do
        ours=$(count "$message" "$operation" libnyx)
        peer=$(peer_of "$operation")
        theirs=-
        ratio=-
        if [ "$peer" != - ]; then
            theirs=$(count "$message" "$peer" libprotobuf)
            ratio=$(awk -v a="$ours" -v b="$theirs" 'BEGIN { printf "%.3f", a / b }')
        fi
        printf '%-17s %-16s %12s %12s %6s  %s\n' "$message" "$operation" "$ours" "$theirs" "$ratio" "$peer"
    done
done
