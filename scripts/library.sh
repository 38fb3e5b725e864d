#!/usr/bin/env bash
# Uses the runtime as a stranger does: in a Debian 12 of its own installs the package libmox-dev that
# scripts/package.sh built, and a compiler, builds the examples by pkg-config and by CMake, runs them,
# and lets valgrind look for faults. As root; needs the network for the Debian packages. Nothing is
# left, not even after SIGKILL: all of it ends with a namespace.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/need.sh
[ "${1:-}" = inside ] || exec unshare --mount --pid --fork --kill-child --mount-proc "$0" inside
need util-linux

base=$(scripts/hosts.sh root)
mount -t tmpfs library /mnt
mkdir /mnt/{upper,work,debian}
mount -t overlay library -o "lowerdir=$base,upperdir=/mnt/upper,workdir=/mnt/work" /mnt/debian
mount -t proc proc /mnt/debian/proc
cp build/package/libmox-dev_*.deb /mnt/debian/root

# in_debian COMMAND...: in the folder of the examples.
in_debian() {
  chroot /mnt/debian /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root DEBIAN_FRONTEND=noninteractive \
    sh -euc 'cd /usr/share/doc/libmox-dev/examples 2>/dev/null || cd; "$@"' sh "$@"
}

in_debian apt-get update -qq
in_debian sh -c 'apt-get install -y -qq --no-install-recommends ~/libmox-dev_*.deb g++ make pkg-config >~/log 2>&1 ||
  { cat ~/log; exit 1; }'

# use PREFIX: runs both programs, behind the words of PREFIX.
use() {
  in_debian "$@" "$cxx" -c runtime-demo/demo.conf -n 7 -D acktimeout=1000 hello | head -n 1
  in_debian grep -h "operand hello" demo.log7
  in_debian rm demo.log7
  in_debian "$@" "$c" runtime-demo/demo.conf | head -n 1
}

echo "== by pkg-config, with a compiler alone"
for example in runtime-demo runtime-demo-c; do
  in_debian make -C "$example"
done
cxx=runtime-demo/runtime_demo c=runtime-demo-c/runtime_demo_c
use

echo "== by CMake, under valgrind"
in_debian apt-get install -y -qq --no-install-recommends cmake valgrind >/dev/null 2>&1
for example in runtime-demo runtime-demo-c; do
  in_debian cmake -S "$example" -B "/tmp/$example" >/dev/null
  in_debian cmake --build "/tmp/$example" >/dev/null
done
cxx=/tmp/runtime-demo/runtime_demo c=/tmp/runtime-demo-c/runtime_demo_c
use valgrind -q --leak-check=full --error-exitcode=9
echo "library: built against, run, and free of faults"
