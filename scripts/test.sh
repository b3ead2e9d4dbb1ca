#!/usr/bin/env bash
# Command 2: install what is missing, then build and pass the whole suite:
#   1. formatting of every C and C++ file (clang-format);
#   2. host clang build with AddressSanitizer + UndefinedBehaviorSanitizer:
#      unit tests, C header check, libFuzzer targets over their corpora;
#      the exported symbols are checked to be the C interface only;
#   3. host clang build with ThreadSanitizer: the concurrency tests;
#   4. 32-bit ARM cross build, every test under qemu-arm.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh test

jobs=$(nproc)
passed=0
failed=0
leg() {  # name, command...
  local name=$1; shift
  echo
  echo "== $name"
  if "$@"; then passed=$((passed + 1)); echo "== $name: ok"
  else failed=$((failed + 1)); echo "== $name: FAILED"; fi
}

format_check() {
  git ls-files -- '*.c' '*.cpp' '*.h' '*.hpp' | xargs -r clang-format --dry-run --Werror
}

host_leg() {  # preset [ctest args...]
  local preset=$1; shift
  cmake --preset "$preset" >/dev/null &&
    cmake --build "build/$preset" -j "$jobs" &&
    ctest --test-dir "build/$preset" --output-on-failure "$@"
}

exports_check() {
  # Only C functions and data leave the library: no mangled C++ symbol.
  [ -f build/asan/libkestro_lite.so ] || { echo "no library built"; return 1; }
  local bad
  bad=$(nm -D --defined-only build/asan/libkestro_lite.so | awk '{print $3}' | grep '^_Z' || true)
  if [ -n "$bad" ]; then echo "C++ symbols exported:"; echo "$bad"; return 1; fi
  echo "$(nm -D --defined-only build/asan/libkestro_lite.so | grep -c ' [TDRB] ') symbols exported, all C"
}

tsan_leg() {
  cmake --preset tsan >/dev/null &&
    cmake --build build/tsan -j "$jobs" --target kestro_concurrency_tests &&
    ctest --test-dir build/tsan --output-on-failure -L concurrency
}

leg "format" format_check
leg "host asan+ubsan" host_leg asan
leg "exports" exports_check
leg "host tsan" tsan_leg
leg "arm under qemu" host_leg arm

echo
echo "legs: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
