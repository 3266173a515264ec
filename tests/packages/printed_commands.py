"""The commands that a page in Markdown prints: in blocks that are indented or fenced, and in lines."""

import re
import shlex

PROGRAMS = ('ansible-galaxy', 'ansible-playbook', 'apt', 'apt-get', 'cat', 'cmake', 'cp', 'man', 'mkdir',
            'ntfs-3g', 'openssl', 'osslsigncode', 'source', 'tessel', 'tlx', 'xmllint')
COMMAND = re.compile(r'(?:\$ )?(?:[A-Z_]+=\S+ ?)*(?:(?:\S*/)?certificates\b|scripts/\w|(?:'
                     + '|'.join(PROGRAMS) + r')(?: |$)|[A-Z_]+=\S+$)')
SPAN = re.compile(r'`([^`]+)`')
# What stands for something else, as usage has it: choices, what may be left out or repeated.
USAGE = re.compile(r'\[|\.\.\.|(?<![|\s])\|(?![|\s])')


class Command:
    """A command, and the output that the page shows for it, if any."""

    def __init__(self, page, line, text):
        self.page, self.line, self.text, self.shown = page, line, text, None

    def is_usage(self):
        return bool(USAGE.search(re.sub(r"'[^']*'", '', self.text)))

    def __str__(self):
        return f'{self.page}:{self.line}: {self.text}'


def blocks_of(text):
    """Each block of code: the number of its first line, and its lines."""
    block, fence, before = None, None, ''
    for number, line in enumerate([*text.split('\n'), 'x'], 1):
        is_inside = fence is not None or line.startswith('    ') and (block or not before.strip())
        if line.startswith('```'):
            fence, is_inside = (None if fence else line), False
            line = '' if fence else 'x'
        if is_inside:
            block = block or (number, [])
            block[1].append(line if fence else line[4:])
        elif block and (line.strip() or fence is None and line == 'x'):
            yield block
            block = None
        elif block:
            block[1].append('')
        before = line


def commands_of(page, text):
    """Those of a page's blocks, in their order."""
    found = []
    for number, lines in blocks_of(text):
        if not any(COMMAND.match(line) for line in lines):
            continue
        going = False
        for offset, line in enumerate(lines):
            if going:
                found[-1].text += ('\n' if found[-1].text.endswith('\\') else ' ') + line.strip()
            elif lines[0].startswith('$ ') and not line.startswith('$ '):
                found[-1].shown.append(line)
                continue
            elif line:
                found.append(Command(page, number + offset, line.removeprefix('$ ')))
                found[-1].shown = [] if line.startswith('$ ') else None
            # A line that is indented goes on with the usage above it.
            following = lines[offset + 1] if offset + 1 < len(lines) else ''
            going = line.endswith('\\') or following.startswith('    ')
    return found


def spans_of(page, text):
    """The commands with options within lines of text."""
    for number, line in enumerate(text.split('\n'), 1):
        if not line.startswith('    '):
            for span in SPAN.findall(line):
                if re.match(r'(tlx|tessel) .*(--|/)', span):
                    yield Command(page, number, span)


def options_of(command):
    """The words of tlx's command, and the options that are given to it."""
    try:
        words = shlex.split(re.sub(r'[\[\]|]|\.\.\.', ' ', command.text.split(' #')[0]))
    except ValueError:
        words = command.text.split()
    words = words[words.index('tlx') + 1:]
    names = words[:2] if words[0] == 'machine' else words[:1]
    return names, [word for word in words if word.startswith('--')]
