"""Runs a module beside programs that say what a test tells them to, and note what they were asked."""

import json
import os
import subprocess
from unittest import mock

import pytest
from ansible.module_utils import basic
from ansible.plugins import loader  # noqa: F401 pylint: disable=unused-import; finds collections from now on

# Prints the answer for its verb and ends with the status there; the last answer of a verb repeats.
PROGRAM = """#!/usr/bin/python3
import json, pathlib, sys
home = pathlib.Path({home!r})
name = sys.argv[1] if {verbs} else "devinit"
answers = json.loads((home / "answers").read_text())
with open(home / "asked", "a") as asked:
    asked.write(json.dumps([sys.argv[1:], sys.stdin.read() if "-" in sys.argv else None]) + "\\n")
status, out, *err = answers[name][0] if len(answers[name]) == 1 else answers[name].pop(0)
(home / "answers").write_text(json.dumps(answers))
sys.stdout.write(out)
sys.stderr.writelines(err)
sys.exit(status)
"""


class Bench:
    def __init__(self, folder, monkeypatch):
        self.folder = folder
        self.monkeypatch = monkeypatch
        for name, verbs in (("mox_node", True), ("devinit", False)):
            (folder / name).write_text(PROGRAM.format(home=str(folder), verbs=verbs))
            (folder / name).chmod(0o755)
        monkeypatch.setenv("PATH", f"{folder}:{os.environ['PATH']}")

    def answer(self, answers):
        """The programs will answer so, with status, report and errors: to each verb in turn, the last answer for ever."""
        texts = {verb: [(status, out if isinstance(out, str) else json.dumps(out, separators=(",", ":")), *err)
                        for status, out, *err in said] for verb, said in answers.items()}
        (self.folder / "answers").write_text(json.dumps(texts))
        (self.folder / "asked").write_text("")

    def asked(self):
        """The words and the standard input of each call."""
        return [json.loads(line) for line in (self.folder / "asked").read_text().splitlines()]

    def run(self, module, params, answers, check=False):
        """The result of a module, and the calls that it made."""
        self.answer(answers)
        result, args = {"failed": False}, {"ANSIBLE_MODULE_ARGS": dict(params, _ansible_check_mode=check)}
        self.monkeypatch.setattr(basic, "_ANSIBLE_ARGS", json.dumps(args).encode())
        self.monkeypatch.setattr(basic.AnsibleModule, "_return_formatted", lambda _module, said: result.update(said))
        with pytest.raises(SystemExit):
            module.main()
        return result, self.asked()

    def act(self, action, params, answers, check=False):
        """The result of an action, whose script the shell of this machine runs, and the calls that it made."""
        self.answer(answers)
        task = mock.MagicMock(args=params, check_mode=check, async_val=0, environment=[{}])
        instance = action.ActionModule(task, mock.MagicMock(), mock.MagicMock(check_mode=check), None, None, None)
        self.monkeypatch.setattr(instance, "_compute_environment_string", lambda: "", raising=True)
        self.monkeypatch.setattr(instance, "_low_level_execute_command", self.shell)
        return dict({"failed": False}, **instance.run(task_vars={})), self.asked()

    @staticmethod
    def shell(command, in_data):
        done = subprocess.run(["/bin/sh", "-c", command], input=in_data, capture_output=True, check=False)
        return {"stdout": done.stdout.decode(), "stderr": done.stderr.decode()}


@pytest.fixture
def bench(tmp_path, monkeypatch):
    return Bench(tmp_path, monkeypatch)
