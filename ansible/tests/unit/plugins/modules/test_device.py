import pytest
from ansible_collections.mox.resources.plugins.modules import device

SIZE = 12288 + 100 * 8192
SOUND = {"state": "initialised", "kind": "file", "bytes": SIZE, "number": 1, "type": "data", "block_size": 8192}
NONE = {"state": "absent", "kind": None, "bytes": None, "number": None, "type": None, "block_size": None}
OTHER = dict(NONE, state="other", kind="file", bytes=77)
LOST = "force would overwrite it"


def plan(found, fits=True):
    space = [{"path": "/data", "needed": SIZE, "free": 10, "fits": fits}]
    return (0, {"nodes": [{"devices": [dict({"check": "create", "path": "/data/n1"}, **found)]}], "space": space})


@pytest.fixture
def run(bench, tmp_path):
    """Runs the module on a file of the test, found as the test says it is before, and then as it says."""
    def run_on(before, after=None, devinit=(0, "", ""), check=False, **params):
        run_on.path.write_bytes(b"")
        answers = {"plan": [plan(found) for found in (before, after) if found], "devinit": [devinit]}
        result, asked = bench.run(device, dict({"path": str(run_on.path), "blocks": 100, "number": 1}, **params), answers, check)
        return result, [words for words, text in asked if "plan" not in words]

    run_on.path = tmp_path / "n1"
    return run_on


@pytest.mark.parametrize("before, params, calls", [
    (SOUND, {}, False),
    (SOUND, {"force": True}, False),
    (dict(SOUND, kind="block", bytes=SIZE + 4096), {}, False),
    (NONE, {}, True),
    (dict(NONE, state="blank", kind="file", bytes=0), {}, True),
    (dict(NONE, state="blank", kind="block", bytes=SIZE + 1), {}, True),
    (OTHER, {"force": True}, True),
    (dict(SOUND, number=2), {"force": True}, True),
])
def test_initialises_what_is_not_there(run, before, params, calls):
    predicted, asked = run(before, check=True, **params)
    assert (predicted["failed"], predicted["changed"], asked) == (False, calls, [])
    after = dict(SOUND, kind=before["kind"] or "file", bytes=before["bytes"] if before["kind"] == "block" else SIZE)
    done, asked = run(before, after, **params)
    assert (done["failed"], done["changed"], done["header"]["state"]) == (False, calls, "initialised")
    assert asked == ([["-b", "100", "-f", str(run.path), "-s", "8192", "-n", "1"]] if calls else [])
    assert predicted["diff"] == done["diff"]


@pytest.mark.parametrize("before, params, message", [
    (OTHER, {}, "it holds something else; " + LOST),
    (dict(SOUND, number=2, type="log"), {}, "it is initialised, but number is 2, not 1, type is log, not data; " + LOST),
    (dict(SOUND, bytes=SIZE - 1), {}, f"it is initialised, but it has {SIZE - 1} bytes, not {SIZE}; {LOST}"),
    (dict(NONE, state="unknown"), {"force": True}, "it is unknown"),
    (dict(NONE, state="unusable", kind="fifo"), {"force": True}, "it is unusable, a fifo"),
    (dict(OTHER, kind="block", check="busy"), {"force": True}, "the block device is mounted, swap, or part of another device"),
    (dict(OTHER, kind="character"), {"force": True}, "whether a character device is in use cannot be told"),
])
@pytest.mark.parametrize("check", [False, True])
def test_refuses_what_would_lose_data(run, before, params, message, check):
    result, asked = run(before, check=check, **params)
    assert (result["failed"], result["msg"], asked) == (True, f"{run.path}: {message}", [])


def test_failures_of_the_initialiser_are_told(run):
    result = run(NONE, devinit=(1, "", "\nDEVINIT-ERROR: open Permission denied\n"))[0]
    assert result["msg"] == f"{run.path}: open Permission denied"
    assert run(NONE, after=NONE)[0]["msg"] == f"{run.path}: not what was asked for after devinit"


def test_space_is_told_beforehand(bench):
    result = bench.run(device, {"path": "/data/n1", "blocks": 100}, {"plan": [plan(NONE, fits=False)]}, check=True)[0]
    assert result["msg"] == f"/data/n1: {SIZE} bytes needed below /data, 10 free"


def test_paths_that_a_description_cannot_hold_are_refused(bench):
    for path in ("data", '/a"b', "/a  b", "/a\tb", "/a\n"):
        result, asked = bench.run(device, {"path": path, "blocks": 100}, {})
        assert (result["failed"], asked) == (True, [])


def test_log_devices_and_blanks_in_paths(bench):
    answers = {"plan": [plan(NONE), plan(dict(SOUND, type="log", number=0))], "devinit": [(0, "", "")]}
    asked = bench.run(device, {"path": "/a b", "blocks": 100, "type": "log"}, answers)[1]
    assert asked[0][1] == 'check node-0: ipcbase=1, device-0.path="/a b", device-0.size=1\n'
    assert asked[1][0][-1] == "-l"
