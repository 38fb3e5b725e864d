"""The hosts of a laboratory for tests: plays on them, and what their kernels say."""

import json
import os
import pathlib
import subprocess
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
SOURCES = HERE.parents[2]
LAB = pathlib.Path(os.environ["MOX_LAB"])
HOSTS = (LAB / "inventory").read_text().split("[lab:vars]")[0].split()[1:]
ENVIRONMENT = dict(
    os.environ, ANSIBLE_CALLBACK_PLUGINS=str(HERE / "callback_plugins"), ANSIBLE_CALLBACKS_ENABLED="record",
    ANSIBLE_HOST_KEY_CHECKING="0", ANSIBLE_PIPELINING="1", ANSIBLE_RETRY_FILES_ENABLED="0",
)

# Makes a segment as somebody else would, or holds one attached until standard input ends.
STRANGER = """import ctypes, sys
key, size, hold = map(int, sys.argv[1:])
libc = ctypes.CDLL(None)
libc.shmat.restype = ctypes.c_void_p
found = libc.shmget(key, size, 0o1600 if size else 0)
if found < 0 or hold and libc.shmat(found, None, 0) == ctypes.c_void_p(-1).value: sys.exit("refused")
print(found, flush=True)
if hold: sys.stdin.read()
"""


class Play:
    """What a run of tasks came to: failed hosts, changed tasks by host, messages and results by host."""

    def __init__(self, entries, output):
        self.output = output
        self.failed = set(entries[-1]["failures"]) if entries and "failures" in entries[-1] else None
        tasks = [entry for entry in entries if "task" in entry]
        self.changed = {host: {entry["task"] for entry in tasks if entry["host"] == host and entry["changed"]} for host in HOSTS}
        self.reason = {entry["host"]: entry["result"].get("msg") for entry in tasks if entry["failed"]}
        self.result = {entry["host"]: entry["result"] for entry in tasks}
        self.hosts = {entry["host"] for entry in tasks}

    def changed_hosts(self):
        return {host for host, tasks in self.changed.items() if tasks}


def start(plays, *options):
    """Runs plays as ansible-playbook would in a terminal; `finish` gives what they came to."""
    folder = pathlib.Path(tempfile.mkdtemp(dir=LAB))  # which ends with the laboratory
    book, record = folder / "book.json", folder / "record"
    book.write_text(json.dumps(plays))
    record.touch()
    process = subprocess.Popen(
        ["ansible-playbook", "-i", LAB / "inventory", *options, book], stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, env=dict(ENVIRONMENT, MOX_RECORD=str(record)))
    return process, record


def finish(started):
    process, record = started
    output = process.communicate()[0]
    return Play([json.loads(line) for line in record.read_text().splitlines()], output)


def task(module, hosts="all", **options):
    """A play of one task."""
    return [{"hosts": hosts, "gather_facts": False, "tasks": [{"name": "it", module: options}]}]


def node(check=False, hosts="all", module="node", **options):
    """One task with a module of the collection."""
    return finish(start(task(f"mox.resources.{module}", hosts, **options), *(["--check"] if check else [])))


def role(check=False, serial=None, **variables):
    """The role, on all hosts at once, or on so many after another as its playbook has it."""
    rolling = {} if serial is None else {"serial": serial, "max_fail_percentage": 0}
    play = {"hosts": "all", "gather_facts": False, "vars": variables, "roles": ["mox.resources.host"], **rolling}
    return finish(start([play], *(["--check"] if check else [])))


def command(host, *words):
    return [SOURCES / "scripts/hosts.sh", "enter", host, *words]


def on(host, *words, **options):
    """What a command on the host prints, past ssh and Ansible."""
    return subprocess.run(command(host, *words), stdout=subprocess.PIPE, text=True, check=False, **options).stdout


def standing(host):
    """Kind, key, size and owner of everything, as the kernel of the host tells it, by identifier."""
    objects = {}
    for line in on(host, "cat", "/proc/sysvipc/shm", "/proc/sysvipc/sem").splitlines():
        words = line.split()
        if words[1] in ("shmid", "semid"):
            kind, owner = words[1][:3], words.index("uid")
        else:
            objects[kind, int(words[1])] = (int(words[0]), int(words[3]), int(words[owner]))
    return objects


def holding(host, *words):
    """A command on the host that runs on, from when it printed a line until its standard input is closed."""
    process = subprocess.Popen(command(host, *words), text=True, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    process.stdout.readline()
    return process


def stranger(host, key, size=4096):
    on(host, "python3", "-c", STRANGER, str(key), str(size), "0")


def attached(host, key):
    return holding(host, "python3", "-c", STRANGER, str(key), "0", "1")
