import pytest
from ansible.errors import AnsibleActionFail
from ansible_collections.mox.resources.plugins.action import node

NODES = [{"node": 1, "ipcbase": 5000, "databuf": 4096}]


def report(state, attached=0, plan=None, **more):
    """A node in that state, without its semaphores where it is partial."""
    def thing(there, size):
        return {"state": "present" if there else "absent", "wanted": size, "size": size if there else None}

    one = {
        "node": 1, "ipcbase": 5000, "state": state, "attached": attached, "reason": more.pop("reason", None), "plan": plan,
        "segments": [dict(thing(state in ("present", "partial"), 4096), buffer="databuf", key=5001)],
        "semaphores": dict(thing(state == "present", 8), key=5005),
    }
    return dict({"state": state, "changed": False, "limits": [], "nodes": [one]}, **more)


PRESENT, ABSENT = report("present", plan="nothing"), report("absent", plan="create")
MADE = dict(report("present"), changed=True)
GONE = dict(report("absent"), changed=True)
LIMIT = {"name": "shmmni", "limit": 4096, "in_use": 4095, "needed": 2, "fits": False}
DOWN = [(0, GONE)]
UP = {"up": [(0, MADE)], "status": [(0, PRESENT)]}

# State asked for, options, what the program says, whether that is a change, and the verbs of a run.
SUCCESSES = [
    ("present", {}, {"plan": [(0, PRESENT)]}, False, ["plan"]),
    ("present", {}, {"plan": [(0, ABSENT)], **UP}, True, ["plan", "up", "status"]),
    ("present", {"repair": True}, {"plan": [(0, report("partial", plan="repair"))], **UP},
     True, ["plan --repair", "up --repair", "status"]),
    ("absent", {}, {"status": [(2, ABSENT)]}, False, ["status"]),
    ("absent", {}, {"status": [(3, report("partial")), (2, ABSENT)], "down": DOWN}, True, ["status", "down --wait 0", "status"]),
    ("absent", {"wait": 9}, {"status": [(0, report("present", attached=2)), (2, ABSENT)], "down": DOWN},
     True, ["status", "down --wait 9", "status"]),
]


def verbs(asked):
    """Each call up to its description."""
    return [" ".join(words[:words.index("--output")]) for words, text in asked]


@pytest.mark.parametrize("state, options, answers, changed, used", SUCCESSES)
def test_run_does_what_check_mode_predicts(bench, state, options, answers, changed, used):
    params = dict(options, state=state, nodes=NODES)
    predicted, asked = bench.act(node, params, answers, check=True)
    assert verbs(asked) == used[:1]
    done, asked = bench.act(node, params, answers)
    assert verbs(asked) == used
    del predicted["nodes"], done["nodes"]  # with all that nobody can know beforehand
    assert predicted == done
    assert (done["failed"], done["changed"], done["state"]) == (False, changed, state)
    assert (done["diff"]["before"] != done["diff"]["after"]) == changed


# State asked for, what the program says, the whole message; the program is asked no second time.
FAILURES = [
    ("present", {"plan": [(1, report("unknown", reason="shmget: not permitted"))]}, "node-1: shmget: not permitted"),
    ("present", {"plan": [(6, report("absent", plan="create", limits=[LIMIT]))]},
     "shmmni does not suffice: 2 needed, 4095 in use, limit 4096"),
    ("present", {"plan": [(1, {"version": 1, "verb": "plan", "error": "syntax error"})]}, "syntax error"),
    ("present", {"plan": [(1, "", "out of memory\n")]}, "out of memory"),
    ("present", {"plan": [(139, "")]}, "no report, status 139"),
    ("absent", {"status": [(1, report("unknown", reason="no answer"))]}, "node-1: no answer"),
    ("absent", {"status": [(4, report("partial", reason="owner root"))]}, "node-1: owner root"),
]


@pytest.mark.parametrize("check", [False, True])
@pytest.mark.parametrize("state, answers, message", FAILURES)
def test_refusals_touch_nothing_and_give_the_reason(bench, state, answers, message, check):
    result, asked = bench.act(node, {"state": state, "nodes": NODES}, answers, check)
    assert (result["failed"], result["msg"], len(asked)) == (True, message, 1)


@pytest.mark.parametrize("answers, message", [
    ({"up": [(1, {"error": "interrupted"})]}, "interrupted"),
    (dict(UP, status=[(3, report("partial"))]), "not present after mox_node up"),
    (dict(UP, up=[(0, PRESENT)]), None),  # another controller was faster
])
def test_end_of_a_creation_is_told(bench, answers, message):
    result = bench.act(node, {"nodes": NODES}, {"plan": [(0, ABSENT)], **answers})[0]
    assert (result.get("changed", False), result["failed"], result.get("msg")) == (False, message is not None, message)


def test_description_reaches_the_program(bench):
    answers = {"plan": [(0, PRESENT)]}
    for params, words in (
        ({"nodes": NODES + [{"node": 2, "ipcbase": 6000, "evbuf": 0}]},
         "-- create node-1: ipcbase=5000, databuf=4096 node-2: ipcbase=6000, evbuf=0"),
        ({"command": "create\tnode-1:\n ipcbase=1 $(touch /tmp/x) '\"", "user": "0"},
         "--user 0 -- create node-1: ipcbase=1 $(touch /tmp/x) '\""),
        ({"src": "/etc/mox/n m.cmd"}, "--file /etc/mox/n m.cmd"),
    ):
        asked = bench.act(node, params, answers)[1]
        assert [" ".join(call[0]) for call in asked] == ["plan --output json " + words]


@pytest.mark.parametrize("params, message", [
    ({}, "one of the following is required: command, src, nodes"),
    ({"command": "create", "src": "/etc/mox/n.cmd"}, "mutually exclusive: command|src|nodes"),
    ({"command": "create", "state": "there"}, "value of state must be one of: present, absent, got: there"),
    ({"nodes": [{"node": 1}]}, "missing required arguments: ipcbase found in nodes"),
    ({"nodes": [{"node": 1, "ipcbase": "x"}]}, "unable to convert to int"),
])
def test_options_are_those_of_the_documentation(bench, params, message):
    with pytest.raises(AnsibleActionFail) as refused:
        bench.act(node, params, {})
    assert message in str(refused.value)
