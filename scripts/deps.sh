#!/usr/bin/env bash
# Installs the Debian packages a build needs, only those that are missing.
#   scripts/deps.sh run    library and program (host release build)
#   scripts/deps.sh test   everything the test command needs (host
#                          sanitizer builds, fuzzers, 32-bit ARM cross build
#                          run under qemu-arm)
#   scripts/deps.sh bench  the benchmarks and their peers
set -euo pipefail

what=${1:-test}
# The JDK: javac builds the jar of the Java classes, its jni.h compiles the
# Java binding (every leg), and the host JVM tests run its virtual machine.
run_pkgs=(cmake ninja-build g++ libjemalloc-dev openjdk-17-jdk-headless)
test_pkgs=("${run_pkgs[@]}" clang clang-format libclang-rt-14-dev googletest
           g++-arm-linux-gnueabihf qemu-user libjemalloc2:armhf binutils pkg-config
           gdb)  # the test watchdog prints a hung test's stacks through gdb
bench_pkgs=("${run_pkgs[@]}" libbenchmark-dev libssl-dev zlib1g-dev libfmt-dev libuv1-dev
            libosip2-dev valgrind)

case "$what" in
  run) pkgs=("${run_pkgs[@]}") ;;
  test) pkgs=("${test_pkgs[@]}") ;;
  bench) pkgs=("${bench_pkgs[@]}") ;;
  *) echo "usage: $0 run|test|bench" >&2; exit 2 ;;
esac

missing=()
for p in "${pkgs[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "== installing: ${missing[*]}"
sudo=""
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "need root to install: ${missing[*]}" >&2; exit 1; }
  sudo=sudo
fi
if printf '%s\n' "${missing[@]}" | grep -q ':armhf$'; then
  if ! dpkg --print-foreign-architectures | grep -qx armhf; then
    $sudo dpkg --add-architecture armhf
  fi
fi
export DEBIAN_FRONTEND=noninteractive
# A mirror that is briefly out of step makes 'update' fail on one index;
# try again before giving up, and let the install decide.
for i in 1 2 3; do
  if $sudo apt-get update -qq; then break; fi
  echo "apt-get update failed (try $i); retrying" >&2
  sleep 5
done
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
