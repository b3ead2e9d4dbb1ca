#!/usr/bin/env bash
# Command 1: install what is missing, build the release tree and run the
# main program. Arguments are passed to kestro.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh run
cmake --preset release >/dev/null
cmake --build build/release --target kestro -j "$(nproc)"
exec build/release/kestro "$@"
