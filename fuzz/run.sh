#!/usr/bin/env bash
# Runs fuzz targets, each from its checked-in corpus and from what earlier runs found: run.sh BUILD SECONDS [TARGET...]
#
# BUILD is a build directory of the preset "fuzz" with its targets built. Without a TARGET, all of them run, one after
# the other. What a target finds stands in BUILD/found; the run ends at the first target that found a defect. For each
# one a line tells its executions, the edges it has covered and its inputs.
#
#   run.sh build/fuzz 60 decode
#   MERGE=1 run.sh build/fuzz 0 decode    puts what reaches new code into the checked-in corpus
set -euo pipefail

fuzz=$(dirname "${BASH_SOURCE[0]}")
build=$1
seconds=$2
shift 2
found=$build/found

die() {
    echo "fuzz: $*" >&2
    exit 1
}

targets() {
    local source
    for source in "$fuzz"/*_fuzz.cpp; do
        source=${source##*/}
        echo "${source%_fuzz.cpp}"
    done
}

# Options that the target wants besides: its words, and the lengths of inputs that are worth looking at.
options() {
    [ ! -f "$fuzz/dict/$1.dict" ] || echo "-dict=$fuzz/dict/$1.dict"
    case $1 in
        skein_reader) echo -max_len=6000 ;;
        decode | dump) echo -max_len=4096 ;;
        *) echo -max_len=1024 ;;
    esac
}

run() {
    local target=$1
    mkdir -p "$found/$target"
    echo "== $target, $seconds s"
    # shellcheck disable=SC2046  # options have no blanks
    "$build/fuzz/fuzz_$target" -max_total_time="$seconds" -print_final_stats=1 -timeout=20 -rss_limit_mb=4096 \
        -artifact_prefix="$found/$target-" $(options "$target") "$found/$target" "$fuzz/corpus/$target" \
        >"$found/$target.log" 2>&1 || { tail -n 40 "$found/$target.log"; die "$target found a defect, see $found"; }
    grep -aE '^#[0-9]+.*DONE' "$found/$target.log" || die "$target did not run, see $found/$target.log"
}

# Adds to the checked-in corpus the fewest of the found inputs that reach an edge which it does not reach. How often an
# edge is passed does not count: the corpus is for replaying in every build, and for starting from.
merge() {
    local target=$1
    mkdir -p "$found/$target" "$fuzz/corpus/$target"
    # shellcheck disable=SC2046
    "$build/fuzz/fuzz_$target" -merge=1 -use_counters=0 $(options "$target") "$fuzz/corpus/$target" "$found/$target" \
        >"$found/$target.merge.log" 2>&1 || die "$target cannot be merged, see $found/$target.merge.log"
    echo "$target: $(find "$fuzz/corpus/$target" -type f | wc -l) inputs," \
        "$(cat "$fuzz/corpus/$target"/* | wc -c) bytes"
}

[ $# -ne 0 ] || mapfile -t all < <(targets)
for target in "${@:-${all[@]}}"; do
    [ -x "$build/fuzz/fuzz_$target" ] || die "there is no target $target; there are: $(targets | tr '\n' ' ')"
    if [ "${MERGE:-0}" = 1 ]; then merge "$target"; else run "$target"; fi
done
