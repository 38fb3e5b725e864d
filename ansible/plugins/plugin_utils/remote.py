# Copyright: (c) 2026, The Mox Authors
"""Runs mox_node on a host by its shell alone: no Python there, one call for all verbs of a task."""

import shlex

import yaml
from ansible.errors import AnsibleActionFail
from ansible.plugins.action import ActionBase
from ansible.plugins.loader import connection_loader, shell_loader
from ansible_collections.mox.resources.plugins.doc_fragments.description import ModuleDocFragment
from ansible_collections.mox.resources.plugins.module_utils import report as reports

# Loaded once, before Ansible forks a process for each host, and not in each: of what a task costs the
# controller beside ssh, that was a third.
connection_loader.get("ssh", class_only=True)
shell_loader.get("sh", class_only=True)

DESCRIPTIONS = ["command", "src", "nodes"]

# ask VERB OPTIONS...: prints the report, then on a line of its own the status, which it returns too.
# Root becomes the owner: the kernel itself then refuses objects of others, and whatever a run that is
# killed leaves belongs to the owner, so that it can be repaired.
SCRIPT = """
LC_ALL=C
export LC_ALL
owner={owner}
become=
if [ -n "$owner" ] && [ "$(id -u)" = 0 ] && name=$(id -un -- "$owner" 2>/dev/null); then
  become="runuser -u $name --"
fi
ask() {{
  report=$($become mox_node "$@" --output json {options})
  status=$?
  printf '%s\\n%s\\n' "$report" "$status"
  return $status
}}
{steps}
"""


class Refused(Exception):
    """The program did not do what it was asked for: its status and its report, which tells why."""

    def __init__(self, verb, status, report):
        super().__init__(reports.reason(report) or f"mox_node {verb} ended with status {status}")
        self.result = {"failed": True, "msg": str(self), "rc": status, "report": report}


def spec_of(options):
    """The argument specification of documented options."""
    spec = {}
    for name, option in options.items():
        spec[name] = {word: option[word] for word in ("type", "elements", "choices", "default", "required") if word in option}
        if "suboptions" in option:
            spec[name]["options"] = spec_of(option["suboptions"])
    return spec


def documented(module):
    """The argument specification of a module that takes a description of nodes."""
    texts = (module.DOCUMENTATION, ModuleDocFragment.DOCUMENTATION)
    return {name: option for text in texts for name, option in spec_of(yaml.safe_load(text)["options"]).items()}


class MoxAction(ActionBase):
    _supports_async = False

    def run(self, tmp=None, task_vars=None):
        result = super().run(tmp, task_vars)
        try:
            result.update(self.act())
        except Refused as refused:
            result.update(refused.result)
        return result

    def act(self):
        """Does the task: its result, or Refused."""
        raise NotImplementedError

    def arguments(self, spec, **rules):
        return self.validate_argument_spec(spec, mutually_exclusive=[DESCRIPTIONS], **rules)[1]

    def ask(self, args, steps):
        """Runs the steps, lines of shell that call `ask`: the status and report of each verb asked."""
        options = [] if args["user"] is None else ["--user", args["user"]]
        if args["src"] is not None:
            options += ["--file", args["src"]]
        elif args["command"] is None and args["nodes"] is None:
            options.append("--all")
        else:
            # In words, as a file is cut into them too.
            options += ["--"] + (args["command"] or reports.command_of(args["nodes"])).split()
        script = SCRIPT.format(owner=shlex.quote(args["user"] or ""), options=shlex.join(options), steps=steps)
        shell = f"{self._compute_environment_string()} /bin/sh -s".lstrip()
        # By standard input, as a script has no limit there, and no terminal mixes what it prints.
        said = self._low_level_execute_command(shell, in_data=script.encode(errors="surrogateescape"))
        lines = said["stdout"].splitlines()
        answers = [(int(status), reports.parse(line)) for line, status in zip(lines[::2], lines[1::2])]
        if not answers:
            raise AnsibleActionFail(f"no answer from the host: {said['stderr'].strip()}")
        status, last = answers[-1]
        if last is None:
            last = {"error": said["stderr"].strip() or f"no report, status {status}"}
            answers[-1] = (status, last)
        if "error" in last:
            raise Refused("", status, last)
        return answers
