#!/usr/bin/env bash
# Times `murmex denoise` on a 12-megapixel 16-bit TIFF, the size of a
# typical camera photo, the way a user runs it (reading, denoising and
# writing the file included), with the default and with the automatic
# settings.
#   scripts/bench-cli.sh [BUILD_DIR]     default: build/ (built when murmex is missing)
# Extra options for denoise can be passed in MURMEX_BENCH_OPTIONS, e.g. "--threads 1".
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$top/build}
murmex=$build/apps/murmex
if [ ! -x "$murmex" ]; then
  cmake -S "$top" -B "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null
  cmake --build "$build" -j"$(nproc 2>/dev/null || echo 2)" --target murmex_cli
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The demo scene at 4240 x 2832 (12.0 megapixels) with camera-like noise,
# written as a 16-bit TIFF, and the profile measured from it.
"$murmex" demo --width 4240 --height 2832 --out-dir "$work" -q >/dev/null
echo "input: $work/noisy.tif, 4240 x 2832, 16-bit RGB TIFF; $(nproc) processors"

seconds() {
  local start end
  start=$(date +%s.%N)
  "$@"
  end=$(date +%s.%N)
  awk -v s="$start" -v e="$end" 'BEGIN { printf "%.2f", e - s }'
}

# shellcheck disable=SC2086
t=$(seconds "$murmex" denoise "$work/noisy.tif" --profile "$work/demo.dnp" -o "$work/out1.tif" -q ${MURMEX_BENCH_OPTIONS:-})
echo "denoise with a profile file:          $t s"
# shellcheck disable=SC2086
t=$(seconds "$murmex" denoise "$work/noisy.tif" -o "$work/out2.tif" -q --library "$work/no-library" ${MURMEX_BENCH_OPTIONS:-})
echo "denoise measuring the profile itself: $t s"
# shellcheck disable=SC2086
t=$(seconds "$murmex" denoise "$work/noisy.tif" --profile "$work/demo.dnp" --settings auto -o "$work/out3.tif" -q ${MURMEX_BENCH_OPTIONS:-})
echo "denoise with a profile file, automatic settings: $t s"
