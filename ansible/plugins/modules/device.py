#!/usr/bin/python
# Copyright: (c) 2026, The Mox Authors
"""Initialises a database device."""

DOCUMENTATION = r"""
---
module: device
short_description: A database device, initialised
version_added: 1.0.0
description:
  - Initialises a device of a database node by C(devinit) of the package C(mox-resources), when it is
    absent or blank. One that already is what is asked for is left alone, whatever it holds.
  - Anything else on it is a failure without O(force). What cannot be told is always one.
  - The file belongs to the user that the task runs as, which should be the database's.
options:
  path:
    description: The absolute path of a file, a raw device or a block device.
    type: path
    required: true
  blocks:
    description: The number of blocks in all, bitmap blocks included.
    type: int
    required: true
  block_size:
    description: Bytes of a block.
    type: int
    choices: [1024, 2048, 4096, 8192, 16384, 32768]
    default: 8192
  number:
    description: The number of the device within its node, 0 to 8.
    type: int
    default: 0
  type:
    description: What the device holds.
    type: str
    choices: [data, log]
    default: data
  force:
    description:
      - Initialise also a device that holds something else. All of it is lost.
      - Refused while anybody has the file open, or the block device is held by the system.
    type: bool
    default: false
attributes:
  check_mode:
    description: Tells whether the device would be initialised, and fails where the task would fail.
    support: full
  diff_mode:
    description: Shows the header before and after.
    support: full
author:
  - The Mox Authors (@mox)
"""

EXAMPLES = r"""
- name: The first data device of a node, 1 GiB
  mox.resources.device:
    path: /data/n1
    blocks: 131072
    number: 1
  become: true
  become_user: mox
"""

RETURN = r"""
before:
  description: What was there - absent, blank, initialised or other.
  returned: success
  type: str
  sample: absent
header:
  description: The device with its header, as mox_node(8) reports it. In check mode, as it is now.
  returned: success
  type: dict
  sample:
    state: initialised
    kind: file
    bytes: 819212288
    number: 1
    type: data
    block_size: 8192
    created: 1795000000
    name: /data/n1
"""

import fcntl
import os
import re

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.mox.resources.plugins.module_utils import report as reports

DATA_OFFSET = 12288  # of data block 0
MEGABYTE = 1048576


def wanted_bytes(params):
    return DATA_OFFSET + params["blocks"] * params["block_size"]


