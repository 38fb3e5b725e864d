# shellcheck shell=sh
# Sourced by the tests beside it, which ask the kernel, not the programs, what stands.
set -eu

fail() {
  echo "FAILED: $*" >&2
  exit 1
}

# expect TEXT COMMAND...: the command prints exactly that text.
expect() {
  wanted=$1
  shift
  got=$("$@") || fail "$* ended with $?"
  [ "$got" = "$wanted" ] || fail "$*: expected '$wanted', got '$got'"
}

# standing: key, size and owner of each segment, and key, number and owner of each set.
standing() {
  awk 'FNR > 1 { print $1, $4, $8 }' /proc/sysvipc/shm | sort -n
  awk 'FNR > 1 { print $1, $4, $5 }' /proc/sysvipc/sem
}

identifiers() {
  awk 'FNR > 1 { print $1, $2 }' /proc/sysvipc/shm /proc/sysvipc/sem
}

# hold KEY: a process holds the segment attached until `let_go`.
hold() {
  place=$(mktemp -d)
  mkfifo "$place/hold"
  attach "$1" <"$place/hold" >"$place/said" &
  exec 9>"$place/hold"
  until grep -q attached "$place/said"; do sleep 0.1; done
}

let_go() {
  exec 9>&-
  wait
}

# impatient NAME: the unit of that name or pattern stops within a second or not at all.
impatient() {
  mkdir -p "/run/systemd/system/$1.d"
  printf '[Service]\nExecStop=\nExecStop=mox_node down --wait 1 -f /etc/mox/%%i.cmd\n' >"/run/systemd/system/$1.d/wait.conf"
  systemctl daemon-reload
}

attach() {
  python3 -c 'import ctypes, sys
libc = ctypes.CDLL(None, use_errno=True)
libc.shmat.restype = ctypes.c_void_p
found = libc.shmget(int(sys.argv[1]), 0, 0)
if found < 0 or libc.shmat(found, None, 0) == ctypes.c_void_p(-1).value: sys.exit("shmat")
print("attached", flush=True)
sys.stdin.read()' "$1"
}
