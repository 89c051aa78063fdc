"""What the tests of the example program checksum share."""

import contextlib
import csv
import os
import pathlib
import socket
import subprocess
import tempfile
import threading

from support.row import Row


class Server:
    """A carbon server; what it has got in the end is in lines."""

    def __init__(self):
        self.socket = socket.socket()
        # So that a connection holds little that is not read yet.
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 16384)
        self.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_MAXSEG, 1000)
        self.socket.settimeout(60)  # for a program that never comes
        self.socket.bind(('127.0.0.1', 0))
        self.socket.listen(1)
        self.option = f'--carbon=127.0.0.1:{self.socket.getsockname()[1]}'
        self.thread = threading.Thread(target=self.read)
        self.lines = None

    def read(self):
        connection, _ = self.socket.accept()
        with connection, connection.makefile() as lines:
            self.lines = lines.read().splitlines()

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.thread.join()
        self.socket.close()


@contextlib.contextmanager
def tree(n_files=0):
    """A folder, and one in it with files of a few bytes."""
    with tempfile.TemporaryDirectory() as folder:
        files = pathlib.Path(folder, 'files')
        files.mkdir()
        for number in range(n_files):
            (files / str(number)).write_text(str(number))
        yield pathlib.Path(folder), files


def run(*command, status=0, **options):
    """Returns what a program prints on its output and as its messages."""
    ended = subprocess.run(command, check=False, stdin=subprocess.DEVNULL,
                           env=dict(os.environ, LC_ALL='C.UTF-8'),
                           **{'stdout': subprocess.PIPE, 'stderr': subprocess.PIPE, **options})
    assert ended.returncode == status, ended
    return ended.stdout, (ended.stderr or b'').decode()


@contextlib.contextmanager
def started(*command, **options):
    with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          **options) as program:
        try:
            yield program
        finally:
            program.kill()


def read_rows(folder):
    with open(folder / 'figures.csv', encoding='utf-8') as file:
        return [Row(columns) for columns in csv.reader(file)]
