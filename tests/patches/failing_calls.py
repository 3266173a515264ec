"""Runs a program, counts the calls that it makes of the system, and makes one of them fail.

The kernel asks here about every call that could fail (a seccomp filter with a listener), so that
the program is the one that is built, and what it calls through libraries counts too. What does not
count: the loader's calls before the program begins, those of the sanitizers' runtime (which tries
memory by means of pipes), and those of programs that it starts, but for the call that makes them
such.
"""

import argparse
import ctypes
import dataclasses
import errno
import fcntl
import os
import select
import signal
import socket
import struct
import time

import surroundings
import world

_libc = ctypes.CDLL(None, use_errno=True)

_EXEC = 59
_MAP = 9
_FCNTL = 72
_LOCKS = {5, 6, 7, 36, 37, 38}  # of fcntl; its other commands don't fail

# How each call can fail, which argument tells what it is about, and the calls by their numbers.
_TABLE = """
ENOMEM EINTR - 0: 7 poll, 271 ppoll
EMFILE ENOMEM - 0: 41 socket, 53 socketpair, 290 eventfd2, 319 memfd_create
EAGAIN ENOMEM - 0: 56 clone, 57 fork, 58 vfork, 435 clone3
ECHILD EINTR - 0: 61 wait4, 247 waitid
EPERM ESRCH - 0: 62 kill
ENOENT EACCES - 0: 79 getcwd
EMFILE ESRCH - 0: 434 pidfd_open
EIO EISDIR file 0: 0 read, 17 pread, 19 readv
ENOSPC EIO file 0: 1 write, 18 pwrite, 20 writev, 40 sendfile, 74 fsync, 75 fdatasync,
  77 ftruncate, 285 fallocate
EIO ENOMEM file 0: 5 fstat, 138 fstatfs, 193 fgetxattr, 217 getdents64
ECONNREFUSED ENETUNREACH file 0: 42 connect
ECONNRESET EIO file 0: 44 sendto, 45 recvfrom
ENOLCK EAGAIN file 0: 72 fcntl, 73 flock
EPERM ENOSPC file 0: 91 fchmod, 93 fchown, 190 fsetxattr, 280 utimensat
EPERM ESRCH file 0: 424 pidfd_send_signal
EIO ENOSPC file 2: 326 copy_file_range
ENOMEM ENODEV file 4: 9 mmap
EACCES EIO path 0: 4 stat, 6 lstat, 21 access, 76 truncate, 80 chdir, 87 unlink, 89 readlink,
  137 statfs, 191 getxattr, 192 lgetxattr
EACCES ENOMEM path 0: 59 execve
ENOSPC EACCES path 0: 83 mkdir
EACCES EBUSY path 0: 84 rmdir
EPERM ENOSPC path 0: 90 chmod, 92 chown, 188 setxattr, 189 lsetxattr
EACCES ENOSPC path 1: 82 rename, 86 link, 88 symlink, 258 mkdirat
EACCES EMFILE path 1: 257 openat
EACCES EIO path 1: 262 newfstatat, 263 unlinkat, 267 readlinkat, 269 faccessat, 332 statx,
  439 faccessat2
EPERM EROFS path 1: 268 fchmodat
EACCES ENOSPC path 3: 264 renameat, 265 linkat, 316 renameat2
"""


def _calls():
    """Number to name, kind and index of the argument, and the errors."""
    calls = {}
    for row in _TABLE.replace(',\n ', ',').split('\n')[1:-1]:
        how, _, names = row.partition(': ')
        *errors, kind, index = how.split()
        for call in names.split(', '):
            number, name = call.split()
            calls[int(number)] = (name, kind, int(index), *errors)
    return calls


_CALLS = _calls()
ERRORS = 2  # that each call can fail with
KILL = -1  # in the place of an error: the program ends by SIGKILL instead of the call

# See linux/filter.h and linux/seccomp.h.
_LOAD, _IF_EQUAL, _IF_ANY_BIT, _RETURN = 0x20, 0x15, 0x45, 0x06
_ALLOW, _NOTIFY = 0x7FFF0000, 0x7FC00000
_FLAGS_OF_MAP, _MAP_ANONYMOUS = 16 + 3 * 8, 0x20
_RECEIVE, _SEND = 0xC0502100, 0xC0182101
_NOTICE = struct.Struct('=QIIiIQ6Q')
_ANSWER = struct.Struct('=QqiI')
_CONTINUE = 1
_PR_SET_NO_NEW_PRIVS = 38
_SECCOMP, _SET_MODE_FILTER, _NEW_LISTENER = 317, 1, 8
_NEW_MOUNTS, _NEW_PROCESSES = 0x20000, 0x20000000
_PRIVATE_TREE = 0x44000

