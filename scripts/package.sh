#!/usr/bin/env bash
# Builds both Debian packages (build/package/*.deb) and passes lintian. `scripts/package.sh install`,
# as root on a machine that may be changed, also installs them, uses what they bring, and removes
# them again.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/need.sh
need g++ cmake ninja-build dpkg-dev file lintian

cmake --preset package -G Ninja
cmake --build --preset package
rm -f build/package/*.deb
(cd build/package && cpack -G DEB)
lintian --allow-root --fail-on error build/package/*.deb

[ "${1:-}" = install ] || exit 0
need man-db mandoc systemd bash-completion util-linux

before=$(mktemp)
find /usr /etc /lib -xdev \( -name '*mox*' -o -name 'devinit*' \) | sort >"$before"
# Dependencies come from the archive, the packages themselves from here. Images of containers leave
# documents out.
apt-get install -y -qq --no-install-recommends -o 'Dpkg::Options::=--path-include=/usr/share/*' \
  ./build/package/*.deb >/dev/null
trap 'dpkg -r mox-resources libmox-dev >/dev/null' EXIT

echo "== the programs run"
scratch=$(mktemp -d)
# shellcheck disable=SC2016
unshare --ipc sh -euc '
  mox_res_mgr -f /usr/share/doc/mox-resources/examples/two-nodes.cmd
  test "$(ipcs -m | grep -c "^0x")" = 12
  mox_res_mgr delete node-1: ipcbase=5000 node-2: ipcbase=5100
  test "$(ipcs -m | grep -c "^0x")" = 0'
devinit -b 100 -f "$scratch/data" | tail -1
man -w mox_res_mgr devinit mox.conf
bash -ic 'complete -p mox_res_mgr devinit 2>/dev/null ||
  { . /usr/share/bash-completion/bash_completion; _completion_loader mox_res_mgr; complete -p mox_res_mgr; }' 2>/dev/null

echo "== the runtime builds programs"
cmake -S /usr/share/doc/libmox-dev/examples/runtime-demo -B "$scratch/demo" -G Ninja >/dev/null
cmake --build "$scratch/demo" >/dev/null
"$scratch/demo/runtime_demo" -D acktimeout=1000 | head -1

echo "== the unit is sound"
cp examples/systemd/mox-database@.service "$scratch"
systemd-analyze verify --man=yes mox-resources@node1.service "$scratch/mox-database@node1.service"
systemd-analyze security --offline=yes --threshold=15 --no-pager \
  /lib/systemd/system/mox-resources@.service | tail -1

echo "== nothing is left"
trap - EXIT
dpkg -r mox-resources libmox-dev >/dev/null
dpkg -P mox-resources libmox-dev >/dev/null 2>&1
find /usr /etc /lib -xdev \( -name '*mox*' -o -name 'devinit*' \) | sort | diff "$before" -
rm -rf "$scratch" "$before"
echo "packages: installed, used and removed"