def look(module):
    """The device as mox_node sees it, with what a CHECK would do and whether it fits."""
    params = module.params
    megabytes = -(-wanted_bytes(params) // MEGABYTE)
    # The node is there because a description needs one: only its device is looked at.
    text = f'check node-0: ipcbase=1, device-0.path="{params["path"]}", device-0.size={megabytes}\n'
    words = [module.get_bin_path("mox_node", required=True), "plan", "--output", "json", "--file", "-"]
    status, out, err = module.run_command(words, data=text, binary_data=True, environ_update={"LC_ALL": "C"})
    report = reports.parse(out) or {"error": err.strip() or f"no report, status {status}"}
    if "error" in report:
        module.fail_json(msg=f"{params['path']}: {report['error']}", rc=status)
    return report["nodes"][0]["devices"][0], report["space"]


def differences(device, params):
    """How an initialised device differs from what is asked for, in words."""
    found = []
    for field in ("number", "type", "block_size"):
        if device[field] != params[field]:
            found.append(f"{field} is {device[field]}, not {params[field]}")
    size = wanted_bytes(params)
    if device["bytes"] is not None and (device["bytes"] < size or (device["kind"] == "file" and device["bytes"] != size)):
        found.append(f"it has {device['bytes']} bytes, not {size}")
    return ", ".join(found)


def why_in_use(device, path):
    """Why the device must not be written now, or None: nobody uses it."""
    if device["check"] == "busy":
        return "the block device is mounted, swap, or part of another device"
    if device["kind"] == "block":
        return None
    if device["kind"] != "file":
        return f"whether a {device['kind']} device is in use cannot be told"
    # The kernel grants a lease for writing only where nobody else has the file open.
    descriptor = os.open(path, os.O_RDONLY | os.O_NONBLOCK | os.O_CLOEXEC)
    try:
        fcntl.fcntl(descriptor, fcntl.F_SETLEASE, fcntl.F_WRLCK)
    except BlockingIOError:
        return "somebody has the file open"
    except OSError as error:
        return f"whether the file is in use cannot be told: {error.strerror}"
    finally:
        os.close(descriptor)
    return None


def refusal(device, space, params):
    """Why the device is not to be initialised, or None."""
    state = device["state"]
    if state in ("unusable", "unknown"):
        return f"it is {state}" + (f", a {device['kind']}" if device["kind"] else "")
    if state == "other" and not params["force"]:
        return "it holds something else; force would overwrite it"
    if state == "initialised" and not params["force"]:
        return f"it is initialised, but {differences(device, params)}; force would overwrite it"
    for place in space or []:
        if place["fits"] is False:
            return f"{place['needed']} bytes needed below {place['path']}, {place['free']} free"
    if state != "absent":
        try:
            return why_in_use(device, params["path"])
        except OSError as error:
            return f"whether it is in use cannot be told: {error.strerror}"
    return None


def initialise(module):
    params = module.params
    words = [module.get_bin_path("devinit", required=True), "-b", str(params["blocks"]), "-f", params["path"]]
    words += ["-s", str(params["block_size"]), "-n", str(params["number"])]
    if params["type"] == "log":
        words.append("-l")
    status, out, err = module.run_command(words, environ_update={"LC_ALL": "C"})
    if status != 0:
        errors = re.findall(r"^(?:DEVINIT-ERROR: )?(.+)$", err, re.MULTILINE)
        module.fail_json(msg=f"{params['path']}: " + ("; ".join(errors) or f"devinit ended with status {status}"), rc=status)


def diff_of(device):
    fields = ("state", "number", "type", "block_size", "bytes")
    return "".join(f"{field}: {device[field]}\n" for field in fields if device[field] is not None)


def main():
    module = AnsibleModule(
        argument_spec={
            "path": {"type": "path", "required": True},
            "blocks": {"type": "int", "required": True},
            "block_size": {"type": "int", "choices": [1024, 2048, 4096, 8192, 16384, 32768], "default": 8192},
            "number": {"type": "int", "default": 0},
            "type": {"type": "str", "choices": ["data", "log"], "default": "data"},
            "force": {"type": "bool", "default": False},
        },
        supports_check_mode=True,
    )
    params = module.params
    if not 1 <= params["blocks"] <= 2147483647 or not 0 <= params["number"] <= 8:
        module.fail_json(msg="blocks takes 1 to 2147483647, number 0 to 8")
    if not re.fullmatch(r'/[^"\s]*( [^"\s]+)*', params["path"]):
        module.fail_json(msg="path has to be absolute, without double quotes, tabs, line ends and double blanks")

    before, space = look(module)
    after = before
    changed = before["state"] != "initialised" or bool(differences(before, params))
    if changed:
        why = refusal(before, space, params)
        if why is not None:
            module.fail_json(msg=f"{params['path']}: {why}", header=before)
        wanted = {field: params[field] for field in ("number", "type", "block_size")}
        shown = dict(before, state="initialised", **wanted)
        if before["kind"] != "block":
            shown["bytes"] = wanted_bytes(params)
        if not module.check_mode:
            initialise(module)
            after = shown = look(module)[0]
            if after["state"] != "initialised" or differences(after, params):
                module.fail_json(msg=f"{params['path']}: not what was asked for after devinit", header=after)
    else:
        shown = before
    module.exit_json(
        changed=changed,
        before=before["state"],
        header=after,
        diff={"before": diff_of(before), "after": diff_of(shown)},
    )


if __name__ == "__main__":
    main()
