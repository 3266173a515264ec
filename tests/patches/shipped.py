"""Has a log shipper, with a configuration of docs/samples/, send the events of machines to a server.

    shipped.py SHIPPER CONFIGURATION FOLDER COUNT

It runs in namespaces of its own: the machines are bound to /srv, and the server's name leads here.
FOLDER is the shipper's. Prints the first COUNT messages that the server has got, as JSON, and ends
the shipper.
"""

import fcntl
import json
import os
import pathlib
import socket
import struct
import subprocess
import sys

PORT = 601
WAIT = 60  # seconds


def raise_loopback():
    up, request = 0x1, 0x8914  # IFF_UP, SIOCSIFFLAGS
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as any_socket:
        fcntl.ioctl(any_socket, request, struct.pack('16sh14x', b'lo', up))


def start(shipper, configuration, folder):
    main = folder / 'main.conf'
    main.write_text(f'@version: 3.38\n@include "{configuration}"\n', encoding='utf-8')
    libraries = shipper / 'usr' / 'lib'
    search = [libraries / 'syslog-ng', *libraries.glob('*-linux-gnu'),
              *(shipper / 'lib').glob('*-linux-gnu')]
    return subprocess.Popen(
        [shipper / 'usr' / 'sbin' / 'syslog-ng', '--foreground', '--no-caps', '--cfgfile', main,
         '--persist-file', folder / 'persist', '--pidfile', folder / 'pid', '--control',
         folder / 'control', '--module-path', libraries / 'syslog-ng' / '3.38'],
        env={**os.environ, 'LD_LIBRARY_PATH': ':'.join(map(str, search))}, stdin=subprocess.DEVNULL,
        stdout=sys.stderr)


def read_messages(connection, count):
    """Messages by their lengths, as RFC 5425 frames them."""
    stream = connection.makefile('rb')
    while count > 0:
        length = b''
        while (digit := stream.read(1)) not in (b' ', b''):
            length += digit
        if not digit:
            return
        yield stream.read(int(length)).decode()
        count -= 1


def main():
    shipper, configuration, folder = map(pathlib.Path, sys.argv[1:4])
    raise_loopback()
    with socket.create_server(('127.0.0.1', PORT)) as server:
        server.settimeout(WAIT)
        running = start(shipper, configuration, folder)
        try:
            connection, _ = server.accept()
            connection.settimeout(WAIT)
            for message in read_messages(connection, int(sys.argv[4])):
                print(json.dumps(message), flush=True)
            running.terminate()
            running.wait(WAIT)
        finally:
            running.kill()


if __name__ == '__main__':
    main()
