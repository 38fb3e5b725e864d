#!/usr/bin/env bash
# A laboratory of hosts on this machine, for as long as one command runs:
#
#   scripts/hosts.sh [--light] N COMMAND...     COMMAND, with the hosts h1 to hN up
#   scripts/hosts.sh enter HOST COMMAND...      inside it: COMMAND on a host, without ssh
#   scripts/hosts.sh root                       makes the root of all hosts, once, and prints its folder
#
# Each host is an overlay over a small Debian root, booted by systemd, with IPC, process, mount and
# network namespaces of its own and no network. --light: without systemd, for many hosts. COMMAND
# finds in $MOX_LAB an ssh_config and an inventory for Ansible. Whatever ends, also by SIGKILL, ends
# all. The status is COMMAND's; 77 after "skipped: why", where this machine does not allow it.
set -euo pipefail

cache=${MOX_HOSTS_CACHE:-/var/cache/mox-hosts}
mirror=${DEBIAN_MIRROR:-} # empty: debootstrap knows one
packages=systemd-sysv,dbus,openssh-server,python3,python3-apt,procps
ipc_limits='shmmni shmmax shmall sem shm_rmid_forced'

skip() {
  echo "skipped: $*"
  exit 77
}

# Prints the folder of the root that all hosts stand on, and makes it when it is missing.
base_root() {
  local root
  root=$cache/root-$(printf '%s' "$packages" | cksum | cut -d ' ' -f 1)
  mkdir -p "$cache"
  exec {lock}>"$cache/lock"
  flock "$lock"
  if [ ! -d "$root" ]; then
    echo "making the root of the hosts, once" >&2
    rm -rf --one-file-system "$root.part"
    # What it mounts ends with its namespace, and it with this script.
    setpriv --pdeathsig KILL unshare --mount --pid --fork --kill-child --mount-proc \
      debootstrap --variant=minbase --include="$packages" bookworm "$root.part" ${mirror:+"$mirror"} \
      >"$cache/debootstrap.log" 2>&1 || {
      tail -n 20 "$cache/debootstrap.log" >&2
      exit 1
    }
    # Nothing that a fresh machine starts by itself, and no downloaded packages.
    rm -rf "$root.part"/etc/systemd/system/*.wants "$root.part"/var/cache/apt/archives/*.deb
    mv "$root.part" "$root"
  fi
  exec {lock}>&-
  echo "$root"
}

# The process of a host that is process 1 inside.
leader() {
  local parent
  parent=$(cat "$MOX_LAB/$1/pid" 2>/dev/null) && cat "/proc/$parent/task/$parent/children" 2>/dev/null
}

enter() {
  local pid
  pid=$(leader "$1")
  [ -n "$pid" ] || { echo "$1 is not up" >&2; return 1; }
  shift
  # shellcheck disable=SC2086
  nsenter --target ${pid% } --mount --uts --ipc --net --pid --root --wd "$@"
}

# Folders of cgroups, one for each hierarchy that systemd looks at; a host needs one of its own.
cgroup_folders() {
  findmnt -rno TARGET -t cgroup2
  findmnt -rno TARGET,OPTIONS -t cgroup | sed -n 's/ .*name=systemd.*//p'
}

# Removes the cgroups of laboratories that ended; false while one of them has somebody in it.
sweep_cgroups() {
  local folder status=0
  for folder in $(cgroup_folders); do
    compgen -G "$folder/mox-hosts.*" >/dev/null || continue
    find "$folder"/mox-hosts.* -depth -type d -exec rmdir {} + 2>/dev/null || status=1
  done
  return $status
}

mount_root() {
  local home=$MOX_LAB/$1
  mkdir -p "$home"/{upper,work,root}
  mount -t overlay "$1" -o "lowerdir=$base,upperdir=$home/upper,workdir=$home/work" "$home/root"
  mkdir -p "$home/root/root/.ssh"
  cp "$MOX_LAB/key.pub" "$home/root/root/.ssh/authorized_keys"
  echo "$1" >"$home/root/etc/hostname"
}

# The limits of a host's own IPC namespace are to be set from inside, by its sysctl.d at boot too; all
# others belong to this machine.
open_limits() {
  mkdir -p "$1/etc/systemd/system/systemd-sysctl.service.d"
  cat >"$1/etc/systemd/system/systemd-sysctl.service.d/limits.conf" <<EOF
[Service]
ExecStartPre=/bin/sh -euc 'for limit in $ipc_limits; do cd /proc/sys/kernel; \
  mount --bind \$\$limit \$\$limit; mount -o remount,bind,rw \$\$limit; done'
EOF
}

# Runs a host by systemd for as long as it wants to live: it may reboot.
booted_host() {
  local folder status=133
  mount_root "$1"
  open_limits "$MOX_LAB/$1/root"
  for folder in $(cgroup_folders); do
    mkdir -p "$folder/mox-hosts.$lab_id/$1"
    echo "$BASHPID" >"$folder/mox-hosts.$lab_id/$1/cgroup.procs"
  done
  while [ "$status" = 133 ]; do
    systemd-nspawn --directory "$MOX_LAB/$1/root" --machine "$1" --boot --register=no --keep-unit \
      --private-network --resolv-conf=off --timezone=off --console=pipe </dev/null >>"$MOX_LAB/$1/console" 2>&1 &
    echo $! >"$MOX_LAB/$1/pid"
    wait $! && status=0 || status=$?
  done
}

