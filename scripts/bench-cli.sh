#!/usr/bin/env bash
# Times `murmex denoise` on a 12-megapixel photo, the size of a typical
# camera photo, the way a user runs it (reading, denoising and writing the
# file included): 16-bit TIFF, 16-bit PNG and 8-bit JPEG in and out with a
# profile file, TIFF written uncompressed (what is left beside the engine
# once deflate is out of the way), and TIFF measuring its own profile and
# with the automatic settings. Each line gives the elapsed time, the peak resident size and the
# output's size. Beside them the floors: the engine alone on the image in
# memory (bench/engine_alone.c, when built), and copying the same TIFF with
# tiffcp (decoding, and decoding plus deflate at the program's level) and cp.
#   scripts/bench-cli.sh [BUILD_DIR]     default: build/ (built when murmex is missing)
# Extra options for denoise can be passed in MURMEX_BENCH_OPTIONS, e.g. "--threads 1".
# On a machine shared with other work the times are upper bounds. On a
# virtual machine the last column says how much of the processors' time the
# host took for other guests ("steal") while the line ran: where it is more
# than a few percent, the elapsed times say more about the host than about
# the program.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$top/build}
murmex=$build/apps/murmex
if [ ! -x "$murmex" ]; then
  cmake -S "$top" -B "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null
  cmake --build "$build" -j"$(nproc 2>/dev/null || echo 2)" --target murmex_cli
fi
for tool in /usr/bin/time tiffcp python3; do
  command -v "$tool" >/dev/null || { echo "bench-cli: $tool is missing (scripts/setup.sh installs it)" >&2; exit 1; }
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The demo scene at 4240 x 2832 (12.0 megapixels) with camera-like noise,
# written as a 16-bit TIFF, and the profile measured from it; the same
# pixels as a 16-bit PNG, an 8-bit JPEG and raw 16-bit RGB.
"$murmex" demo --width 4240 --height 2832 --out-dir "$work" -q >/dev/null
/usr/bin/python3 - "$work" <<'EOF'
import struct, sys, zlib
import numpy as np, tifffile
from PIL import Image
work = sys.argv[1]
rgb = tifffile.imread(f"{work}/noisy.tif")
h, w, _ = rgb.shape
rgb.astype("<u2").tofile(f"{work}/noisy.rgb16")
def chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))
rows = np.zeros((h, 1 + w * 6), np.uint8)
rows[:, 1:] = rgb.astype(">u2").reshape(h, -1).view(np.uint8)
with open(f"{work}/noisy.png", "wb") as f:
    f.write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", w, h, 16, 2, 0, 0, 0)) +
            chunk(b"IDAT", zlib.compress(rows.tobytes(), 3)) + chunk(b"IEND", b""))
Image.fromarray(((rgb.astype(np.uint32) + 128) // 257).astype(np.uint8)).save(f"{work}/noisy.jpg", quality=92)
EOF
echo "input: 4240 x 2832 demo scene with noise (12.0 megapixels); $(nproc) processors"
printf '%-52s %8s %9s %10s %6s\n' "" "elapsed" "peak RSS" "output" "steal"

# The processors' stolen and total ticks so far (the first line of /proc/stat).
ticks() {
  awk '/^cpu / { total = 0; for (i = 2; i <= 9; ++i) total += $i; print $9, total; exit }' /proc/stat
}
# The share of the ticks since "$1" (a ticks line) that the host took.
steal_since() {
  local before=$1 s0 t0 s1 t1
  read -r s0 t0 <<<"$before"
  read -r s1 t1 <<<"$(ticks)"
  awk -v s="$((s1 - s0))" -v t="$((t1 - t0))" 'BEGIN { printf "%.0f%%", (t > 0 ? 100 * s / t : 0) }'
}

# Runs a command quietly and prints its line: label, seconds, peak resident
# megabytes and the size of the output file (when one is named).
run() {
  local label=$1 output=$2
  shift 2
  local start
  start=$(ticks)
  /usr/bin/time -f '%e %M' -o "$work/time" "$@" >/dev/null 2>"$work/err" || { cat "$work/err" >&2; exit 1; }
  local steal
  steal=$(steal_since "$start")
  read -r elapsed kb <"$work/time"
  local size=""
  [ -n "$output" ] && size=$(awk -v b="$(stat -c %s "$output")" 'BEGIN { printf "%.1f MB", b / 1e6 }')
  printf '%-52s %7.2fs %6.0f MB %10s %6s\n' "$label" "$elapsed" "$((kb / 1024))" "$size" "$steal"
}

if [ -x "$build/bench/murmex_engine_alone" ]; then
  # shellcheck disable=SC2086
  # The best of three runs: elapsed and processor seconds.
  start=$(ticks)
  if "$build/bench/murmex_engine_alone" "$work/noisy.rgb16" 4240 2832 "$work/demo.dnp" 2 3 >"$work/alone" 2>/dev/null; then
    sort -n "$work/alone" | head -1 | {
      read -r elapsed cpu
      printf '%-52s %7.2fs %17s %10s %6s\n' "engine alone, 2 workers, image in memory" "$elapsed" "(cpu $cpu s)" "" \
        "$(steal_since "$start")"
    }
  fi
fi
run "floor: cp of the TIFF" "$work/cp.tif" cp "$work/noisy.tif" "$work/cp.tif"
run "floor: tiffcp, decoding only" "$work/none.tif" tiffcp -c none "$work/noisy.tif" "$work/none.tif"
run "floor: tiffcp, decoding and deflate level 1" "$work/zip.tif" tiffcp -c zip:2:p1 "$work/noisy.tif" "$work/zip.tif"
for ext in tif png jpg; do
  # shellcheck disable=SC2086
  run "denoise $ext -> $ext with a profile file" "$work/out.$ext" \
    "$murmex" denoise "$work/noisy.$ext" --profile "$work/demo.dnp" -o "$work/out.$ext" -q ${MURMEX_BENCH_OPTIONS:-}
done
# shellcheck disable=SC2086
run "denoise tif -> tif with a profile, no compression" "$work/plain.tif" \
  "$murmex" denoise "$work/noisy.tif" --profile "$work/demo.dnp" --compression none -o "$work/plain.tif" -q ${MURMEX_BENCH_OPTIONS:-}
# shellcheck disable=SC2086
run "denoise tif -> tif measuring the profile itself" "$work/own.tif" \
  "$murmex" denoise "$work/noisy.tif" -o "$work/own.tif" -q --library "$work/no-library" ${MURMEX_BENCH_OPTIONS:-}
# shellcheck disable=SC2086
run "denoise tif -> tif with a profile, automatic settings" "$work/auto.tif" \
  "$murmex" denoise "$work/noisy.tif" --profile "$work/demo.dnp" --settings auto -o "$work/auto.tif" -q ${MURMEX_BENCH_OPTIONS:-}
