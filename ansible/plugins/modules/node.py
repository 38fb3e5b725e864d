#!/usr/bin/python
# Copyright: (c) 2026, The Mox Authors
"""Makes database nodes present or absent on a host."""
# The work is done by the action of the same name.

DOCUMENTATION = r"""
---
module: node
short_description: Resources of database nodes, present or absent
version_added: 1.0.0
description:
  - Makes the System V shared memory segments and the semaphore set of database nodes, or removes
    them, by C(mox_node) of the package C(mox-resources). The host needs no Python.
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
      - A task that runs as root looks and acts as that user.
      - Without it, new objects belong to the user that the task runs as, and owners are not judged.
    type: str
extends_documentation_fragment:
  - mox.resources.description
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
