"""A web server on the loopback address, for the cases that download: '@HTTP@' is its address."""

import functools
import http.server
import threading

# Path to status, headers beside the length, and body.
_ANSWERS = {
    '/file': (200, {}, b'content\n'),
    '/a%20b': (200, {}, b'content\n'),
    '/%c3%a4': (200, {}, b'content\n'),
    '/moved': (302, {'Location': '/file'}, b''),
    '/loop': (302, {'Location': '/loop'}, b''),
    '/to-a-file': (302, {'Location': 'file:///C:/Windows/win.ini'}, b''),
    '/secret': (401, {}, b'an error page\n'),
    '/broken': (500, {}, b'an error page\n'),
    '/short': (200, {'Content-Length': '100'}, b'half of it'),
    '/chunked': (200, {'Transfer-Encoding': 'chunked'}, b'3\r\ncon\r\n5;a=b\r\ntent\n\r\n0\r\nC: d\r\n\r\n'),
    '/cut': (200, {'Transfer-Encoding': 'chunked'}, b'3\r\ncon\r\n5\r\nte'),
}
_LOCK = threading.Lock()


class _Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = 'HTTP/1.1'  # which has pieces

    def do_GET(self):
        path = self.path.replace('%C3%A4', '%c3%a4')
        status, headers, body = _ANSWERS.get(path, (404, {}, b'an error page\n'))
        self.send_response(status)
        if 'Transfer-Encoding' not in headers:
            headers = {'Content-Length': str(len(body)), **headers}
        for name, value in {'Connection': 'close', **headers}.items():
            self.send_header(name, value)
        self.end_headers()
        self.wfile.write(body)

    def log_message(self, *_):
        pass


class _HttpServer(http.server.ThreadingHTTPServer):
    def handle_error(self, *_):
        pass  # a client went away


@functools.lru_cache
def _start():
    server = _HttpServer(('127.0.0.1', 0), _Handler)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    return f'http://127.0.0.1:{server.server_port}'


def address():
    """The server's address; the first call starts it, and it ends with the process."""
    with _LOCK:
        return _start()