_UNCOUNTED = ('libasan', 'libubsan', 'liblsan')
_LOADER = 'ld-linux'


def _filter():
    steps = [(_LOAD, 0, 0, 0)]
    for number in sorted(_CALLS):
        if number == _MAP:
            steps += [(_IF_EQUAL, 0, 4, _MAP), (_LOAD, 0, 0, _FLAGS_OF_MAP),
                      (_IF_ANY_BIT, 0, 1, _MAP_ANONYMOUS), (_RETURN, 0, 0, _ALLOW),
                      (_RETURN, 0, 0, _NOTIFY)]
        else:
            steps += [(_IF_EQUAL, 0, 1, number), (_RETURN, 0, 0, _NOTIFY)]
    steps.append((_RETURN, 0, 0, _ALLOW))
    return b''.join(struct.pack('=HBBI', *step) for step in steps)


_FILTER = _filter()


class _Program(ctypes.Structure):
    _fields_ = [('length', ctypes.c_ushort), ('steps', ctypes.c_char_p)]


def _checked(result):
    if result < 0:
        raise OSError(ctypes.get_errno(), os.strerror(ctypes.get_errno()))
    return result


def use_own_processes():
    """From here on the programs that this process runs see each other and no process else, where
    that is allowed: then others, which come and go, change nothing in the calls that are made."""
    if surroundings.processes() or _libc.unshare(_NEW_PROCESSES) != 0:
        return False
    if os.fork() == 0:
        # The first process: the others end with it, and it ends with this one.
        signal.signal(signal.SIGCHLD, signal.SIG_IGN)
        _libc.prctl(1, signal.SIGKILL, 0, 0, 0)
        while True:
            signal.pause()
    return True


@dataclasses.dataclass
class Ended:
    status: int  # as subprocess has it: an exit code, or a negative signal; None without an end
    calls: list  # what was called, a text each; or only the one that failed


class _Watched:
    """A program that runs, and what is known of it."""

    def __init__(self, pid, fail_at, choice):
        self.pid = pid
        self.fail_at = fail_at
        self.choice = choice
        self.calls = []
        self.count = 0
        self.children = set()
        self.is_executed = False
        self.has_begun = False
        self._groups = {}
        self._maps = []

    def answer(self, notice):
        """The number of the error that the call shall fail with, or 0."""
        _, thread, _, number, _, place, *arguments = notice
        if not self._counts(thread, number, place):
            return 0
        if number == _FCNTL and arguments[1] not in _LOCKS:
            return 0
        call = self._tell(thread, number, arguments)
        if 'pipe:' in call:
            return 0
        self.count += 1
        if self.fail_at in (None, self.count):
            self.calls.append(call)
        if self.count != self.fail_at:
            return 0
        if self.choice == KILL:
            os.kill(self.pid, signal.SIGKILL)
            return 0
        return getattr(errno, _CALLS[number][3 + self.choice])

    def _counts(self, thread, number, place):
        if self._group(thread) != self.pid:
            is_child = number == _EXEC and thread not in self.children and (
                self._status(thread, 'PPid') == self.pid)
            self.children.update([thread] if is_child else [])
            return is_child and self.has_begun
        if not self.is_executed:
            self.is_executed = number == _EXEC
            return False
        library = self._library(place)
        if any(name in library for name in _UNCOUNTED):
            return False
        self.has_begun = self.has_begun or _LOADER not in library
        return self.has_begun

    @staticmethod
    def _status(thread, what):
        try:
            with open(f'/proc/{thread}/status', encoding='ascii', errors='replace') as status:
                return next(int(line.split()[1]) for line in status if line.startswith(what + ':'))
        except (OSError, StopIteration):
            return 0

    def _group(self, thread):
        if thread not in self._groups:
            self._groups[thread] = self._status(thread, 'Tgid')
        return self._groups[thread]

    def _library(self, place):
        for _ in range(2):
            for start, end, name in self._maps:
                if start <= place < end:
                    return name
            self._read_maps()
        return ''

    def _read_maps(self):
        self._maps = []
        with open(f'/proc/{self.pid}/maps', encoding='utf-8') as lines:
            for line in lines:
                words = line.split()
                if 'x' in words[1] and len(words) > 5:
                    start, end = (int(number, 16) for number in words[0].split('-'))
                    self._maps.append((start, end, words[5]))

    @staticmethod
    def _tell(thread, number, arguments):
        name, kind, index = _CALLS[number][:3]
        subject = ''
        try:
            if kind == 'path':
                with open(f'/proc/{thread}/mem', 'rb', buffering=0) as memory:
                    memory.seek(arguments[index])
                    text = memory.read(512).split(b'\0')[0]
                    subject = text.decode('utf-8', errors='replace')
            if kind == 'file' or (number == 262 and not subject):
                file = arguments[0 if number == 262 else index] & 0xFFFFFFFF
                subject = os.readlink(f'/proc/{thread}/fd/{file}')
        except (OSError, OverflowError):
            pass
        return f'{name} {subject}'


