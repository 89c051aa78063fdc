#!/usr/bin/python3
"""Loads a server with clients of all manners: load.py LOADED

LOADED is the program with the server. It measures how long its main loop is kept from everything
else, in processor time, so that what else the machine does has no part in it. VEK_ROUNDS says how
often each client of a crowd takes its turn.
"""

import contextlib
import functools
import os
import pathlib
import random
import re
import resource
import socket
import subprocess
import sys
import urllib.request

from support import tap

CONNECTIONS = 1000
METRICS = 10000
ROUNDS = int(os.environ.get('VEK_ROUNDS', '4'))
KEPT = 100  # connections that the server keeps
BACKLOG = 128  # connections that wait for it to accept them
LONGEST = 20000  # µs that a turn of the main loop may take
SLOWER = 10  # times as long with a sanitizer
MEMORY = 64 << 10  # KiB that the load may take

GET = b'GET /metrics HTTP/1.1\r\nHost: localhost\r\n'
GARBAGE = random.Random(1).randbytes(1 << 16)


class Client:
    """A connection that sends pieces of a text for as long as the server takes them."""

    PIECES = {  # of each manner: what is sent at once, again and again, and how often at most
        'idle': (b'', 1),
        'half a request': (GET, 1),
        'slow writer': (b'G', 1 << 30),
        'slow reader': (GET + b'\r\n', 1),
        'long header': (GET + b'x: ' + b'x' * (1 << 16), 1 << 30),
        'unknown method': (b'BREW /metrics HTTP/1.1\r\nHost: localhost\r\n\r\n', 1),
        'garbage': (GARBAGE, 1),
        'gzip': (GET + b'Accept-Encoding: gzip\r\n\r\n', 1),
        'OpenMetrics': (GET + b'Accept: application/openmetrics-text\r\n\r\n', 1),
        'plain': (GET + b'\r\n', 1),
        'pipelined': ((GET + b'\r\n') * 10, 1),
    }

    n_unaccepted = 0  # connections at most

    def __init__(self, port, manner):
        self.port, self.manner = port, manner
        self.n_connections = 0
        self.connect()

    def connect(self):
        self.socket = socket.create_connection(('127.0.0.1', self.port))
        self.socket.setblocking(False)
        self.piece, self.left = self.PIECES[self.manner]
        self.rest = b''
        self.n_connections += 1
        Client.n_unaccepted += 1
        if Client.n_unaccepted == BACKLOG // 2:
            self.wait_for_server()

    def wait_for_server(self):
        """Waits until all are accepted. What exceeds the backlog would be delayed for a second."""
        Client.n_unaccepted = 0
        with socket.create_connection(('127.0.0.1', self.port)) as last:
            last.sendall(b'GET / HTTP/1.1\r\nConnection: close\r\n\r\n')
            assert last.recv(1 << 12) != b''

    def turn(self):
        """Sends and reads a little; connects again if the server has ended the connection."""
        try:
            if not self.rest and self.left > 0:
                self.rest = self.piece
                self.left -= 1
            if self.rest:
                self.rest = self.rest[self.socket.send(self.rest):]
        except BlockingIOError:
            pass
        except OSError:
            self.reconnect()
            return
        if not self.is_open(1 if self.manner == 'slow reader' else 1 << 20):
            self.reconnect()

    def is_open(self, n_bytes=1):
        """Reads so many bytes at most; returns whether the server keeps the connection."""
        try:
            return self.socket.recv(n_bytes) != b''
        except BlockingIOError:
            return True
        except OSError:
            return False

    def reconnect(self):
        self.socket.close()
        self.connect()


class TooLong(AssertionError):
    """A turn of the main loop took too long."""


def undisturbed(test):
    """Runs a test up to three times: a host can take the processor from a virtual machine, which
    counts as time of the thread. What takes long by itself does so each time.
    """
    @functools.wraps(test)
    def run():
        for _ in range(2):
            with contextlib.suppress(TooLong):
                return test()
        return test()
    return run


