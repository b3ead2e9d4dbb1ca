#!/usr/bin/env bash
# Instructions per iteration of single-thread benchmarks, counted by
# callgrind: unlike their times, these do not move with the machine's
# load, so they compare the library and its peers on a shared or virtual
# machine too. Counting covers the benchmark's function and everything it
# calls (the library, the C library, jemalloc), not the runner around it.
#
#   bench/count.sh [BUILD_DIR] NAME[=FUNCTION]...
#
# NAME is a benchmark's full name as kestro_bench prints it (for instance
# PacketDbuf/0, PacketString, HashFind_Zos/1024). FUNCTION is the function
# that holds its loop, by default the name up to its first slash; rows
# given a name of their own say it, as in
# PQueue/add_poll/kestro=SingleThread. Only rows registered with
# kbench::Counted can be counted (the counts are zeroed before each of
# the runner's trial runs, so the last, reported run is what remains);
# two-thread rows cannot. The count is over 0.2 s of the benchmark's own
# timing under valgrind, first iterations included.
set -euo pipefail

build=build/bench
if [ $# -gt 0 ] && [ -d "$1" ]; then
  build=$1
  shift
fi
[ $# -gt 0 ] || { echo "usage: $0 [BUILD_DIR] NAME..." >&2; exit 2; }
bench=$build/bench/kestro_bench
[ -x "$bench" ] || { echo "no $bench: build the bench preset first" >&2; exit 1; }
command -v valgrind >/dev/null || { echo "valgrind is needed (scripts/deps.sh bench)" >&2; exit 1; }

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

printf '%-44s %14s %12s\n' benchmark iterations instructions
for arg in "$@"; do
  name=${arg%%=*}
  fn=${name%%/*}
  [ "$arg" = "$name" ] || fn=${arg#*=}
  out=$tmp/cg.out
  # The function itself, or any instance of it when it is a template.
  valgrind --tool=callgrind --callgrind-out-file="$out" \
    --toggle-collect="*::${fn}(*" --toggle-collect="*::${fn}<*" \
    "$bench" --benchmark_filter="^${name}\$" --benchmark_min_time=0.2 \
    --benchmark_format=csv >"$tmp/run.csv" 2>"$tmp/vg.log" || {
    echo "$name: run failed, see below" >&2
    cat "$tmp/vg.log" >&2
    exit 1
  }
  iters=$(awk -F, -v n="\"$name\"" '$1 == n { print $2 }' "$tmp/run.csv")
  total=$(awk '/^summary:/ { print $2 }' "$out")
  if [ -z "$iters" ] || [ -z "$total" ] || [ "$iters" -eq 0 ]; then
    echo "$name: no such benchmark, or nothing counted" >&2
    exit 1
  fi
  printf '%-44s %14s %12d\n' "$name" "$iters" $((total / iters))
done
