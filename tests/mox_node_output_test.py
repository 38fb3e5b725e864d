#!/usr/bin/env python3
"""What mox_node reads and writes: options, descriptions, text, Prometheus lines, files, devices."""
import os
import pathlib
import pty
import re
import shutil
import socket
import struct
import subprocess
import sys
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent / "support"))
from node_host import (LIBC, NOBODY, NodeTest, attach, has_users, held, mox_node, rows, segment,
                       semaphores, states, verb, words_of)

NODE = "create node-1: ipcbase=5000, databuf=1048576"
DICTIONARY = 4194304


def make_node(base=5000, *buffers):
    for offset, size in ((4, DICTIONARY), *buffers):
        segment(base + offset, size)
    semaphores(base + 5)


class CommandLine(NodeTest):
    def test_mistakes(self):
        words = NODE.split()
        for mistake, error, said in (
                ([], "no verb: status, plan, up or down comes first", None),
                (["frob", *words], "no verb: frob", None),
                (["-u", "0", "status", *words], "no verb: status, plan, up or down comes first",
                 None),
                (["status"], "no description: -f FILE, or its words", "status"),
                (["up", "-f", "x", *words], "more than one of -f FILE, words and --all", "up"),
                (["status", "--all", "-f", "x"], "more than one of -f FILE, words and --all",
                 "status"),
                (["plan", "--all"], "--all is no option of plan", "plan"),
                (["status", "--repair", *words], "--repair is no option of status", "status"),
                (["up", "--wait", "3", *words], "--wait is no option of up", "up"),
                (["up", "--force", *words], "--force is no option of up", "up"),
                (["down", "--repair", *words], "--repair is no option of down", "down"),
                (["down", "--wait", "1.5", *words], "--wait takes whole seconds, not 1.5", "down"),
                (["down", "--wait", "-1", *words], "--wait takes whole seconds, not -1", "down"),
                (["down", "--wait", "99999999999", *words],
                 "--wait takes whole seconds, not 99999999999", "down"),
                (["down", "--wait"], "no argument for option --wait", "down"),
                (["status", "-x", *words], "unknown option -x", "status"),
                (["status", "--frob", *words], "unknown option --frob", "status"),
                (["status", "-f", "a", "-f", "b"], "--file is given twice", "status"),
                (["status", "-u", "", *words], "--user has an empty argument", "status"),
                (["status", "-o", "xml", *words], "unknown output format xml", "status"),
                (["up", "-o", "prometheus", *words], "prometheus output is of status alone",
                 "up")):
            with self.subTest(mistake):
                text = mox_node(*mistake)
                full = f"Error: {error}; mox_node --help tells more\n"
                self.assertEqual((text.status, text.out, text.err), (1, "", full))
                if mistake and (mistake[0] == "-u" or "-o" in mistake or mistake[-1] == "--wait"):
                    continue
                # The same in JSON, wherever the option stands.
                json = mox_node(*(mistake[:1] + ["-o", "json"] + mistake[1:] if mistake else
                                  ["-o", "json"]))
                self.assertEqual((json.status, json.err, json.json["verb"]), (1, full, said))
        self.assertEqual(held(), ([], []))

    def test_help_and_version(self):
        usage = mox_node("--help")
        self.assertEqual((usage.status, usage.err), (0, ""))
        self.assertEqual(usage.out, mox_node("down", "-h").out)
        self.assertTrue(usage.out.startswith("Usage: mox_node status "))
        self.assertRegex(mox_node("-V").out, r"\Amox_node \d+\.\d+\.\d+\.\d+ \[.*\]\n\Z")

    def test_descriptions_that_are_refused(self):
        caret = "^"
        for text, error in (
                ("create node-1: ipcbase=5, foo=3",
                 f"foo\n create node-1: ipcbase=5, foo\n{caret:>30}"),
                ("CREATE node-1:", f"CREATE\n CREATE\n{caret:>7}"),
                ("", "\\n\n\n^"),
                ("create node-1: ipcbase=1, ipcbase=2",
                 f"ipcbase already specified\nError: =\n create node-1: ipcbase=1, ipcbase=\n"
                 f"{caret:>35}"),
                ("create node-1: device-0.path=/x",
                 f"device spec not allowed for create\nError: device\n create node-1: device\n"
                 f"{caret:>22}"),
                ("delete node-1: ipcbase=5", "a delete command does not say what is wanted"),
                ("create --search node-1: ipcbase=5",
                 "--search names no base key, so that nobody can say what is wanted"),
                ("check --find node-1:", f"find\n check --find\n{caret:>13}"),
                ("create node-1:", "node-1: no base key (ipcbase) is given, or 0"),
                ("create node-1: ipcbase=9 node-2: ipcbase=0",
                 "node-2: no base key (ipcbase) is given, or 0"),
                ("create node-2: ipcbase=17 node-3: ipcbase=100 node-1: ipcbase=10",
                 "node-1 and node-2 overlap: a node owns the 8 keys from its base on, here 10 "
                 "and 17")):
            with self.subTest(text):
                path = self.path("node.cmd", text.replace(" ", "\n\t"))
                for words in (words_of(text), ["-f", path]):
                    if not words:
                        continue
                    result = mox_node("up", "-o", "json", *words)
                    self.assertEqual((result.status, result.err, result.json["error"]),
                                     (1, f"Error: {error}\n", error))
        self.assertEqual(held(), ([], []))
        # Keys side by side do not overlap.
        self.assertEqual(verb("plan", "create node-1: ipcbase=8 node-2: ipcbase=16").status, 0)

    def test_files(self):
        self.path("good", NODE.replace(" ", "\r\n \t"))
        self.path("zero", NODE + "\0")
        for name, error in (("missing", "No such file or directory"), ("", "Is a directory"),
                            ("zero", "holds a zero byte")):
            result = mox_node("status", "-o", "json", "-f", self.path(name))
            self.assertEqual(result.status, 1)
            self.assertIn(error, result.json["error"])
            self.assertEqual(result.err, f"Error: {result.json['error']}\n")
        with open(self.path("good"), encoding="ascii") as file:
            self.assertEqual(mox_node("status", "-f", "-", stdin=file).status, 2)
        self.assertEqual(mox_node("status", "-f", "-", input=NODE.encode()).status, 2)
        self.assertEqual(mox_node("status", "-f", self.path("good")).status, 2)


