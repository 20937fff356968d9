#!/usr/bin/env bash
# make bench-capture: the recorder at 800 × 600, on a whole 1920 × 1080 screen, and on a static
# region, each for BENCH_SECONDS (default 30) under its own Xvfb unless a display is given; the
# whole screen once more with two busy loops a core beside it; then
# through the screen-cast portal of a GNOME Wayland desktop (mutter headless, 1280 × 720) at
# 800 × 600 and on its whole monitor.
set -euo pipefail
build=$1
binary="$build/bench/vantalo-bench-capture"
seconds=${BENCH_SECONDS:-30}
export VANTALO_CAPTURE=xshm # the portal runs below say otherwise
run() {
  if [ -n "${DISPLAY:-}" ] && [ -z "${BENCH_OWN_XVFB:-}" ]; then
    "$binary" "$@"
  else
    xvfb-run -a -s "-screen 0 1920x1080x24 -nolisten tcp -noreset" "$binary" "$@"
  fi
}
run --seconds "$seconds" --size 800x600
run --seconds "$seconds" --size screen
run --seconds "$seconds" --size 800x600 --static
# As the application records: frames go to the GIF encoder as they come and are not kept.
run --seconds "$seconds" --size 800x600 --encode
# The same with clicks and keys shown while xdotool clicks and types 10 times a second: the
# capture thread's ms per picture (cpu_ms_per_picture) beside the line above.
run --seconds "$seconds" --size 800x600 --encode --input
run --seconds "$seconds" --size screen --encode
# The same on a busy machine: two busy loops a core beside the recording. The GIF still lasts as
# long as the recording (gif_seconds against seconds); what gives is how many new pictures it has.
loaded() {
  local loops=() status=0
  for _ in $(seq $((2 * $(nproc)))); do
    bash -c 'while :; do :; done' &
    loops+=($!)
  done
  "$@" || status=$?
  kill "${loops[@]}"
  wait "${loops[@]}" 2>/dev/null || true
  return $status
}
echo "loaded: $((2 * $(nproc))) busy loops"
loaded run --seconds "$seconds" --size screen --encode
# Through the portal: a native Wayland window animates full screen in a process of its own.
portal() {
  VANTALO_CAPTURE=portal "$(dirname "$0")/../../tests/wayland/with-mutter.sh" "$binary" "$@" 2>/dev/null | grep -v "^$"
}
portal --seconds "$seconds" --size 800x600
portal --seconds "$seconds" --size 800x600 --encode
portal --seconds "$seconds" --size screen --encode
