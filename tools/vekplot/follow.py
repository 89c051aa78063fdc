"""Serves the page on loopback, and feeds it while the files grow.

The page opens a stream of events, each of them the serial number of what there is, and fetches what
came after the one that it has. Where the newer lines change what was told from the older ones, such
as the kind of a metric, it gets all of it again.
"""

import contextlib
import json
import mimetypes
import re
import secrets
import threading
import time
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from typing import NamedTuple
from urllib.parse import parse_qs, urlsplit

from .document import Document
from .page import find_file, find_references
from .writing import write_document

PERIOD = 0.25  # seconds between two looks at the files, at least
REST = 4  # times as long as a look takes, which is long if the logs are
PATIENCE = 8  # looks at files that go on growing, before what they have is shown
KEPT_MARKS = 100
KEEP_ALIVE = 15  # seconds
LOCAL_HOST = re.compile(r'(localhost|127\.0\.0\.1|\[::1\])(:\d+)?', re.IGNORECASE)
SERIAL = re.compile(r'\d{1,18}')
HEADERS = {
    'Cache-Control': 'no-store',
    'Content-Security-Policy':
        "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; "
        "img-src 'self' data:; base-uri 'none'; form-action 'none'; frame-ancestors 'none'",
    'Cross-Origin-Resource-Policy': 'same-origin',
    'Referrer-Policy': 'no-referrer',
    'X-Content-Type-Options': 'nosniff',
}


class Mark(NamedTuple):
    """What a page has that got everything up to some serial number."""
    passes: int
    ranges: dict  # how many bounds of each lane
    description: tuple  # of what was told


class Feed:
    """What the page gets; any thread may ask for it."""

    def __init__(self, files, options):
        self.files = files
        self.options = options
        self.start = secrets.token_hex(16)
        self.changed = threading.Condition()
        self.serial = 0
        self.marks = {}
        self.document = None
        self.waiting = 0  # looks since the first growth that is not shown yet

    def look(self):
        """Reads what the files have gained. The last pass may still be incomplete while they grow,
        so all of it is shown only when they stand still.
        """
        with self.changed:
            is_growing = self.files.read_more() > 0
            self.waiting += is_growing or self.waiting > 0
            if self.document is None or self.waiting and (
                    not is_growing or self.waiting > PATIENCE):
                self.show(is_growing)
                self.waiting = int(is_growing)

    def show(self, is_growing):
        self.document = Document(self.files, self.options)
        if is_growing:
            self.document.leave_last_pass()
        self.serial += 1
        passes = self.document.count_passes()
        self.marks[self.serial] = Mark(passes, self.document.ranges,
                                       self.document.describe(passes))
        self.marks.pop(self.serial - KEPT_MARKS, None)
        self.changed.notify_all()

    def get(self, serial):
        """The JSON of what came after a serial number, or of everything."""
        with self.changed:
            mark = self.marks.get(serial)
            pieces = []
            if mark and mark.description == self.document.describe(mark.passes):
                later = self.document.after(mark.passes, mark.ranges)
                write_document(later, pieces.append, **self.get_state())
            else:
                write_document(self.document, pieces.append, **self.get_state(), whole=True)
            return ''.join(pieces).encode()

    def get_state(self):
        return {'pass': self.serial, 'start': self.start}

    def wait(self, serial):
        """Waits for another serial number than this one; returns the state."""
        with self.changed:
            self.changed.wait_for(lambda: self.serial != serial, KEEP_ALIVE)
            return self.get_state()


class Handler(BaseHTTPRequestHandler):
    """Answers a request."""
    protocol_version = 'HTTP/1.1'
    feed = None  # of the server
    names = frozenset()  # of the files that the page refers to

    def log_message(self, *_):
        pass

    def handle(self):
        with contextlib.suppress(ConnectionError, TimeoutError):  # a browser may break it off
            super().handle()

    def answer(self, status, kind, content):
        self.send_response(status)
        self.send_header('Content-Type', f'{kind}; charset=utf-8')
        self.send_header('Content-Length', str(len(content)))
        self.end_headers()
        self.wfile.write(content)

    def end_headers(self):
        for name, value in HEADERS.items():
            self.send_header(name, value)
        super().end_headers()

    def do_GET(self):
        # A page of another site can have its name lead here, but it is still named in the request.
        if not LOCAL_HOST.fullmatch(self.headers.get('Host', '')):
            self.answer(403, 'text/plain', b'The Host of the request is not allowed here.\n')
            return
        url = urlsplit(self.path)
        name = url.path.removeprefix('/') or 'index.html'
        if name == 'vars.json':
            after = parse_qs(url.query).get('after', [''])[0]
            self.answer(200, 'application/json',
                        self.feed.get(int(after) if SERIAL.fullmatch(after) else None))
        elif name == 'events':
            self.send_events()
        elif name in self.names:
            self.answer(200, mimetypes.guess_type(name)[0], find_file(name).read_bytes())
        else:
            self.answer(404, 'text/plain', b'There is no such page.\n')

    def send_events(self):
        self.close_connection = True
        self.send_response(200)
        self.send_header('Content-Type', 'text/event-stream; charset=utf-8')
        self.end_headers()
        sent = None
        while True:
            state = self.feed.wait(sent)
            if state['pass'] == sent:
                event = ':\n\n'  # is the page still there?
            else:
                sent = state['pass']
                event = f'id: {sent}\ndata: {json.dumps(state)}\n\n'
            self.wfile.write(event.encode())


def serve(files, options, announce):
    """Serves the page until it is interrupted; announces its address and its first document."""
    feed = Feed(files, options)
    feed.look()
    names = frozenset(['index.html', *find_references()])
    handler = type('FeedHandler', (Handler,), {'feed': feed, 'names': names})
    with ThreadingHTTPServer(('127.0.0.1', 0), handler) as server:
        server.daemon_threads = True
        threading.Thread(target=server.serve_forever, daemon=True).start()
        announce(f'http://127.0.0.1:{server.server_port}/', feed.document)
        try:
            pause = PERIOD
            while True:
                time.sleep(pause)
                begin = time.monotonic()
                feed.look()
                pause = max(PERIOD, REST * (time.monotonic() - begin))
        except KeyboardInterrupt:
            server.shutdown()
