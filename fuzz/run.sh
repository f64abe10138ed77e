#!/usr/bin/env bash
# Runs fuzz targets, each from its checked-in corpus and from what earlier runs found: run.sh BUILD SECONDS [TARGET...]
#
# BUILD is a build directory of the preset "fuzz" with its targets built. Without a TARGET, all of them run, one after
# the other, each for SECONDS of processor time. What a target finds stands in BUILD/found; the run ends at the first
# target that found a defect. For each one a line tells its executions and the edges it has covered.
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

# Options that the target wants besides: its words, the lengths of inputs that are worth looking at, and for the reader
# of trace files a block for the largest ring, of which it touches no more than the file holds.
options() {
    [ ! -f "$fuzz/dict/$1.dict" ] || echo "-dict=$fuzz/dict/$1.dict"
    case $1 in
        skein_reader) echo -max_len=6000 -malloc_limit_mb=5000 ;;
        decode | dump) echo -max_len=4096 ;;
        *) echo -max_len=1024 ;;
    esac
}

# Runs the target until it has used so many seconds of the processor: what else the machine does takes none of them away.
run() {
    local target=$1 left=$seconds used total=0 round=0 executions=0
    mkdir -p "$found/$target"
    echo "== $target, $seconds s"
    while [ "$left" -gt 0 ]; do
        used=$(run_round "$target" "$left" "$found/$target.$round.log")
        executions=$((executions + $(figure "$found/$target.$round.log" 'stat::number_of_executed_units: *([0-9]+)')))
        total=$((total + used))
        left=$((left - used))
        round=$((round + 1))
    done
    echo "$target: $executions executions, $(figure "$found/$target.$((round - 1)).log" '^#.*DONE *cov: ([0-9]+).*') edges," \
        "$total s of processor time"
}

# Runs the target for so many seconds and prints how many of them the processor worked for it, one at least.
run_round() {
    local target=$1 log=$3 used status=0
    # shellcheck disable=SC2046  # options have no blanks
    used=$({
        TIMEFORMAT='%U %S'
        time "$build/fuzz/fuzz_$target" -max_total_time="$2" -print_final_stats=1 -timeout=60 -rss_limit_mb=4096 \
            -artifact_prefix="$found/$target-" $(options "$target") "$found/$target" "$fuzz/corpus/$target" \
            >"$log" 2>&1
    } 2>&1) || status=$?
    if [ $status -ne 0 ]; then
        tail -n 40 "$log" >&2
        die "$target found a defect, see $found"
    fi
    awk '{ used = int($1 + $2); print used < 1 ? 1 : used }' <<<"$used"
}

# The number that the expression's group finds in the last line of a log that has it.
figure() {
    local number
    number=$(sed -nE "s/$2/\1/p" "$1" | tail -n 1)
    echo "${number:?is not in $1}"
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
