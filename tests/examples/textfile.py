#!/usr/bin/python3
"""Runs the textfile example and checks its file, also by promtool: textfile.py PROGRAM"""

import json
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

from support import tap

EXPECTED = r'''# HELP connections connections, in Count
# TYPE connections untyped
connections 100
# HELP http_requests_total http.requests, in Count
# TYPE http_requests_total counter
http_requests_total{host="\"h2\\"} 7
http_requests_total{host="h1"} 42
# HELP load load
# TYPE load gauge
load 0.25
# HELP response response, in Seconds
# TYPE response summary
response{host="h1",quantile="0.5"} 0.625
response{host="h1",quantile="0.9"} 0.925
response{host="h1",quantile="0.99"} 0.99249999999999994
# HELP response_avg response, in Seconds: average
# TYPE response_avg gauge
response_avg{host="h1"} 0.625
# HELP response_max response, in Seconds: maximum
# TYPE response_max gauge
response_max{host="h1"} 1
# HELP response_min response, in Seconds: minimum
# TYPE response_min gauge
response_min{host="h1"} 0.25
# HELP response_samples response, in Seconds: number of samples
# TYPE response_samples gauge
response_samples{host="h1"} 4
'''


def write(folder, n_passes=1):
    path = pathlib.Path(folder, 'example.prom')
    subprocess.run([PROGRAM, path, str(n_passes)], check=True)
    return path.read_text(encoding='utf-8')


def without_own(text):
    """Without the reporter's own families, which tell of the time."""
    return ''.join(line for line in text.splitlines(True) if 'vekmetrics_' not in line)


def file_is_as_it_should_be_and_alone():
    with tempfile.TemporaryDirectory() as folder:
        text = write(folder)
        left = [entry.name for entry in pathlib.Path(folder).iterdir()]
    assert without_own(text) == EXPECTED, text
    assert left == ['example.prom'], left


def promtool_finds_no_fault():
    if not shutil.which('promtool'):
        raise unittest.SkipTest('there is no promtool')
    with tempfile.TemporaryDirectory() as folder:
        text = write(folder)
    check = subprocess.run(['promtool', 'check', 'metrics'], input=text, text=True, check=False,
                           capture_output=True)
    assert (check.returncode, check.stdout, check.stderr) == (0, '', ''), check


def change_queries_hold_for_each_type():
    """Over eleven passes, a minute apart: increase() of what is a counter, delta() of a gauge.

    The range begins a second before the first pass, because Prometheus 3 excludes its beginning.
    The functions extrapolate to the whole range.
    """
    if not shutil.which('promtool'):
        raise unittest.SkipTest('there is no promtool')
    with tempfile.TemporaryDirectory() as folder:
        reports = [without_own(write(folder, n_passes)) for n_passes in range(1, 12)]
        types = dict(re.findall(r'^# TYPE (\w+) (\w+)$', reports[0], re.MULTILINE))
        series = {}
        for report in reports:
            for line in report.splitlines():
                if not line.startswith('#'):
                    sample, value = line.rsplit(' ', 1)
                    series.setdefault(sample, []).append(value)
        assert series['connections'][:3] == ['100', '99', '100'], series

        def change(sample):
            name, brace, labels = sample.partition('{')
            function = 'increase' if types[name] == 'counter' else 'delta'
            grown = float(series[sample][-1]) - float(series[sample][0])
            return {'expr': f'round({function}({sample}[601s]) / 601 * 600, 0.001)',
                    'eval_time': '10m',
                    'exp_samples': [{'labels': (brace + labels) or '{}', 'value': round(grown, 3)}]}

        tests = [{'interval': '1m', 'promql_expr_test': [change(sample) for sample in series],
                  'input_series': [{'series': sample, 'values': ' '.join(values)}
                                   for sample, values in series.items()]}]
        rules = pathlib.Path(folder, 'rules.yml')
        rules.write_text(json.dumps({'tests': tests}), encoding='utf-8')
        check = subprocess.run(['promtool', 'test', 'rules', rules], text=True, check=False,
                               stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    assert check.returncode == 0, check.stdout


if __name__ == '__main__':
    PROGRAM = sys.argv[1]
    tap.run([file_is_as_it_should_be_and_alone, promtool_finds_no_fault,
             change_queries_hold_for_each_type])
