#!/usr/bin/env python3
"""mox_node beside a bare program that makes the same system calls, and a host full of segments.

    node_bench.py MOX_NODE BARE_STATUS

Runs in an IPC namespace of its own.
"""
import os
import statistics
import subprocess
import sys
import tempfile
import time

NODES, FIRST_BASE, KEYS_APART = 900, 1000, 10
PAIRS = 301
SEGMENTS = 32000


def seconds(command):
    begin = time.perf_counter()
    child = os.posix_spawn(command[0], command, os.environ, file_actions=[
        (os.POSIX_SPAWN_OPEN, 1, "/dev/null", os.O_WRONLY, 0)])
    _, status = os.waitpid(child, 0)
    elapsed = time.perf_counter() - begin
    assert status == 0, (command, status)
    return elapsed


def compare(name, ours, bare):
    ratios, times = [], []
    for pair in range(PAIRS):
        # Alternating, so that neither side always has the warmer machine.
        if pair % 2:
            first = seconds(ours)
            ratios.append(first / seconds(bare))
        else:
            floor = seconds(bare)
            first = seconds(ours)
            ratios.append(first / floor)
        times.append(first)
    print(f"{name:28} mox_node / bare calls: min {min(ratios):.2f}  "
          f"median {statistics.median(ratios):.2f}  max {max(ratios):.2f}  ({PAIRS} pairs, "
          f"median {statistics.median(times) * 1000:.1f} ms)")


def setting(name, value):
    with open("/proc/sys/kernel/" + name, "w", encoding="ascii") as file:
        file.write(value)


def main():
    mox_node, bare = map(os.path.abspath, sys.argv[1:])
    if os.environ.get("NODE_BENCH_INSIDE") != "1":
        os.environ["NODE_BENCH_INSIDE"] = "1"
        os.execvp("unshare", ["unshare", "--ipc", "--mount", sys.executable, *sys.argv])
    setting("shmmni", "32768")
    subprocess.run(["mount", "-t", "tmpfs", "none", "/run/lock"], check=True)
    with tempfile.NamedTemporaryFile("w") as description:
        description.write("create")
        for node in range(NODES):
            description.write(f"\nnode-{node}: ipcbase={FIRST_BASE + node * KEYS_APART}, databuf=65536, "
                              "tlogbuf=65536, nlogbuf=65536, sqlbuf=65536")
        description.flush()
        words = ["-f", description.name]
        print(f"up of {NODES} nodes: {seconds([mox_node, 'up', *words]):.3f} s")
        for output in ("text", "json", "prometheus"):
            ours = [mox_node, "status", "-o", output, *words]
            size = len(subprocess.run(ours, stdout=subprocess.PIPE, check=True).stdout)
            compare(f"status -o {output}", ours,
                    [bare, description.name, str(NODES), str(FIRST_BASE), str(KEYS_APART),
                     str(size)])
        subprocess.run(["python3", "-c", f"""
import ctypes
libc = ctypes.CDLL(None)
for key in range(100000, 100000 + {SEGMENTS} - {NODES} * 5):
    assert libc.shmget(key, 4096, 0o1660) >= 0"""], check=True)
        print(f"--all with {SEGMENTS} segments: "
              f"{seconds([mox_node, 'status', '--all', '-o', 'json']):.3f} s")


if __name__ == "__main__":
    main()