light_host() {
  mount_root "$1"
  unshare --ipc --uts --mount --net --pid --fork --kill-child --propagation private \
    bash -euc 'cd "$1"
      hostname "$2"
      mount -t proc proc proc
      mount -t tmpfs dev dev
      for node in null:3 zero:5 full:7 random:8 urandom:9; do
        mknod -m 666 "dev/${node%:*}" c 1 "${node#*:}"
      done
      mkdir -p run/sshd run/lock
      exec chroot . bash -c "touch /run/up; sleep infinity & wait"' - "$MOX_LAB/$1/root" "$1" \
    </dev/null >>"$MOX_LAB/$1/console" 2>&1 &
  echo $! >"$MOX_LAB/$1/pid"
  wait $!
}

is_up() {
  if [ "$kind" = light ]; then
    [ -e "$MOX_LAB/$1/root/run/up" ]
  else
    case $(enter "$1" systemctl is-system-running 2>/dev/null) in
      running | degraded) ;;
      *) return 1 ;;
    esac
  fi
}

wait_until_up() {
  local deadline=$((SECONDS + 60))
  while [ $SECONDS -lt $deadline ]; do
    is_up "$1" && return
    sleep 0.1
  done
  echo "$1 does not come up:" >&2
  tail -n 20 "$MOX_LAB/$1/console" >&2
  return 1
}

describe() {
  ssh-keygen -q -t ed25519 -N '' -f "$MOX_LAB/key"
  cat >"$MOX_LAB/ssh_config" <<EOF
Host h*
  User root
  IdentityFile $MOX_LAB/key
  IdentitiesOnly yes
  ProxyCommand $self enter %n sh -c 'mkdir -p /run/sshd && exec /usr/sbin/sshd -i -o UsePAM=no'
  StrictHostKeyChecking no
  UserKnownHostsFile /dev/null
  LogLevel ERROR
EOF
  {
    echo '[lab]'
    printf 'h%s\n' $(seq "$count")
    echo '[lab:vars]'
    echo "ansible_ssh_common_args=\"-F $MOX_LAB/ssh_config\""
    echo "ansible_control_path_dir=$MOX_LAB/connections" # not those of another laboratory's h1
    echo ansible_python_interpreter=/usr/bin/python3
  } >"$MOX_LAB/inventory"
}

# Process 1 of the laboratory: with it the kernel ends everything in its namespace.
inside() {
  kind=$1 count=$2 base=$3 lab_id=$4
  shift 4
  mount -t tmpfs run /run # where systemd-nspawn leaves its marks
  mount -t tmpfs lab "$MOX_LAB"
  describe
  local host status=0
  for host in $(seq -f 'h%.0f' "$count"); do
    "${kind}_host" "$host" &
  done
  for host in $(seq -f 'h%.0f' "$count"); do
    wait_until_up "$host" || exit 1
  done
  "$@" || status=$?
  exit "$status"
}

self=$(realpath "$0")
. "$(dirname "$self")/need.sh"
case ${1:-} in
  enter) shift; enter "$@"; exit ;;
  up) shift; kind=booted; wait_until_up "$1"; exit ;;
  inside) shift; inside "$@" ;;
  root) need debootstrap util-linux; base_root; exit ;;
  --light) kind=light; shift ;;
  *) kind=booted ;;
esac
[ $# -ge 2 ] && [[ $1 =~ ^[1-9][0-9]*$ ]] || {
  sed -n '2,/^set/s/^# \{0,1\}//p' "$0" >&2
  exit 2
}
count=$1
shift

[ "$(id -u)" = 0 ] || skip "hosts need root"
namespaces='--mount --pid --ipc --uts --net'
# shellcheck disable=SC2086
why=$(unshare $namespaces --fork mount -t tmpfs try /mnt 2>&1) || skip "$why"
need debootstrap systemd-container openssh-client util-linux
base=$(base_root)
export MOX_LAB=$cache/lab # the same for all: each mounts its own there, seen by nobody else
mkdir -p "$MOX_LAB"
lab_id=$$

sweep_cgroups || true
for folder in $(cgroup_folders); do
  why=$(mkdir "$folder/mox-hosts.$lab_id" 2>&1) || skip "$why"
done
# Killed with this script, and everything in the namespace with it.
setpriv --pdeathsig KILL unshare --mount --pid --fork --kill-child --mount-proc --propagation private \
  "$self" inside "$kind" "$count" "$base" "$lab_id" "$@" <&0 &
lab=$!
trap 'kill -KILL "$lab" 2>/dev/null' INT TERM HUP
status=0
wait "$lab" || status=$?
for _ in {1..20}; do
  sweep_cgroups && break
  sleep 0.1
done
exit "$status"
