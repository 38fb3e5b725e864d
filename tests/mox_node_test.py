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
                       WHOLE, NodeTest, attach, faulty, has_users, held, kernel_setting, mox_node,
                       remove_segment, rows, segment, semaphores, stand, states, verb, words_of)

EVERY_VERB = ("status", "plan", "plan --repair", "up", "up --repair", "down", "down --force")


def remove_everything():
    for row in rows("shm"):
        remove_segment(row["key"])
    for row in rows("sem"):
        LIBC.semctl(row["semid"], 0, 0)


class Verdicts(NodeTest):
    def walk(self, *steps, description=NODE):
        """Steps such as "up --repair 0 partial>present": a verb, its status, the states before and
        after. Without an after nothing changes. Returns the last report."""
        for step in steps:
            *line, status, change = step.split()
            before, changed, after = change.partition(">")
            kernel = rows("shm"), rows("sem")
            result = verb(" ".join(line), description)
            report = result.json
            self.assertEqual((result.status, report["before"], report["state"], report["changed"]),
                             (int(status), before, after or before, changed != ""),
                             f"{step}: {result.out}{result.err}")
            if not changed:
                self.assertEqual((rows("shm"), rows("sem")), kernel, step)
            self.assertEqual(any(node["reason"] for node in report["nodes"]),
                             int(status) > 2 and step != "status 3 partial", result.out)
        return report

    def test_absent_and_present(self):
        report = self.walk("status 2 absent", "plan 0 absent", "down 0 absent")
        self.assertEqual(states(report), ["databuf:absent", "dictbuf:absent", "set:absent"])
        found = self.walk("up 0 absent>present")["nodes"][0]
        self.assertEqual(held(), WHOLE)
        self.assertEqual([(row["size"], row["perms"], row["nattch"]) for row in rows("shm")],
                         [(1048576, 660, 0), (DICTIONARY, 660, 0)])
        # Every mutex of the new set is free.
        self.assertEqual([LIBC.semctl(found["semaphores"]["id"], number, 12)
                          for number in range(8)], [1] * 8)
        report = self.walk("status 0 present", "plan 0 present", "up 0 present",
                           "up --repair 0 present", "down 0 present>absent")
        self.assertEqual(report["nodes"][0]["segments"][0]["id"], None)
        self.assertEqual(held(), NOTHING)

    def test_attached(self):
        stand(*NODE_KEYS)
        address = attach(5001)
        report = self.walk("status 0 present", "up 0 present", "down 5 present",
                           "down --wait 1 5 present")
        self.assertEqual(report["nodes"][0]["reason"],
                         "in use: its segments are attached 1 times")
        result = mox_node("down", "--force", *NODE.split())
        self.assertEqual((result.status, result.out.splitlines()[-1]),
                         (0, "down: present, now absent"))
        self.assertRegex(result.err, r"\A.* removed while in use, and gone with the last detach: "
                         r"segment with key 5001: shmid 0, .*\nremoved while attached: 1048576 bytes "
                         r"stay in memory until the last process detaches, beside whatever is made "
                         r"meanwhile\n\Z")
        # The memory is still there, without a key, beside a new node.
        self.walk("up 0 absent>present")
        self.assertEqual(held(), ([0, 5001, 5004], [5005]))
        self.assertEqual(LIBC.shmdt(address), 0)
        self.assertEqual(held(), WHOLE)

    def test_partial(self):
        for missing, keys in (("databuf", (5004, 5005)), ("dictbuf", (5001, 5005)),
                              ("set", (5001, 5004))):
            with self.subTest(missing):
                stand(*keys)
                kept = [row["shmid"] for row in rows("shm")]
                report = self.walk("status 3 partial", "plan 3 partial", "up 3 partial",
                                   "plan --repair 0 partial")
                self.assertIn(missing + ":absent", states(report))
                self.walk("up --repair 0 partial>present")
                self.assertEqual(held(), WHOLE)
                self.assertLessEqual(set(kept), {row["shmid"] for row in rows("shm")})
                remove_segment(5001)
                self.walk("down 0 partial>absent")
        stand(5001, 5005)
        address = attach(5001)
        self.walk("status 3 partial", "plan 3 partial", "plan --repair 5 partial",
                  "up --repair 5 partial", "down 5 partial")
        LIBC.shmdt(address)
        self.walk("down 0 partial>absent")
        self.assertEqual(held(), NOTHING)

    def test_conflict(self):
        for keys, wrong in ((NODE_KEYS, {"database": 1048575}), (NODE_KEYS, {"database": 1048577}),
                            (NODE_KEYS, {"semaphore_count": 7}),
                            (NODE_KEYS, {"semaphore_count": 9}), ((5001,), {"database": 5})):
            with self.subTest(keys=keys, **wrong):
                stand(*keys, **wrong)
                self.walk(*(line + " 4 conflict" for line in EVERY_VERB))
                remove_everything()

    def test_owner(self):
        self.need_users()
        nobody = NOBODY.pw_uid
        stand(*NODE_KEYS)
        report = self.walk("status -u root 0 present", "plan -u 0 0 present",
                           *(f"{line} -u {user} 4 conflict" for line in EVERY_VERB
                             for user in ("nobody", nobody)))
        self.assertEqual(report["nodes"][0]["reason"], "; ".join(
            f"{name} belongs to user 0, not {nobody}" for name in
            ("databuf (key 5001)", "dictbuf (key 5004)", "semaphores (key 5005)")))
        # The group of a number without an account stays that of the creator.
        for user, uid, gid in (("nobody", nobody, NOBODY.pw_gid), (nobody, nobody, NOBODY.pw_gid),
                               (54321, 54321, os.getegid())):
            remove_everything()
            self.walk(f"up -u {user} 0 absent>present", f"status -u {user} 0 present",
                      "status -u root 4 conflict")
            self.assertEqual({(row["uid"], row["gid"], row["perms"])
                              for row in rows("shm") + rows("sem")}, {(uid, gid, 660)})

    def test_users_who_cannot_be_given_anything(self):
        stranger = "user 65534 does not exist in this user namespace"
        own = ["unshare", "--user", "--map-group=0"]
        cases = [(user, f"unknown user {user}", {}) for user in
                 ("no_such_user", "4294967295", "-1", "+1", "99999999999999999999", "0x0")]
        if has_users():
            cases += [(user, f"only root may give objects to user {uid}", AS_NOBODY |
                       {"extra_groups": []}) for user, uid in (("root", 0), ("54321", 54321))]
        if has_users() and subprocess.run([*own, "true"], check=False).returncode == 0:
            # One whose number does not exist, and one whose group does not.
            cases += [("65534", stranger, {"prefix": [*own, "--map-user=" + user]})
                      for user in ("0", "65534")]
        for user, error, options in cases:
            result = verb(f"up -u {user}", NODE, **options)
            self.assertEqual((result.status, result.json["error"], result.err, held()),
                             (1, error, f"Error: {error}\n", NOTHING), user)
        if has_users():
            self.assertEqual(verb("up -u nobody", NODE, **AS_NOBODY).status, 0)
            self.assertEqual(held(), WHOLE)

    def test_extra_is_named_and_stays(self):
        stand(*NODE_KEYS)
        stranger = segment(5003, 4096)
        segment(5007, 10)
        segment(5006, 11)  # no buffer's key
        for step in ("status 0 present", "down 0 present>absent", "status 2 absent"):
            report = self.walk(step)
            self.assertEqual(report["nodes"][0]["extra"], [
                {"kind": "segment", "key": key, "size": size, "id": ident, "uid": os.geteuid(),
                 "attached": 0} for key, size, ident in ((5003, 4096, stranger),
                                                         (5007, 10, stranger + 1))])
        self.assertEqual(held(), ([5003, 5006, 5007], []))

    def test_of_several_nodes_the_worst_counts(self):
        for keys, database, steps, plan in (
                (NODE_KEYS + (5012, 5013), 1048576, ["status 0 present", "up 0 present",
                                                     "plan 0 present"], ["nothing", "nothing"]),
                (NODE_KEYS, 1048576, ["status 2 mixed", "plan 0 mixed"], ["nothing", "create"]),
                (NODE_KEYS + (5012,), 1048576, ["status 3 partial", "up 3 partial",
                                                "plan 3 partial"], ["nothing", "refuse"]),
                ((5012,), 1048576, ["plan 3 partial"], ["create", "refuse"]),
                (NODE_KEYS + (5012,), 7, ["up 4 conflict", "plan 4 conflict"],
                 ["refuse", "refuse"])):
            with self.subTest(keys):
                stand(*keys, database=database)
                report = self.walk(*steps, description=TWO)
                self.assertEqual([node["plan"] for node in report["nodes"]], plan)
                if "refuse" in plan:
                    self.assertEqual({limit["needed"] for limit in report["limits"]}, {0})
                if "create" in plan and "nothing" in plan:
                    self.walk("up 0 mixed>present", description=TWO)
                remove_everything()
        # In use counts before partial, and wrong before both.
        third = TWO + " node-3: ipcbase=5016"
        stand(5001, 5004, 5012)
        attach(5012)
        stand(5021)
        self.walk("up 3 partial", "up --repair 5 partial", description=third)
        stand(5020)
        semaphores(5005, 3)
        self.walk("up --repair 4 conflict", "down 4 conflict", description=third)

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
        names = [f"node-1: {name}" for name in ("databuf (key 5001)", "dictbuf (key 5004)",
                                                "semaphores (key 5005)")]
        self.assertEqual((result.status, held(), result.json["error"]), (
            1, WHOLE, "".join(f"removing {name}: Operation not permitted; " for name in names)
            + "left: " + "; ".join(f"{name} is present" for name in names)))


