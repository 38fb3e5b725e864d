"""Writes what each task came to, a JSON line each, to the file named by MOX_RECORD."""

import json
import os

from ansible.plugins.callback import CallbackBase

DOCUMENTATION = """
name: record
type: notification
short_description: What each task came to, for a test
description: Appends a JSON line for each task and host to the file that MOX_RECORD names.
"""


class CallbackModule(CallbackBase):
    CALLBACK_VERSION = 2.0
    CALLBACK_TYPE = "notification"
    CALLBACK_NAME = "record"
    CALLBACK_NEEDS_ENABLED = True

    @staticmethod
    def write(**entry):
        with open(os.environ["MOX_RECORD"], "a", encoding="utf-8") as record:
            record.write(json.dumps(entry, default=str) + "\n")

    def v2_runner_on_ok(self, result, failed=False):
        self.write(host=result._host.get_name(), task=result._task.get_name(), failed=failed,
                   changed=result.is_changed(), result=result._result)

    def v2_runner_on_failed(self, result, ignore_errors=False):
        self.v2_runner_on_ok(result, failed=True)

    v2_runner_on_unreachable = v2_runner_on_failed

    def v2_playbook_on_stats(self, stats):
        self.write(failures=sorted(set(stats.failures) | set(stats.dark)))
