"""A callback for the tests: each result as a line of JSON, in the file that TESSEL_RESULTS names."""

import json
import os

from ansible.plugins.callback import CallbackBase


class CallbackModule(CallbackBase):
    CALLBACK_VERSION = 2.0
    CALLBACK_TYPE = 'aggregate'
    CALLBACK_NAME = 'results_log'

    def _write(self, state, result):
        line = {'state': state, 'host': result._host.get_name(), 'task': result._task.action,
                'result': result._result}
        with open(os.environ['TESSEL_RESULTS'], 'a', encoding='utf-8') as file:
            file.write(json.dumps(line, default=str) + '\n')

    def v2_runner_on_ok(self, result):
        self._write('ok', result)

    def v2_runner_on_failed(self, result, ignore_errors=False):
        self._write('failed', result)

    def v2_runner_on_unreachable(self, result):
        self._write('unreachable', result)
