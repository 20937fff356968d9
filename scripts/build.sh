#!/usr/bin/env bash
# Configures and builds one build tree: scripts/build.sh DIR [cmake options...]
set -euo pipefail
cd "$(dirname "$0")/.."
dir=$1
shift
cmake -S . -B "$dir" -G Ninja "$@" >/dev/null
cmake --build "$dir"
