#!/usr/bin/env bash
# Builds Murmex and runs its tests.
#   scripts/test.sh          release build in build/, every test
#   scripts/test.sh asan     AddressSanitizer + UndefinedBehaviorSanitizer build in build-asan/, every test
#   scripts/test.sh tsan     ThreadSanitizer build in build-tsan/, the threaded tests
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
mode=${1:-release}

"$top/scripts/setup.sh"

jobs=$(nproc 2>/dev/null || echo 2)
filter=()
# Line tables are all that the sanitizers' reports need. The engine keeps -O1
# (CMakeLists.txt); the rest builds unoptimised, which is quicker.
sanitizer_flags=(-DCMAKE_CXX_FLAGS_DEBUG="-O0 -g1" -DCMAKE_C_FLAGS_DEBUG="-O0 -g1")
case "$mode" in
  release) dir=build;      args=(-DCMAKE_BUILD_TYPE=Release) ;;
  asan)    dir=build-asan; args=(-DCMAKE_BUILD_TYPE=Debug "${sanitizer_flags[@]}" -DMURMEX_SANITIZE=address,undefined -DMURMEX_BUILD_BENCH=OFF) ;;
  tsan)    dir=build-tsan; args=(-DCMAKE_BUILD_TYPE=Debug "${sanitizer_flags[@]}" -DMURMEX_SANITIZE=thread -DMURMEX_BUILD_BENCH=OFF -DMURMEX_BUILD_APPS=ON
                                 -DMURMEX_BUILD_GIMP=OFF -DMURMEX_BUILD_PYTHON=OFF)
           # Threaded tests live in test suites whose names end in ThreadTest;
           # the command-line program's runs with signals and its progress
           # and temporary files are threaded too (the library's workers and
           # the output's writer beside the handler).
           filter=(-R 'ThreadTest\.|^CliInterrupt\.|^SafeWrite\.|^ProgressTest\.') ;;
  *) echo "usage: scripts/test.sh [release|asan|tsan]" >&2; exit 2 ;;
esac

cmake -S "$top" -B "$top/$dir" "${args[@]}" >/dev/null
cmake --build "$top/$dir" -j "$jobs"
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
export TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1}
ctest --test-dir "$top/$dir" --output-on-failure -j "$jobs" "${filter[@]}"
