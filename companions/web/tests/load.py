#!/usr/bin/python3
"""Loads a server with clients of all manners: load.py LOADED [CONNECTIONS METRICS ROUNDS]

By itself it prints what that costs the server. In the tests, with fewer, it checks what does not
depend on how fast the machine is: that the server goes on answering, and how much memory it takes.
"""

import pathlib
import random
import re
import resource
import socket
import subprocess
import sys
import urllib.request

from support import tap

GET = b'GET /metrics HTTP/1.1\r\nHost: localhost\r\n'
GARBAGE = random.Random(1).randbytes(1 << 16)
MEMORY = 128 << 10  # KiB that the load may take


class Client:
    """A connection that sends pieces of a text for as long as the server takes them."""

    PIECES = {  # of each manner: what is sent at once, again and again, and how often at most
        'idle': (b'', 1),
        'half a request': (GET, 1),
        'slow writer': (b'G', 1 << 30),
        'slow reader': ((GET + b'\r\n') * 10, 1),
        'long header': (b'x' * (1 << 16), 160),
        'unknown method': (b'BREW /metrics HTTP/1.1\r\nHost: localhost\r\n\r\n', 5),
        'garbage': (GARBAGE, 1),
        'gzip': (GET + b'Accept-Encoding: gzip\r\n\r\n', 5),
        'plain': (GET + b'\r\n', 5),
    }

    def __init__(self, port, manner):
        self.port, self.manner = port, manner
        self.n_connections = 0
        self.connect()

    def connect(self):
        self.socket = socket.create_connection(('127.0.0.1', self.port))
        self.socket.setblocking(False)
        self.piece, self.left = self.PIECES[self.manner]
        self.rest = GET[:4] + b'/metrics HTTP/1.1\r\nx: ' if self.manner == 'long header' else b''
        self.n_connections += 1

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
        try:
            if self.socket.recv(1 if self.manner == 'slow reader' else 1 << 20) == b'':
                self.reconnect()
        except BlockingIOError:
            pass
        except OSError:
            self.reconnect()

    def reconnect(self):
        self.socket.close()
        self.connect()


def memory(pid):
    """The most memory that a process has had, in KiB."""
    status = pathlib.Path(f'/proc/{pid}/status').read_text(encoding='utf-8')
    return int(re.search(r'VmHWM:\s*(\d+)', status)[1])


def load(n_connections, n_metrics, n_rounds):
    """Returns what the server says at its end, and the KiB that the load took."""
    with subprocess.Popen([PROGRAM, str(n_metrics)], stdin=subprocess.PIPE,
                          stdout=subprocess.PIPE, text=True) as server:
        port = int(server.stdout.readline())

        def get():
            with urllib.request.urlopen(f'http://127.0.0.1:{port}/metrics') as answer:
                return answer.read().decode()

        before = get()
        assert 'requests_of_kind_1{host="frontend"} 1\n' in before
        assert before.endswith('\n')
        memory_before = memory(server.pid)
        manners = list(Client.PIECES)
        clients = [Client(port, manners[i % len(manners)]) for i in range(n_connections)]
        for _ in range(n_rounds):
            for client in clients:
                client.turn()
        after = get()
        assert after.count('\n') >= before.count('\n') - 3, 'the text is not whole'
        taken = memory(server.pid) - memory_before
        for client in clients:
            client.socket.close()
        server.stdin.close()
        n_turns, longest, first, n_passes = map(int, server.stdout.read().split())
    assert server.returncode == 0, server.returncode
    print(f'# {sum(client.n_connections for client in clients)} connections, {n_turns} turns of '
          f'the main loop, {n_passes} passes: the longest turn {longest / 1000:.1f} ms, the first '
          f'text {first / 1000:.1f} ms, {taken / 1024:.0f} MiB')
    return n_passes, taken


def clients_of_all_manners_are_borne():
    n_passes, taken = load(180, 2000, 20)
    assert n_passes > 1
    assert SANITIZED or taken < MEMORY, taken


if __name__ == '__main__':
    PROGRAM = sys.argv[1]
    SANITIZED = 'asan' in subprocess.run(['ldd', PROGRAM], capture_output=True, text=True,
                                         check=True).stdout
    if len(sys.argv) > 2:
        limit = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
        resource.setrlimit(resource.RLIMIT_NOFILE, (limit, limit))
        load(*map(int, sys.argv[2:]))
    else:
        tap.run([clients_of_all_manners_are_borne])
