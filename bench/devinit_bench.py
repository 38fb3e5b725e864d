#!/usr/bin/env python3
"""Compares devinit with dd and with fio at its best queue depth, on one file system.

    bench/devinit_bench.py PROGRAM [FOLDER] [--rounds N] [--mib N]

Every round initialises and verifies the same number of bytes with each tool, in alternating order.
Printed are ratios of elapsed times, above 1 where devinit is faster, as minimum, median and maximum.
"""
import argparse
import json
import os
import statistics
import subprocess
import tempfile
import time

MIB = 1048576
BLOCK = 8192
DEPTHS = (1, 2, 4, 8, 16)


def run(argv):
    """Returns elapsed seconds, processor seconds and peak KiB."""
    # A child of this script would count the interpreter's memory as its own.
    with tempfile.NamedTemporaryFile("r") as usage:
        start = time.monotonic()
        subprocess.run(["/usr/bin/time", "-f", "%U %S %M", "-o", usage.name, *argv],
                       stdout=subprocess.DEVNULL, check=True)
        elapsed = time.monotonic() - start
        user, system, peak = usage.read().split()
    return elapsed, float(user) + float(system), int(peak)


def fio(direction, path, mib, depth):
    """Returns the elapsed seconds of the transfers, without the start of fio."""
    done = subprocess.run(
        ["fio", "--name=bench", f"--filename={path}", f"--size={mib}M", "--bs=1M", "--direct=1",
         f"--rw={direction}", "--ioengine=libaio", f"--iodepth={depth}", "--end_fsync=1",
         "--output-format=json"], capture_output=True, text=True, check=True)
    return json.loads(done.stdout)["jobs"][0][direction]["runtime"] / 1000


class Bench:
    def __init__(self, program, folder, mib):
        self.program, self.mib = program, mib
        self.device, self.plain, self.fio_file = (
            os.path.join(folder, name) for name in ("device", "dd", "fio"))
        self.blocks = str(mib * MIB // BLOCK)
        self.depth = {}

    def find_depths(self):
        for direction in ("write", "read"):
            times = {depth: fio(direction, self.fio_file, self.mib, depth) for depth in DEPTHS}
            self.depth[direction] = min(times, key=times.get)

    def devinit(self, direction):
        verify = ["-V"] if direction == "read" else []
        return run([self.program, *verify, "-b", self.blocks, "-f", self.device])

    def dd(self, direction):
        words = {"write": ["if=/dev/zero", f"of={self.plain}", "oflag=direct", "conv=fsync"],
                 "read": [f"if={self.plain}", "of=/dev/null", "iflag=direct"]}[direction]
        return run(["dd", "bs=1M", "status=none", f"count={self.mib}", *words])[0]

    def round(self, direction, reverse):
        if direction == "write":
            for path in (self.device, self.plain, self.fio_file):
                if os.path.exists(path):
                    os.remove(path)
            os.sync()
        tools = {"devinit": lambda: self.devinit(direction),
                 "dd": lambda: self.dd(direction),
                 "fio": lambda: fio(direction, self.fio_file, self.mib, self.depth[direction])}
        order = list(tools)
        return {name: tools[name]() for name in (reversed(order) if reverse else order)}


def spread(values):
    return f"{min(values):5.2f} {statistics.median(values):5.2f} {max(values):5.2f}"


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("program")
    parser.add_argument("folder", nargs="?", default=None)
    parser.add_argument("--rounds", type=int, default=7)
    parser.add_argument("--mib", type=int, default=1024)
    args = parser.parse_args()
    with tempfile.TemporaryDirectory(dir=args.folder, prefix="devinit_bench.") as folder:
        bench = Bench(args.program, folder, args.mib)
        bench.find_depths()
        results = {"write": [], "read": []}
        for number in range(args.rounds):
            for direction, rounds in results.items():
                rounds.append(bench.round(direction, number % 2 == 1))
        for direction, rounds in results.items():
            name = "initialise" if direction == "write" else "verify"
            print(f"{name}, {args.rounds} rounds of {args.mib} MiB"
                  "           min median max")
            print("  dd / devinit              ", spread([r["dd"] / r["devinit"][0] for r in rounds]))
            print(f"  fio (depth {bench.depth[direction]:2}) / devinit  ",
                  spread([r["fio"] / r["devinit"][0] for r in rounds]))
            print("  processor time / elapsed  ",
                  spread([r["devinit"][1] / r["devinit"][0] for r in rounds]))
            print("  peak memory, MiB          ",
                  spread([r["devinit"][2] / 1024 for r in rounds]))


if __name__ == "__main__":
    main()
