#!/usr/bin/env bash
# Builds the programs and shows the main job: the resources of two nodes created, refused a second
# time and deleted, their devices checked, a device initialised and verified, the life of a node. It
# runs in IPC and mount namespaces of its own: nothing of the host is touched.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/need.sh

if [ "${1:-}" != inside ]; then
  need g++ cmake ninja-build util-linux
  cmake --preset release -G Ninja >/dev/null
  cmake --build --preset release
  exec unshare --ipc --mount "$0" inside
fi

mount -t tmpfs none /run/lock
PATH=$PWD/build/release/bin:$PATH

say() { printf '\n== %s\n' "$*"; }
show() {
  printf '\n$ %s\n' "$*"
  "$@" || echo "(exit status $?)"
}

say "Two nodes, from a command file"
show cat examples/two-nodes.cmd
show mox_res_mgr -f examples/two-nodes.cmd
say "What the kernel holds now"
show ipcs -m
show ipcs -s

say "The same once more: refused, and nothing of the first is touched"
show mox_res_mgr -f examples/two-nodes.cmd

say "Deleted"
show mox_res_mgr delete node-1: ipcbase=5000 node-2: ipcbase=5100
show ipcs -m

say "Four devices on two file systems, checked for trial"
mount -t tmpfs -o size=1m mox /srv
for place in data log; do
  mkdir -p /srv/mox/$place
  mount -t tmpfs -o size=100m mox /srv/mox/$place
done
show cat examples/check-devices.cmd
show mox_res_mgr -f examples/check-devices.cmd

say "A device of 4000 blocks, initialised and verified"
show devinit -b 4000 -n 1 -f /srv/mox/data/node-1
show devinit -V -b 4000 -f /srv/mox/data/node-1

node=/srv/mox/node1.cmd
echo 'create node-1: ipcbase=5000, databuf=1048576' >$node
say "The life of a node: planned, made, made once more without harm"
show cat $node
show mox_node plan -f $node
show mox_node up -f $node
show mox_node up -f $node
say "A strike: somebody removes the dictionary buffer; what stands is told, and repaired"
show ipcrm -M 5004
show mox_node status -f $node
show mox_node up -f $node
show mox_node up --repair -f $node
show mox_node status -o json -f $node
say "Gone"
show mox_node down -f $node
say "So mox_node status tells what stands, mox_node up and down make it so, however often they run."
