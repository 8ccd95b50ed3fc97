#!/usr/bin/env bash
# SHA-256 of the engine's outputs, to show that a change meant only for speed
# changes no output bit.
#   scripts/output-hashes.sh [BUILD_DIR]              print "hash  name" lines
#   scripts/output-hashes.sh --check FILE [BUILD_DIR] compare with FILE (an earlier
#                                                     listing); exit 1 on any difference
# The listing covers
# - murmex_output_dump (tests/tools/output_dump.cpp): the driver tests' scenes
#   and the demo scene through the entry points, on the scalar path and each
#   vector path the processor offers, with 0, 1, 2 and 8 workers, turbo off
#   and on;
# - the program as a user runs it: `murmex demo` with 0, 1, 2 and 8 workers
#   (its denoised image and profile), and `murmex denoise --turbo` of the
#   demo's noisy image with its profile. Its TIFF files are hashed
#   uncompressed in strips of one row (tiffcp -c none -r 1): the pixels and
#   tags count, not how the deflate stream happened to be coded and cut.
# A machine without some vector path lists fewer lines; --check reports
# those as missing, not as changed.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
check=
if [ "${1:-}" = "--check" ]; then
  check=$2
  shift 2
fi
build=${1:-$top/build}
if [ ! -x "$build/tests/murmex_output_dump" ] || [ ! -x "$build/apps/murmex" ]; then
  cmake -S "$top" -B "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null
  cmake --build "$build" -j2 --target murmex_output_dump murmex_cli >/dev/null
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The library prints its tile reports on standard output.
"$build/tests/murmex_output_dump" "$work/engine" >/dev/null

murmex=$build/apps/murmex
for j in 0 1 2 8; do
  "$murmex" demo --out-dir "$work/demo-j$j" -j "$j" -q >/dev/null
  cp "$work/demo-j$j/denoised.tif" "$work/engine/cli.demo.j$j.denoised.tif"
  cp "$work/demo-j$j/demo.dnp" "$work/engine/cli.demo.j$j.dnp"
  "$murmex" denoise "$work/demo-j0/noisy.tif" --profile "$work/demo-j0/demo.dnp" --turbo -j "$j" \
    -o "$work/engine/cli.denoise.turbo.j$j.tif" -q >/dev/null
done

for f in "$work"/engine/cli.*.tif; do
  tiffcp -c none -r 1 "$f" "$f.plain" && mv "$f.plain" "$f"
done

listing=$work/listing
(cd "$work/engine" && sha256sum -- * | LC_ALL=C sort -k2) >"$listing"

if [ -z "$check" ]; then
  cat "$listing"
  exit 0
fi
status=0
changed=$(LC_ALL=C join -j 2 <(LC_ALL=C sort -k2 "$check") "$listing" | awk '$2 != $3 { print $1 }')
missing=$(LC_ALL=C join -v 1 -j 2 <(LC_ALL=C sort -k2 "$check") "$listing" | awk '{ print $1 }')
added=$(LC_ALL=C join -v 2 -j 2 <(LC_ALL=C sort -k2 "$check") "$listing" | awk '{ print $1 }')
same=$(LC_ALL=C join -j 2 <(LC_ALL=C sort -k2 "$check") "$listing" | awk '$2 == $3' | wc -l)
echo "unchanged: $same"
if [ -n "$changed" ]; then
  echo "CHANGED:"; echo "$changed"; status=1
fi
if [ -n "$missing" ]; then
  echo "missing here (not run on this machine):"; echo "$missing"
fi
if [ -n "$added" ]; then
  echo "not in $check:"; echo "$added"
fi
exit $status