class Loaded:
    """The program. At the end of the block it has ended, and the load has kept to its limits."""

    def __enter__(self):
        self.process = subprocess.Popen([PROGRAM, str(METRICS)], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, text=True)
        self.port = int(self.process.stdout.readline())
        self.get()
        self.memory = self.read_memory()
        return self

    def __exit__(self, kind, *_):
        taken = self.read_memory() - self.memory
        self.process.stdin.close()
        printed = self.process.stdout.read()
        self.process.stdout.close()
        assert self.process.wait() == 0, self.process.returncode
        if kind:
            return
        n_turns, longest, n_passes = map(int, printed.split())
        print(f'# {n_turns} turns of the main loop, {n_passes} passes: the longest turn took '
              f'{longest / 1000:.1f} ms, the load {taken / 1024:.0f} MiB')
        if longest >= LONGEST * (SLOWER if SANITIZED else 1):
            raise TooLong(longest)
        assert SANITIZED or taken < MEMORY, taken

    def read_memory(self):
        """The most memory that the process has had, in KiB."""
        status = pathlib.Path(f'/proc/{self.process.pid}/status').read_text(encoding='utf-8')
        return int(re.search(r'VmHWM:\s*(\d+)', status)[1])

    def get(self):
        """Scrapes it and checks that the text is whole, one metric more or less."""
        with urllib.request.urlopen(f'http://127.0.0.1:{self.port}/metrics') as answer:
            text = answer.read().decode()
        assert 'requests_of_kind_1{host="frontend"} ' in text
        assert text.count('\nrequests_of_kind_') in (METRICS - 1, METRICS), text

    def connect(self, n_clients, *manners):
        """A crowd of clients, closed at the end of the block."""
        return contextlib.closing(Crowd(self.port, n_clients, manners))


class Crowd:
    def __init__(self, port, n_clients, manners):
        self.clients = [Client(port, manners[i % len(manners)]) for i in range(n_clients)]

    def turn(self):
        for client in self.clients:
            client.turn()

    def close(self):
        for client in self.clients:
            client.socket.close()


def bear(n_clients):
    with Loaded() as loaded, loaded.connect(n_clients, *Client.PIECES) as crowd:
        for _ in range(ROUNDS):
            crowd.turn()
            loaded.get()
        return sum(client.n_connections for client in crowd.clients)


def clients_of_all_manners_are_borne():
    assert bear(KEPT - 10) < KEPT * ROUNDS / 2, 'most connections have been ended'


def clients_beyond_the_limit_are_borne():
    assert bear(CONNECTIONS) > 2 * CONNECTIONS


def crowd_that_holds_its_connections_leaves_room_for_others():
    with Loaded() as loaded, loaded.connect(CONNECTIONS, 'idle', 'half a request') as crowd:
        for client in crowd.clients:
            client.socket.send(client.piece)
        loaded.get()
        n_open = sum(map(Client.is_open, crowd.clients))
        assert KEPT - 1 <= n_open <= KEPT, n_open


def header_of_10_mb_is_not_read_to_its_end():
    with Loaded() as loaded, socket.create_connection(('127.0.0.1', loaded.port)) as client:
        n_sent = 0
        with contextlib.suppress(ConnectionError):
            client.sendall(GET + b'x: ')
            while n_sent < 10 << 20:
                n_sent += client.send(b'x' * (1 << 16))
        assert n_sent < 10 << 20
        loaded.get()


if __name__ == '__main__':
    PROGRAM = sys.argv[1]
    SANITIZED = re.search('asan|tsan', subprocess.run(['ldd', PROGRAM], capture_output=True,
                                                      text=True, check=True).stdout)
    most = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
    resource.setrlimit(resource.RLIMIT_NOFILE, (most, most))
    tap.run(map(undisturbed, (clients_of_all_manners_are_borne, clients_beyond_the_limit_are_borne,
                              crowd_that_holds_its_connections_leaves_room_for_others,
                              header_of_10_mb_is_not_read_to_its_end)))
