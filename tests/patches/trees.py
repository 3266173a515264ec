"""Folder trees: made before a case runs, and told afterwards."""

import os
import pathlib
import shlex


def _host(folder, path):
    return pathlib.Path(folder, path.replace('\\', '/'))


def words_of(line):
    # Only blanks and quotation marks have a meaning: '\\' separates.
    words = shlex.shlex(line, posix=True)
    words.whitespace_split, words.escape, words.commenters = True, '', ''
    return [*words]


def make(folder, lines):
    """Makes in `folder` what the lines say, with paths from there (missing parents are made):

        folder PATH             file PATH TEXT              link PATH TARGET
        read-only PATH          time PATH SECONDS (since 1970)
    """
    for line in lines:
        what, path, *rest = words_of(line)
        place = _host(folder, path)
        place.parent.mkdir(parents=True, exist_ok=True)
        if what == 'folder':
            place.mkdir(parents=True, exist_ok=True)
        elif what == 'file':
            place.write_text(rest[0], encoding='utf-8')
        elif what == 'link':
            place.symlink_to(rest[0].replace('\\', '/'))
        elif what == 'time':
            os.utime(place, (int(rest[0]),) * 2)
        elif what == 'read-only':
            place.chmod(0o444 if place.is_file() else 0o555)
        else:
            raise ValueError(f'make: what is {line!r}?')


def tell(folder, path):
    """A line for each entry below `path`, with its path from there, in their order: a folder with a
    backslash behind it, a link with '@'. None when `path` is not there."""
    top = _host(folder, path)
    if not os.path.lexists(top):
        return None
    lines = []
    for place, folders, files in os.walk(top):
        for name in folders + files:
            entry = pathlib.Path(place, name)
            mark = '@' if entry.is_symlink() else '\\' if entry.is_dir() else ''
            lines.append(str(entry.relative_to(top)).replace('/', '\\') + mark)
    return sorted(lines)
