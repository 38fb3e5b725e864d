#!/usr/bin/env python3
"""The README's picture of the folders, held against the includes: they point downwards only."""
import graphlib
import re
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
INCLUDE = re.compile(r'^#include "([^"]+)"', re.M)


def floors():
    """Folder -> number of its line in the picture, the top one first."""
    picture = re.search(r"^Includes point downwards only.*?\n\n((?:    [^\n]+\n)+)",
                        (ROOT / "README.md").read_text(), re.M | re.S).group(1)
    return {folder: number for number, line in enumerate(picture.splitlines())
            for folder in re.findall(r"[a-z_/]+/(?=\s)", line + " ")}


def includes():
    """(including file, included file), both as paths from the root."""
    for folder in ("kern", "common", "utl", "src", "errutils"):
        for path in sorted((ROOT / folder).rglob("*.[ch]*")):
            for name in INCLUDE.findall(path.read_text()):
                yield str(path.relative_to(ROOT)), name


class Layers(unittest.TestCase):
    def test_includes_point_downwards(self):
        floor_of = floors()
        for user, used in includes():
            with self.subTest(f"{user} includes {used}"):
                above, below = (max(filter(name.startswith, floor_of), key=len) for name in (user, used))
                self.assertTrue(above == below or floor_of[above] < floor_of[below])

    def test_no_files_include_each_other_in_a_ring(self):
        uses = {}
        for user, used in includes():
            stem, other = user.rsplit(".", 1)[0], used.rsplit(".", 1)[0]
            if stem != other:
                uses.setdefault(stem, set()).add(other)
        graphlib.TopologicalSorter(uses).prepare()  # fails with the ring


if __name__ == "__main__":
    unittest.main()
