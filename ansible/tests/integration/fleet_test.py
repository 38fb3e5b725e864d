"""The collection on hosts that boot: python3 fleet_test.py PACKAGE.deb, inside the laboratory of three hosts.

What happened is asked of the kernels. Predictions of check mode are compared with the run.
"""

import pathlib
import subprocess
import sys
import time
import unittest

from fleet import HOSTS, LAB, SOURCES, STRANGER, attached, finish, holding, node, on, role, standing, start, stranger, task

PACKAGE = None
H1, H2, H3 = HOSTS
NODES = [{"node": 1, "ipcbase": 5000, "databuf": 1048576}, {"node": 2, "ipcbase": 5100, "evbuf": 65536}]
KEYS = [5001, 5004, 5005, 5104, 5105, 5107]
SMALL = "create node-1: ipcbase=5000, databuf=4096"
LARGE = "create node-1: ipcbase=5000, databuf=8192, evbuf=4096"


def everything():
    return {host: standing(host) for host in HOSTS}


def keys(host):
    return sorted(key for key, size, owner in standing(host).values())


def sizes(host):
    return {key: size for (kind, _id), (key, size, owner) in standing(host).items() if kind == "shm"}


# Runs mox_node under a filter that answers these calls with that action.
FILTER = """#!/usr/bin/python3
import ctypes, os, struct, sys
VERBS, CALLS, ACTION = {verbs!r}, {calls!r}, {action:#x}
if sys.argv[1] in VERBS:
    rules = [(0x20, 0, 0, 0)] + [rule for call in CALLS for rule in ((0x15, 0, 1, call), (0x06, 0, 0, ACTION))]
    rules = b"".join(struct.pack("HBBI", *rule) for rule in rules + [(0x06, 0, 0, 0x7fff0000)])
    code = ctypes.create_string_buffer(rules, len(rules))
    program = ctypes.create_string_buffer(struct.pack("HxxxxxxP", len(rules) // 8, ctypes.addressof(code)), 16)
    libc = ctypes.CDLL(None)
    if libc.prctl(38, 1, 0, 0, 0) or libc.prctl(22, 2, program): sys.exit("no filter")
os.execv("/usr/bin/mox_node", sys.argv)
"""
KILL, EPERM = 0x80000000, 0x00050001
SHMGET, SHMAT, SHMCTL = 29, 30, 31  # on x86-64


def confined(host, verbs, calls, action):
    on(host, "sh", "-c", "cat >/usr/local/bin/mox_node && chmod 755 /usr/local/bin/mox_node",
       input=FILTER.format(verbs=verbs, calls=calls, action=action))


def clean(host):
    on(host, "sh", "-c", """
        rm -f /usr/local/bin/mox_node
        for unit in $(systemctl list-units --all --plain --no-legend 'mox-*@*' | cut -d ' ' -f 1); do
          systemctl disable --quiet --now $unit 2>/dev/null
        done
        systemctl reset-failed
        rm -f /etc/mox/*.cmd /var/tmp/n1
        ipcrm --all
        echo 0 >/proc/sys/kernel/shm_rmid_forced""", stderr=subprocess.DEVNULL)


def setUpModule():
    installed = role(mox_package=PACKAGE)
    if installed.failed != set():
        raise AssertionError(installed.output)


class HostsTest(unittest.TestCase):
    def setUp(self):
        for host in HOSTS:
            clean(host)

    def node(self, **options):
        return node(**dict({"nodes": NODES, "user": "mox"}, **options))

    def expect(self, play, changed=(), failed=None):
        """Exactly these hosts changed, and exactly these failed, each with these words in its reason."""
        failed = failed or {}
        self.assertEqual((play.failed, play.changed_hosts()), (set(failed), set(changed)), play.output)
        for host, words in failed.items():
            self.assertIn(words, play.reason[host])

    def predicted(self, changed=(), failed=None, **options):
        """The same task in check mode, which touches nothing and predicts the run, and then the run."""
        before = everything()
        check = self.node(check=True, **options)
        self.assertEqual(before, everything())
        run = self.node(**options)
        for play in (check, run):
            self.expect(play, changed, failed)
        for host in changed:
            self.assertEqual(check.result[host]["diff"], run.result[host]["diff"])
            self.assertNotEqual(run.result[host]["diff"]["before"], run.result[host]["diff"]["after"])


