#!/usr/bin/env python3
"""The four verbs of mox_node: every verdict, every exit status, and what the kernel then holds."""
import os
import pathlib
import re
import subprocess
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent / "support"))
from node_host import (AS_NOBODY, DICTIONARY, LIBC, NOBODY, NODE, NODE_KEYS, NOTHING, TRACE, TWO,
                       WHOLE, NodeTest, attach, has_users, held, kernel_setting, mox_node,
                       remove_segment, rows, segment, semaphores, stand, states, verb, words_of)

EVERY_VERB = ("status", "plan", "plan --repair", "up", "up --repair", "down", "down --force")


def remove_everything():
    for row in rows("shm"):
        remove_segment(row["key"])
    for row in rows("sem"):
        LIBC.semctl(row["semid"], 0, 0)


class Verdicts(NodeTest):
    def expect(self, line, status, description=NODE, **values):
        result = verb(line, description)
        report = result.json
        self.assertEqual((result.status, {key: report[key] for key in values}),
                         (status, values), f"{line}: {result.out}{result.err}")
        return report

    def expect_untouched(self, line, status, state, description=NODE):
        before = rows("shm"), rows("sem")
        report = self.expect(line, status, description, state=state, before=state, changed=False)
        self.assertEqual((rows("shm"), rows("sem")), before, line)
        self.assertTrue(any(node["reason"] for node in report["nodes"]), report)

    def test_absent(self):
        report = self.expect("status", 2, state="absent", before="absent", changed=False)
        self.assertEqual(states(report), ["databuf:absent", "dictbuf:absent", "set:absent"])
        self.assertEqual(self.expect("plan", 0)["nodes"][0]["plan"], "create")
        self.expect("down", 0, state="absent", before="absent", changed=False)
        self.assertEqual(held(), NOTHING)
        report = self.expect("up", 0, state="present", before="absent", changed=True)
        self.assertEqual(held(), WHOLE)
        found = report["nodes"][0]
        self.assertEqual([(item["size"], item["mode"], item["attached"])
                          for item in found["segments"]],
                         [(1048576, "0660", 0), (DICTIONARY, "0660", 0)])
        self.assertEqual([row["nattch"] for row in rows("shm")], [0, 0])
        # Every mutex of the new set is free.
        self.assertEqual([LIBC.semctl(found["semaphores"]["id"], number, 12)
                          for number in range(8)], [1] * 8)

    def test_present(self):
        stand(*NODE_KEYS)
        before = rows("shm")
        self.expect("status", 0, state="present")
        self.assertEqual(self.expect("plan", 0)["nodes"][0]["plan"], "nothing")
        self.expect("up", 0, state="present", before="present", changed=False)
        self.expect("up --repair", 0, state="present", changed=False)
        self.assertEqual(rows("shm"), before)
        report = self.expect("down", 0, state="absent", before="present", changed=True)
        self.assertEqual(report["nodes"][0]["segments"][0]["id"], None)
        self.assertEqual(held(), NOTHING)

    def test_present_and_attached(self):
        stand(*NODE_KEYS)
        address = attach(5001)
        self.assertEqual(self.expect("status", 0)["nodes"][0]["attached"], 1)
        self.expect("up", 0, changed=False)
        self.expect_untouched("down", 5, "present")
        self.expect_untouched("down --wait 1", 5, "present")
        result = verb("down --force", NODE)
        self.assertEqual((result.status, result.json["state"]), (0, "absent"))
        self.assertIn("1048576 bytes stay in memory until the last process detaches", result.err)
        # The memory is still there, without a key, beside a new node.
        self.expect("up", 0, before="absent")
        self.assertEqual(held(), ([0, 5001, 5004], [5005]))
        self.assertEqual(LIBC.shmdt(address), 0)
        self.assertEqual(held(), WHOLE)

    def test_partial(self):
        for missing, keys in (("databuf", (5004, 5005)), ("dictbuf", (5001, 5005)),
                              ("set", (5001, 5004))):
            with self.subTest(missing):
                stand(*keys)
                kept = [row["shmid"] for row in rows("shm")]
                report = self.expect("status", 3, state="partial")
                self.assertIn(missing + ":absent", states(report))
                self.expect_untouched("plan", 3, "partial")
                self.expect_untouched("up", 3, "partial")
                self.assertEqual(self.expect("plan --repair", 0)["nodes"][0]["plan"], "repair")
                self.expect("up --repair", 0, state="present", before="partial", changed=True)
                self.assertEqual(held(), WHOLE)
                self.assertLessEqual(set(kept), {row["shmid"] for row in rows("shm")})
                self.expect("down", 0, state="absent", before="present")

    def test_partial_and_attached(self):
        stand(5001, 5005)
        address = attach(5001)
        self.expect("status", 3, state="partial")
        self.expect_untouched("plan", 3, "partial")
        for line in ("plan --repair", "up --repair", "down"):
            self.expect_untouched(line, 5, "partial")
        LIBC.shmdt(address)
        self.expect("down", 0, state="absent", before="partial", changed=True)
        self.assertEqual(held(), NOTHING)

    def test_conflict(self):
        for keys, wrong in ((NODE_KEYS, {"database": 1048575}), (NODE_KEYS, {"database": 1048577}),
                            (NODE_KEYS, {"semaphore_count": 7}),
                            (NODE_KEYS, {"semaphore_count": 9}), ((5001,), {"database": 5})):
            with self.subTest(keys=keys, **wrong):
                stand(*keys, **wrong)
                for line in EVERY_VERB:
                    self.expect_untouched(line, 4, "conflict")
                remove_everything()

    def test_owner(self):
        self.need_users()
        stand(*NODE_KEYS)
        for user, line, status in (("nobody", "status", 4), ("nobody", "up", 4),
                                   ("nobody", "down", 4), (str(NOBODY.pw_uid), "status", 4),
                                   ("root", "status", 0), ("0", "plan", 0)):
            self.expect(f"{line} -u {user}", status)
        self.assertEqual(held(), WHOLE)
        self.expect("down -u root", 0)
        report = self.expect("up -u nobody", 0, state="present")
        owners = {(item["uid"], item["gid"], item["mode"]) for item in
                  report["nodes"][0]["segments"] + [report["nodes"][0]["semaphores"]]}
        self.assertEqual(owners, {(NOBODY.pw_uid, NOBODY.pw_gid, "0660")})
        self.expect("status -u root", 4)
        self.expect("down -u nobody", 0)
        # A number without an account: the group stays that of the creator.
        report = self.expect("up -u 54321", 0)
        self.assertEqual(report["nodes"][0]["semaphores"]["uid"], 54321)
        self.assertEqual(report["nodes"][0]["semaphores"]["gid"], os.getegid())

    def test_nobody_may_not_give_objects_away(self):
        self.need_users()
        for user in ("root", "54321"):
            result = verb(f"up -u {user}", NODE, **AS_NOBODY, extra_groups=[])
            self.assertEqual((result.status, held()), (1, NOTHING))
            self.assertRegex(result.json["error"], "^only root may give objects to user ")
        result = verb("up -u nobody", NODE, **AS_NOBODY)
        self.assertEqual((result.status, held()), (0, WHOLE))

    def test_a_user_whom_the_namespace_does_not_know(self):
        if has_users():
            self.skipTest("skipped: every user exists here")
        result = verb("up -u nobody", NODE)
        self.assertEqual((result.status, held()), (1, NOTHING))
        self.assertIn("does not exist in this user namespace", result.json["error"])

    def test_unknown_users(self):
        for user in ("no_such_user", "4294967295", "-1", "99999999999999999999", "0x0"):
            result = verb(f"status -u {user}", NODE)
            self.assertEqual((result.status, result.json["error"]), (1, f"unknown user {user}"))

    def test_extra_is_named_and_stays(self):
        stand(*NODE_KEYS)
        stranger = segment(5003, 4096)
        segment(5007, 10)
        segment(5006, 11)  # no buffer's key
        for line, before in (("status", "present"), ("down", "present"), ("status", "absent")):
            result = verb(line, NODE)
            self.assertEqual(result.json["before"], before)
            self.assertEqual([(item["key"], item["size"], item["attached"])
                              for item in result.json["nodes"][0]["extra"]],
                             [(5003, 4096, 0), (5007, 10, 0)])
            self.assertEqual(result.json["nodes"][0]["extra"][0]["id"], stranger)
        self.assertEqual(held(), ([5003, 5006, 5007], []))

    def test_of_several_nodes_the_worst_counts(self):
        for keys, database, state, status, plan in (
                (NODE_KEYS + (5012, 5013), 1048576, "present", 0, ["nothing", "nothing"]),
                (NODE_KEYS, 1048576, "mixed", 2, ["nothing", "create"]),
                (NODE_KEYS + (5012,), 1048576, "partial", 3, ["nothing", "refuse"]),
                ((5012,), 1048576, "partial", 3, ["create", "refuse"]),
                (NODE_KEYS + (5012,), 7, "conflict", 4, ["refuse", "refuse"])):
            with self.subTest(keys):
                stand(*keys, database=database)
                self.expect("status", status, TWO, state=state)
                report = self.expect("plan", status if status > 2 else 0, TWO)
                self.assertEqual([node["plan"] for node in report["nodes"]], plan)
                if status > 2:
                    self.expect_untouched("up", status, state, TWO)
                    self.assertEqual({limit["needed"] for limit in report["limits"]}, {0})
                else:
                    self.expect("up", 0, TWO, state="present", before=state,
                                changed=state == "mixed")
                remove_everything()
        # In use counts before partial, and wrong before both.
        third = TWO + " node-3: ipcbase=5016"
        stand(5001, 5004, 5012)
        attach(5012)
        stand(5021)
        self.expect_untouched("up", 3, "partial", third)
        self.expect_untouched("up --repair", 5, "partial", third)
        stand(5020)
        semaphores(5005, 3)
        self.expect_untouched("up --repair", 4, "conflict", third)
        self.expect_untouched("down", 4, "conflict", third)

    def test_keys_beyond_the_largest(self):
        description = "create node-7: ipcbase=2147483644, evbuf=9"
        self.expect("up", 0, description, state="present")
        self.assertEqual(held(), ([-2147483648, -2147483645], [-2147483647]))
        self.expect("down", 0, description)

    def test_nobody_sees_everything(self):
        self.need_users()
        segment(5001, 1048576, mode=0)
        segment(5004, DICTIONARY, mode=0o600)
        semaphores(5005, mode=0)
        for line in ("status", "plan"):
            result = verb(line, NODE, **AS_NOBODY, extra_groups=[])
            self.assertEqual((result.status, result.json["state"]), (0, "present"))
        # What it may not remove is named.
        result = verb("down", NODE, **AS_NOBODY, extra_groups=[])
        self.assertEqual((result.status, held()), (1, WHOLE))
        for name in ("databuf (key 5001)", "dictbuf (key 5004)", "semaphores (key 5005)"):
            self.assertIn(f"removing node-1: {name}: Operation not permitted", result.err)
            self.assertIn(f"{name} is present", result.json["error"])


