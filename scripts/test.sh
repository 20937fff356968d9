#!/usr/bin/env bash
# Builds and runs the whole suite. On CI (CI=true) or with VANTALO_SANITIZE=1 it runs a second
# time, built with AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."

# The quick checks first: formatting, and no folder of src/ including one that includes it back.
bash scripts/check-format.sh
python3 scripts/check-layers.py

# The uploads are tested against a real S3-compatible server that checks SigV4 signatures.
tools="$PWD/build-tools/s3rver"
if [ ! -f "$tools/node_modules/@20minutes/s3rver/lib/cli.js" ]; then
  npm install --prefix "$tools" --no-audit --no-fund --silent @20minutes/s3rver@5.0.0
fi
export VANTALO_S3RVER="$tools/node_modules/@20minutes/s3rver"

# A short pass of every fuzz target over the core library (make fuzz runs longer).
bash scripts/fuzz.sh "${VANTALO_FUZZ_SECONDS:-20}"

run_suite() {
  local dir=$1
  shift
  bash scripts/build.sh "$dir" "$@"
  (cd "$dir" && ctest --output-on-failure --parallel 2 --timeout 600)
}

if [ "${VANTALO_SANITIZE:-0}" != 1 ]; then
  bash scripts/build.sh build -DCMAKE_BUILD_TYPE=RelWithDebInfo
  # clang-tidy's checks (.clang-tidy) over every source file, with this build's compile commands.
  bash scripts/check-tidy.sh build
  run_suite build -DCMAKE_BUILD_TYPE=RelWithDebInfo
fi
if [ "${CI:-}" = true ] || [ "${VANTALO_SANITIZE:-0}" = 1 ]; then
  # libxkbcommon-x11 hands strndup a length past its string's end; the read stops at the NUL.
  export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:intercept_strndup=0"
  export LSAN_OPTIONS="suppressions=$PWD/tests/lsan.supp:print_suppressions=0"
  export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
  run_suite build-asan -DCMAKE_BUILD_TYPE=Debug -DVANTALO_SANITIZE=ON
fi