class Fleet(HostsTest):
    """The modules."""

    def test_create_again_and_delete(self):
        self.predicted(changed=HOSTS)
        for host in HOSTS:
            owner = int(on(host, "id", "-u", "mox"))
            self.assertEqual({owner}, {owner for key, size, owner in standing(host).values()})
            self.assertEqual((keys(host), sizes(host)), (KEYS, {5001: 1048576, 5004: 4194304, 5104: 4194304, 5107: 65536}))
        before = everything()
        self.predicted(changed=[])
        self.assertEqual(before, everything())
        found = node(module="node_info")
        self.assertEqual([[node["ipcbase"] for node in found.result[host]["nodes"]] for host in HOSTS], [[5000, 5100]] * 3)
        self.predicted(changed=HOSTS, state="absent")
        self.assertEqual(everything(), dict.fromkeys(HOSTS, {}))
        self.predicted(changed=[], state="absent")

    def test_lost_segments_are_repaired_on_demand(self):
        self.node()
        for host in (H1, H2):
            on(host, "ipcrm", "-M", "5001")
        lost = "node-1: some of its objects are missing"
        before = standing(H3)
        self.predicted(failed={H1: lost, H2: lost})
        self.assertEqual(keys(H1), KEYS[1:])
        self.predicted(changed=[H1, H2], repair=True)
        self.assertEqual(([keys(host) for host in HOSTS], standing(H3)), ([KEYS] * 3, before))
        self.predicted(changed=[], repair=True)

    def test_strangers_are_left_alone(self):
        stranger(H2, 5107)
        before = standing(H2)
        self.predicted(changed=[H1, H3], failed={H2: "5107"})
        self.assertEqual(standing(H2), before)
        self.predicted(changed=[H1, H3], failed={H2: "5107"}, state="absent")
        self.assertEqual((standing(H1), standing(H2), standing(H3)), ({}, before, {}))

    def test_nodes_in_use_are_not_deleted(self):
        self.node()
        user = attached(H2, 5001)
        before = standing(H2)
        self.predicted(changed=[H1, H3], failed={H2: "node-1: "}, state="absent")
        self.assertEqual(standing(H2), before)
        waiting = start(task("mox.resources.node", nodes=NODES, state="absent", wait=60))
        time.sleep(3)
        self.assertEqual(keys(H2), KEYS)
        user.communicate()
        self.expect(finish(waiting), changed=[H2])
        self.assertEqual(standing(H2), {})

    def test_two_controllers_at_once(self):
        controllers = [start(task("mox.resources.node", nodes=NODES, user="mox")) for _number in range(2)]
        ended = [finish(controller) for controller in controllers]
        self.assertEqual([play.failed for play in ended], [set(), set()])
        self.assertEqual(sorted(ended[0].changed_hosts()) + sorted(ended[1].changed_hosts()), sorted(HOSTS))
        self.assertEqual([keys(host) for host in HOSTS], [KEYS] * 3)

    def test_killed_in_the_midst_of_a_creation(self):
        # Killed by its first call of shmat, which is for a segment that it has just made.
        confined(H2, ["up"], [SHMAT], KILL)
        self.expect(self.node(), changed=[H1, H3], failed={H2: ""})
        left = keys(H2)
        self.assertTrue(0 < len(left) < len(KEYS), left)
        self.assertEqual([keys(H1), keys(H3)], [KEYS, KEYS])
        on(H2, "rm", "/usr/local/bin/mox_node")
        self.predicted(failed={H2: "node-1: some of its objects are missing"})
        self.assertEqual(keys(H2), left)
        self.predicted(changed=[H2], repair=True)
        self.predicted(changed=[])
        self.assertEqual([keys(host) for host in HOSTS], [KEYS] * 3)

    def test_segments_that_would_vanish(self):
        on(H1, "sh", "-c", "echo 1 >/proc/sys/kernel/shm_rmid_forced")
        self.predicted(changed=[H2, H3], failed={H1: "shm_rmid_forced"})
        self.assertEqual(standing(H1), {})

    def test_what_cannot_be_told_is_a_failure(self):
        self.node(hosts=H3)
        confined(H3, ["plan", "status"], [SHMGET, SHMCTL], EPERM)
        before = standing(H3)
        on(H3, "mount", "-t", "tmpfs", "none", "/proc/sysvipc")
        self.addCleanup(on, H3, "umount", "-q", "/proc/sysvipc")
        for state in ("present", "absent"):
            self.expect(self.node(state=state, hosts=H3), failed={H3: "node-1: "})
        self.expect(node(module="node_info", hosts=H3, nodes=NODES), failed={H3: "node-1: "})
        on(H3, "umount", "/proc/sysvipc")
        self.assertEqual(standing(H3), before)

    def test_devices(self):
        options = {"module": "device", "path": "/var/tmp/n1", "blocks": 100, "number": 1}
        on(H2, "sh", "-c", "echo other >/var/tmp/n1")
        check = node(check=True, **options)
        self.assertEqual(on(H1, "find", "/var/tmp", "-name", "n1"), "")
        run = node(**options)
        for play in (check, run):
            self.expect(play, changed=[H1, H3], failed={H2: "it holds something else"})
        self.assertEqual(check.result[H1]["diff"], run.result[H1]["diff"])
        self.assertEqual(on(H2, "cat", "/var/tmp/n1"), "other\n")
        self.assertIn("Device number        = 1\n", on(H1, "devinit", "-V", "-F", "-f", "/var/tmp/n1"))
        user = holding(H2, "sh", "-c", "exec 3</var/tmp/n1; echo; cat")
        self.expect(node(force=True, **options), failed={H2: "somebody has the file open"})
        user.communicate()
        self.expect(node(force=True, **options), changed=[H2])
        self.expect(node(force=True, **options))


