#!/usr/bin/env bash
# Uses the runtime as a stranger does: in a bare Debian 12 of its own, which holds the installed
# runtime and a compiler, builds the examples by pkg-config and by CMake, runs them, and lets valgrind
# look for faults. As root; needs the network for the Debian packages. Nothing is left.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/need.sh
need g++ cmake ninja-build debootstrap util-linux

# Mounts that debootstrap makes end with this namespace.
[ "${1:-}" = inside ] || exec unshare --mount --pid --fork --mount-proc "$0" inside
root=$(mktemp -d)
trap 'umount -q "$root/debian/proc"; rm -rf --one-file-system "$root"' EXIT

cmake -S . -B build/library -G Ninja -DCMAKE_INSTALL_PREFIX=/usr >/dev/null
cmake --build build/library --target mox_runtime >/dev/null
debootstrap --variant=minbase --include=g++,make,pkg-config bookworm "$root/debian" >"$root/log" ||
  { tail "$root/log" >&2; exit 1; }
mount -t proc proc "$root/debian/proc"
DESTDIR=$root/debian cmake --install build/library --component mox_development >/dev/null

# in_debian COMMAND...: in the folder of the examples.
in_debian() {
  chroot "$root/debian" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root \
    sh -euc 'cd /usr/share/doc/libmox-dev/examples && "$@"' sh "$@"
}

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
in_debian apt-get install -y -qq --no-install-recommends cmake valgrind >/dev/null
for example in runtime-demo runtime-demo-c; do
  in_debian cmake -S "$example" -B "/tmp/$example" >/dev/null
  in_debian cmake --build "/tmp/$example" >/dev/null
done
cxx=/tmp/runtime-demo/runtime_demo c=/tmp/runtime-demo-c/runtime_demo_c
use valgrind -q --leak-check=full --error-exitcode=9
echo "library: built against, run, and free of faults"
