"""Servers on loopback, as docs/operations.md configures them, in temporary folders."""

import contextlib
import json
import os
import pathlib
import re
import socket
import subprocess
import time
import urllib.error
import urllib.parse
import urllib.request

DEADLINE = 60  # seconds that only a failure takes

reservations = []  # of ports

# Meson has freed memory filled, which finds faults of programs: carbon-c-relay 3.7.4 crashes.
SERVER_ENV = {name: value for name, value in os.environ.items() if name != 'MALLOC_PERTURB_'}

DOCUMENT = pathlib.Path(__file__).resolve().parents[2] / 'docs' / 'operations.md'


def excerpt(name, changes):
    """Returns a configuration as the document shows it, with other folders and ports."""
    text = DOCUMENT.read_text(encoding='utf-8')
    config = re.search(rf'^```\w+\n(# {name}\n.*?)^```$', text, re.MULTILINE | re.DOTALL)[1]
    for old in changes:
        assert old in config, f'{name} does not say {old}'
    olds = '|'.join(changes)
    return re.sub(olds, lambda match: str(changes[match[0]]), config) if olds else config


def free_port():
    """Returns a port that nobody else gets while this program runs, but the server that it is for:
    a socket that does not listen stays bound to it, and servers set SO_REUSEADDR, with which they
    may bind as well.
    """
    reservation = socket.socket()
    reservation.bind(('127.0.0.1', 0))
    reservation.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    reservations.append(reservation)
    return reservation.getsockname()[1]


def wait_for(condition):
    """Polls until the condition holds or the deadline has passed; returns whether it holds."""
    end = time.monotonic() + DEADLINE
    while not condition() and time.monotonic() < end:
        time.sleep(0.05)
    return condition()


def accepts(port):
    with socket.socket() as client:
        return client.connect_ex(('127.0.0.1', port)) == 0


@contextlib.contextmanager
def server(command, port, folder):
    """Runs a server for as long as the block lasts, which begins when its port accepts.

    The block is given the process.
    """
    with (folder / 'output').open('w+') as output:
        process = subprocess.Popen(command, stdout=output, stderr=subprocess.STDOUT,
                                   env=SERVER_ENV)
        try:
            if not wait_for(lambda: accepts(port) or process.poll() is not None):
                raise AssertionError(f'{command[0]} did not open its port')
            if process.poll() is not None:
                output.seek(0)
                raise AssertionError(f'{command[0]} ended: {output.read()}')
            yield process
        finally:
            process.terminate()
            process.wait(DEADLINE)


def query_prometheus(url, expression, **parameters):
    """Returns the result of an instant query; an empty one while the server starts."""
    query = urllib.parse.urlencode({'query': expression, **parameters})
    try:
        with urllib.request.urlopen(f'{url}/api/v1/query?{query}') as answer:
            return json.load(answer)['data']['result']
    except urllib.error.HTTPError as error:
        assert error.code == 503, f'{expression}: {error.read().decode()}'
        return []


class Cache:
    """A carbon-cache with its whisper files in a folder of its own."""

    def __init__(self, folder, retention='30d', more=''):
        self.folder = folder
        self.port = free_port()
        folder.mkdir()
        config = folder / 'carbon.conf'
        config.write_text(excerpt('carbon.conf', {'/srv/carbon': folder, '2003': self.port}) + more)
        (folder / 'storage-schemas.conf').write_text(
            excerpt('storage-schemas.conf', {'30d': retention}))
        self.command = ['carbon-cache', f'--config={config}', '--nodaemon', 'start']

    def run(self):
        return server(self.command, self.port, self.folder)
