#!/usr/bin/env bash
# Builds and runs one benchmark: scripts/bench.sh NAME (its runner is bench/NAME/run.sh).
set -euo pipefail
cd "$(dirname "$0")/.."
name=$1
if [ ! -x "bench/$name/run.sh" ]; then
  echo "No benchmark named '$name' (have: $(ls bench | grep -v CMakeLists | tr '\n' ' '))" >&2
  exit 2
fi
bash scripts/build.sh build-bench -DCMAKE_BUILD_TYPE=Release
exec "bench/$name/run.sh" "$PWD/build-bench"
