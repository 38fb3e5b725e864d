#!/usr/bin/env bash
# Fuzzes each target for a while from its own corpus: scripts/fuzz.sh [seconds] (default: 60).
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/need.sh
need clang libclang-rt-14-dev cmake ninja-build

cmake --preset fuzz -G Ninja
cmake --build --preset fuzz
for target in command config device; do
  found=build/fuzz/found-$target
  mkdir -p "$found"
  echo "== $target"
  # What the targets print is not looked at; reports of the sanitizers go to files of their own.
  ASAN_OPTIONS=log_path=build/fuzz/$target.report UBSAN_OPTIONS=log_path=build/fuzz/$target.report \
    build/fuzz/fuzz/${target}_fuzz -max_total_time="${1:-60}" -timeout=10 -max_len=65536 \
    -close_fd_mask=3 -print_final_stats=1 -artifact_prefix="$found/" \
    "$found" fuzz/corpus/$target 2>build/fuzz/$target.log || {
    tail -n 40 build/fuzz/$target.log build/fuzz/$target.report*
    exit 1
  }
  grep -E '^stat::(number_of_executed_units|peak_rss_mb)' build/fuzz/$target.log
done
