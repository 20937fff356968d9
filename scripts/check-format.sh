#!/usr/bin/env bash
# Fails when a tracked C++ file differs from what clang-format makes of it.
set -euo pipefail
cd "$(dirname "$0")/.."
bad=()
while IFS= read -r file; do
  if ! clang-format --dry-run --Werror "$file" >/dev/null 2>&1; then
    bad+=("$file")
  fi
done < <(git ls-files '*.cpp' '*.h'; git ls-files --others --exclude-standard '*.cpp' '*.h')
if [ ${#bad[@]} -gt 0 ]; then
  echo "Not formatted (run 'make format'):"
  printf '  %s\n' "${bad[@]}"
  exit 1
fi
