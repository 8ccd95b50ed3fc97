#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (AddressSanitizer and
# UndefinedBehaviorSanitizer) into build-fuzz/ and runs each for the given
# number of seconds (default 60), as many at once as there are processors,
# starting from a seed corpus that the engine's writers produce. Exits
# non-zero when a target finds a crash, a leak, undefined behaviour, an
# allocation over the limit or a timeout.
#   scripts/fuzz.sh [seconds]
# FUZZ_TARGETS="name ..." runs only the named targets.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-60}
dir="$top/build-fuzz"
jobs=$(nproc 2>/dev/null || echo 2)

cmake -S "$top/fuzz" -B "$dir" -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$dir" -j "$jobs"

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}

seeds="$dir/seeds"
rm -rf "$seeds"
mkdir -p "$seeds/profile_load_fuzzer" "$seeds/filter_settings_fuzzer"
"$dir/make_seeds" "$seeds/profile_load_fuzzer" "$seeds/filter_settings_fuzzer"

# Profile files seed the hosts' header reader too.
cp -r "$seeds/profile_load_fuzzer" "$seeds/profile_header_fuzzer"
mkdir -p "$seeds/image_reader_fuzzer"
"$dir/make_image_seeds" "$seeds/image_reader_fuzzer"

# One target per processor at a time, each into its own log; the logs are
# shown in order once all have ended.
logs="$dir/logs"
rm -rf "$logs"
mkdir -p "$logs"
fuzz() {
  local target=$1
  local corpus="$dir/corpus/$target" artifacts="$dir/artifacts/$target/"
  mkdir -p "$corpus" "$artifacts"
  echo "== $target: ${seconds}s"
  if ! "$dir/$target" "$corpus" "$seeds/$target" \
      -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -malloc_limit_mb=256 \
      -max_len=65536 -artifact_prefix="$artifacts" -print_final_stats=1; then
    echo "== $target: finding, see $artifacts"
    touch "$logs/$target.found"
  fi
}

targets=${FUZZ_TARGETS:-"profile_load_fuzzer filter_settings_fuzzer profile_header_fuzzer image_reader_fuzzer"}
for target in $targets; do
  while [ "$(jobs -rp | wc -l)" -ge "$jobs" ]; do
    wait -n || true
  done
  fuzz "$target" > "$logs/$target.log" 2>&1 &
done
wait

status=0
for target in $targets; do
  cat "$logs/$target.log"
  if [ -e "$logs/$target.found" ]; then
    echo "== $target: finding, see $dir/artifacts/$target/" >&2
    status=1
  fi
done
exit $status
