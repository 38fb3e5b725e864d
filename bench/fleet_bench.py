#!/usr/bin/env python3
"""The module `node` on many light hosts, against the bare loop: one ssh call a host, as many at once.

    scripts/hosts.sh --light 50 bench/fleet_bench.py PROGRAM ROUNDS

Each round does all of it once, so that all meet the same load; the ratios of the rounds count. PROGRAM
is mox_node. The goal: 1.5, also on connections of its own. Beside it stand the module `raw` with the
loop's command, which is what Ansible itself takes, and a second run on the connections of the first.
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
UP = f"mox_node up {TEXT}"
ENVIRONMENT = dict(os.environ, ANSIBLE_COLLECTIONS_PATH=str(SOURCES / "build/ansible"), ANSIBLE_FORKS=str(AT_ONCE),
                   ANSIBLE_SSH_USETTY="0")  # light hosts have no terminals


def on_all(command):
    """One ssh call a host."""
    ssh = ["xargs", "-P", str(AT_ONCE), "-I{}", "ssh", "-F", str(LAB / "ssh_config"), "{}", command]
    subprocess.run(ssh, input="\n".join(HOSTS), text=True, check=True, stdout=subprocess.DEVNULL)


def ansible(module, **options):
    """One task on all hosts."""
    words = ["ansible", "-i", LAB / "inventory", "all", "-m", module, "-a", json.dumps(options)]
    subprocess.run(words, check=True, stdout=subprocess.DEVNULL, env=ENVIRONMENT)


def connect_anew():
    shutil.rmtree(LAB / "connections", ignore_errors=True)


RUNS = {
    "bare loop": lambda: on_all(UP),
    "raw": lambda: ansible("raw", _raw_params=UP),
    "node": lambda: ansible("mox.resources.node", command=TEXT),
    "node again": lambda: ansible("mox.resources.node", command=TEXT),
}


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
        times = {run: [] for run in RUNS}
        for _ in range(rounds):
            for run, function in RUNS.items():
                prepare()
                if run != "node again":
                    connect_anew()
                times[run].append(timed(function))
        loop = times.pop("bare loop")
        print(f"{name}: bare loop {statistics.median(loop):.2f} s ({min(loop):.2f} to {max(loop):.2f})")
        for run, taken in times.items():
            ratios = [one / other for one, other in zip(taken, loop)]
            print(f"{name}: {run} {statistics.median(taken):.2f} s, ratio {statistics.median(ratios):.2f} "
                  f"({min(ratios):.2f} to {max(ratios):.2f})")


if __name__ == "__main__":
    main()