class Role(HostsTest):
    """The role: units on all hosts, and a database that requires them."""

    def setUp(self):
        super().setUp()
        unit = (SOURCES / "examples/systemd/mox-database@.service").read_text()
        program = STRANGER.replace("sys.stdin.read()", "import signal; signal.pause()").replace('"', "'").replace("\n", "\\n")
        for host in HOSTS:
            on(host, "sh", "-c", "cat >/etc/systemd/system/mox-database@.service && systemctl daemon-reload", input=unit.replace(
                "ExecStart=/bin/sleep infinity", f"ExecStart=/usr/bin/python3 -c \"exec('\''{program}'\'')\" 5001 0 1"))

    def role(self, check=False, text=SMALL, **variables):
        return role(check=check, **dict({"mox_package": PACKAGE, "mox_nodes": {"node1": text}}, **variables))

    def serving(self, host):
        return on(host, "systemctl", "show", "--property", "MainPID", "--value", "mox-database@node1").strip()

    def test_life_of_a_fleet(self):
        for step in (self.comes_up, self.faulty_descriptions_stop_nothing, self.rolling_change_stops_at_the_first_failure,
                     self.reboot, self.what_goes_leaves_nothing):
            before = time.monotonic()
            with self.subTest(step.__name__):
                step()
            print(f"\n  {step.__name__}: {time.monotonic() - before:.0f} s", end="", file=sys.stderr, flush=True)

    def comes_up(self):
        self.expect(self.role(mox_package=""), failed=dict.fromkeys(HOSTS, "mox_package names no package"))
        check = self.role(check=True)
        self.assertEqual(everything(), dict.fromkeys(HOSTS, {}))
        run = self.role()
        self.expect(run, changed=HOSTS)
        self.assertEqual(check.changed, run.changed)
        for host in HOSTS:
            on(host, "systemctl", "enable", "--quiet", "--now", "mox-database@node1")
            self.assertNotEqual(self.serving(host), "0")
        self.expect(self.role())

    def faulty_descriptions_stop_nothing(self):
        before = everything(), [self.serving(host) for host in HOSTS]
        self.expect(self.role(text="create nod-1: ipcbase=5000"), failed=dict.fromkeys(HOSTS, ""))
        self.assertEqual(before, (everything(), [self.serving(host) for host in HOSTS]))

    def rolling_change_stops_at_the_first_failure(self):
        stranger(H2, 5007)
        untouched, pids = standing(H3), {host: self.serving(host) for host in HOSTS}
        rolled = self.role(text=LARGE, serial=1)
        self.assertEqual((rolled.failed, rolled.hosts), ({H2}, {H1, H2}))
        self.assertIn("5007", rolled.reason[H2])
        self.assertEqual(sizes(H1), {5001: 8192, 5004: 4194304, 5007: 4096})
        self.assertEqual(sizes(H2), {5001: 4096, 5004: 4194304, 5007: 4096})
        self.assertEqual((standing(H3), self.serving(H3)), (untouched, pids[H3]))
        for host in (H1, H2):
            self.assertNotIn(self.serving(host), ("0", pids[host]), "the database was not started again")
        self.assertEqual(on(H2, "cat", "/etc/mox/node1.cmd"), SMALL + "\n")
        # Without the stranger the roll goes on where it stopped, and check mode knows what is left to do.
        on(H2, "ipcrm", "-M", "5007")
        self.assertEqual(self.role(check=True, text=LARGE).changed_hosts(), {H2, H3})
        self.expect(self.role(text=LARGE), changed=[H2, H3])

    def reboot(self):
        parent = (LAB / H2 / "pid").read_text()
        before = standing(H2)
        on(H2, "sed", "-i", "s/shmmni = .*/shmmni = 5000/", "/etc/sysctl.d/60-mox.conf")
        # At once: a shutdown would wait for the sessions that entered the laboratory's host from outside.
        on(H2, "systemctl", "reboot", "--force", "--force")
        while (LAB / H2 / "pid").read_text() == parent:
            time.sleep(0.1)
        subprocess.run([SOURCES / "scripts/hosts.sh", "up", H2], check=True)
        self.assertEqual(sorted(standing(H2).values()), sorted(before.values()))
        self.assertEqual(on(H2, "cat", "/proc/sys/kernel/shmmni"), "5000\n")
        self.assertNotEqual(self.serving(H2), "0")
        self.expect(self.role(text=LARGE))

    def what_goes_leaves_nothing(self):
        self.expect(self.role(mox_nodes={}, mox_gone=["node1"]), changed=HOSTS)
        self.assertEqual(everything(), dict.fromkeys(HOSTS, {}))
        self.expect(self.role(), changed=HOSTS)
        self.expect(finish(start(task("ansible.builtin.apt", name="mox-resources", state="absent"))), changed=HOSTS)
        self.assertEqual(everything(), dict.fromkeys(HOSTS, {}))
        self.expect(role(mox_package=PACKAGE), changed=HOSTS)


if __name__ == "__main__":
    PACKAGE = str(pathlib.Path(sys.argv.pop(1)).resolve())
    unittest.main(verbosity=2)
