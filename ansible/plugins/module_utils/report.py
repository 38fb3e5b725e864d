# Copyright: (c) 2026, The Mox Authors
"""What a report of mox_node says, and the description that it is asked about."""

import json

# The statuses of mox_node(8).
OK, TROUBLE, ABSENT, PARTIAL, CONFLICT, IN_USE, TOO_MUCH = range(7)


def command_of(nodes):
    """The command text that describes nodes given as dictionaries."""
    text = "create"
    for node in nodes:
        sizes = [f"{name}={value}" for name, value in node.items() if name != "node" and value is not None]
        text += f"\nnode-{node['node']}: " + ", ".join(sizes)
    return text + "\n"


def parse(text):
    """The report in a line that mox_node printed, or None."""
    try:
        report = json.loads(text)
    except ValueError:
        return None
    return report if isinstance(report, dict) else None


def reason(report):
    """The program's own words for why it does not do what it was asked for, or None."""
    if report.get("error"):
        return report["error"]
    reasons = [f"node-{node['node']}: {node['reason']}" for node in report.get("nodes", []) if node.get("reason")]
    for limit in report.get("limits") or []:
        if limit["fits"] is False:
            in_use = "" if limit["in_use"] is None else f", {limit['in_use']} in use"
            reasons.append(f"{limit['name']} does not suffice: {limit['needed']} needed{in_use}, limit {limit['limit']}")
    return "; ".join(reasons) or None


def lines_of(report):
    """What stands, by lines, for a diff: nothing that differs from run to run."""
    lines = []
    for node in report["nodes"]:
        lines.append(f"node-{node['node']} {node['state']} ipcbase={node['ipcbase']}")
        for segment in node["segments"]:
            lines.append(f"  {segment['key']} {segment['buffer']} {_shown(segment, 'bytes')}")
        lines.append(f"  {node['semaphores']['key']} semaphores {_shown(node['semaphores'], 'semaphores')}")
    return "".join(line + "\n" for line in lines)


def _shown(thing, unit):
    return thing["state"] if thing["size"] is None else f"{thing['state']}, {thing['size']} {unit}"


def predicted(report, state):
    """The report as it will be when every node is present, or absent."""
    after = json.loads(json.dumps(report))
    for node in after["nodes"]:
        node["state"] = state
        for thing in node["segments"] + [node["semaphores"]]:
            thing["state"] = state
            thing["size"] = thing["wanted"] if state == "present" else None
    return after
