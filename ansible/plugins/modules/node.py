#!/usr/bin/python
# Copyright: (c) 2026, The Mox Authors
"""Makes database nodes present or absent on a host."""

DOCUMENTATION = r"""
---
module: node
short_description: Resources of database nodes, present or absent
version_added: 1.0.0
description:
  - Makes the System V shared memory segments and the semaphore set of database nodes, or removes
    them, by C(mox_node) of the package C(mox-resources).
  - Nothing is ever taken over or removed that is not what the description says. What cannot be told
    is a failure. The failure message is the program's own reason.
options:
  state:
    description:
      - V(present) makes the nodes that are absent, all of them or none. A node that is there in part
        is refused without O(repair).
      - V(absent) removes what is described and there. Objects of another size or owner refuse it.
    type: str
    choices: [present, absent]
    default: present
  command:
    description: The description of the nodes, the text of a CREATE or CHECK command.
    type: str
  src:
    description: The path, on the host, of a file with such a text.
    type: path
  nodes:
    description: The description of the nodes, by their parameters. Sizes are in bytes.
    type: list
    elements: dict
    suboptions:
      node:
        description: The number of the node.
        type: int
        required: true
      ipcbase:
        description: The first of the eight keys that the node owns.
        type: int
        required: true
      databuf:
        description: Size of the data buffer.
        type: int
      tlogbuf:
        description: Size of the tuple log buffer.
        type: int
      nlogbuf:
        description: Size of the node log buffer.
        type: int
      sqlbuf:
        description: Size of the SQL work area.
        type: int
      evbuf:
        description: Size of the event buffer.
        type: int
  repair:
    description: Make what is missing of a node that is there in part, unless it is in use.
    type: bool
    default: false
  wait:
    description: With O(state=absent), how many seconds to wait for whoever still uses the nodes.
    type: int
    default: 0
  user:
    description:
      - Name or number of the user that the objects belong to. Objects of others are in conflict.
      - Without it, new objects belong to the user that the task runs as, and owners are not judged.
    type: str
attributes:
  check_mode:
    description: Tells what the task would change, and fails where it would fail; nothing is touched.
    support: full
  diff_mode:
    description: Shows every object before and after.
    support: full
author:
  - The Mox Authors (@mox)
"""

EXAMPLES = r"""
- name: Two nodes of the database user
  mox.resources.node:
    user: mox
    nodes:
      - node: 1
        ipcbase: 5000
        databuf: 1048576
      - node: 2
        ipcbase: 5100
        databuf: 1048576
        evbuf: 65536

- name: Whatever the host's file says, with lost objects made again
  mox.resources.node:
    src: /etc/mox/node1.cmd
    repair: true

- name: A node goes, once its database has stopped
  mox.resources.node:
    command: "create node-1: ipcbase=5000, databuf=1048576"
    state: absent
    wait: 30
"""

RETURN = r"""
before:
  description: What was there, as RV(state).
  returned: success
  type: str
  sample: absent
state:
  description: What is there now, or in check mode would be - present or absent.
  returned: success
  type: str
  sample: present
nodes:
  description: Each node with its objects, as mox_node(8) reports them.
  returned: success
  type: list
  elements: dict
rc:
  description: The exit status of C(mox_node).
  returned: failure
  type: int
report:
  description: The report of C(mox_node) that goes with the failure.
  returned: failure
  type: dict
"""

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.mox.resources.plugins.module_utils import program


def changes_to_present(node_program, options):
    """Whether anything is to be made, with the report before; fails where `up` would."""
    status, plan = node_program.run("plan", *options)
    if status != program.OK:
        node_program.fail("plan", status, plan)
    return any(node["plan"] in ("create", "repair") for node in plan["nodes"]), plan


def changes_to_absent(node_program, wait):
    """Whether anything is to be removed, with the report before; fails where `down` would."""
    status, now = node_program.run("status")
    if status in (program.TROUBLE, program.CONFLICT):
        node_program.fail("status", status, now)
    in_use = [node for node in now["nodes"] if node["attached"]]
    if in_use and not wait:
        now["nodes"] = [dict(node, reason=f"in use, attached={node['attached']}") for node in in_use]
        node_program.fail("down", program.IN_USE, now)
    return any(node["state"] != "absent" for node in now["nodes"]), now


def main():
    module = AnsibleModule(
        argument_spec=dict(
            program.DESCRIPTION_OPTIONS,
            state={"type": "str", "choices": ["present", "absent"], "default": "present"},
            repair={"type": "bool", "default": False},
            wait={"type": "int", "default": 0},
            user={"type": "str"},
        ),
        mutually_exclusive=[program.DESCRIPTION_CHOICE],
        required_one_of=[program.DESCRIPTION_CHOICE],
        supports_check_mode=True,
    )
    wanted = module.params["state"]
    if module.params["wait"] < 0:
        module.fail_json(msg="wait takes no seconds below 0")
    node_program = program.Program(module, program.description_of(module.params))
    if wanted == "present":
        verb, options = "up", ["--repair"] if module.params["repair"] else []
        changed, before = changes_to_present(node_program, options)
    else:
        verb, options = "down", ["--wait", str(module.params["wait"])]
        changed, before = changes_to_absent(node_program, module.params["wait"])

    after = program.predicted(before, wanted)
    if changed and not module.check_mode:
        status, done = node_program.run(verb, *options)
        if status != program.OK:
            node_program.fail(verb, status, done)
        changed = done["changed"]
        status, after = node_program.run("status")
        if any(node["state"] != wanted for node in after["nodes"]):
            node_program.fail("status", status, dict(after, error=f"not {wanted} after mox_node {verb}"))
    module.exit_json(
        changed=changed,
        before=before["state"],
        state=wanted,
        nodes=after["nodes"],
        diff={"before": program.lines_of(before), "after": program.lines_of(after)},
    )


if __name__ == "__main__":
    main()
