#!/usr/bin/env bash
# Remakes docs/vantalo-flow.gif: the end-to-end flow played on Xvfb, filmed five times a second
# with ImageMagick, and encoded by Vantalo's own GIF encoder. Needs `make test` and
# `make bench-gif` (or bench-history) to have built once.
set -euo pipefail
cd "$(dirname "$0")/.."
frames=$(mktemp -d)
trap 'rm -rf "$frames"' EXIT
export VANTALO_S3RVER="$PWD/build-tools/s3rver/node_modules/@20minutes/s3rver"
tests/with-keyring.sh tests/with-xvfb.sh bash -c '
  frames=$1
  shift
  ( i=0
    while :; do
      import -window root -crop 1720x1080+200+0 +repage -resize 50% "$(printf "%s/%05d.png" "$frames" "$i")" 2>/dev/null
      i=$((i + 1))
      sleep 0.08
    done ) &
  filming=$!
  "$@"
  kill "$filming"' _ "$frames" /usr/bin/python3 tests/e2e/flow.py --binary build/src/vantalo \
  --artifacts "$frames/steps" --upload
rm -rf "$frames/steps"
build-bench/bench/vantalo-bench-gif --frames "$frames" --fps 5 --out docs/vantalo-flow.gif
ls -l docs/vantalo-flow.gif
