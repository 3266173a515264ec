"""What a spool may hold, and tlx at listing and following it."""

import json
import os
import pathlib
import queue
import subprocess
import threading
import time
import uuid

import world
from world import expect

START = 1_700_000_000_000  # milliseconds


def write(folder, moment=START, reason='success', code=0, name=None, patch='p'):
    """Puts an event into a folder as a run does. Gives the name of the file."""
    name = name or str(uuid.uuid4())
    fields = {'event_name': 'm_tool_ran', 'event_version': '1.0', 'event_time': moment, 'tool': 'Tessel',
              'exit_code': code, 'exit_reason': reason, 'tessera': {'patch_id': patch, 'patch_path': 'x'}}
    document = {'data': {'fields': fields, 'ignoreCloudSettings': False}, 'type': 'basicNotification',
                'version': 2}
    folder.mkdir(parents=True, exist_ok=True)
    draft = folder / f'{name}.tmp'
    draft.write_text(json.dumps(document) + '\n', encoding='utf-8')
    draft.rename(folder / name)
    return name


def list_events(tlx, *words, code=0, zone='UTC'):
    done = subprocess.run([tlx, 'events', *words], capture_output=True, timeout=world.TIME_LIMIT,
                          check=False, env={**os.environ, 'TZ': zone})
    expect(done.returncode == code, f'{words}: {done}')
    return done.stdout.decode().splitlines(), done.stderr.decode()


class Follower:
    """tlx events --follow: its lines as they come."""

    def __init__(self, tlx, *words):
        self.running = subprocess.Popen([tlx, 'events', '--follow', '--records', *words],
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.lines, self.errors = queue.Queue(), queue.Queue()
        self.ids = []
        for stream, lines in ((self.running.stdout, self.lines), (self.running.stderr, self.errors)):
            threading.Thread(target=self._read, args=(stream, lines), daemon=True).start()

    @staticmethod
    def _read(stream, lines):
        for line in stream:
            lines.put(line.decode())

    def until(self, names):
        """Waits until each event was told, and no other one and none twice."""
        end = time.monotonic() + world.TIME_LIMIT
        while len(self.ids) < len(names):
            try:
                line = self.lines.get(timeout=max(0, end - time.monotonic()))
            except queue.Empty:
                raise world.Fault(f'missing: {set(names) - set(self.ids)}') from None
            self.ids.append(json.loads(line)['id'])
        expect(sorted(self.ids) == sorted(names), f'told {self.ids}, not {names}')

    def until_error(self, text):
        line = self.errors.get(timeout=world.TIME_LIMIT)
        expect(text in line, f'told {line!r}, not {text!r}')

    def end(self, signal):
        """The exit code; nothing is told any more."""
        self.running.send_signal(signal)
        code = self.running.wait(world.TIME_LIMIT)
        for thread in threading.enumerate():
            if thread is not threading.current_thread() and thread.daemon:
                thread.join(world.TIME_LIMIT)
        expect(self.lines.empty(), 'told more than there was')
        return code

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.running.kill()
        self.running.wait()


def spool_of(machine):
    return pathlib.Path(machine) / world.SPOOL
