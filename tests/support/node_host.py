"""A host of a test's own for mox_node: an empty IPC namespace, a lock folder, settings of the kernel.

The programs are those that PATH names first. Everything goes away with the process.
"""
import ctypes
import functools
import json
import os
import pathlib
import pwd
import re
import shutil
import struct
import subprocess
import tempfile
import unittest

import jsonschema

SOURCES = pathlib.Path(__file__).resolve().parents[2]
SCHEMA = jsonschema.Draft7Validator(
    json.loads((SOURCES / "examples" / "mox_node.schema.json").read_text()))
LIBC = ctypes.CDLL(None, use_errno=True)
LIBC.shmat.restype = ctypes.c_void_p
CLONE_NEWNS, CLONE_NEWIPC, CLONE_NEWUSER = 0x00020000, 0x08000000, 0x10000000
MS_BIND, MS_REC, MS_PRIVATE = 4096, 16384, 1 << 18
IPC_RMID, IPC_SET, IPC_STAT, IPC_CREAT, IPC_EXCL = 0, 1, 2, 0o1000, 0o2000
NOBODY = pwd.getpwnam("nobody")
NODE = "create node-1: ipcbase=5000, databuf=1048576"
TWO = NODE + " node-2: ipcbase=5008"
DICTIONARY = 4194304
WHOLE = ([5001, 5004], [5005])
NOTHING = ([], [])
NODE_KEYS = (5001, 5004, 5005)
AS_NOBODY = {"user": NOBODY.pw_uid, "group": NOBODY.pw_gid}
TRACE = ["strace", "-qq", "-o", "/dev/null"]


def _must(result):
    if result == -1:
        raise OSError(ctypes.get_errno(), os.strerror(ctypes.get_errno()))
    return result


def _become_root_of_users():
    uid, gid = os.geteuid(), os.getegid()
    if LIBC.unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0:
        raise unittest.SkipTest(
            f"skipped: no namespaces of its own: {os.strerror(ctypes.get_errno())}")
    for name, text in (("uid_map", f"0 {uid} 1"), ("setgroups", "deny"),
                       ("gid_map", f"0 {gid} 1")):
        pathlib.Path("/proc/self", name).write_text(text)


@functools.cache
def _first_mounts():
    """The mounts that every test begins with."""
    if LIBC.unshare(CLONE_NEWNS) != 0:
        _become_root_of_users()
    _must(LIBC.mount(b"none", b"/", None, MS_REC | MS_PRIVATE, None))
    return os.open("/proc/self/ns/mnt", os.O_RDONLY | os.O_CLOEXEC)


def own_host():
    _must(LIBC.setns(_first_mounts(), CLONE_NEWNS))
    _must(LIBC.unshare(CLONE_NEWNS | CLONE_NEWIPC))
    _must(LIBC.mount(b"none", b"/run/lock", b"tmpfs", 0, b"mode=1777"))


def has_users():
    """Whether other users exist here: not as root of a namespace of one user."""
    return "4294967295" in pathlib.Path("/proc/self/uid_map").read_text()


def _give(control, ident, uid, *number):
    """Makes the user and the group of that number, if there is one, the owners of the object."""
    if uid is not None:
        buffer = ctypes.create_string_buffer(256)
        _must(control(ident, *number, IPC_STAT, buffer))
        struct.pack_into("II", buffer, 4, uid, uid)
        _must(control(ident, *number, IPC_SET, buffer))
    return ident


def segment(key, size, uid=None, mode=0o660):
    made = LIBC.shmget(key, ctypes.c_size_t(size), IPC_CREAT | IPC_EXCL | mode)
    return _give(LIBC.shmctl, _must(made), uid)


def semaphores(key, count=8, mode=0o660, uid=None):
    return _give(LIBC.semctl, _must(LIBC.semget(key, count, IPC_CREAT | IPC_EXCL | mode)), uid, 0)


def stand(*keys, owner=None, database=1048576, semaphore_count=8):
    """Makes the objects of NODE and of the second node at the given keys."""
    for key in keys:
        if key % 8 == 5:
            semaphores(key, semaphore_count, uid=owner)
        else:
            segment(key, database if key == 5001 else DICTIONARY, owner)


def remove_segment(key):
    _must(LIBC.shmctl(_must(LIBC.shmget(key, 0, 0)), IPC_RMID, None))


def attach(key):
    """The address, for LIBC.shmdt."""
    return ctypes.c_void_p(LIBC.shmat(_must(LIBC.shmget(key, 0, 0)), None, 0))


def rows(table):
    lines = pathlib.Path("/proc/sysvipc", table).read_text().splitlines()
    names = lines[0].split()
    return [dict(zip(names, map(int, line.split()))) for line in lines[1:]]


def held():
    """The keys of the segments and of the sets of the host, as the kernel tells."""
    return sorted(row["key"] for row in rows("shm")), sorted(row["key"] for row in rows("sem"))


def kernel_setting(name, text):
    pathlib.Path("/proc/sys/kernel", name).write_text(text)


def faulty(*faults):
    """What stands in front of a command whose system calls have faults: "shmctl:error=EPERM"."""
    return TRACE + [word for fault in faults for word in ("-e", "inject=" + fault)]


class Result:
    def __init__(self, done):
        self.status, self.out, self.err = done.returncode, done.stdout, done.stderr

    @property
    def json(self):
        """The one line of JSON, which fits the schema and which jq reads."""
        assert self.out.endswith("\n") and self.out.count("\n") == 1, self.out
        value = json.loads(self.out)
        SCHEMA.validate(value)
        if shutil.which("jq"):
            subprocess.run(["jq", "-e", "."], input=self.out, text=True, check=True,
                           stdout=subprocess.DEVNULL)
        return value


def words_of(line):
    """Words as a shell would cut them; quotation marks are the command language's own."""
    return re.findall(r'(?:"[^"]*"|\S)+', line)


def mox_node(*words, prefix=(), **options):
    if "input" not in options:
        options = {"stdin": subprocess.DEVNULL} | options
    options = {"timeout": 120} | options
    done = subprocess.run([*prefix, "mox_node", *words], capture_output=True, check=False,
                          **options)
    done.stdout = done.stdout.decode("utf-8", "surrogateescape")
    done.stderr = done.stderr.decode("utf-8", "surrogateescape")
    return Result(done)


def verb(line, description, **options):
    """Runs a verb with its options on a description, with JSON as its output."""
    return mox_node(*line.split(), "-o", "json", *words_of(description), **options)


def states(report):
    """"databuf:present" and so on, of every wanted object of the report's nodes."""
    return [f"{name}:{item['state']}" for node in report["nodes"] for name, item in
            [(item["buffer"], item) for item in node["segments"]]
            + [("set", node["semaphores"])]]


class NodeTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        own_host()
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        # Back to mounts that do not lie on files of the folder.
        self.addCleanup(lambda: _must(LIBC.setns(_first_mounts(), CLONE_NEWNS)))
        os.chmod(folder.name, 0o755)
        self.folder = folder.name

    def need_users(self):
        if not has_users():
            self.skipTest("skipped: there is one user alone")

    def put_over(self, path, text):
        """Another content for a file of the system, for this process and its children."""
        source = self.path(f"over{len(os.listdir(self.folder))}", text)
        _must(LIBC.mount(source.encode(), path.encode(), None, MS_BIND, None))

    def path(self, name, content=None):
        path = os.path.join(self.folder, name)
        if content is not None:
            with open(path, "wb") as file:
                file.write(content if isinstance(content, bytes) else content.encode())
        return path
