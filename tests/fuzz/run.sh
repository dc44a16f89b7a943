#!/bin/sh
# Runs the fuzzers of a build (run.sh build/fuzz [fuzzer…]; all without one) for FUZZ_SECONDS each, from the seeds and
# from what earlier runs have kept in its folder corpus. Ends with 1 when one has found something: a crash, a leak, more
# than FUZZ_TIMEOUT seconds or FUZZ_MEMORY megabytes for one input.
set -eu
here=$(CDPATH='' cd -- "$(dirname -- "$0")" && pwd)
build=$1
shift
[ $# -ne 0 ] || set -- packet_fuzz calls_fuzz library_fuzz text_fuzz

export ASAN_OPTIONS="detect_leaks=1:detect_stack_use_after_return=1:strict_init_order=1:quarantine_size_mb=64:${ASAN_OPTIONS:-}"
export UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1:${UBSAN_OPTIONS:-}"
limits="-timeout=${FUZZ_TIMEOUT:-20} -rss_limit_mb=${FUZZ_MEMORY:-1024}"
found=''
for name in "$@"; do
    corpus=$build/corpus/$name
    finds=$build/finds/$name-
    mkdir -p "$corpus" "${finds%/*}"
    log=$corpus.log
    echo "fuzz: $name for ${FUZZ_SECONDS:-60} s"
    # shellcheck disable=SC2086
    if "$build/bin/$name" -max_total_time="${FUZZ_SECONDS:-60}" $limits -max_len=1024 -len_control=10 \
        -artifact_prefix="$finds" "$corpus" "$here/seeds/$name" >"$log" 2>&1; then
        grep '^Done' "$log"
        continue
    fi
    found="$found $name"
    grep -vE '^(#|	?NEW_FUNC|INFO:)' "$log" | tail -n 60
    input=$(sed -n 's/.*Test unit written to //p' "$log" | tail -n 1)
    echo "fuzz: $name has found something; its whole output is in $log. Again:"
    echo "  $build/bin/$name $limits ${input:-$here/seeds/$name/*}"
done
[ -z "$found" ] || { echo "fuzz: finds by$found" >&2 && exit 1; }