class Text(NodeTest):
    def test_a_report(self):
        make_node(5000, (1, 7), (2, 4096))
        attach(5002)
        address = attach(5004)
        expected = """\
node-1 conflict ipcbase=5000 attached=1
  reason: databuf (key 5001) has size 7, not 1048576
  5001 databuf wanted=1048576 found=7 wrong
  5004 dictbuf wanted=4194304 found=4194304 present
  5005 semaphores wanted=8 found=8 present
  5002 tlogbuf wanted=0 found=4096 extra
node-9 absent ipcbase=6000 attached=0
  6004 dictbuf wanted=4194304 found=- absent
  6007 evbuf wanted=5 found=- absent
  6005 semaphores wanted=8 found=- absent
"""
        words = NODE.split() + ["node-9:", "ipcbase=6000,", "evbuf=5"]
        result = mox_node("status", *words)
        self.assertEqual((result.out, result.err, result.status), (expected, "", 4))
        LIBC.shmdt(address)
        verbose = mox_node("status", "-v", *words).out
        self.assertRegex(verbose, r"5001 databuf wanted=1048576 found=7 wrong id=\d+ mode=0660 "
                                  r"uid=\d+ gid=\d+ attached=0 creator-pid=\d+ last-pid=0 "
                                  r"changed=20\d\d-\d\d-\d\dT\d\d:\d\d:\d\dZ\n")
        self.assertEqual(re.sub(" id=.*", "", verbose), expected.replace("attached=1", "attached=0"))

    def test_up_and_down_tell_whether_they_changed_anything(self):
        last = [mox_node(line, *NODE.split()).out.splitlines()[-1]
                for line in ("up", "up", "down", "down")]
        self.assertEqual(last, ["up: absent, now present", "up: present, nothing changed",
                                "down: present, now absent", "down: absent, nothing changed"])

    def test_plan(self):
        make_node(5000)
        lines = mox_node("plan", *NODE.split()).out.splitlines()
        self.assertEqual(lines[0], "node-1 partial ipcbase=5000 attached=0 plan=refuse")
        self.assertRegex(mox_node("plan", "--repair", *NODE.split()).out,
                         r"(?m)^limit shmmni needed=1 in-use=1 limit=\d+ fits$")

    def test_colours_on_a_terminal_alone(self):
        def on_terminal(**environment):
            leader, follower = pty.openpty()
            subprocess.run(["mox_node", "status", *NODE.split()], stdout=follower, check=False,
                           env=os.environ | environment)
            os.close(follower)
            text = os.read(leader, 65536).decode()
            os.close(leader)
            return text

        self.assertIn("node-1 \033[33mabsent\033[0m ipcbase", on_terminal(NO_COLOR=""))
        self.assertNotIn("\033", on_terminal(NO_COLOR="1"))
        self.assertNotIn("\033", mox_node("status", *NODE.split()).out)

    def test_prometheus(self):
        make_node(5000, (7, 10))
        attach(5007)
        before = int(time.time())
        result = mox_node("status", "-o", "prometheus", *NODE.split())
        # The state is told by the samples; the text is complete.
        self.assertEqual(result.status, 0)
        samples = [line for line in result.out.splitlines() if not line.startswith("#")]
        where = '{node="1",ipcbase="5000"'
        self.assertEqual(samples[:-1], [
            f'mox_node_state{where},state="{state}"}} {int(state == "partial")}'
            for state in ("present", "absent", "partial", "conflict", "unknown")] + [
                f"mox_node_attaches{where}}} 0",
                f'mox_node_segment_bytes{where},buffer="databuf"}} 0',
                f'mox_node_segment_bytes{where},buffer="dictbuf"}} 4194304'])
        name, stamp = samples[-1].split()
        self.assertEqual(name, "mox_node_probe_timestamp_seconds")
        self.assertTrue(before <= int(stamp) <= time.time())
        # Of what the kernel does not tell, there is no sample.
        self.put_over("/proc/sysvipc/shm", "key shmid\n")
        refused = mox_node("status", "-o", "prometheus", *NODE.split(),
                           prefix=("strace", "-qq", "-o", "/dev/null", "-e",
                                   "inject=shmctl:error=EACCES"))
        self.assertIn(f'{where},state="unknown"}} 1', refused.out)
        self.assertNotIn("mox_node_segment_bytes{node=\"1\",ipcbase=\"5000\",buffer=\"dictbuf",
                         refused.out)
        if not shutil.which("promtool"):
            self.skipTest("skipped: promtool is not installed")
        for text in (result.out, mox_node("status", "--all", "-o", "prometheus", "-u", "54321").out):
            lint = subprocess.run(["promtool", "check", "metrics"], input=text, text=True,
                                  capture_output=True, check=False)
            self.assertEqual((lint.returncode, lint.stdout + lint.stderr), (0, ""))

    def test_all(self):
        for key, size in ((4, DICTIONARY), (20004, DICTIONARY), (30004, DICTIONARY - 1)):
            segment(key, size)
        semaphores(5)
        semaphores(20005, 7)
        semaphores(30005)
        empty = mox_node("status", "--all")
        self.assertEqual((empty.out, empty.status), ("", 2))
        make_node(1, (1, 8), (7, 3))
        make_node(5000, (1, 1048576), (3, 2 ** 31), (5, 2 ** 31 - 1))
        # Overlaps the node at 5000, and is overlapped in its turn by the next one.
        make_node(5006)
        make_node(5008)
        make_node(2147483643)
        result = mox_node("status", "--all")
        self.assertEqual(result.out, """\
create node-1: ipcbase=1, databuf=8, nlogbuf=4194304, evbuf=3
create node-2: ipcbase=5000, databuf=1048576, sqlbuf=2147483647
create node-3: ipcbase=5008, tlogbuf=4194304
create node-4: ipcbase=2147483643
""")
        self.assertEqual((result.status, result.err), (
            0, "Error: node-2: nlogbuf (key 5003) has 2147483648 bytes, more than a command can "
               "say; left out of its line\n"))
        for line in result.out.splitlines():
            self.assertEqual(mox_node("status", *line.split()).status, 0)
        report = mox_node("status", "--all", "-o", "json").json
        self.assertEqual([(node["node"], node["ipcbase"]) for node in report["nodes"]],
                         [(1, 1), (2, 5000), (3, 5008), (4, 2147483643)])
        self.assertEqual(len(report["nodes"][1]["segments"]), 4)

    def test_all_of_one_user(self):
        self.need_users()
        user = str(NOBODY.pw_uid)
        subprocess.run(["mox_node", "up", "-u", user, *NODE.split()], check=True,
                       stdout=subprocess.DEVNULL)
        make_node(7000)
        segment(5002, 5)
        segment(8004, DICTIONARY, NOBODY.pw_uid)  # beside a set of root
        semaphores(8005)
        report = mox_node("status", "--all", "-u", user, "-o", "json").json
        self.assertEqual([node["ipcbase"] for node in report["nodes"]], [5000])
        self.assertEqual(states(report), ["databuf:present", "dictbuf:present", "set:present"])
        self.assertEqual([item["key"] for item in report["nodes"][0]["extra"]], [5002])


