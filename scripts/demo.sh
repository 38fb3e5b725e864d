#!/usr/bin/env bash
# Builds the programs and shows the main job on examples/two-nodes.cmd, in an IPC namespace of its
# own: nothing of the host is touched.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/need.sh

if [ "${1:-}" != inside ]; then
  need g++ cmake ninja-build util-linux
  cmake --preset release -G Ninja >/dev/null
  cmake --build --preset release
  exec unshare --ipc "$0" inside
fi

mgr=build/release/bin/mox_res_mgr
commands=examples/two-nodes.cmd

show() {
  printf '\n$ %s\n' "$*"
  "$@" || echo "(exit status $?)"
}

show cat $commands
show $mgr -f $commands
show ipcs -m
show ipcs -s
echo
echo "The same once more: refused, and nothing of the first is touched."
show $mgr -f $commands
show $mgr delete node-1: ipcbase=5000 node-2: ipcbase=5100
show ipcs -m
