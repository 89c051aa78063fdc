#!/usr/bin/python3
"""Kills real servers under load, starts them again, and reads the figures back.

restarts.py CLIENT SERVER: SERVER is cache or relay. Servers are restarted as often as VEK_RESTARTS
says, by default 4 times, which several at once share; every second time one is killed the hard way.
"""

import concurrent.futures
import contextlib
import os
import pathlib
import queue
import random
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import threading
import time
import unittest

from support import tap
from support.servers import DEADLINE, Cache, free_port, server, wait_for

try:
    import whisper
except ImportError:
    whisper = None

CLIENT = sys.argv[1]
RESTARTS = int(os.environ.get('VEK_RESTARTS', '4'))
RESTARTS_OF_ONE = 5
KEYS = [f'c{i}' for i in range(5)]


class Client:
    """The program that reports; its output is read in order."""

    def __init__(self, port, start):
        self.process = subprocess.Popen([CLIENT, str(port), str(start)], text=True, bufsize=1,
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.lines = queue.Queue()
        self.reader = threading.Thread(target=self.read)
        self.reader.start()
        self.n_passes = 0
        self.connected = False
        self.killed = None  # how the server was killed last
        self.connections = []  # how many passes were sent until the end of each, and that

    def read(self):
        for line in self.process.stdout:
            self.lines.put(line.split())

    def take(self, word):
        """Reads the output of the client up to this line."""
        while True:
            line = self.lines.get(timeout=DEADLINE)
            if line[0] == 'connected':
                self.connected = True
            elif line[0] in ('lost', 'sent'):
                self.connected = False
                self.connections.append((int(line[1]) // len(KEYS), self.killed))
            if line[0] == word:
                return

    def make_pass(self):
        self.process.stdin.write('\n')
        self.n_passes += 1
        self.take('passed')

    def end(self):
        self.process.stdin.close()
        self.take('sent')
        assert self.process.wait(DEADLINE) == 0


@contextlib.contextmanager
def client_of(port, start):
    client = Client(port, start)
    try:
        yield client
    finally:
        client.process.kill()
        client.process.wait()
        client.reader.join()


def read_passes(cache, key, start):
    """Returns the passes that the cache has stored, each of which is its own value."""
    try:
        (first, _, step), values = whisper.fetch(
            str(cache.folder / 'whisper' / 'site' / f'{key}.wsp'), start - 1)
    except (OSError, whisper.WhisperException, struct.error):
        return set()  # still being made
    passes = set()
    for i, value in enumerate(values):
        if value is not None:
            number = (first + i * step - start) // 60 + 1
            assert value == number, f'{key}: pass {number} has the value {value}'
            passes.add(number)
    return passes


def wait_until_stored(client, cache, start):
    """Waits until the last pass is stored, and with it what waited for the connection."""
    while not client.connected:
        client.take('connected')
    client.make_pass()
    assert wait_for(lambda: all(client.n_passes in read_passes(cache, key, start)
                                for key in KEYS)), f'pass {client.n_passes} is not stored'


def restart_under_load(client, cache, start, run_server, n_restarts):
    """Makes passes, kills the server among them, and starts it again, over and over."""
    rand = random.Random(11)
    for i in range(n_restarts):
        with run_server() as process:
            wait_until_stored(client, cache, start)
            for _ in range(rand.randrange(20, 400)):
                client.make_pass()
            client.killed = signal.SIGKILL if i % 2 else signal.SIGTERM
            process.send_signal(client.killed)
            for _ in range(200):
                client.make_pass()
            while client.connected:
                client.take('lost')
            process.wait(DEADLINE)
        for _ in range(20):
            client.make_pass()


def judge(client, cache, start):
    """Of each connection that ended with its server, only the last passes may be missing."""
    stored = {key: read_passes(cache, key, start) for key in KEYS}
    first = 1
    for last, killed in client.connections:
        passes = range(first, last + 1)
        losses = []
        for key in KEYS:
            missing = [n for n in passes if n not in stored[key]]
            assert missing == list(passes[len(passes) - len(missing):]), \
                f'{key}: of {passes} {missing} are missing'
            losses.append(len(missing))
        print(f'# {killed.name if killed else "the end"}: '
              f'of {len(passes)} passes the last {max(losses)} are missing')
        first = last + 1
    assert not any(losses), 'the server that was left alone has not all'
    assert first == client.n_passes + 1, f'only {first - 1} of {client.n_passes} passes were sent'


def run(port, cache, run_server, n_restarts):
    start = int(time.time()) // 60 * 60 - 42000 * 60
    with client_of(port, start) as client:
        restart_under_load(client, cache, start, run_server, n_restarts)
        with run_server():
            client.killed = None
            wait_until_stored(client, cache, start)
            client.end()
        judge(client, cache, start)


def restart_cache(folder, n_restarts):
    cache = Cache(folder / 'cache')
    run(cache.port, cache, cache.run, n_restarts)


def restart_relay(folder, n_restarts):
    cache = Cache(folder / 'cache')
    port = free_port()
    config = folder / 'relay.conf'
    config.write_text(f'listen type linemode 127.0.0.1:{port} proto tcp;\n'
                      f'cluster cache forward 127.0.0.1:{cache.port};\n'
                      'match * send to cache stop;\n')
    command = ['carbon-c-relay', '-f', str(config), '-s']
    with cache.run():
        run(port, cache, lambda: server(command, port, folder), n_restarts)


def make_test(restart, *programs):
    def only_the_last_passes_of_a_connection_are_missing():
        missing = [program for program in programs if not shutil.which(program)]
        if missing or not whisper:
            raise unittest.SkipTest(f'not installed: {", ".join(missing) or "python3-whisper"}')
        with tempfile.TemporaryDirectory(prefix='vek-restarts-') as folder, \
                concurrent.futures.ThreadPoolExecutor(RESTARTS) as pool:
            runs = []
            for i in range(0, RESTARTS, RESTARTS_OF_ONE):
                own = pathlib.Path(folder) / str(i)
                own.mkdir()
                runs.append(pool.submit(restart, own, min(RESTARTS_OF_ONE, RESTARTS - i)))
            for one in runs:
                one.result()
    return only_the_last_passes_of_a_connection_are_missing


TESTS = {
    'cache': make_test(restart_cache, 'carbon-cache'),
    'relay': make_test(restart_relay, 'carbon-cache', 'carbon-c-relay'),
}

if __name__ == '__main__':
    tap.run([TESTS[sys.argv[2]]])
