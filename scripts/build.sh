#!/usr/bin/env bash
# Configures and builds one build tree: scripts/build.sh DIR [cmake options...]
# With VANTALO_TARGETS set (a list of target names), only those targets and what they link.
set -euo pipefail
cd "$(dirname "$0")/.."
dir=$1
shift
cmake -S . -B "$dir" -G Ninja "$@" >/dev/null
targets=()
for target in ${VANTALO_TARGETS:-}; do
  targets+=(--target "$target")
done
cmake --build "$dir" "${targets[@]}"