class Unknown(NodeTest):
    """What the kernel refuses to tell, as confined processes and old kernels meet it."""

    TABLES = ("/proc/sysvipc/shm", "/proc/sysvipc/sem")

    def refused(self, calls, line, description=NODE, error="EPERM"):
        faults = [f"{call}:error={error}" for call in calls.split()]
        return verb(line, description, prefix=faulty(*faults))

    def setUp(self):
        super().setUp()
        if subprocess.run([*TRACE, "true"], check=False).returncode:
            self.skipTest("skipped: strace cannot trace here")
        stand(5001, 5005, owner=NOBODY.pw_uid if has_users() else None)
        segment(5003, 7)

    def test_the_tables_stand_in(self):
        attach(5001)
        subprocess.run([sys.executable, "-c", "import sys; sys.path.insert(0, sys.argv[1]); from "
                        "node_host import attach; attach(5001)", sys.path[0]], check=True)
        truth = verb("status", NODE).json
        for calls in ("shmctl", "shmget", "semctl", "semget", "shmget shmctl semget semctl"):
            for error in ("EPERM", "ENOSYS", "EINVAL"):
                result = self.refused(calls, "status", error=error)
                self.assertEqual((result.status, result.json), (3, truth), calls + error)
        truth = mox_node("status", "--all", "-o", "json").json
        self.assertEqual(self.refused("shmctl semctl", "status --all", "").json, truth)
        self.assertEqual(self.refused("shmctl semctl", "plan").json["limits"],
                         verb("plan", NODE).json["limits"])

    def test_a_table_is_read_to_its_end_or_not_at_all(self):
        for key in range(8000, 8200):
            segment(key, 1)
        segment(5004, DICTIONARY)
        self.assertEqual(self.refused("shmget", "status").status, 0)
        for n in range(1, 9):
            result = verb("status", NODE, prefix=faulty("shmget:error=EPERM",
                                                        f"read:error=EIO:when={n}"))
            self.assertIn(result.status, (0, 1, 127), f"read {n}: {result.out}")

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
                self.assertEqual((result.status, result.json["state"], result.json["changed"],
                                  rows_of_kernel()), (1, "unknown", False, before), line)
                self.assertIn(name + ":unknown", states(result.json))
                self.assertIn(" could not be told: ", result.json["nodes"][0]["reason"])
        # An unwanted one that is there is never left out, and not judged.
        self.assertEqual(mox_node("status", *NODE.split(), prefix=faulty("shmctl:error=EPERM")).out,
                         """\
node-1 unknown ipcbase=5000 attached=?
  reason: databuf (key 5001) could not be told: Operation not permitted
  5001 databuf wanted=1048576 found=? unknown
  5004 dictbuf wanted=4194304 found=- absent
  5005 semaphores wanted=8 found=8 present
  5003 nlogbuf wanted=0 found=? unknown
""")
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

    def test_every_figure_of_the_tables(self):
        heads = [pathlib.Path(table).read_text().splitlines()[0] for table in self.TABLES]
        for row in ("5001 99 660 1048576 1 1 0 0 0 0 0 1 1 1 0 0", "5001 0 660 1048576", "x"):
            self.put_over(self.TABLES[0], f"{heads[0]}\n{row}\n")
            self.assertEqual(states(self.refused("shmctl", "status").json)[0], "databuf:unknown", row)
        self.put_over(self.TABLES[0], f"{heads[0]}\n5001 0 1644 1048576 7 0 3 12 13 14 15 16 17 18 0 0"
                                      "\n5003 1 600 20 21 22 23 24 25 26 27 28 29 30 0 0\n")
        self.put_over(self.TABLES[1], f"{heads[1]}\n5005 0 640 8 31 32 33 34 35 36\n")
        absent = dict.fromkeys(("size", "id", "mode", "uid", "gid", "attached", "creator_pid",
                                "last_pid", "changed_at"))
        result = self.refused("shmctl semctl", "plan")
        self.assertEqual((result.status, result.json["nodes"]), (3, [{
            "node": 1, "ipcbase": 5000, "state": "partial", "attached": 3, "plan": "refuse",
            "reason": "some of its objects are missing, and somebody may use the others; "
                      "--repair makes what is missing",
            "segments": [
                {"buffer": "databuf", "key": 5001, "state": "present", "wanted": 1048576,
                 "size": 1048576, "id": 0, "mode": "0644", "uid": 12, "gid": 13, "attached": 3,
                 "creator_pid": 7, "last_pid": None, "changed_at": 18},
                {"buffer": "dictbuf", "key": 5004, "state": "absent", "wanted": DICTIONARY}
                | absent],
            "semaphores": {"key": 5005, "state": "present", "wanted": 8, "size": 8, "id": 0,
                           "mode": "0640", "uid": 31, "gid": 32, "changed_at": 36},
            "extra": [{"kind": "segment", "key": 5003, "size": 20, "id": 1, "uid": 24,
                       "attached": 23}], "devices": []}]))

    def test_limits_that_cannot_be_told(self):
        remove_everything()
        stand(5001)
        for path, unknown in (
                ("/proc/sys/kernel/sem", "semmni semmsl semmns"),
                (self.TABLES[0], "shmmni shmall semmni semmsl semmns"),
                ("/proc/sys/kernel/shm_rmid_forced",
                 "shmmni shmall semmni semmsl semmns shm_rmid_forced"),
                ("/proc/sys/vm/overcommit_memory",
                 "shmmni shmall semmni semmsl semmns CommitLimit shm_rmid_forced")):
            self.put_over(path, "")
            result = self.refused("shmctl", "plan", NODE.replace("5000", "6000"))
            self.assertEqual((result.status, " ".join(
                limit["name"] for limit in result.json["limits"] if limit["fits"] is None)),
                             (1, unknown))
        # Where nothing is to be made, nothing has to be known.
        self.assertEqual([verb(line, NODE).status for line in ("up --repair", "plan")], [0, 0])

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
        no_wait = "O_RDONLY|O_NOCTTY|O_NONBLOCK|O_CLOEXEC"
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
                    self.assertTrue(self.folder not in call or no_wait in call, call)
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
        segment(1, 4097)
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
                kernel_setting(setting, before)

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
