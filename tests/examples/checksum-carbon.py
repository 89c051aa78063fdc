"""Tests of the example program with a carbon server, as TAP: checksum-carbon.py CHECKSUM"""

import os
import signal
import socket
import struct
import sys

from support import tap
from support.example import Server, read_rows, run, started, tree
from support.row import UNITS

# Longer keys than a connection holds of lines that nobody reads.
HUGE_PREFIX = 'x' * 100_000


def wait_for_report(program):
    while program.stdout.readline() != b'algorithm=sha256, content=empty:\n':
        pass


def server_that_reads_late_gets_everything():
    with tree(10) as (folder, files):
        server = Server()
        with started(CHECKSUM, '--quiet', '--console', server.option, f'--prefix={HUGE_PREFIX}',
                     f'--csv={folder}', '--wait=600', files) as program:
            wait_for_report(program)
            with server:
                _, messages = program.communicate()
            assert (program.returncode, messages) == (0, b''), messages
        assert server.lines == [line for row in read_rows(folder)
                                for line in row.to_carbon(HUGE_PREFIX)]


def server_that_never_reads_is_named_and_changes_nothing():
    server = Server()
    with tree(10) as (folder, files), server.socket:
        output, messages = run(CHECKSUM, '--quiet', '--console', server.option, '--wait=0.01',
                               f'--prefix={HUGE_PREFIX}', f'--csv={folder}', files)
        assert b'\nfiles: 10\n' in output, output
        assert 'VekMetricCarbonReporter was not done in time' in messages, messages
        assert {row.name for row in read_rows(folder)} == set(UNITS)


def server_that_hangs_up_is_told_of():
    server = Server()
    with tree(10) as (_, files), server.socket:
        with started(CHECKSUM, '--quiet', '--console', server.option, f'--prefix={HUGE_PREFIX}',
                     '--wait=600', files) as program:
            wait_for_report(program)
            connection, _ = server.socket.accept()
            connection.recv(1)  # the program knows that it is connected
            connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack('ii', 1, 0))
            connection.close()
            messages = program.communicate()[1].decode()
            assert program.returncode == 0
        assert 'Carbon reporter write operation failed with error: ' in messages, messages
        assert 'in time' not in messages, messages


def signal_ends_the_wait():
    server = Server()
    with tree(10) as (_, files), server.socket:
        with started(CHECKSUM, '--quiet', '--console', server.option, f'--prefix={HUGE_PREFIX}',
                     '--wait=600', files) as program:
            wait_for_report(program)
            program.send_signal(signal.SIGINT)
            assert program.communicate()[1] == b''
            assert program.returncode == -signal.SIGINT, program.returncode


if __name__ == '__main__':
    CHECKSUM = os.path.abspath(sys.argv[1])
    tap.run((server_that_reads_late_gets_everything,
             server_that_never_reads_is_named_and_changes_nothing, server_that_hangs_up_is_told_of,
             signal_ends_the_wait))
