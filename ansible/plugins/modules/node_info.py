#!/usr/bin/python
# Copyright: (c) 2026, The Mox Authors
"""Tells what stands of database nodes on a host."""
# The work is done by the action of the same name.

DOCUMENTATION = r"""
---
module: node_info
short_description: What stands of database nodes
version_added: 1.0.0
description:
  - Looks at the resources of nodes, by C(mox_node) of the package C(mox-resources), and changes
    nothing. Without a description it finds the nodes that stand on the host.
  - What cannot be told is a failure, with the whole report.
options:
  user:
    description: Judge owners too, or without a description find that user's nodes alone.
    type: str
extends_documentation_fragment:
  - mox.resources.description
attributes:
  check_mode:
    description: Nothing is ever changed.
    support: full
author:
  - The Mox Authors (@mox)
"""

EXAMPLES = r"""
- name: What stands here
  mox.resources.node_info:
  register: found

- name: Every node that was found, by its base key
  ansible.builtin.debug:
    msg: "{{ found.nodes | map(attribute='ipcbase') }}"

- name: How the described nodes are
  mox.resources.node_info:
    src: /etc/mox/node1.cmd
    user: mox
"""

RETURN = r"""
state:
  description: Of all nodes - present, absent, mixed, partial or conflict.
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