def _become(connection, command, environment, folder, output, own_processes):
    """The child's part. It is asked about its calls from the filter on."""
    try:
        signal.signal(signal.SIGPIPE, signal.SIG_DFL)
        if own_processes:
            _checked(_libc.unshare(_NEW_MOUNTS))
            _checked(_libc.mount(b'none', b'/', None, _PRIVATE_TREE, None))
            _checked(_libc.mount(b'proc', b'/proc', b'proc', 0, None))
        os.dup2(os.open(os.devnull, os.O_RDONLY), 0)
        for number, file in enumerate(output, 1):
            os.dup2(file, number)
        os.chdir(folder)
        _checked(_libc.prctl(_PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0))
        program = _Program(len(_FILTER) // 8, _FILTER)
        listener = _checked(_libc.syscall(_SECCOMP, _SET_MODE_FILTER, _NEW_LISTENER,
                                          ctypes.byref(program)))
        socket.send_fds(connection, [b'.'], [listener])
        os.execve(command[0], command, environment)
    except OSError as fault:
        os.write(2, f'{command[0]} was not started: {fault}\n'.encode())
    finally:
        os._exit(127)


def run(command, environment, folder, output, fail_at=None, choice=0, own_processes=False,
        limit=120):
    """Runs a program to its end. `output` is the two files that it writes to. Its call number
    `fail_at` fails, by the error that is its `choice` or KILL; without a number every call is only told.
    After `limit` seconds it is ended."""
    ours, theirs = socket.socketpair()
    with ours:
        pid = os.fork()
        if pid == 0:
            _become(theirs, [os.fspath(word) for word in command], environment, folder, output,
                    own_processes)
        theirs.close()
        _, files, _, _ = socket.recv_fds(ours, 1, 1)
    watched = _Watched(pid, fail_at, choice)
    end = os.pidfd_open(pid)
    try:
        has_ended = bool(files) and _serve(files[0], end, watched, time.monotonic() + limit)
    finally:
        for child in watched.children | {pid}:
            try:
                os.kill(child, signal.SIGKILL)
            except ProcessLookupError:
                pass
        os.close(end)
        for file in files:
            os.close(file)
        _, status = os.waitpid(pid, 0)
    return Ended(os.waitstatus_to_exitcode(status) if has_ended or not files else None,
                 watched.calls)


def is_possible():
    """Whether the kernel lets this process ask about another's calls."""
    with open(os.devnull, 'wb') as nowhere:
        output = (nowhere.fileno(), nowhere.fileno())
        return run(['/bin/true'], {}, '/', output).status == 0


def option_parser(words):
    """A parser of the options that all runners of such runs have."""
    parser = argparse.ArgumentParser(description=words)
    for name in ('tessel', 'tlx', 'key'):
        parser.add_argument(f'--{name}', required=True)
    parser.add_argument('--json', metavar='OUT')
    parser.add_argument('--jobs', type=int, default=os.cpu_count(), metavar='N')
    return parser


def run_and_report(options, run_all):
    """Tells of the faults that `run_all(options, outcomes)` puts down. Gives the exit code."""
    outcomes = {}
    skipped = {}
    if is_possible():
        run_all(options, outcomes)
    else:
        skipped['the kernel does not tell of the calls of a program'] = 1
    return world.report(outcomes, skipped, options.json)


def _serve(listener, end, watched, limit):
    """Answers until the program has ended. Returns whether it has."""
    poll = select.poll()
    poll.register(listener, select.POLLIN)
    poll.register(end, select.POLLIN)
    while True:
        ready = dict(poll.poll(max(0, limit - time.monotonic()) * 1000))
        if not ready:
            return False
        if ready.get(listener, 0) & select.POLLIN:
            _serve_one(listener, watched)
        elif end in ready:
            return True
        else:
            poll.unregister(listener)  # nobody can ask any more


def _serve_one(listener, watched):
    buffer = bytearray(_NOTICE.size)
    try:
        fcntl.ioctl(listener, _RECEIVE, buffer)
        notice = _NOTICE.unpack(buffer)
        error = watched.answer(notice)
        flags = 0 if error else _CONTINUE
        fcntl.ioctl(listener, _SEND, bytearray(_ANSWER.pack(notice[0], 0, -error, flags)))
    except FileNotFoundError:
        pass  # it was ended, or a signal came in between
