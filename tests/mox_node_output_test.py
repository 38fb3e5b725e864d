#!/usr/bin/env python3
"""What mox_node reads and writes: options, descriptions, text, Prometheus lines, files, devices."""
import os
import pathlib
import pty
import re
import shlex
import socket
import struct
import subprocess
import sys
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent / "support"))
from node_host import (AS_NOBODY, DICTIONARY, LIBC, NOBODY, NODE, NOTHING, TRACE, WHOLE, NodeTest,
                       attach, faulty, has_users, held, kernel_setting, mox_node, rows, segment,
                       semaphores, states, verb, words_of)


def make_node(base=5000, *buffers):
    for offset, size in ((4, DICTIONARY), *buffers):
        segment(base + offset, size)
    semaphores(base + 5)


def header(signature, guards=(1, 1, 1), name=b"/data/n1", kind=0x80, size=8192):
    words = struct.pack(">4I", guards[0], 1795000000 ^ 0x80000000, 5, signature ^ 0x80000000)
    words += bytes(byte ^ 0x80 for byte in name.ljust(256, b"\0"))
    words += struct.pack(">IIIHBIB", 3 ^ 0x80000000, 2 ** 31 - 1, 0, size, kind, 0x80000000, 0x81)
    return words + struct.pack(">IQQI", guards[1], 8192, 12288, guards[2])


class CommandLine(NodeTest):
    def test_mistakes(self):
        no_verb = "no verb: status, plan, up or down comes first"
        more = "more than one of -f FILE, words and --all"
        for line, error in (
                ("", no_verb), ("-u 0 status +", no_verb), ("frob +", "no verb: frob"),
                ("status", "no description: -f FILE, or its words"),
                ("up -f x +", more), ("status --all -f x", more), ("status --all +", more),
                ("status --repair +", "--repair is no option of status"),
                ("down --wait 1.5 +", "--wait takes whole seconds, not 1.5"),
                ("down --wait 2147483648 +", "--wait takes whole seconds, not 2147483648"),
                ("down --wait", "no argument for option --wait"),
                ("status --frob -x +", "unknown option --frob"),
                ("status -f a -f b", "--file is given twice"),
                ("status -u '' +", "--user has an empty argument"),
                ("status -o xml +", "unknown output format xml"),
                ("up -o prometheus +", "prometheus output is of status alone")):
            words = shlex.split(line.replace("+", NODE))
            text = mox_node(*words)
            full = f"Error: {error}; mox_node --help tells more\n"
            self.assertEqual((text.status, text.out, text.err), (1, "", full))
            if " -o" in line or line[:1] == "-" or line[-6:] == "--wait":
                continue
            # The same in JSON, wherever the option stands.
            json = mox_node(*words[:1], "-o", "json", *words[1:])
            said = words[0] if words and words[0] != "frob" else None
            self.assertEqual((json.status, json.err, json.json), (1, full, {
                "version": 1, "verb": said, "error": full[7:-1]}))
        self.assertEqual(held(), NOTHING)

    def test_help_and_version(self):
        usage = mox_node("--help")
        self.assertEqual((usage.status, usage.err), (0, ""))
        self.assertEqual(usage.out, mox_node("down", "-h").out)
        self.assertTrue(usage.out.startswith("Usage: mox_node status "))
        self.assertRegex(mox_node("-V").out, r"\Amox_node \d+\.\d+\.\d+\.\d+ \[.*\]\n\Z")

    def test_descriptions_that_are_refused(self):
        for text, error in (
                ("create node-1: ipcbase=5, foo=3",
                 f"foo\n create node-1: ipcbase=5, foo\n{'^':>30}"),
                (f"create node-1: {'x' * 600}",
                 f"{'x' * 600}\\n\n create node-1: {'x' * 600}\n{'^':>616}"),
                ("CREATE node-1:", f"CREATE\n CREATE\n{'^':>7}"),
                ("", "\\n\n\n^"),
                ("create node-1: device-0.path=/x",
                 f"device spec not allowed for create\nError: device\n create node-1: device\n"
                 f"{'^':>22}"),
                ("delete node-1: ipcbase=5", "a delete command does not say what is wanted"),
                ("create --search node-1: ipcbase=5",
                 "--search names no base key, so that nobody can say what is wanted"),
                ("create node-1:", "node-1: no base key (ipcbase) is given, or 0"),
                ("create node-2: ipcbase=17 node-3: ipcbase=100 node-1: ipcbase=10",
                 "node-1 and node-2 overlap: a node owns the 8 keys from its base on, here 10 "
                 "and 17")):
            path = self.path("node.cmd", text.replace(" ", "\n\t"))
            for words in (words_of(text), ["-f", path]):
                if not words:
                    continue
                result = mox_node("up", "-o", "json", *words)
                self.assertEqual((result.status, result.err, result.json["error"]),
                                 (1, f"Error: {error}\n", error))
        self.assertEqual(held(), NOTHING)
        # Keys side by side do not overlap.
        self.assertEqual(verb("plan", "create node-1: ipcbase=8 node-2: ipcbase=16").status, 0)

    def test_files(self):
        good = self.path("good", NODE.replace(" ", "\r\n \t"))
        zero = self.path("zero", NODE + "\0")
        for path, error in (
                (self.path("missing"),
                 'KORV-S-05500: Opening file "{}" failed, OS status=2: No such file or directory'),
                (self.folder, 'KORV-S-05502: Reading file "{}" failed, OS status=21: Is a directory'),
                (zero, "command file {} holds a zero byte")):
            result = mox_node("status", "-o", "json", "-f", path)
            error = error.format(path)
            self.assertEqual((result.status, result.err, result.json["error"]),
                             (1, f"Error: {error}\n", error))
        with open(good, encoding="ascii") as file:
            self.assertEqual(mox_node("status", "-f", "-", stdin=file).status, 2)
        self.assertEqual(mox_node("status", "-f", good).status, 2)


