#!/usr/bin/python3
"""Makes the virtual environments of ansible-test sanity beforehand, from Debian's packages.

ansible-test would fill them by pip from the network. It takes those that are there, under names that
it computes from what it would have installed.
"""

import json
import pathlib
import subprocess
import sys

sys.path.insert(0, "/usr/lib/python3/dist-packages")

# pylint: disable=wrong-import-position
from ansible_test._internal.commands.sanity import hash_pip_commands  # noqa: E402
from ansible_test._internal.host_configs import VirtualPythonConfig  # noqa: E402
from ansible_test._internal.python_requirements import collect_requirements  # noqa: E402

TESTS = ["ansible-doc", "import", "import.plugin", "pep8", "pylint", "runtime-metadata", "validate-modules", "yamllint", None]


def prepare(test, minimize):
    version = f"{sys.version_info.major}.{sys.version_info.minor}"
    python = VirtualPythonConfig(version=version, path=sys.executable)
    commands = collect_requirements(
        python=python, controller=True, ansible=False, cryptography=False, coverage=False,
        virtualenv=False, minimize=minimize, command=None, sanity=test,
    )
    label = f"sanity.{test}" if commands else "sanity"
    home = pathlib.Path("~/.ansible/test/venv").expanduser() / label / version / hash_pip_commands(commands)
    if (home / "marker.txt").exists():
        return
    subprocess.run([sys.executable, "-m", "venv", "--system-site-packages", "--without-pip", home], check=True)
    (home / "meta.install.json").write_text(json.dumps([command.serialize() for command in commands]))
    (home / "meta.yaml.json").write_text(json.dumps({"yaml": True, "cloader": True}))
    (home / "marker.txt").touch()


for name in TESTS:
    for small in (False, True):
        prepare(name, small)
