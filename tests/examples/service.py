"""Runs the service example as its page shows it, as TAP: service.py PROGRAM"""

import json
import pathlib
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


def run(folder):
    return subprocess.run([PROGRAM, folder], input='abc\nhello\n', text=True, check=True,
                          capture_output=True)


def last_figures_reach_the_console_and_the_log():
    with tempfile.TemporaryDirectory() as folder:
        ended = run(folder)
        line, = pathlib.Path(folder, 'service.json').read_text(encoding='utf-8').splitlines()
    assert (ended.stdout, ended.stderr) == (PRINTED, ''), ended
    figures = {point['MetricName']: point.get('Value') for point in json.loads(line[27:])}
    assert figures == {'requests': 2.0, 'sizes': None, 'sizes_p50': 3.0, 'sizes_p90': 3.0,
                       'sizes_p99': 3.0}, figures


def log_that_cannot_be_made_stops_nothing():
    ended = run('/dev/null')
    assert ended.stdout == PRINTED, ended
    assert 'Cannot create log dir "/dev/null".' in ended.stderr, ended


if __name__ == '__main__':
    PROGRAM = sys.argv[1]
    tap.run([last_figures_reach_the_console_and_the_log, log_that_cannot_be_made_stops_nothing])
