# Copyright: (c) 2026, The Mox Authors
"""The description of nodes, as options of the modules that take one."""


class ModuleDocFragment:
    DOCUMENTATION = r"""
options:
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
"""
