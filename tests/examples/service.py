"""Runs the service of the examples in each language, as TAP: service.py NAME=COMMAND..."""

import json
import os
import pathlib
import re
import shlex
import signal
import subprocess
import sys
import tempfile

from support import tap

PRINTED = '''\
cba
olleh
general:
requests: 2
sizes: avg: 4.000000, n samples: 2, max: 5.000000, min: 3.000000, p10: 3.000000, p50: 3.000000, \
p90: 3.000000

'''


def catches_signals(pid):
    status = pathlib.Path(f'/proc/{pid}/status').read_text(encoding='utf-8')
    caught = int(re.search(r'^SigCgt:\t(\w+)$', status, re.MULTILINE).group(1), 16)
    return caught >> (signal.SIGTERM - 1) & 1


def run(command, folder, end=None):
    """Gives the service two lines, then the end of its input or a signal."""
    with subprocess.Popen([*command, folder], text=True, stdin=subprocess.PIPE,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE) as service:
        service.stdin.write('abc\nhello\n')
        service.stdin.flush()
        answers = service.stdout.readline() + service.stdout.readline()
        if end:
            while not catches_signals(service.pid):
                os.sched_yield()
            service.send_signal(end)
            service.wait()  # with its input still open
        output, messages = service.communicate()
    return answers + output, messages, service.returncode


def check_log(folder):
    line, = pathlib.Path(folder, 'service.json').read_text(encoding='utf-8').splitlines()
    figures = {point['MetricName']: point.get('Value') for point in json.loads(line[27:])}
    assert figures == {'requests': 2.0, 'sizes': None, 'sizes_p50': 3.0, 'sizes_p90': 3.0,
                       'sizes_p99': 3.0}, figures


def make_tests(name, command):
    def check_end(end):
        with tempfile.TemporaryDirectory() as folder:
            ended = run(command, folder, end)
            assert ended == (PRINTED, '', 0), ended
            check_log(folder)

    def lets_its_last_figures_out_at_the_end_of_its_input():
        check_end(None)

    def lets_its_last_figures_out_on_a_signal():
        for end in (signal.SIGINT, signal.SIGTERM):
            check_end(end)

    def is_not_stopped_by_a_log_that_cannot_be_made():
        output, messages, status = run(command, '/dev/null')
        assert (output, status) == (PRINTED, 0), (output, status)
        assert 'Cannot create log dir "/dev/null".' in messages, messages

    def answers_bytes_that_are_no_text():
        with tempfile.TemporaryDirectory() as folder:
            # As Python reads in most locales, but not in that of the tests.
            ended = subprocess.run([*command, folder], input=b'\xff\xc3\xa9\n', check=True,
                                   capture_output=True,
                                   env={**os.environ, 'PYTHONIOENCODING': 'utf-8:strict'})
            assert b'\ngeneral:\nrequests: 1\nsizes: avg: 3.000000, ' in ended.stdout, ended
            assert ended.stderr == b'', ended

    tests = (lets_its_last_figures_out_at_the_end_of_its_input,
             lets_its_last_figures_out_on_a_signal, is_not_stopped_by_a_log_that_cannot_be_made,
             answers_bytes_that_are_no_text)
    for test in tests:
        test.__name__ = f'{name}_{test.__name__}'
    return tests


if __name__ == '__main__':
    commands = dict(argument.split('=', 1) for argument in sys.argv[1:])
    tap.run([test for name, command in commands.items()
                        for test in make_tests(name, shlex.split(command))])