class Unknown(NodeTest):
    """What the kernel refuses to tell, as confined processes and old kernels meet it."""

    TABLES = ("/proc/sysvipc/shm", "/proc/sysvipc/sem")

    def refused(self, calls, line, description=NODE, error="EPERM"):
        inject = [word for call in calls.split()
                  for word in ("-e", f"inject={call}:error={error}")]
        return verb(line, description, prefix=TRACE + inject)

    def setUp(self):
        super().setUp()
        if subprocess.run([*TRACE, "true"], check=False).returncode:
            self.skipTest("skipped: strace cannot trace here")
        stand(5001, 5005)
        segment(5003, 7)

    def test_the_tables_stand_in(self):
        attach(5001)
        truth = verb("status", NODE).json
        for calls in ("shmctl", "shmget", "semctl", "semget", "shmget shmctl semget semctl"):
            for error in ("EPERM", "ENOSYS", "EINVAL"):
                result = self.refused(calls, "status", error=error)
                self.assertEqual((result.status, result.json), (3, truth), calls + error)
        truth = mox_node("status", "--all", "-o", "json").json
        self.assertEqual(self.refused("shmctl semctl", "status --all", "").json, truth)
        self.assertEqual(self.refused("shmctl semctl", "plan").json["limits"],
                         verb("plan", NODE).json["limits"])

    def test_existence_that_is_told_by_a_refusal(self):
        # EACCES says that there is a segment; the table does not show which.
        result = self.refused("shmget", "status", error="EACCES")
        self.assertEqual((result.status, states(result.json)),
                         (1, ["databuf:present", "dictbuf:unknown", "set:present"]))
        self.assertIn("dictbuf (key 5004) could not be told: Permission denied",
                      result.json["nodes"][0]["reason"])

    def test_nothing_is_told(self):
        for table in self.TABLES:
            self.put_over(table, "")
        for name, call in (("databuf", "shmctl"), ("set", "semctl")):
            before = rows_of_kernel()
            for line in EVERY_VERB:
                result = self.refused(call, line)
                node = result.json["nodes"][0]
                self.assertEqual((result.status, result.json["state"], node["state"],
                                  result.json["changed"]), (1, "unknown", "unknown", False), line)
                self.assertIn(name + ":unknown", states(result.json))
                self.assertIn("could not be told: ", node["reason"])
                self.assertEqual(rows_of_kernel(), before)
                self.assertEqual(node["attached"], None if name == "databuf" else 0)
            unknown = node["semaphores"] if name == "set" else node["segments"][0]
            self.assertEqual({unknown[key] for key in ("size", "id", "mode", "uid", "gid",
                                                       "changed_at")}, {None})
        # An unwanted one that is there is never left out, and not judged.
        self.assertEqual(self.refused("shmctl", "status").json["nodes"][0]["extra"],
                         [{"kind": "segment", "key": 5003, "size": None, "id": None, "uid": None,
                           "attached": None}])
        # Absence is not for a refused look-up to tell.
        result = self.refused("shmget", "status")
        self.assertEqual(states(result.json)[:2], ["databuf:unknown", "dictbuf:unknown"])
        # Nor is it for a list that cannot be read.
        result = self.refused("shmctl", "status --all", "")
        self.assertEqual(result.status, 1)
        self.assertRegex(result.json["error"], "^listing the shared memory segments of the host: ")
        # And it counts before everything else.
        semaphores(6005, 3)
        wrong = NODE + " node-2: ipcbase=6000"
        self.assertEqual(verb("status", wrong).json["state"], "conflict")
        self.assertEqual(self.refused("shmctl", "status", wrong).json["state"], "unknown")

    def test_a_table_that_does_not_show_the_identifier(self):
        head = pathlib.Path(self.TABLES[0]).read_text().splitlines()[0]
        for row in ("5001 99 660 1048576 1 1 0 0 0 0 0 1 1 1 0 0", "5001 0 660 1048576", "x"):
            self.put_over(self.TABLES[0], f"{head}\n{row}\n")
            result = self.refused("shmctl", "status")
            self.assertEqual(states(result.json)[0], "databuf:unknown", row)
        self.put_over(self.TABLES[0], f"{head}\n5001 0 1644 1048576 7 0 3 12 13 0 0 0 0 99 0 0\n")
        found = self.refused("shmctl", "status").json["nodes"][0]["segments"][0]
        told = {key: found[key] for key in ("state", "mode", "creator_pid", "last_pid", "attached",
                                            "uid", "gid", "changed_at")}
        self.assertEqual(told, {"state": "present", "mode": "0644", "creator_pid": 7,
                                "last_pid": None, "attached": 3, "uid": 12, "gid": 13,
                                "changed_at": 99})

    def test_metrics_leave_out_what_is_unknown(self):
        self.put_over(self.TABLES[0], "")
        result = mox_node("status", "-o", "prometheus", *NODE.split(),
                          prefix=TRACE + ["-e", "inject=shmctl:error=EPERM"])
        self.assertEqual(result.status, 0)
        self.assertIn('state="unknown"} 1\n', result.out)
        self.assertNotIn("mox_node_attaches{", result.out)
        self.assertNotIn('buffer="databuf"', result.out)

    def test_limits_that_cannot_be_told(self):
        remove_segment(5001)
        LIBC.semctl(LIBC.semget(5005, 0, 0), 0, 0)
        self.put_over("/proc/sys/kernel/sem", "")
        result = verb("plan", NODE)
        self.assertEqual((result.status, [limit["name"] for limit in result.json["limits"]
                                          if limit["fits"] is None]),
                         (1, ["semmni", "semmsl", "semmns"]))
        self.put_over(self.TABLES[0], "")
        unknown = [limit["name"] for limit in self.refused("shmctl", "plan").json["limits"]
                   if limit["in_use"] is None and limit["fits"] is None]
        self.assertEqual(unknown[:2], ["shmmni", "shmall"])
        self.put_over("/proc/sys/kernel/shm_rmid_forced", "")
        self.assertIs(verb("plan", NODE).json["limits"][-1]["fits"], None)
        # Where nothing is to be made, nothing has to be known.
        self.assertEqual(verb("up", NODE).status, 0)
        self.assertEqual(verb("plan", NODE).status, 0)

    def test_a_look_changes_nothing(self):
        """The system calls of status and plan, each with what it may do."""
        if os.environ.get("SANITIZERS"):
            self.skipTest("skipped: the sanitizers make system calls of their own")
        allowed = {"shmget": r"\(\w+, 0, 0+\)", "semget": r"\(\w+, 0, 0+\)",
                   "shmctl": r"\(\d+, (SHM_STAT_ANY|SHM_INFO|0xf /\* SHM_\?\?\? \*/)",
                   "semctl": r"\(\d+, 0, (IPC_64\|)?(SEM_STAT_ANY|SEM_INFO|0x14)",
                   "openat": r"\([^,]+, [^,]+, O_RDONLY[|A-Z_]*[,)]", "ioctl": r".*TCGETS",
                   "fcntl": r"\(\d, (F_GETFD|F_DUPFD_CLOEXEC|F_GETFL)", "write": r"\(3,"}
        harmless = set("""pread64 stat newfstatat fstat lstat readlink statfs lseek access read close
            getdents64 dup2 rt_sigaction getpid gettid exit_group execve mmap munmap mprotect brk
            arch_prctl set_tid_address set_robust_list rseq prlimit64 getrandom futex madvise
            """.split())
        self.path("file", b"x" * 20000)
        check = NODE.replace("create", "check") + "".join(
            f", device-{number}.path={self.path(name)}, device-{number}.size=1"
            for number, name in enumerate(("file", "new", "missing/x", "")))
        for line in ("status", "plan --repair", "status --all"):
            log = self.path("log")
            words = [] if "--all" in line else words_of(check)
            mox_node(*line.split(), *words, prefix=["strace", "-qq", "-f", "-o", log])
            seen = set()
            for call in pathlib.Path(log).read_text().splitlines():
                name, arguments = re.match(r"\d+ +(\w+)(\(.*)", call).groups()
                seen.add(name)
                if name not in harmless:
                    self.assertIn(name, allowed, call)
                    self.assertRegex(arguments, "^" + allowed[name], call)
            self.assertIn("shmctl", seen)


