#!/usr/bin/env bash
# Command 2: install what is missing, then build and pass the whole suite:
#   1. formatting of every C and C++ file (clang-format);
#   2. host clang build with AddressSanitizer + UndefinedBehaviorSanitizer:
#      unit tests, C header check, libFuzzer targets over their corpora
#      (two at a time),
#      the test watchdog on a test that hangs on purpose;
#      the exported symbols are checked to be the C interface only;
#   3. host clang build with ThreadSanitizer: the concurrency tests and the
#      unit tests (many run the layer's own tasks beside the test's thread);
#   4. host build with the default compiler (GCC), optimised, and every
#      test it has: the only leg where the tests run at full speed on the
#      host, and GCC's code for the host;
#   5. 32-bit ARM cross build, the tests under qemu-arm (but the watchdog
#      check);
#   6. the release preset with the default compiler (GCC), as command 1
#      builds it, and `kestro` run against known outputs;
#   7. install into a temporary prefix and build a small consumer against
#      it through the CMake package and through pkg-config.
set -euo pipefail
cd "$(dirname "$0")/.."
echo "== dependencies (started $(date -u +%T))"
scripts/deps.sh test

jobs=$(nproc)
# ctest's limit for one test program, above the programs' own watchdog
# (300 s a test), so that a hang shows its stacks before ctest stops it.
ctest_limit=1200
passed=0
failed=0
leg() {  # name, command...
  local name=$1; shift
  echo
  echo "== $name (started $(date -u +%T))"
  if "$@"; then passed=$((passed + 1)); echo "== $name: ok ($(date -u +%T))"
  else failed=$((failed + 1)); echo "== $name: FAILED ($(date -u +%T))"; fi
}

format_check() {
  git ls-files -- '*.c' '*.cpp' '*.h' '*.hpp' | xargs -r clang-format --dry-run --Werror
}

# A failed test's own lines sit in the middle of a long output; the lines
# that say what failed are gathered from ctest's log and printed again at
# the end of the run, the failed names last.
details=$(mktemp)
names=$(mktemp)
trap 'rm -f "$details" "$names"' EXIT
run_ctest() {  # build-dir [ctest args...]
  local dir=$1; shift
  ctest --test-dir "$dir" --output-on-failure --timeout "$ctest_limit" "$@" && return 0
  local log=$dir/Testing/Temporary/LastTest.log
  { echo "-- $dir"; grep -E -A7 ': Failure$' "$log" | head -40; } >>"$details" 2>&1
  { echo "-- $dir"
    grep -E '^\[  FAILED  \]|^(SUMMARY|ERROR): |WARNING: ThreadSanitizer|Timeout|Exception:' "$log" |
      sort -u | head -20; } >>"$names" 2>&1
  return 1
}

build_tree() {  # preset [targets...]
  local preset=$1; shift
  cmake --preset "$preset" >/dev/null &&
    cmake --build "build/$preset" -j "$jobs" ${1:+--target "$@"}
}

host_leg() {  # preset [ctest args...]
  local preset=$1; shift
  build_tree "$preset" && run_ctest "build/$preset" "$@"
}

exports_check() {
  # Only C functions and data leave the library: no mangled C++ symbol.
  [ -f build/asan/libkestro_lite.so ] || { echo "no library built"; return 1; }
  local bad
  bad=$(nm -D --defined-only build/asan/libkestro_lite.so | awk '{print $3}' | grep '^_Z' || true)
  if [ -n "$bad" ]; then echo "C++ symbols exported:"; echo "$bad"; return 1; fi
  echo "$(nm -D --defined-only build/asan/libkestro_lite.so | grep -c ' [TDRB] ') symbols exported, all C"
}

# The fuzzers run for a fixed time each, two at a time (one a core); the
# other tests run one at a time, as their timings expect.
asan_leg() {
  build_tree asan || return 1
  local rc=0
  run_ctest build/asan -LE fuzz || rc=1
  run_ctest build/asan -L fuzz -j "$jobs" || rc=1
  return $rc
}

tsan_leg() {
  build_tree tsan kestro_concurrency_tests kestro_tests && run_ctest build/tsan -L threads
}