class Output(NodeTest):
    def test_a_file_is_replaced_whole(self):
        path = self.path("out.json", "before")
        os.chmod(path, 0o600)
        reader = open(path, encoding="ascii")
        result = mox_node("status", "--output-file", path, "-o", "json", *NODE.split(),
                          umask=0o027)
        self.assertEqual((result.status, result.out, result.err), (2, "", ""))
        self.assertEqual(pathlib.Path(path).read_text(),
                         mox_node("status", "-o", "json", *NODE.split()).out)
        self.assertEqual(os.stat(path).st_mode & 0o777, 0o640)
        with reader:
            self.assertEqual(reader.read(), "before")
        self.assertEqual(os.listdir(self.folder), ["out.json"])

    def test_a_file_that_cannot_be_written(self):
        os.symlink("target", self.path("link"))
        os.mkfifo(self.path("fifo"))
        for name, error in (("link", "it is no regular file"), ("fifo", "it is no regular file"),
                            (".", "it is no regular file"),
                            ("missing/file", "No such file or directory")):
            with self.subTest(name):
                path = self.path(name)
                result = mox_node("up", "--output-file", path, *NODE.split())
                # What was made stays.
                self.assertEqual((result.status, result.err, held()),
                                 (1, f"Error: writing {path}: {error}\n", ([5001, 5004], [5005])))
        path = self.path("large")
        result = mox_node("status", "--output-file", path, *NODE.split(),
                          prefix=("prlimit", "--fsize=10"))
        self.assertEqual((result.status, result.err),
                         (1, f"Error: writing {path}: File too large\n"))
        self.assertEqual(sorted(os.listdir(self.folder)), ["fifo", "link"])

    def test_an_error_goes_where_the_output_goes(self):
        path = self.path("out")
        mox_node("status", "-o", "json", "--output-file", path, "delete")
        self.assertIn('"error":"a delete command', pathlib.Path(path).read_text())
        result = mox_node("status", "-o", "prometheus", "--output-file", path, "delete")
        self.assertEqual(result.status, 1)
        self.assertIn('"error":"a delete command', pathlib.Path(path).read_text())

    def test_standard_output_that_cannot_be_written(self):
        for redirection, error in ((">&-", "Bad file descriptor"),
                                   (">/dev/full", "No space left on device"),
                                   ("| true", "Broken pipe")):
            for line in ("status", "up -o json"):
                with self.subTest(redirection + line):
                    command = f"(sleep 0.2; mox_node {line} {NODE}; echo $? >&2) {redirection}"
                    done = subprocess.run(["sh", "-c", command], capture_output=True, text=True,
                                          check=False)
                    self.assertEqual(done.stderr,
                                     f"Error: writing standard output: {error}\n1\n")
            self.assertEqual(held(), ([5001, 5004], [5005]))

    def test_bytes_that_are_no_text(self):
        path = b"/x/\xff\xc3\xa4\xc2\x80\"\\\n\x7f\xe2\x82".replace(b"\n", b"")
        command = [b"check node-1: ipcbase=5, device-0.path=" + path]
        result = mox_node("status", "-o", "json", *command)
        self.assertEqual(os.fsencode(result.json["nodes"][0]["devices"][0]["path"]), path)
        self.assertIn("\\udcff", result.out)
        self.assertIn("ä", result.out)
        self.assertIn(r' /x/\xffä\xc2\x80"\\x7f\xe2\x82 unknown',
                      mox_node("status", *command).out)


