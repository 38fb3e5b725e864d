#!/usr/bin/env bash
# Builds everything with its tests and passes them: scripts/test.sh [preset] (default: debug).
# Installs what is missing when run as root.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/need.sh
need g++ cmake ninja-build libgtest-dev libgmock-dev libbenchmark-dev mandoc python3 strace util-linux \
  e2fsprogs valgrind python3-jsonschema jq libfuse3-dev prometheus logrotate make pkg-config

preset=${1:-debug}
cmake --preset "$preset" -G Ninja
cmake --build --preset "$preset"
ctest --preset "$preset"
