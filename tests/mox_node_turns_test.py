#!/usr/bin/env python3
"""Runs of mox_node beside each other, beside users of the objects, and beside strangers."""
import concurrent.futures
import fcntl
import os
import pathlib
import subprocess
import sys
import threading
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent / "support"))
from node_host import (AS_NOBODY, LIBC, NODE, NODE_KEYS, NOTHING, TRACE, TWO, WHOLE, NodeTest,
                       attach, faulty, has_users, held, remove_segment, rows, segment, stand, verb)


def meet(when, words, change):
    """A verb that waits two seconds at the given call, and what `change` does meanwhile."""
    only = f"trace={when.split(':')[0]}"
    command = [*faulty(when), "-e", only, "mox_node", *words]
    pipe = subprocess.PIPE
    with subprocess.Popen(command, stdout=pipe, stderr=pipe, text=True) as run:
        time.sleep(1)
        stranger = change()
        return run.communicate()[1], run.returncode, stranger


class Turns(NodeTest):
    LOCK = "/run/lock/mox_node.lock"

    def test_of_many_each_finds_the_work_of_the_one_before(self):
        for line, state, once in (("up", WHOLE, "absent"), ("down", NOTHING, "present")):
            with concurrent.futures.ThreadPoolExecutor(8) as runs:
                results = list(runs.map(verb, [line] * 8, [NODE] * 8))
            self.assertEqual([result.status for result in results], [0] * 8)
            changes = [result.json["before"] for result in results if result.json["changed"]]
            self.assertEqual(changes, [once])
            self.assertEqual(held(), state)

    def test_a_turn_that_never_comes(self):
        with open(self.LOCK, "w", encoding="ascii") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            begin = time.monotonic()
            result = verb("up", NODE)
            self.assertEqual((result.status, held()), (1, NOTHING))
            self.assertEqual(result.json["error"], f"another up or down is at work: {self.LOCK} is "
                             "still locked after 10 seconds")
            self.assertTrue(9 < time.monotonic() - begin < 20)
            # Who only looks needs no turn.
            self.assertEqual([verb(line, NODE).status for line in ("status", "plan")], [2, 0])

    def test_a_lock_that_was_removed_meanwhile_binds_nobody(self):
        with open(self.LOCK, "w", encoding="ascii") as old:
            fcntl.flock(old, fcntl.LOCK_EX)
            with subprocess.Popen(["mox_node", "up", *NODE.split()],
                                  stdout=subprocess.DEVNULL) as up:
                time.sleep(0.5)
                os.unlink(self.LOCK)
                with open(self.LOCK, "w", encoding="ascii") as new:
                    fcntl.flock(new, fcntl.LOCK_EX)
                    old.close()
                    time.sleep(0.5)
                    self.assertEqual(held(), NOTHING)
                self.assertEqual((up.wait(), held()), (0, WHOLE))

    def test_the_lock_file_serves_every_user(self):
        self.assertEqual(verb("up", NODE, umask=0o777).status, 0)
        status = os.stat(self.LOCK)
        self.assertEqual((status.st_mode & 0o777, status.st_size), (0o444, 0))
        if has_users():
            self.assertEqual(verb("up", NODE, **AS_NOBODY).status, 0)
        os.unlink(self.LOCK)
        # Made by somebody else between two calls, or waited for when a signal came.
        only = [*TRACE, "-P", self.LOCK, "-e"]
        for fault in ("openat:error=EEXIST:when=2", "flock:error=EINTR:when=1"):
            self.assertEqual(verb("up", NODE, prefix=[*only, "inject=" + fault]).status, 0, fault)

    def test_a_lock_file_that_is_none(self):
        precious = self.path("precious", "content")
        for name, make in (("link", lambda: os.symlink(precious, self.LOCK)),
                           ("dangling link", lambda: os.symlink(self.path("new"), self.LOCK)),
                           ("fifo", lambda: os.mkfifo(self.LOCK)),
                           ("folder", lambda: os.mkdir(self.LOCK))):
            with self.subTest(name):
                make()
                result = verb("up", NODE)
                self.assertEqual((result.status, held()), (1, NOTHING))
                self.assertIn(self.LOCK, result.json["error"])
                os.rmdir(self.LOCK) if name == "folder" else os.unlink(self.LOCK)
        self.assertEqual(pathlib.Path(precious).read_text(), "content")
        self.assertFalse(os.path.exists(self.path("new")))

    def test_waiting_for_the_last_to_detach(self):
        stand(*NODE_KEYS)
        address = attach(5004)
        timer = threading.Timer(1.0, lambda: LIBC.shmdt(address))
        timer.start()
        begin = time.monotonic()
        with subprocess.Popen(["mox_node", "down", "--wait", "60", *NODE.split()],
                              stdout=subprocess.DEVNULL) as waiting:
            # It gives its turn back while it waits.
            self.assertEqual(verb("up", "create node-2: ipcbase=6000").status, 0)
            self.assertLess(time.monotonic() - begin, 1)
            self.assertEqual(waiting.wait(), 0)
        self.assertTrue(1 <= time.monotonic() - begin < 30)
        self.assertEqual(held(), ([6004], [6005]))

    def test_force_comes_after_the_wait(self):
        stand(*NODE_KEYS)
        attach(5004)
        begin = time.monotonic()
        self.assertEqual(verb("down --wait 1 --force", NODE).status, 0)
        self.assertGreaterEqual(time.monotonic() - begin, 1)

    def test_an_object_that_changed_hands_stays(self):
        stand(*NODE_KEYS)
        def exchange():  # it has looked at everything, and removed nothing yet
            remove_segment(5001)
            remove_segment(5004)
            return segment(5001, 77)

        error, status, stranger = meet("semctl:delay_exit=2000000:when=1", ["down", *NODE.split()],
                                       exchange)
        self.assertEqual((status, error), (1, "Error: left: node-1: databuf (key 5001) is wrong\n"))
        self.assertEqual([(row["key"], row["shmid"]) for row in rows("shm")], [(5001, stranger)])

    def test_an_object_in_the_way_undoes_everything(self):
        # A stranger's segment appears between the look and the creation.
        error, status, stranger = meet("shmget:delay_enter=2000000:when=13", ["up", *TWO.split()],
                                       lambda: segment(5012, 77))
        self.assertEqual(status, 1)
        self.assertRegex(error, r"\ANODE WRN .* in the way: segment with key 5012: .*\n"
                         r"Error: node-2: dictbuf \(key 5012\) was made by somebody else meanwhile\n\Z")
        self.assertEqual([row["shmid"] for row in rows("shm")], [stranger])
        self.assertEqual(held(), ([5012], []))


if __name__ == "__main__":
    unittest.main(verbosity=2)
