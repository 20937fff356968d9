#!/usr/bin/env bash
# Runs the checks of .clang-tidy over every source file of src/ (with the compile commands of the
# build directory given, default build), one file a core; fails on any finding.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
# clang 16 knows C++23 as c++2b; libstdc++ 12 offers <expected> only to compilers that report C++20
# concepts in full, which clang 16 implements but does not report.
extra=(--extra-arg=-std=c++2b --extra-arg=-Wno-macro-redefined --extra-arg=-D__cpp_concepts=202002L
       --extra-arg=-Wno-unknown-warning-option)
files=$(git ls-files 'src/*.cpp')
out=$(mktemp)
trap 'rm -f "$out"' EXIT
printf '%s\n' $files | xargs -P "$(nproc)" -n 4 clang-tidy-16 -p "$build" --quiet "${extra[@]}" \
  >"$out" 2>/dev/null || true
if grep -q ': warning: \|: error: ' "$out"; then
  echo "clang-tidy:"
  grep -A3 ': warning: \|: error: ' "$out"
  exit 1
fi