def rows_of_kernel():
    """The objects of the host, not by the tables, which a test may have covered."""
    return [(LIBC.shmget(key, 0, 0), LIBC.semget(key, 0, 0)) for key in range(5000, 5008)]


class Limits(NodeTest):
    ODD = TWO.replace("1048576", "1048577")  # ends in a page of its own

    def setUp(self):
        super().setUp()
        if not os.access("/proc/sys/kernel/shmmni", os.W_OK):
            self.skipTest("skipped: limits are fixed")

    def limits(self, status):
        result = verb("plan", self.ODD)
        self.assertEqual(result.status, status, result.out)
        return {limit["name"]: limit for limit in result.json["limits"]}

    def test_each_limit_is_told_and_counts(self):
        stand(5012)
        segment(1, 4097)
        remove_segment(5012)
        limits = self.limits(0)
        self.assertEqual([limits[name]["limit"] for name in ("shmmax", "shmall")], [None, None])
        needs = {"shmmni": (1, 3), "shmmax": (None, DICTIONARY), "shmall": (2, 2305),
                 "semmni": (0, 2), "semmsl": (None, 8), "semmns": (0, 16)}
        self.assertEqual({name: (limit["in_use"], limit["needed"])
                          for name, limit in limits.items()}, needs)
        sem = "32000 1024000000 500 32000"
        for name, setting, exact, below in (
                ("shmmni", "shmmni", "4", "3"), ("shmall", "shmall", "2307", "2306"),
                ("shmmax", "shmmax", str(DICTIONARY), str(DICTIONARY - 1)),
                ("semmsl", "sem", "8 1024000000 500 32000", "7 1024000000 500 32000"),
                ("semmns", "sem", "32000 16 500 32000", "32000 15 500 32000"),
                ("semmni", "sem", "32000 1024000000 500 2", "32000 1024000000 500 1")):
            with self.subTest(name):
                before = pathlib.Path("/proc/sys/kernel", setting).read_text()
                kernel_setting(setting, exact)
                self.assertIs(self.limits(0)[name]["fits"], True)
                kernel_setting(setting, below)
                self.assertEqual([key for key, limit in self.limits(6).items()
                                  if not limit["fits"]], [name])
                # The kernel is of the same opinion, and nothing is left.
                self.assertEqual((verb("up", self.ODD).status, held()), (1, ([1], [])))
                kernel_setting(setting, before if setting != "sem" else sem)

    def test_segments_that_would_vanish(self):
        kernel_setting("shm_rmid_forced", "1")
        limit = self.limits(6)["shm_rmid_forced"]
        self.assertEqual((limit["limit"], limit["needed"], limit["fits"]), (0, 3, False))
        result = verb("up", self.ODD)
        self.assertEqual((result.status, held()), (1, NOTHING))
        self.assertIn("kernel.shm_rmid_forced is set", result.json["error"])
        # Without a segment to be made, it does not matter.
        kernel_setting("shm_rmid_forced", "0")
        stand(5001, 5004, 5012, 5013, database=1048577)
        kernel_setting("shm_rmid_forced", "1")
        self.assertEqual(verb("up --repair", self.ODD).status, 0)

    def test_committed_memory(self):
        self.put_over("/proc/sys/vm/overcommit_memory", "2\n")
        needed = DICTIONARY * 2 + 1048576 + 4096
        for limit, fits in ((needed // 1024 + 100, True), (needed // 1024 + 99, False)):
            self.put_over("/proc/meminfo", f"MemTotal: 5 kB\nCommitLimit: {limit} kB\n"
                                      "Committed_AS:     100 kB\n")
            self.assertEqual(self.limits(0 if fits else 6)["CommitLimit"],
                             {"name": "CommitLimit", "limit": limit * 1024, "in_use": 102400,
                              "needed": needed, "fits": fits})
        self.put_over("/proc/meminfo", "MemTotal: 5 kB\n")
        self.assertIs(self.limits(1)["CommitLimit"]["fits"], None)


if __name__ == "__main__":
    unittest.main(verbosity=2)
