#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each for a set time:
#   scripts/fuzz.sh [SECONDS]   (default 60; CI runs a short pass)
# Each starts from its seed corpus in fuzz/corpus/<name> (realistic inputs and every fault found so
# far); what it finds new goes to build-fuzz/corpus/<name>, a crash to build-fuzz/crashes/.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
CC=clang-16 CXX=clang++-16 bash scripts/build.sh build-fuzz -DVANTALO_FUZZ=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
export QT_LOGGING_RULES="*.debug=false"
mkdir -p build-fuzz/crashes
passed=0
failed=0
for target in history hosted_answer shortcut gif_writer; do
  mkdir -p "build-fuzz/corpus/$target"
  log="build-fuzz/fuzz_$target.log"
  dict=()
  if [ -f "fuzz/$target.dict" ]; then dict=(-dict="fuzz/$target.dict"); fi
  if build-fuzz/fuzz/fuzz_$target -max_total_time="$seconds" -print_final_stats=1 -timeout=10 "${dict[@]}" \
      -artifact_prefix="build-fuzz/crashes/${target}-" "build-fuzz/corpus/$target" "fuzz/corpus/$target" \
      >"$log" 2>&1; then
    passed=$((passed + 1))
    runs=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$log" | grep -o '[0-9]*$')
    cov=$(grep -o 'cov: [0-9]* ft: [0-9]*' "$log" | tail -1)
    echo "fuzz_$target: $runs runs in ${seconds} s, $cov, no finding"
  else
    failed=$((failed + 1))
    echo "fuzz_$target: FAILED (see $log)"
    tail -30 "$log"
  fi
done
echo "fuzzing: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