class Text(NodeTest):
    def test_a_report(self):
        for offset, size in ((1, 7), (2, 4096), (4, DICTIONARY)):
            segment(5000 + offset, size)
        semaphores(5005, 3)
        for key in (5001, 5004, 5004):
            attach(key)
        name = b"\x1b[2J\nnode-1 present\xff" + b"x" * 236  # fills its field
        device = self.path("device", b"\0" * 8192 + header(31415928, name=name, kind=0x81, size=4096)
                           .ljust(4096, b"\0"))
        words = words_of(NODE.replace("create", "check") + f", device-0.path={device}, "
                         "device-7.size=1 node-9: ipcbase=6000, evbuf=5, device-1.path="
                         + self.path("new"))
        expected = f"""\
node-1 conflict ipcbase=5000 attached=3
  reason: databuf (key 5001) has size 7, not 1048576; semaphores (key 5005) has size 3, not 8
  5001 databuf wanted=1048576 found=7 wrong
  5004 dictbuf wanted=4194304 found=4194304 present
  5005 semaphores wanted=8 found=3 wrong
  5002 tlogbuf wanted=0 found=4096 extra
  device-0 {device} initialised kind=file bytes=12288 number=3 type=log block-size=4096 \
name="\\x1b[2J\\nnode-1 present\\xff{'x' * 236}"
  device-7 - unknown
node-9 absent ipcbase=6000 attached=0
  6004 dictbuf wanted=4194304 found=- absent
  6007 evbuf wanted=5 found=- absent
  6005 semaphores wanted=8 found=- absent
  device-1 {self.folder}/new absent
"""
        result = mox_node("status", *words)
        self.assertEqual((result.out, result.err, result.status), (expected, "", 4))
        verbose = mox_node("status", "--verbose", *words, env=os.environ | {"TZ": "Asia/Tokyo"}).out
        made = time.gmtime(rows("shm")[1]["ctime"])
        self.assertIn(" found=4096 extra id=1 mode=0660 uid=0 gid=0 attached=0 creator-pid="
                      f"{os.getpid()} last-pid=0 changed={time.strftime('%FT%TZ', made)}\n", verbose)
        self.assertIn(" created=2026-11-18T11:06:40Z name", verbose)
        self.assertEqual(re.sub(" id=.*| created=[^ ]*", "", verbose), expected)

    def test_plan(self):
        if not os.access("/proc/sys/kernel/shmmni", os.W_OK):
            self.skipTest("skipped: limits are fixed")
        for name, text in (("shmmni", "3"), ("shmmax", "5000000"), ("shmall", "1400"),
                           ("sem", "32000 1024000000 500 9")):
            kernel_setting(name, text)
        os.mkdir(self.path("disk"))
        LIBC.mount(b"none", self.path("disk").encode(), b"tmpfs", 0, b"size=4m")
        segment(5004, DICTIONARY)
        device = self.path("disk/a\x7f")
        words = words_of(NODE.replace("create", "check") + f', device-0.path="{device}", '
                         f"device-0.size=1 node-2: ipcbase=6000, device-4.path={self.folder}/no/x,"
                         "device-4.size=4096")
        result = mox_node("plan", "--repair", *words)
        self.assertEqual((result.out, result.err, result.status), (f"""\
node-1 partial ipcbase=5000 attached=0 plan=repair
  5001 databuf wanted=1048576 found=- absent
  5004 dictbuf wanted=4194304 found=4194304 present
  5005 semaphores wanted=8 found=- absent
  device-0 {self.folder}/disk/a\\x7f absent check=create
node-2 absent ipcbase=6000 attached=0 plan=create
  6004 dictbuf wanted=4194304 found=- absent
  6005 semaphores wanted=8 found=- absent
  device-4 {self.folder}/no/x unknown
limit shmmni needed=2 in-use=1 limit=3 fits
limit shmmax needed=4194304 in-use=- limit=5000000 fits
limit shmall needed=1280 in-use=1024 limit=1400 too much
limit semmni needed=2 in-use=0 limit=9 fits
limit semmsl needed=8 in-use=- limit=32000 fits
limit semmns needed=16 in-use=0 limit=1024000000 fits
space {self.folder}/disk needed=1064960 free=4194304 fits
space {self.folder}/no needed=4295110656 free=? unknown
""", "", 6))
        kernel_setting("shmmax", str(2 ** 53 - 1))
        kernel_setting("shmall", str(2 ** 53))
        self.assertRegex(mox_node("plan", *words).out,
                         rf"limit shmmax .* limit={2 ** 53 - 1} fits\nlimit shmall .* limit=- fits")

    def test_colours_on_a_terminal_alone(self):
        make_node(5000, (1, 1), (2, 1))
        segment(5020, DICTIONARY)
        words = ["check", "node-1: ipcbase=5000, databuf=2 node-2: ipcbase=5016 node-3: "
                          "ipcbase=6000 node-1: device-0.path=" + self.path("zeros", b"\0")]

        def on_terminal(*options, **environment):
            leader, follower = pty.openpty()
            subprocess.run(["mox_node", *options, *words], stdout=follower, check=False,
                           env=os.environ | environment)
            os.close(follower)
            with open(leader, "rb", buffering=0) as terminal:
                try:
                    return terminal.read(65536).decode()
                except OSError:  # nothing was written
                    return ""

        shown = on_terminal("status", NO_COLOR="")
        self.assertEqual(re.findall("\033\\[([0-9]+)m(\\w+)\033\\[0m", shown), [
            ("31", "conflict"), ("31", "wrong"), ("32", "present"), ("32", "present"),
            ("33", "extra"), ("33", "blank"), ("33", "partial"), ("32", "present"),
            ("33", "absent"), ("33", "absent"), ("33", "absent"), ("33", "absent")])
        self.assertNotIn("\033", on_terminal("status", NO_COLOR="1"))
        plain = mox_node("status", *words).out
        self.assertEqual(re.sub("\033\\[[0-9]+m|\r", "", shown), plain)
        self.assertEqual(on_terminal("status", "--output-file", self.path("out"), NO_COLOR=""), "")
        self.assertEqual(pathlib.Path(self.path("out")).read_text(), plain)

    def test_prometheus(self):
        make_node(5000, (7, 10))
        for key in (5007, 5004, 5004):
            attach(key)
        before = int(time.time())
        result = mox_node("status", "-o", "prometheus", *NODE.split())
        node = '{node="1",ipcbase="5000"'
        told = lambda state: "".join(
            f'mox_node_state{node},state="{name}"}} {int(name == state)}\n'
            for name in ("present", "absent", "partial", "conflict", "unknown"))
        size = f'mox_node_segment_bytes{node},buffer='
        expected = "".join(
            f"# HELP mox_node_{name} {meaning}\n# TYPE mox_node_{name} gauge\n{samples}"
            for name, meaning, samples in (
                ("state", "Whether the resources of the node are in this state.", told("partial")),
                ("attaches", "How often the segments of the node are attached.",
                 f"mox_node_attaches{node}}} 2\n"),
                ("segment_bytes", "Size of a segment of the node, 0 when it is absent.",
                 f'{size}"databuf"}} 0\n{size}"dictbuf"}} 4194304\n'),
                ("probe_timestamp_seconds", "When the host was looked at.",
                 "mox_node_probe_timestamp_seconds")))
        head, _, stamp = result.out.rpartition(" ")
        self.assertEqual((head, result.status), (expected, 0))
        self.assertTrue(before <= int(stamp) <= time.time())
        # Of what the kernel does not tell, there is no sample.
        self.put_over("/proc/sysvipc/shm", "key shmid\n")
        refused = mox_node("status", "-o", "prometheus", *NODE.split(),
                           prefix=faulty("shmctl:error=EACCES"))
        self.assertEqual(re.sub("#.*\n| [0-9]+\n\\Z", "", refused.out), told("unknown")
                         + f'{size}"databuf"}} 0\nmox_node_probe_timestamp_seconds')

    def test_all(self):
        for key, size in ((4, DICTIONARY), (20004, DICTIONARY), (30004, DICTIONARY - 1)):
            segment(key, size)
        for key, count in ((5, 8), (20005, 7), (30005, 8)):
            semaphores(key, count)
        empty = mox_node("status", "--all")
        self.assertEqual((empty.out, empty.status), ("", 2))
        make_node(1, (1, 8), (7, 3))
        make_node(5000, (1, 1048576), (3, 2 ** 31), (5, 2 ** 31 - 1))
        # The first overlaps the node at 5000, and is overlapped in its turn by the next one.
        for base in (5006, 5008, 2147483643):
            make_node(base)
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

    def test_all_of_one_user(self):
        self.need_users()
        user = str(NOBODY.pw_uid)
        self.assertEqual(verb(f"up -u {user}", NODE).status, 0)
        make_node(7000)
        segment(5002, 5)
        for base, of_segment, of_set in ((8000, NOBODY.pw_uid, 0), (9000, 0, NOBODY.pw_uid)):
            segment(base + 4, DICTIONARY, of_segment)
            semaphores(base + 5, uid=of_set)
        report = mox_node("status", "--all", "-u", user, "-o", "json").json
        self.assertEqual([node["ipcbase"] for node in report["nodes"]], [5000])
        self.assertEqual(states(report), ["databuf:present", "dictbuf:present", "set:present"])
        self.assertEqual([item["key"] for item in report["nodes"][0]["extra"]], [5002])


