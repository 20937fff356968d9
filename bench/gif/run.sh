#!/usr/bin/env bash
# make bench-gif: Vantalo's encoder against gifski and ffmpeg's two-pass palette on a corpus of
# four 1600 × 1200 clips of 150 frames and one of 450 (30 s of a scrolled page), made here under
# Xvfb (never committed). For each encoder: wall and CPU time, peak memory, bytes, SSIM and PSNR of
# the decoded frames against the sources, frame count and duration; for Vantalo also the
# streaming tail after the last frame. Then the size–quality frontier (Vantalo's scale and lossy
# levels beside gifski's quality levels and gifsicle's lossy levels on Vantalo's GIF), and fits of
# the 30 s clip under 10, 5 and 2 MB. BENCH_CLIPS="web web30" runs only those clips.
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

clips=(${BENCH_CLIPS:-terminal web static photo web30})
if [ ! -f "$corpus/.done" ]; then
  echo "Making the corpus under Xvfb..."
  rm -rf "$corpus"
  xvfb-run -a -s "-screen 0 1920x1080x24 -nolisten tcp -noreset" "$build/bench/vantalo-bench-corpus" "$corpus"
  touch "$corpus/.done"
fi

# SSIM and PSNR of a GIF against its clip, the GIF resampled to the clip's 15 fps timeline. With a
# third argument "capture", both are compared at the captured size: the clip's frames (pixel
# doubles) halved exactly, the GIF brought to that size (a 2× GIF halved, a 1× GIF as it is).
quality() {
  local frames filter_src="format=rgb24" filter_gif="fps=15,format=rgb24"
  frames=$(ls "$2" | grep -c '^frame_')
  if [ "${3:-}" = capture ]; then
    filter_src="scale=iw/2:ih/2:flags=neighbor,format=rgb24"
    filter_gif="fps=15,scale=800:600:flags=neighbor,format=rgb24"
  fi
  ffmpeg -nostats -hide_banner -framerate 15 -i "$2/frame_%04d.png" -i "$1" -filter_complex \
    "[1:v]$filter_gif,split[a][b];[0:v]$filter_src,split[c][d];[a][c]ssim;[b][d]psnr" \
    -frames:v "$frames" -f null - 2>&1 | awk '
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

# The size–quality frontier at the captured size: Vantalo rewriting its own GIF at 2× and 1× with
# lossy levels, gifski from the frames at 1× and 2×, gifsicle's lossy levels on Vantalo's GIF.
printf "\n%-9s %-24s %10s %7s %8s\n" clip settings bytes ssim wall_s
for clip in "${clips[@]}"; do
  src="$corpus/$clip"
  out="$work/out/$clip"
  for scale in 2 1; do
    for level in 0 20 40 60 80; do
      read -r wall cpu rss < <(timed "$out/v.time" -- "$build/src/vantalo" --scale $scale --lossy $level "$out/vantalo.gif" -o "$out/v-$scale-$level.gif")
      read -r ssim psnr < <(quality "$out/v-$scale-$level.gif" "$src" capture)
      printf "%-9s %-24s %10s %7s %8s\n" "$clip" "vantalo ${scale}x lossy $level" "$(stat -c %s "$out/v-$scale-$level.gif")" "$ssim" "$wall"
    done
    for q in 90 70 50; do
      read -r wall cpu rss < <(timed "$out/g.time" -- "$gifski" --quiet --fps 15 -Q $q -W $((800 * scale)) -H $((600 * scale)) -o "$out/g-$scale-$q.gif" "$src"/frame_*.png)
      read -r ssim psnr < <(quality "$out/g-$scale-$q.gif" "$src" capture)
      printf "%-9s %-24s %10s %7s %8s\n" "$clip" "gifski ${scale}x -Q $q" "$(stat -c %s "$out/g-$scale-$q.gif")" "$ssim" "$wall"
    done
  done
  for lossy in 30 80; do
    read -r wall cpu rss < <(timed "$out/s.time" -- gifsicle -O3 --lossy=$lossy "$out/vantalo.gif" -o "$out/s-$lossy.gif")
    read -r ssim psnr < <(quality "$out/s-$lossy.gif" "$src" capture)
    printf "%-9s %-24s %10s %7s %8s\n" "$clip" "gifsicle -O3 --lossy=$lossy" "$(stat -c %s "$out/s-$lossy.gif")" "$ssim" "$wall"
  done
done

# Fits of the 30 s clip, against one gifski encode of it at 2× (-Q 90).
if [ -f "$corpus/web30/frame_0450.png" ] && [ -f "$work/out/web30/vantalo.gif" ]; then
  out="$work/out/web30"
  read -r gwall gcpu grss < <(timed "$out/g.time" -- "$gifski" --quiet --fps 15 -Q 90 -W 1600 -H 1200 -o "$out/gifski-once.gif" "$corpus/web30"/frame_*.png)
  printf "\nweb30: Vantalo's GIF %s bytes; one gifski encode %s s\n" "$(stat -c %s "$out/vantalo.gif")" "$gwall"
  printf "%-8s %10s %7s %8s %8s %7s  %s\n" budget bytes ssim wall_s rss_mb vs_gif settings
  for budget in 10MB 5MB 2MB; do
    read -r wall cpu rss < <(timed "$out/fit.time" -- "$build/src/vantalo" --fit $budget "$out/vantalo.gif" -o "$out/fit-$budget.gif")
    settings=$("$build/src/vantalo" --fit $budget "$out/vantalo.gif" -o "$out/fit-$budget.gif" | sed -E 's/.*\((.*)\).*/\1/')
    read -r ssim psnr < <(quality "$out/fit-$budget.gif" "$corpus/web30" capture)
    printf "%-8s %10s %7s %8s %8s %7.3f  %s\n" "$budget" "$(stat -c %s "$out/fit-$budget.gif")" "$ssim" "$wall" "$rss" \
      "$(echo "$wall / $gwall" | bc -l)" "$settings"
  done
fi
