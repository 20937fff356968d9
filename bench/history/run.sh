#!/usr/bin/env bash
# make bench-history: the history window opened on 10, 100 and 1,000 GIFs, against the naive
# window (a QLabel playing a QMovie per GIF), each in its own process under its own Xvfb.
set -euo pipefail
build=$1
binary="$build/bench/vantalo-bench-history"
if [ -z "${XDG_RUNTIME_DIR:-}" ]; then
  XDG_RUNTIME_DIR=$(mktemp -d)
  export XDG_RUNTIME_DIR
fi
run() { xvfb-run -a -s "-screen 0 1920x1080x24 -nolisten tcp -noreset" "$binary" "$@"; }
for n in 10 100 1000; do
  run --items "$n"
  run --items "$n" --peer
done
