#!/usr/bin/env bash
# The GIMP plug-in's cost beyond the engine at 24 megapixels: GIMP
# (headless, in a throw-away profile) denoises a 6000 x 4000 16-bit photo
# through plug-in-murmex-denoise, and the plug-in reports how long it spent
# reading the drawable's GEGL buffer, in the engine, and writing the shadow
# buffer and merging it. The overhead is the reading plus the writing.
#   bench/gimp-overhead.sh [BUILD_DIR]     default: build/
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$top/build}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The demo scene at 6000 x 4000 with camera-like noise, and its profile.
"$build/apps/murmex" demo --width 6000 --height 4000 --out-dir "$work/demo" -q >/dev/null
plugins=$(pkg-config --variable=gimplibdir gimp-2.0)/plug-ins
mkdir -p "$work/home" "$work/tmp"
echo "(plug-in-path \"$plugins/script-fu:$plugins/file-tiff:$build/apps/gimp/plug-ins\")" >"$work/gimprc"
echo "input: 6000 x 4000 16-bit RGB TIFF; $(nproc) processors"
env HOME="$work/home" XDG_CACHE_HOME="$work/home/.cache" XDG_CONFIG_HOME="$work/home/.config" \
  XDG_DATA_HOME="$work/home/.local/share" TMPDIR="$work/tmp" GIMP2_DIRECTORY="$work/profile" \
  MURMEX_PROFILES="$work/library" MURMEX_GIMP_TIMES=1 \
  timeout 900 gimp-console-2.10 -i --gimprc="$work/gimprc" \
  -b "(let* ((img (car (gimp-file-load 1 \"$work/demo/noisy.tif\" \"noisy.tif\")))) (plug-in-murmex-denoise 1 img (car (gimp-image-get-active-drawable img)) \"$work/demo/demo.dnp\" 10 10 10 10 10 10 0 1.7 1 0 0))" \
  -b '(gimp-quit 0)' >"$work/log" 2>&1
grep -q "batch command executed successfully" "$work/log" || { cat "$work/log"; exit 1; }
line=$(grep "^murmex: " "$work/log" | sed 's/^murmex: //')
echo "$line"
read -r reading engine writing < <(echo "$line" |
  sed -E 's/.*reading ([0-9.]+) s, engine ([0-9.]+) s, writing and merging ([0-9.]+) s.*/\1 \2 \3/')
awk -v r="$reading" -v w="$writing" 'BEGIN { printf "plug-in overhead (reading + writing and merging): %.3f s\n", r + w }'
