#!/usr/bin/env bash
# Runs every fuzz target of a build folder for a set time each, starting
# from its seeds in corpus/<name> and with <name>.dict when there is one.
# New inputs go to a scratch folder; failing ones to
# <build>/fuzz-artifacts/<name>/. Fails when any target fails.
# usage: run-fuzz.sh BUILD_DIR [SECONDS]
set -uo pipefail
build=$1
seconds=${2:-60}
here=$(cd "$(dirname "$0")" && pwd)
scratch=$(mktemp -d "${TMPDIR:-/tmp}/corvane-fuzz-run.XXXXXX")
trap 'rm -rf "$scratch"' EXIT

export TMPDIR=$scratch  # the targets make their private HOME and log here
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

status=0
summary=""
for bin in "$build"/tests/fuzz/*_fuzz; do
    name=$(basename "$bin" _fuzz)
    seeds=$here/corpus/$name
    artifacts=$build/fuzz-artifacts/$name
    mkdir -p "$scratch/$name" "$artifacts"
    log=$build/fuzz-artifacts/$name.log
    dict=()
    [ -f "$here/$name.dict" ] && dict=(-dict="$here/$name.dict")
    echo "=== $name: ${seconds}s"
    "$bin" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -max_len=8192 -print_final_stats=1 \
        "${dict[@]}" -artifact_prefix="$artifacts/" "$scratch/$name" "$seeds" >"$log" 2>&1
    rc=$?
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    if [ $rc -ne 0 ]; then
        status=1
        grep -E '^(==[0-9]+==ERROR|SUMMARY|.*runtime error)' "$log" | head -5
        echo "    FAILED (exit $rc), log: $log, inputs: $artifacts"
    fi
    summary+=$(printf '%-12s %10s runs  %s' "$name" "${runs:-?}" "$([ $rc -eq 0 ] && echo ok || echo FAILED)")$'\n'
done
echo "=== fuzz summary (${seconds}s each)"
printf '%s' "$summary"
exit $status