# Command 1's tree: GCC, release. kestro runs in an empty directory that
# must stay empty (a command-line tool writes no files of its own).
release_leg() {
  build_tree release || return 1
  local k dir out rc=0
  k=$(pwd)/build/release/kestro
  dir=$(mktemp -d)
  expect() {  # expected-substring command...
    local want=$1; shift
    if ! out=$(cd "$dir" && "$@" 2>&1); then echo "failed: $*"; echo "$out"; rc=1; return; fi
    if ! grep -qF -- "$want" <<<"$out"; then
      echo "unexpected output of: $*"; echo "$out"; echo "(wanted: $want)"; rc=1
    fi
  }
  expect "kestro_lite version" "$k"
  expect "configuration:" "$k" status
  expect "Zm9vYmFy" "$k" base64 foobar
  expect "foo" "$k" hex -d 666f6f
  expect "MZXW6===" "$k" base32 foo
  printf 123456789 >"$dir/check.txt"
  expect "cbf43926  check.txt" "$k" crc32 check.txt
  rm -f "$dir/check.txt"
  expect "040542016F020000" "$k" sms deliver-report --mr 5 --cause 0x6F
  expect 'PING  got event "demo.done": 3 rounds' "$k" runtime demo
  expect "request: INVITE sip:vivekg@chair-dnrc.example.com" \
    "$k" sip "$(pwd)/../shared/vectors/protocols/sip/rfc4475/wsinv.dat"
  printf '[net]\nport = 5060\n' >"$dir/k.ini"
  expect "5061" sh -c "'$k' ini set k.ini net port 5061 && '$k' ini get k.ini net port"
  rm -f "$dir/k.ini"
  if [ -n "$(ls -A "$dir")" ]; then echo "kestro left files:"; ls -A "$dir"; rc=1; fi
  rm -rf "$dir"
  return $rc
}

# The release tree installed into a temporary prefix; a small consumer is
# built against it through the CMake package and through pkg-config, and
# run.
install_leg() {
  [ -f build/release/build.ninja ] || cmake --preset release >/dev/null || return 1
  cmake --build build/release -j "$jobs" || return 1
  local prefix rc=0 out
  prefix=$(mktemp -d)
  cmake --install build/release --prefix "$prefix" >/dev/null || { rm -rf "$prefix"; return 1; }
  ls "$prefix"/include/kestro_lite/kestro_lite.h "$prefix"/bin/kestro >/dev/null || rc=1
  local lib
  lib=$(dirname "$(find "$prefix" -name 'libkestro_lite.so.*.*' | head -1)")
  readelf -d "$lib/libkestro_lite.so" | grep -q 'SONAME.*libkestro_lite\.so\.1\]' ||
    { echo "no SONAME libkestro_lite.so.1"; rc=1; }
  # 1. CMake package.
  if cmake -S tests/consumer -B "$prefix/build-cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
       >/dev/null && cmake --build "$prefix/build-cmake" >/dev/null &&
     out=$(LD_LIBRARY_PATH="$lib" "$prefix/build-cmake/consumer") &&
     grep -q '^consumer: peer:5060 is 9 bytes' <<<"$out"; then
    echo "cmake package: $out"
  else echo "the consumer did not build or run through find_package"; rc=1; fi
  # 2. pkg-config.
  if out=$(PKG_CONFIG_PATH="$lib/pkgconfig" pkg-config --cflags --libs kestro_lite) &&
     cc -std=c99 -Wall -Werror -o "$prefix/consumer-pc" tests/consumer/main.c $out &&
     out=$(LD_LIBRARY_PATH="$lib" "$prefix/consumer-pc") &&
     grep -q '^consumer: peer:5060 is 9 bytes' <<<"$out"; then
    echo "pkg-config: $out"
  else echo "the consumer did not build or run through pkg-config"; rc=1; fi
  rm -rf "$prefix"
  return $rc
}

leg "format" format_check
leg "host asan+ubsan" asan_leg
leg "exports" exports_check
leg "host tsan" tsan_leg
leg "host gcc" host_leg gcc
leg "arm under qemu" host_leg arm
leg "gcc release + kestro" release_leg
leg "install and consume" install_leg

if [ -s "$names" ]; then
  echo
  echo "== what failed"
  cat "$details" "$names"
fi
echo
echo "legs: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
