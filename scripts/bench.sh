#!/usr/bin/env bash
# Builds the benchmarks in release mode and runs them. Each figure is a ratio against the system's
# own means in the same run, or a figure whose growth counts.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/need.sh
need g++ cmake ninja-build libbenchmark-dev fio fuse3 libfuse3-dev pkg-config python3 time \
  ansible-core

cmake -S . -B build/bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DMOX_BUILD_BENCHMARKS=ON
cmake --build build/bench
build/bench/bench/ipc_bench
build/bench/bench/parse_bench
(cd build/bench && bench/log_bench)
bench/node_bench.py build/bench/bin/mox_node build/bench/bench/bare_status
bench/devinit_bench.py build/bench/bin/devinit build/bench --slowfs build/bench/bench/slowfs
scripts/collection.sh install
PATH=/usr/sbin:/usr/bin:/sbin:/bin scripts/hosts.sh --light 50 bench/fleet_bench.py build/bench/bin/mox_node 5 || [ $? = 77 ]
