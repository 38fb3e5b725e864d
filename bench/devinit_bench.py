#!/usr/bin/env python3
"""Compares devinit with dd, with fio at its best queue depth, and with another devinit.

    bench/devinit_bench.py PROGRAM [FOLDER] [--slowfs SLOWFS] [--against PROGRAM]
                           [--on STORAGE...] [--rounds N] [--mib N]

Storage is the file system of FOLDER ("folder"), a loop device over a file there with direct I/O
("loop"), a tmpfs ("tmpfs"), and with SLOWFS a file system that answers after 0.5 or 2 ms ("0.5ms",
"2ms"); all but the first need root. Every round initialises and verifies the same number of bytes
with each tool, in alternating order, devinit itself twice. Printed are ratios, above 1 where devinit
is faster, as minimum, median and maximum; "itself" is the noise of this host.
"""
import argparse
import contextlib
import json
import os
import stat
import statistics
import subprocess
import sys
import tempfile
import time

MIB = 1048576
BLOCK = 8192
DEPTHS = (1, 2, 4, 8, 16)
LATENCIES = {"0.5ms": 500, "2ms": 2000}
STORAGES = ("folder", "loop", "tmpfs", *LATENCIES)


def run(argv):
    """Returns elapsed seconds, processor seconds and peak MiB."""
    # A child of this script would count the interpreter's memory as its own; the processor time of
    # time itself is small and the same for all.
    with tempfile.NamedTemporaryFile("r") as usage:
        start = time.monotonic()
        with subprocess.Popen(["/usr/bin/time", "-f", "%M", "-o", usage.name, *argv],
                              stdout=subprocess.DEVNULL) as child:
            _, status, resources = os.wait4(child.pid, 0)
            elapsed = time.monotonic() - start
            child.returncode = os.waitstatus_to_exitcode(status)
        if child.returncode != 0:
            raise subprocess.CalledProcessError(child.returncode, argv)
        return {"elapsed": elapsed, "processor": resources.ru_utime + resources.ru_stime,
                "peak": int(usage.read()) / 1024}


def fio(direction, path, mib, depth):
    """The time is that of the transfers, without the start of fio."""
    done = subprocess.run(
        ["fio", "--name=bench", f"--filename={path}", f"--size={mib}M", "--bs=1M", "--direct=1",
         f"--rw={direction}", "--ioengine=libaio", f"--iodepth={depth}", "--end_fsync=1",
         "--output-format=json"], capture_output=True, text=True, check=True)
    return {"elapsed": json.loads(done.stdout)["jobs"][0][direction]["runtime"] / 1000}


@contextlib.contextmanager
def mounted(folder, mount, unmount):
    os.mkdir(folder)
    subprocess.run(mount, check=True)
    try:
        while not os.path.ismount(folder):
            time.sleep(0.01)
        yield folder
    finally:
        subprocess.run(unmount, check=True)


@contextlib.contextmanager
def loop_device(folder, mib):
    """The path of a loop device's node, which all tools share."""
    backing = os.path.join(folder, "backing")
    with open(backing, "wb") as file:
        os.posix_fallocate(file.fileno(), 0, (mib + 2) * MIB)
    made = subprocess.run(["losetup", "--direct-io=on", "--show", "-f", backing],
                          capture_output=True, text=True, check=True).stdout.strip()
    try:
        node = os.path.join(folder, "node")
        os.mknod(node, stat.S_IFBLK | 0o600, os.stat(made).st_rdev)
        yield node
    finally:
        subprocess.run(["losetup", "-d", made], check=True)