class Output(NodeTest):
    def test_a_file_is_replaced_whole(self):
        path = self.path("out.json", "before")
        os.chmod(path, 0o600)
        with open(path, encoding="ascii") as reader:
            result = mox_node("up", "--output-file", path, *NODE.split(), umask=0o027)
            self.assertEqual((result.status, result.out, result.err), (0, "", ""))
            self.assertEqual(reader.read(), "before")
        again = mox_node("up", *NODE.split()).out
        self.assertEqual(pathlib.Path(path).read_text(),
                         again.replace("present, nothing changed", "absent, now present"))
        self.assertEqual(os.stat(path).st_mode & 0o777, 0o640)
        self.assertEqual(os.listdir(self.folder), ["out.json"])

    def test_a_file_that_cannot_be_written(self):
        os.symlink("target", self.path("link"))
        os.mkfifo(self.path("fifo"))
        irregular = "it is no regular file"
        for name, error in (("link", irregular), ("fifo", irregular), (".", irregular),
                            ("missing/file", "No such file or directory")):
            path = self.path(name)
            result = verb(f"up --output-file {path}", NODE)
            # What was made stays. The error is told once, as it cannot go where it should.
            self.assertEqual((result.status, result.out, result.err, held()),
                             (1, "", f"Error: writing {path}: {error}\n", WHOLE))
        path = self.path("file")
        for prefix, error in ((["prlimit", "--fsize=10"], "File too large"),
                              (faulty("fchmod:error=EIO"), "Input/output error"),
                              (faulty("fsync:error=EIO"), "Input/output error"),
                              (faulty("rename:error=EIO"), "Input/output error")):
            result = mox_node("status", "--output-file", path, *NODE.split(), prefix=prefix)
            self.assertEqual((result.status, result.err), (1, f"Error: writing {path}: {error}\n"))
        self.assertEqual(sorted(os.listdir(self.folder)), ["fifo", "link"])

    def test_an_error_goes_where_the_output_goes(self):
        path = self.path("out")
        error = "a delete command does not say what is wanted"
        for place, more in ((path, ""), (path + "/x", f"Error: writing {path}/x: Not a directory\n")):
            result = verb(f"status --output-file {place}", "delete")
            self.assertEqual((result.status, result.out, result.err),
                             (1, "", f"Error: {error}\n{more}"))
        # Prometheus has no form for an error: the file stays as it is.
        result = mox_node("status", "-o", "prometheus", "--output-file", path, "delete")
        self.assertEqual((result.status, result.err), (1, f"Error: {error}\n"))
        self.assertEqual(pathlib.Path(path).read_text(),
                         f'{{"version":1,"verb":"status","error":"{error}"}}\n')

    def test_standard_output_that_cannot_be_written(self):
        for redirection, error in ((">&-", "Bad file descriptor"),
                                   (">/dev/full", "No space left on device"),
                                   ("| true", "Broken pipe")):
            for line in ("status", "up -o json"):
                command = f"(sleep 0.2; mox_node {line} {NODE}; echo $? >&2) {redirection}"
                done = subprocess.run(["sh", "-c", command], capture_output=True, check=False)
                self.assertEqual(done.stderr.decode(),
                                 f"Error: writing standard output: {error}\n1\n", command)
            self.assertEqual(held(), WHOLE)
        if os.environ.get("SANITIZERS"):
            return  # they write something themselves
        # An interruption is no failure, a hundred in a row are.
        for last, found in ((99, (0, mox_node("status", *NODE.split()).out, "")),
                            (100, (1, "", "Error: writing standard output: Interrupted system "
                                   "call\n"))):
            result = mox_node("status", *NODE.split(),
                              prefix=faulty(f"write:error=EINTR:when=1..{last}"))
            self.assertEqual((result.status, result.out, result.err), found)

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
    def look(self, path, line="status", **options):
        words = ["-o", "json", f"check node-1: ipcbase=5, device-0.path={path}, device-0.size=1"]
        return mox_node(line, *words, **options).json["nodes"][0]["devices"][0]

    def test_states_of_files(self):
        room, old = b"\0" * 8192, header(31415927)
        new = room + header(31415928).ljust(4096, b"\0")
        for state, contents in (
                ("blank", (b"", b"\0" * 20000, b"\0" * 100, b"\0" * 12288 + b"x",
                           # Where no header stands.
                           b"\0" * 2048 + b"x" * 6144 + b"\0" * 4096)),
                ("initialised", (new, old.ljust(2048, b"\0"), room + header(
                    31415928, (1, 2, 1)).ljust(4096, b"\0"))),
                ("other", (b"text", room + b"x", b"\0" * 12287 + b"x",
                           b"\0" * 2047 + b"x" + b"\0" * 12000,
                           # Cut, torn, at the other's place, and with an unknown signature.
                           new[:-1], old.ljust(2047, b"\0"),
                           room + header(31415928, (1, 2, 3)).ljust(4096, b"\0"),
                           header(31415927, (1, 2, 1)).ljust(2048, b"\0"),
                           room + old.ljust(4096, b"\0"), new[8192:].ljust(12288, b"\0"),
                           room + header(31415929).ljust(4096, b"\0")))):
            for content in contents:
                path = self.path("device", content)
                known = {"number": 3, "type": "data", "block_size": 8192, "created": 1795000000,
                         "name": "/data/n1"}
                self.assertEqual(self.look(path, "plan"), {
                    "device": 0, "path": path, "state": state, "kind": "file",
                    "bytes": len(content), "check": "empty" if content else None,
                    **(known if state == "initialised" else dict.fromkeys(known))}, content)
                self.assertEqual(pathlib.Path(path).read_bytes(), content)
        # What cannot be read to its end, or not at all, is not judged.
        path = self.path("device", b"short")
        for n in (1, 2):
            device = self.look(path, prefix=TRACE + ["-P", path, "-e",
                                                     f"inject=pread64:error=EIO:when={n}"])
            self.assertEqual((device["state"], device["bytes"]), ("unknown", 5))

    def test_what_is_no_file(self):
        os.mkfifo(self.path("fifo"))
        os.symlink("loop", self.path("loop"))
        os.symlink("new", self.path("dangling"))
        os.symlink("nowhere/new", self.path("astray"))
        self.path("text", "x")
        nodes = []
        for name, minor, state in (("null", 3, "blank"), ("zero", 5, "blank"), ("random", 9, "other")):
            try:
                os.mknod(self.path(name), 0o020600, os.makedev(1, minor))
                open(self.path(name), "rb").close()
                nodes.append((name, state, "character", None))
            except PermissionError:  # as in a container
                pass
        with socket.socket(socket.AF_UNIX) as bound:
            bound.bind(self.path("socket"))
        for name, state, kind, check in (
                ("fifo", "unusable", "fifo", None), ("socket", "unusable", "socket", None),
                ("", "unusable", "folder", None), ("loop", "unknown", None, None),
                ("new", "absent", None, "create"), ("dangling", "absent", None, "create"),
                ("astray", "unknown", None, None), ("nowhere/new", "unknown", None, None),
                ("text/new", "unknown", None, None), *nodes):
            device = self.look(self.path(name), "plan")
            self.assertEqual((device["state"], device["kind"], device["bytes"],
                              device["check"]), (state, kind, None, check), name)
        self.assertEqual(self.look("").get("path"), None)
        self.assertNotIn("new", os.listdir(self.folder))
        if has_users():
            os.chmod(self.path("text"), 0o600)
            os.mkdir(self.path("private"), 0o700)
            for name, kind, size in (("text", "file", 1), ("private/x", None, None)):
                device = self.look(self.path(name), **AS_NOBODY, extra_groups=[])
                self.assertEqual((device["state"], device["kind"], device["bytes"]),
                                 ("unknown", kind, size))

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
        loop = subprocess.run(["losetup", "--find", "--show", "--read-only", self.path("image")],
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

    def test_block_devices_that_are_held(self):
        """By tables of the system that name a device which cannot even be opened."""
        node = self.path("node")
        try:
            os.mknod(node, 0o060600, os.makedev(600, 7))
        except PermissionError as error:
            self.skipTest(f"skipped: no device nodes can be made here: {error.strerror}")
        mounted = "24 29 %s / /mnt rw shared:1 - btrfs %s rw\n"
        partition = {"p1/dev": "600:8\n", "p1/partition": "1", "queue/dev": "600:9\n"}
        for name, mounts, swaps, system, check in (
                ("free", mounted % ("600:6", "/dev/x"), "/dev/x file 1 0 -2\n", {}, None),
                ("mounted", mounted % ("600:7", "/dev/x"), "", {}, "busy"),
                ("mounted by its name", mounted % ("0:22", node), "", {}, "busy"),
                ("swap", "", f"{node} partition 1 0 -2\n", {}, "busy"),
                ("a part of another", "", "", {"holders/dm-0": ""}, "busy"),
                ("a partition is mounted", mounted % ("600:8", "none"), "", partition, "busy"),
                ("another is mounted", mounted % ("600:9", "none"), "", partition, None)):
            LIBC.mount(b"none", b"/sys/dev/block", b"tmpfs", 0, None)
            os.makedirs("/sys/dev/block/600:7/holders")
            for file, content in system.items():
                path = pathlib.Path("/sys/dev/block/600:7", file)
                path.parent.mkdir(exist_ok=True)
                path.write_text(content)
            self.put_over("/proc/swaps", "Filename Type Size Used Priority\n" + swaps)
            mount = 'mount --bind "$0" /proc/$$/mountinfo && exec "$@"'
            device = self.look(node, "plan", prefix=["sh", "-c", mount,
                                                     self.path("mounts", mounts)])
            self.assertEqual((device["state"], device["kind"], device["check"]),
                             ("unknown", "block", check), name)

if __name__ == "__main__":
    unittest.main(verbosity=2)
