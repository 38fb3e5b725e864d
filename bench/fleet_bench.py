#!/usr/bin/env python3
"""The module `node` on many light hosts, against the bare loop: one ssh call a host, as many at once.

    scripts/hosts.sh --light 50 bench/fleet_bench.py PROGRAM ROUNDS

Times are interleaved, medians; each run opens its own connections. PROGRAM is mox_node. The goal: 1.5.
"""

import json
import os
import pathlib
import shutil
import statistics
import subprocess
import sys
import time

LAB = pathlib.Path(os.environ["MOX_LAB"])
SOURCES = pathlib.Path(__file__).resolve().parents[1]
HOSTS = sorted(path.parent.name for path in LAB.glob("h*/pid"))
AT_ONCE = 10
TEXT = "create node-1: ipcbase=5000, databuf=1048576"
ENVIRONMENT = dict(os.environ, ANSIBLE_COLLECTIONS_PATH=str(SOURCES / "build/ansible"), ANSIBLE_FORKS=str(AT_ONCE),
                   ANSIBLE_SSH_ARGS="-o ControlMaster=auto -o ControlPersist=60s")


def on_all(command):
    """One ssh call a host."""
    ssh = ["xargs", "-P", str(AT_ONCE), "-I{}", "ssh", "-F", str(LAB / "ssh_config"), "{}", command]
    subprocess.run(ssh, input="\n".join(HOSTS), text=True, check=True, stdout=subprocess.DEVNULL)


def bare():
    on_all(f"mox_node up {TEXT}")


def ansible():
    """A play of one task, with no connection that an earlier one left."""
    shutil.rmtree(LAB / "connections", ignore_errors=True)
    options = ["-i", LAB / "inventory", "all", "-m", "mox.resources.node", "-a", json.dumps({"command": TEXT})]
    subprocess.run(["ansible", *options], check=True, stdout=subprocess.DEVNULL, env=ENVIRONMENT)


def ansible_again():
    """A play on the connections of the one before."""
    options = ["-i", LAB / "inventory", "all", "-m", "mox.resources.node", "-a", json.dumps({"command": TEXT})]
    subprocess.run(["ansible", *options], check=True, stdout=subprocess.DEVNULL, env=ENVIRONMENT)


def timed(function):
    before = time.monotonic()
    function()
    return time.monotonic() - before


def main():
    program, rounds = sys.argv[1], int(sys.argv[2])
    for host in HOSTS:
        shutil.copy(program, LAB / host / "root/usr/bin/mox_node")
    print(f"{len(HOSTS)} hosts, {AT_ONCE} at once, {rounds} rounds")
    for name, prepare in (("create", lambda: on_all("ipcrm --all")), ("no change", lambda: None)):
        times = {function.__name__: [] for function in (bare, ansible, ansible_again)}
        for _ in range(rounds):
            for function in (bare, ansible, ansible_again):
                prepare()
                times[function.__name__].append(timed(function))
        loop = statistics.median(times.pop("bare"))
        for function, taken in times.items():
            print(f"{name}: bare loop {loop:.2f} s, {function} {statistics.median(taken):.2f} s, "
                  f"ratio {statistics.median(taken) / loop:.2f} ({min(taken):.2f} to {max(taken):.2f} s)")


if __name__ == "__main__":
    main()
