#!/usr/bin/env bash
# Builds the WAV reader's fuzzer with clang (build dir build-fuzz) and runs it.
#   fuzz/run.sh [SECONDS]     default 30
# New inputs go to build-fuzz/corpus; fuzz/corpus holds the seeds and is only read.
# Crashing inputs land in build-fuzz/artifacts/ and the script fails.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-30}
build=build-fuzz

cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++ \
    -DLIBAUDIO_BUILD_FUZZ=ON -DLIBAUDIO_SANITIZE=address,undefined \
    -DBUILD_TESTING=OFF -DLIBAUDIO_BUILD_TOOLS=OFF -DLIBAUDIO_BUILD_BENCH=OFF >/dev/null
cmake --build "$build" -j "$(nproc)" --target wave_fuzz

mkdir -p "$build/corpus" "$build/artifacts"
log="$build/wave_fuzz.log"
status=0
LIBAUDIO_LOG=off "$build/bin/wave_fuzz" -max_total_time="$seconds" -max_len=4096 \
    -print_final_stats=1 -artifact_prefix="$build/artifacts/" \
    "$build/corpus" fuzz/corpus >"$log" 2>&1 || status=$?

executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
corpus=$(find "$build/corpus" -type f | wc -l)
echo "wave_fuzz: ${executions:-unknown} executions in ${seconds} s, corpus of ${corpus} inputs"
if [ "$status" -ne 0 ]; then
    echo "wave_fuzz failed (exit $status); the end of $log:"
    tail -n 60 "$log"
    ls "$build/artifacts"
    exit "$status"
fi
