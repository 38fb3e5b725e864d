# Copyright: (c) 2026, The Mox Authors
"""Tells what stands of database nodes on a host."""

from ansible_collections.mox.resources.plugins.module_utils import report as reports
from ansible_collections.mox.resources.plugins.modules import node_info as module
from ansible_collections.mox.resources.plugins.plugin_utils.remote import MoxAction, Refused, documented

SPEC = documented(module)


class ActionModule(MoxAction):
    def act(self):
        status, report = self.ask(self.arguments(SPEC), "ask status")[0]
        if status == reports.TROUBLE:
            raise Refused("status", status, report)
        return {"changed": False, "state": report["state"], "nodes": report["nodes"]}
