#!/usr/bin/python3
"""Runs the textfile example and checks its file, also by promtool: textfile.py PROGRAM"""

import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

from support import tap

EXPECTED = r'''# HELP http_requests_total http.requests, in Count
# TYPE http_requests_total counter
http_requests_total{host="\"h2\\"} 7
http_requests_total{host="h1"} 42
# HELP load load, in no unit
# TYPE load gauge
load 0.25
# HELP response_average response, in Seconds
# TYPE response_average gauge
response_average{host="h1"} 0.625
# HELP response_max response, in Seconds
# TYPE response_max gauge
response_max{host="h1"} 1
# HELP response_min response, in Seconds
# TYPE response_min gauge
response_min{host="h1"} 0.25
# HELP response_p50 response, in Seconds
# TYPE response_p50 gauge
response_p50{host="h1"} 0.625
# HELP response_p90 response, in Seconds
# TYPE response_p90 gauge
response_p90{host="h1"} 0.92500000000000004
# HELP response_p99 response, in Seconds
# TYPE response_p99 gauge
response_p99{host="h1"} 0.99249999999999994
# HELP response_samples response, in Seconds
# TYPE response_samples gauge
response_samples{host="h1"} 4
'''


def write(folder):
    path = pathlib.Path(folder, 'example.prom')
    subprocess.run([PROGRAM, path], check=True)
    return path.read_text(encoding='utf-8')


def file_is_as_it_should_be_and_alone():
    with tempfile.TemporaryDirectory() as folder:
        text = write(folder)
        left = [entry.name for entry in pathlib.Path(folder).iterdir()]
    assert text == EXPECTED, text
    assert left == ['example.prom'], left


def promtool_finds_no_fault():
    if not shutil.which('promtool'):
        raise unittest.SkipTest('there is no promtool')
    with tempfile.TemporaryDirectory() as folder:
        text = write(folder)
    check = subprocess.run(['promtool', 'check', 'metrics'], input=text, text=True, check=False,
                           capture_output=True)
    assert (check.returncode, check.stdout, check.stderr) == (0, '', ''), check


if __name__ == '__main__':
    PROGRAM = sys.argv[1]
    tap.run([file_is_as_it_should_be_and_alone, promtool_finds_no_fault])
