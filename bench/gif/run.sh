#!/usr/bin/env bash
# make bench-gif: Vantalo's encoder against gifski and ffmpeg's two-pass palette on a corpus of
# four 1600 × 1200 clips of 150 frames, made here under Xvfb (never committed). For each encoder:
# wall and CPU time, peak memory, bytes, SSIM and PSNR of the decoded frames against the
# sources, frame count and duration; for Vantalo also the streaming tail after the last frame.
set -euo pipefail
build=$1
root=$(cd "$(dirname "$0")/../.." && pwd)
work="$build/gif-bench"
corpus="$work/corpus"
mkdir -p "$work"

# The peers: ffmpeg and GNU time from Debian, gifski's Linux binary from npm.
need=()
command -v ffmpeg >/dev/null || need+=(ffmpeg)
[ -x /usr/bin/time ] || need+=(time)
if [ ${#need[@]} -gt 0 ]; then
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${need[@]}" >/dev/null
fi
gifski="$work/node_modules/gifski/bin/debian/gifski"
if [ ! -x "$gifski" ]; then
  (cd "$work" && npm install --silent --no-audit --no-fund gifski@1.7.1 >/dev/null 2>&1)
fi

clips=(terminal web static photo)
if [ ! -f "$corpus/.done" ]; then
  echo "Making the corpus under Xvfb..."
  rm -rf "$corpus"
  xvfb-run -a -s "-screen 0 1920x1080x24 -nolisten tcp -noreset" "$build/bench/vantalo-bench-corpus" "$corpus"
  touch "$corpus/.done"
fi

# SSIM and PSNR of a GIF against its clip, the GIF resampled to the clip's 15 fps timeline.
quality() {
  ffmpeg -nostats -hide_banner -framerate 15 -i "$2/frame_%04d.png" -i "$1" -filter_complex \
    "[1:v]fps=15,format=rgb24,split[a][b];[0:v]format=rgb24,split[c][d];[a][c]ssim;[b][d]psnr" \
    -frames:v 150 -f null - 2>&1 | awk '
      /SSIM/ { for (i = 1; i <= NF; i++) if ($i ~ /^All:/) { split($i, s, ":"); ssim = s[2] } }
      /PSNR/ { for (i = 1; i <= NF; i++) if ($i ~ /^average:/) { split($i, p, ":"); psnr = p[2] } }
      END { printf "%s %s\n", ssim, psnr }'
}
# Frame count and total duration in seconds, as gifsicle reads the file.
shape() {
  gifsicle --info "$1" | awk '/images/ { n = $(NF-1) } /delay/ { for (i = 1; i <= NF; i++) if ($i == "delay") { d += $(i+1) + 0 } }
    END { printf "%d %.2f\n", n, d }'
}
timed() { # timed OUT -- command...: wall, cpu, peak MB of one command
  local out=$1; shift; shift
  /usr/bin/time -f "%e %U %S %M" -o "$out" "$@" >/dev/null 2>&1
  awk '{ printf "%.2f %.2f %.0f\n", $1, $2 + $3, $4 / 1024 }' "$out"
}

printf "\n%-9s %-8s %8s %8s %8s %10s %7s %7s %7s %7s\n" clip encoder wall_s cpu_s rss_mb bytes ssim psnr frames dur_s
for clip in "${clips[@]}"; do
  src="$corpus/$clip"
  out="$work/out/$clip"
  mkdir -p "$out"

  line=$("$build/bench/vantalo-bench-gif" --frames "$src" --fps 15 --out "$out/vantalo.gif" | tail -n 1)
  read -r wall cpu rss bytes < <(echo "$line" | sed -E 's/.*wall_s=([^ ]+) cpu_s=([^ ]+) peak_rss_mb=([^ ]+) frames=[^ ]+ bytes=([^ ]+).*/\1 \2 \3 \4/')
  read -r ssim psnr < <(quality "$out/vantalo.gif" "$src")
  read -r frames dur < <(shape "$out/vantalo.gif")
  printf "%-9s %-8s %8s %8s %8s %10s %7s %7s %7s %7s\n" "$clip" vantalo "$wall" "$cpu" "$rss" "$bytes" "$ssim" "$psnr" "$frames" "$dur"

  read -r wall cpu rss < <(timed "$out/gifski.time" -- "$gifski" --quiet --fps 15 -W 1600 -H 1200 -o "$out/gifski.gif" "$src"/frame_*.png)
  read -r ssim psnr < <(quality "$out/gifski.gif" "$src")
  read -r frames dur < <(shape "$out/gifski.gif")
  printf "%-9s %-8s %8s %8s %8s %10s %7s %7s %7s %7s\n" "$clip" gifski "$wall" "$cpu" "$rss" "$(stat -c %s "$out/gifski.gif")" "$ssim" "$psnr" "$frames" "$dur"

  read -r wall1 cpu1 rss1 < <(timed "$out/pal.time" -- ffmpeg -y -framerate 15 -i "$src/frame_%04d.png" -vf palettegen "$out/palette.png")
  read -r wall2 cpu2 rss2 < <(timed "$out/use.time" -- ffmpeg -y -framerate 15 -i "$src/frame_%04d.png" -i "$out/palette.png" -lavfi paletteuse "$out/ffmpeg.gif")
  read -r ssim psnr < <(quality "$out/ffmpeg.gif" "$src")
  read -r frames dur < <(shape "$out/ffmpeg.gif")
  printf "%-9s %-8s %8.2f %8.2f %8s %10s %7s %7s %7s %7s\n" "$clip" ffmpeg "$(echo "$wall1 + $wall2" | bc)" "$(echo "$cpu1 + $cpu2" | bc)" \
    "$((rss1 > rss2 ? rss1 : rss2))" "$(stat -c %s "$out/ffmpeg.gif")" "$ssim" "$psnr" "$frames" "$dur"

  tail_line=$("$build/bench/vantalo-bench-gif" --frames "$src" --fps 15 --out "$out/stream.gif" --stream | grep '^stream')
  printf "%-9s %-8s %s\n" "$clip" stream "$tail_line"
done
