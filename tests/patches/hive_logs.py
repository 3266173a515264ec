"""Completes hive files from their logs, by the format's public description and nothing of the program."""

import struct

_MASK = 0xFFFFFFFF
_SEED = bytes.fromhex('82EF4D887A4E55C5')


def _rotated(number, count):
    return (number << count | number >> 32 - count) & _MASK


def _marvin(data):
    low, high = struct.unpack('<II', _SEED)
    for word in (*(each for each, in struct.iter_unpack('<I', data)), 0x80, 0):
        low = (low + word) & _MASK
        high ^= low
        low = (_rotated(low, 20) + high) & _MASK
        high = _rotated(high, 9) ^ low
        low = (_rotated(low, 27) + high) & _MASK
        high = _rotated(high, 19)
    return struct.pack('<II', low, high)


def _sealed(base):
    total = 0
    for word, in struct.iter_unpack('<I', base[:508]):
        total ^= word
    return base[:508] + struct.pack('<I', total)


def _entries(log):
    """Number, size of the bins and pages of each entry, up to the first that isn't whole."""
    at = 512
    while log[at:at + 4] == b'HvLE':
        size, _, number, bins, count = struct.unpack_from('<5I', log, at + 4)
        entry = log[at:at + size]
        if (len(entry) < size or entry[32:40] != _marvin(entry[:32])
                or entry[24:32] != _marvin(entry[40:])):
            return
        data = 40 + 8 * count
        pages = []
        for place, length in struct.iter_unpack('<II', entry[40:data]):
            pages.append((place, entry[data:data + length]))
            data += length
        yield number, bins, pages
        at += size


def replayed(place):
    """The bytes of the hive at `place`, as Windows would have it after loading it."""
    hive = bytearray(place.read_bytes())
    if hive[:512] != _sealed(bytes(hive[:512])):
        raise ValueError(f'{place.name} has a damaged base block')
    first, second = struct.unpack_from('<II', hive, 4)
    if first == second:
        return bytes(hive)
    expected = second
    for number, bins, pages in _entries(place.with_name(place.name + '.LOG1').read_bytes()):
        if number != expected:
            break
        hive.extend(bytes(max(0, 4096 + bins - len(hive))))
        for offset, page in pages:
            hive[4096 + offset:4096 + offset + len(page)] = page
        struct.pack_into('<II', hive, 4, number, number)
        struct.pack_into('<I', hive, 40, bins)
        expected += 1
    if expected == second:
        raise ValueError(f'{place.name} is dirty, and its log has nothing for it')
    hive[:512] = _sealed(bytes(hive[:512]))
    return bytes(hive)
