# Copyright: (c) 2026, The Mox Authors
"""Makes database nodes present or absent on a host: probe, verdict, act, probe again."""

from ansible_collections.mox.resources.plugins.module_utils import report as reports
from ansible_collections.mox.resources.plugins.modules import node as module
from ansible_collections.mox.resources.plugins.plugin_utils.remote import DESCRIPTIONS, MoxAction, Refused, documented

SPEC = documented(module)

# What follows the probe runs only when that finds something to do; in a report, texts have their
# double quotes escaped, so that nothing else in it looks like the words looked for.
MAKE = """ask plan {options} || exit 0
case $report in
  *'"plan":"create"'* | *'"plan":"repair"'*) ask up {options} && ask status ;;
esac
"""
REMOVE = """ask status
case $status$report in
  [!14]*'"state":"present"'*) ask down --wait {wait} && ask status ;;
esac
"""


def refuse_unless(condition, verb, answer):
    if not condition:
        raise Refused(verb, *answer)


def judge_plan(answer):
    """Whether anything is to be made; refused where `up` would be."""
    refuse_unless(answer[0] == reports.OK, "plan", answer)
    return any(node["plan"] in ("create", "repair") for node in answer[1]["nodes"])


def judge_status(answer):
    """Whether anything is to be removed; refused where `down` would be, whoever uses the nodes."""
    refuse_unless(answer[0] not in (reports.TROUBLE, reports.CONFLICT), "status", answer)
    return any(node["state"] != "absent" for node in answer[1]["nodes"])


def refuse_use(report):
    in_use = [dict(node, reason=f"in use, attached={node['attached']}") for node in report["nodes"] if node["attached"]]
    refuse_unless(not in_use, "down", (reports.IN_USE, dict(report, nodes=in_use)))


class ActionModule(MoxAction):
    def act(self):
        args = self.arguments(SPEC, required_one_of=[DESCRIPTIONS])
        wanted, check = args["state"], self._task.check_mode
        if wanted == "present":
            verb, judge = "up", judge_plan
            options = "--repair" if args["repair"] else ""
            steps = f"ask plan {options}" if check else MAKE.format(options=options)
        else:
            verb, judge = "down", judge_status
            steps = "ask status" if check else REMOVE.format(wait=args["wait"])
        answers = self.ask(args, steps)
        changed, before = judge(answers[0]), answers[0][1]
        after = reports.predicted(before, wanted)
        if check:
            if wanted == "absent" and not args["wait"]:
                refuse_use(before)
        elif changed:
            refuse_unless(answers[1][0] == reports.OK, verb, answers[1])
            changed = answers[1][1]["changed"]
            status, after = answers[2]
            if any(node["state"] != wanted for node in after["nodes"]):
                raise Refused("status", status, dict(after, error=f"not {wanted} after mox_node {verb}"))
        return {
            "changed": changed,
            "before": before["state"],
            "state": wanted,
            "nodes": after["nodes"],
            "diff": {"before": reports.lines_of(before), "after": reports.lines_of(after)},
        }