class Devices(NodeTest):
    def header(self, signature, guards=(1, 1, 1), name=b"/data/n1", kind=0x80):
        biased = bytes(byte ^ 0x80 for byte in name.ljust(256, b"\0"))
        words = struct.pack(">III", guards[0], 1795000000 ^ 0x80000000, 5)
        words += struct.pack(">I", signature ^ 0x80000000) + biased
        words += struct.pack(">IIIHBIB", 3 ^ 0x80000000, 2 ** 31 - 1, 0, 8192, kind, 0x80000000,
                             0x81)
        return words + struct.pack(">IQQI", guards[1], 8192, 12288, guards[2])

    def look(self, path, line="status", **options):
        words = ["-o", "json", f"check node-1: ipcbase=5, device-0.path={path}, device-0.size=1"]
        return mox_node(line, *words, **options).json["nodes"][0]["devices"][0]

    def test_states_of_files(self):
        current, older = 31415928, 31415927
        room = b"\0" * 8192

        def region(header, size=4096):
            return header.ljust(size, b"\0")

        for name, content, state, check in (
                ("nothing", b"", "blank", None),
                ("zeros", b"\0" * 20000, "blank", "empty"),
                ("short zeros", b"\0" * 100, "blank", "empty"),
                ("short text", b"text", "other", "empty"),
                ("text", b"\0" * 8191 + b"\0" + b"x", "other", "empty"),
                ("zeros where headers stand", b"\0" * 2048 + b"x" * 6144 + b"\0" * 4096, "blank",
                 "empty"),
                ("something at their end", b"\0" * 2047 + b"x" + b"\0" * 12000, "other", "empty"),
                ("current", room + region(self.header(current)), "initialised", "empty"),
                ("torn", room + region(self.header(current, (1, 2, 3))), "other", "empty"),
                ("third guard", room + region(self.header(current, (1, 2, 1))), "initialised",
                 "empty"),
                ("cut", room + region(self.header(current), 4095), "other", "empty"),
                ("older", region(self.header(older), 2048), "initialised", "empty"),
                ("torn older", region(self.header(older, (1, 2, 1)), 2048), "other", "empty"),
                ("older at the place of the current", room + region(self.header(older)), "other",
                 "empty"),
                ("current at the place of the older", region(self.header(current), 12288), "other",
                 "empty"),
                ("unknown signature", room + region(self.header(31415929)), "other", "empty")):
            with self.subTest(name):
                path = self.path("device", content)
                device = self.look(path, "plan")
                self.assertEqual((device["state"], device["kind"], device["bytes"],
                                  device["check"]), (state, "file", len(content), check))
                self.assertEqual(pathlib.Path(path).read_bytes(), content)
                told = [device[key] for key in ("number", "type", "block_size", "created", "name")]
                self.assertEqual(told, [3, "data", 8192, 1795000000, "/data/n1"]
                                 if state == "initialised" else [None] * 5)

    def test_what_the_initialiser_writes(self):
        path = self.path("device")
        subprocess.run(["devinit", "-l", "-b", "100", "-n", "4", "-s", "1024", "-f", path],
                       check=True, stdout=subprocess.DEVNULL)
        device = self.look(path)
        self.assertLess(abs(device.pop("created") - time.time()), 60)
        self.assertEqual(device, {"device": 0, "path": path, "state": "initialised",
                                  "kind": "file", "bytes": 12288 + 102400, "number": 4,
                                  "type": "log", "block_size": 1024, "name": path})

    def test_a_header_of_a_stranger(self):
        name = b"\x1b[2J\nnode-1 present\xff" + b"x" * 236
        path = self.path("device", b"\0" * 8192 + self.header(31415928, name=name).ljust(4096))
        self.assertEqual(os.fsencode(self.look(path)["name"]), name)
        text = mox_node("status", f"check node-1: ipcbase=5, device-0.path={path}").out
        self.assertIn(r'name="\x1b[2J\nnode-1 present\xff' + "x" * 236 + '"', text)

    def test_what_is_no_file(self):
        os.mkfifo(self.path("fifo"))
        os.symlink("loop", self.path("loop"))
        os.symlink("new", self.path("dangling"))
        os.symlink("nowhere/new", self.path("astray"))
        self.path("text", "x")
        with socket.socket(socket.AF_UNIX) as bound:
            bound.bind(self.path("socket"))
        for name, state, kind, check in (
                ("fifo", "unusable", "fifo", None), ("socket", "unusable", "socket", None),
                ("", "unusable", "folder", None), ("loop", "unknown", None, None),
                ("new", "absent", None, "create"), ("dangling", "absent", None, "create"),
                ("astray", "unknown", None, None), ("nowhere/new", "unknown", None, None),
                ("text/new", "unknown", None, None)):
            with self.subTest(name):
                device = self.look(self.path(name), "plan")
                self.assertEqual((device["state"], device["kind"], device["bytes"],
                                  device["check"]), (state, kind, None, check))
        self.assertEqual(mox_node("status", "-o", "json", "check node-1: ipcbase=5, "
                                  "device-0.size=3").json["nodes"][0]["devices"][0]["path"], None)
        self.assertNotIn("new", os.listdir(self.folder))
        if has_users():
            os.chmod(self.path("text"), 0o600)
            device = self.look(self.path("text"), user=NOBODY.pw_uid, group=NOBODY.pw_gid)
            self.assertEqual((device["state"], device["kind"], device["bytes"]),
                             ("unknown", "file", 1))

    def plan(self, *devices):
        """Plans for devices of one megabyte at these paths, each of a node of its own."""
        text = "check" + "".join(f" node-{number}: ipcbase={8 * number + 8}, device-0.path={path}, "
                                 "device-0.size=1" for number, path in enumerate(devices))
        return mox_node("plan", "-o", "json", text)

    def test_files_named_before(self):
        self.path("file", "x")
        os.link(self.path("file"), self.path("same"))
        os.symlink("new", self.path("link"))
        os.mkdir(self.path("folder"))
        names = ["file", "same", "new", "link", "new", "folder/new", "missing/x", "missing/x"]
        report = self.plan(*map(self.path, names)).json
        self.assertEqual([node["devices"][0]["check"] for node in report["nodes"]],
                         ["empty", "twice", "create", "twice", "twice", "create", None, None])

    def test_space(self):
        for name, size in (("small", "4m"), ("large", "40m")):
            os.mkdir(self.path(name))
            LIBC.mount(b"none", self.path(name).encode(), b"tmpfs", 0, f"size={size}".encode())
        os.mkdir(self.path("small/folder"))
        # 256 blocks and one of bitmap, behind a header of three.
        need = (256 + 1 + 3) * 4096

        def space(*names):
            result = self.plan(*map(self.path, names))
            self.assertEqual(result.status, 0)
            return [(os.path.basename(item["path"]), item["needed"], item["free"], item["fits"])
                    for item in result.json["space"]]

        small, large = 4 << 20, 40 << 20
        self.assertEqual(space("small/a", "small/folder/b", "large/c", "small/d"),
                         [("small", 3 * need, small, True), ("large", need, large, True)])
        self.assertEqual(space("small/a", "small/b", "small/c", "small/d"),
                         [("small", 4 * need, small, False)])
        # An existing file takes the whole account for itself.
        self.path("large/file", "x" * 4096)
        self.assertEqual(space("large/file", "large/new"),
                         [("large", 2 * need, large - 4096, True)])
        self.assertEqual(space("large/new", "large/file"),
                         [("large", 2 * need, large - 4096, False)])
        # A plan that is refused needs nothing.
        segment(12, 5)
        report = self.plan(self.path("small/a")).json
        self.assertEqual([item["needed"] for item in report["space"]], [0])

    def test_block_devices(self):
        with open(self.path("image"), "wb") as image:
            image.truncate(8 << 20)
        loop = subprocess.run(["losetup", "--find", "--show", self.path("image")],
                              capture_output=True, text=True, check=False)
        if loop.returncode != 0:
            self.skipTest(f"skipped: no loop device: {loop.stderr.strip()}")
        loop = loop.stdout.strip()
        self.addCleanup(subprocess.run, ["losetup", "--detach", loop], check=True)
        node = self.path("node")
        os.mknod(node, 0o060600, os.stat(loop).st_rdev)
        device = self.look(node, "plan")
        if device["state"] == "unknown":
            self.skipTest("skipped: block devices cannot be opened here")
        self.assertEqual((device["state"], device["kind"], device["bytes"], device["check"]),
                         ("blank", "block", 8 << 20, None))
        self.assertEqual([item["free"] for item in self.plan(node).json["space"]], [8 << 20])
        subprocess.run(["mkfs.ext4", "-q", node], check=True)
        self.assertEqual(self.look(node)["state"], "other")
        os.mkdir(self.path("mount"))
        self.assertEqual(LIBC.mount(node.encode(), self.path("mount").encode(), b"ext4", 1, None), 0)
        self.assertEqual(self.look(node, "plan")["check"], "busy")
        LIBC.umount(self.path("mount").encode())
        self.put_over("/proc/swaps", f"Filename Type Size Used Priority\n{node} partition 1 0 -2\n")
        self.assertEqual(self.look(node, "plan")["check"], "busy")

    def test_character_devices(self):
        for name, minor, state in (("null", 3, "blank"), ("zero", 5, "blank"),
                                   ("random", 9, "other")):
            node = self.path(name)
            try:
                os.mknod(node, 0o020600, os.makedev(1, minor))
            except PermissionError as error:
                self.skipTest(f"skipped: no device nodes can be made here: {error.strerror}")
            device = self.look(node, "plan")
            if device["state"] == "unknown":
                self.skipTest("skipped: devices cannot be opened here")
            self.assertEqual((device["state"], device["kind"], device["bytes"], device["check"]),
                             (state, "character", None, None))


if __name__ == "__main__":
    unittest.main(verbosity=2)
