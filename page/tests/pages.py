"""Serves the page on loopback, with data in it or as a running program."""

import functools
import http.server
import json
import pathlib
import queue
import re
import threading
import unittest

PAGE = pathlib.Path(__file__).resolve().parents[1]
DYGRAPHS = pathlib.Path('/usr/share/javascript/dygraphs')
TYPES = {'.html': 'text/html; charset=utf-8', '.css': 'text/css', '.js': 'text/javascript'}
POLICY = ("default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; "
          "img-src 'self' data:")
EMPTY = '<script type="application/json" id="data"></script>'

START = 1700000000  # 2023-11-14 22:13:20 UTC


def document(metrics=(), timelines=(), times=(), **members):
    """The data of a page whose metrics share one axis of times."""
    return {'version': 1, 'title': 'known', 'sources': ['known.csv'], 'times': [list(times)],
            'passes': 0, 'restarts': [], 'metrics': list(metrics), 'timelines': list(timelines),
            **members}


def minutes(count):
    return [START + 60 * i for i in range(count)]


def metric(kind, values, name='figure', unit=None, dimensions=()):
    return {'name': name, 'dimensions': list(dimensions), 'kind': kind, 'unit': unit, 'times': 0,
            'values': values}


def statistics(kind='timer', name='latency', unit='Seconds', **lines):
    return {'name': name, 'dimensions': [], 'kind': kind, 'unit': unit, 'times': 0,
            'statistics': lines}


def timeline(lanes, name='work', clock='wall'):
    return {'name': name, 'dimensions': [], 'clock': clock,
            'lanes': [{'id': key, 'ranges': ranges} for key, ranges in lanes.items()]}


def find(name):
    """The text of a file of the page."""
    path = PAGE / name
    if not path.exists() and name.startswith('dygraph'):
        path = DYGRAPHS / name
        if not path.exists():
            raise unittest.SkipTest(f'there is no {path}')
    return path.read_text(encoding='utf-8')


def embedded(data):
    """The page with data in it."""
    text = json.dumps(data).replace('<', '\\u003c')
    return find('index.html').replace(EMPTY, EMPTY.replace('><', f'>{text}<'))


def one_file(data):
    """The page with its data and all of its files in it."""
    page = re.sub(r'<link rel="stylesheet" href="(.*)">',
                  lambda match: f'<style>\n{find(match[1])}</style>', embedded(data))
    return re.sub(r'<script src="(.*)"></script>', lambda match: '<script>\n' + find(match[1])
                  .replace('</script', '<\\/script') + '</script>', page)


class Program:
    """What the page sees of a running program: its passes."""

    def __init__(self, start='first'):
        self.start = start
        self.passes = []  # (time, values by name)
        self.streams = []
        self.asked = []
        self.timelines = []
        self.is_whole = False  # whether each reply has everything

    def add(self, time, **values):
        self.passes.append((time, values))
        for stream in self.streams:
            stream.put(len(self.passes))

    def restart(self, start):
        self.start, self.passes = start, []

    def disconnect(self):
        for stream in self.streams:
            stream.put(None)

    def vars(self, after):
        kept = self.passes if self.is_whole else self.passes[after:]
        names = sorted({name for _, values in kept for name in values})
        return document(
            [metric('counter', [values.get(name) for _, values in kept], name, 'Count')
             for name in names],
            self.timelines, times=[time for time, _ in kept], start=self.start, whole=self.is_whole,
            **{'pass': len(self.passes)})


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = 'HTTP/1.1'

    def do_GET(self):
        path, _, query = self.path[1:].partition('?')
        program = self.server.program
        if path == 'vars.json' and program:
            program.asked.append(query)
            after = int(query.removeprefix('after=') or 0)
            self.reply('application/json', json.dumps(program.vars(after)))
        elif path == 'events' and program:
            self.stream(program)
        elif path == '':
            self.reply(TYPES['.html'], self.server.page)
        elif (suffix := pathlib.Path(path).suffix) in TYPES and '/' not in path:
            self.reply(TYPES[suffix], find(path))
        else:
            self.send_error(404)
            self.server.refused.set()

    def reply(self, kind, text):
        body = text.encode()
        self.send_response(200)
        self.send_header('Content-Type', kind)
        self.send_header('Content-Length', str(len(body)))
        self.send_header('Content-Security-Policy', POLICY)
        self.end_headers()
        self.wfile.write(body)

    def stream(self, program):
        events = queue.Queue()
        program.streams.append(events)
        self.send_response(200)
        self.send_header('Content-Type', 'text/event-stream')
        self.send_header('Connection', 'close')
        self.end_headers()
        self.wfile.flush()
        while (number := events.get()) is not None:
            data = json.dumps({'pass': number, 'start': program.start})
            self.wfile.write(f'id: {number}\ndata: {data}\n\n'.encode())
            self.wfile.flush()
        program.streams.remove(events)
        self.close_connection = True

    def log_message(self, *_):
        pass


class Server(http.server.ThreadingHTTPServer):
    """Serves the page, at a port that the system chooses."""

    daemon_threads = True
    page = ''
    program = None
    refused = threading.Event()

    @property
    def url(self):
        return f'http://127.0.0.1:{self.server_port}/'

    def show(self, browser, data, address='', **options):
        """Opens a page with data in it."""
        self.page, self.program = embedded(data), None
        find('dygraph.min.js')
        browser.open(self.url + address, **options)

    def follow(self, browser, program):
        """Opens the page of a running program."""
        self.page, self.program = find('index.html'), program
        find('dygraph.min.js')
        browser.open(self.url)


@functools.cache
def server():
    """The server of a test program."""
    running = Server(('127.0.0.1', 0), Handler)
    threading.Thread(target=running.serve_forever, daemon=True).start()
    return running