class Bench:
    def __init__(self, args, path_of):
        self.args, self.path_of = args, path_of
        self.blocks = str(args.mib * MIB // BLOCK)
        self.depth = {}

    def find_depths(self):
        for direction in ("write", "read"):
            times = {depth: fio(direction, self.path_of("fio"), self.args.mib, depth)["elapsed"]
                     for depth in DEPTHS}
            self.depth[direction] = min(times, key=times.get)

    def devinit(self, program, name, direction):
        verify = ["-V"] if direction == "read" else []
        return run([program, *verify, "-b", self.blocks, "-f", self.path_of(name)])

    def dd(self, direction):
        path = self.path_of("dd")
        words = {"write": ["if=/dev/zero", f"of={path}", "oflag=direct", "conv=fsync"],
                 "read": [f"if={path}", "of=/dev/null", "iflag=direct"]}[direction]
        return run(["dd", "bs=1M", "status=none", f"count={self.args.mib}", *words])

    def tools(self, direction):
        tools = {"devinit": lambda: self.devinit(self.args.program, "devinit", direction),
                 "itself": lambda: self.devinit(self.args.program, "itself", direction),
                 "dd": lambda: self.dd(direction)}
        if self.args.against:
            tools["before"] = lambda: self.devinit(self.args.against, "before", direction)
        if self.depth:
            depth = self.depth[direction]
            tools[f"fio, depth {depth}"] = lambda: fio(direction, self.path_of("fio"),
                                                       self.args.mib, depth)
        return tools

    def round(self, number, direction):
        """What each tool took; the tool that goes first changes from round to round."""
        if direction == "read" and self.path_of("devinit") == self.path_of("dd"):
            # One device for all: dd has written over the header.
            run([self.args.program, "-F", "-b", self.blocks, "-f", self.path_of("devinit")])
        tools = list(self.tools(direction).items())
        tools = tools[number % len(tools):] + tools[:number % len(tools)]
        return {name: tool() for name, tool in tools}

    def measure(self, storage):
        rounds = {"write": [], "read": []}
        for number in range(self.args.rounds):
            for direction, results in rounds.items():
                results.append(self.round(number, direction))
        for direction, results in rounds.items():
            pass_name = "initialise" if direction == "write" else "verify"
            print(f"{storage}: {pass_name}, {self.args.rounds} rounds of {self.args.mib} MiB, "
                  "min median max")
            for tool in results[0]:
                if tool != "devinit":
                    show(f"{tool} / devinit", ratios(results, tool, "elapsed"))
            if self.args.against:
                show("processor time, before / devinit", ratios(results, "before", "processor"))
            show("peak memory of devinit, MiB", [r["devinit"]["peak"] for r in results])
        sys.stdout.flush()


def ratios(results, tool, figure):
    return [r[tool][figure] / max(r["devinit"][figure], 0.001) for r in results]


def show(label, values):
    print(f"  {label:34}{min(values):6.2f} {statistics.median(values):6.2f} {max(values):6.2f}")


@contextlib.contextmanager
def storage_at(storage, folder, args):
    """A function that gives a tool's path there."""
    below = os.path.join(folder, storage)
    with contextlib.ExitStack() as stack:
        if storage == "loop":
            os.mkdir(below)
            node = stack.enter_context(loop_device(below, args.mib))
            yield lambda name: node
            return
        if storage == "folder":
            os.mkdir(below)
        elif storage == "tmpfs":
            stack.enter_context(mounted(below, ["mount", "-t", "tmpfs", "bench", below],
                                        ["umount", below]))
        else:
            stack.enter_context(mounted(below, [args.slowfs, str(LATENCIES[storage]), below],
                                        ["fusermount3", "-u", below]))
        yield lambda name: os.path.join(below, name)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("program")
    parser.add_argument("folder", nargs="?", default=None)
    parser.add_argument("--slowfs")
    parser.add_argument("--against")
    parser.add_argument("--on", nargs="+", choices=STORAGES, default=STORAGES)
    parser.add_argument("--rounds", type=int, default=9)
    parser.add_argument("--mib", type=int, default=1024)
    args = parser.parse_args()
    with tempfile.TemporaryDirectory(dir=args.folder, prefix="devinit_bench.") as folder:
        for storage in args.on:
            if storage in LATENCIES and not args.slowfs:
                continue
            with storage_at(storage, folder, args) as path_of:
                bench = Bench(args, path_of)
                if storage == "folder":
                    bench.find_depths()
                bench.measure(storage)


if __name__ == "__main__":
    main()
