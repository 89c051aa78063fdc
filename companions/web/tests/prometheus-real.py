#!/usr/bin/python3
"""Has a real Prometheus scrape programs with a metric of every kind: prometheus-real.py SCRAPED"""

import contextlib
import math
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
import urllib.request

from support import tap
from support.servers import free_port, query_prometheus, server, wait_for

CONFIG = '''global:
  scrape_interval: 1s
scrape_configs:
  - job_name: example
    static_configs:
      - targets: [{targets}]
'''

RULES = '''rule_files: []
tests:
  - interval: 15s
    input_series:
      - series: requests_total
        values: 0 30 60 30 60
    promql_expr_test:
      - expr: increase(requests_total[1m])
        eval_time: 1m
        exp_samples:
          - value: 120
      - expr: round(rate(requests_total[1m]), 0.001)
        eval_time: 1m
        exp_samples:
          - value: 2
      - expr: resets(requests_total[5m])
        eval_time: 1m
        exp_samples:
          - value: 1
'''


class Scraped:
    def __init__(self, port, host):
        self.process = subprocess.Popen([PROGRAM, str(port), host], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, text=True)
        self.target = f'127.0.0.1:{int(self.process.stdout.readline())}'

    def add(self, number):
        self.process.stdin.write(f'{number}\n')
        self.process.stdin.flush()
        assert self.process.stdout.readline() == 'passed\n'

    def read(self):
        """The samples that it serves: from name and labels to value."""
        with urllib.request.urlopen(f'http://{self.target}/metrics') as answer:
            text = answer.read().decode()
        samples = {}
        for line in text.splitlines():
            if not line.startswith('#'):
                series, value = line.rsplit(' ', 1)
                name, _, labels = series.partition('{')
                pairs = re.findall(r'(\w+)="([^"]*)"', labels)
                samples[name, frozenset(pairs)] = float(value)
        return samples

    def end(self):
        self.process.stdin.close()
        assert self.process.wait() == 0
        self.process.stdout.close()


class Prometheus:
    def __init__(self, folder, targets):
        self.folder, self.port = folder, free_port()
        config = folder / 'prometheus.yml'
        config.write_text(CONFIG.format(targets=', '.join(targets)))
        self.command = ['prometheus', f'--config.file={config}', '--log.level=error',
                        f'--storage.tsdb.path={folder / "data"}',
                        f'--web.listen-address=127.0.0.1:{self.port}']

    def run(self):
        return server(self.command, self.port, self.folder)

    def query(self, expression):
        return query_prometheus(f'http://127.0.0.1:{self.port}', expression)

    def read(self, target):
        """What it has read of a program last, as Scraped.read() gives it."""
        samples = {}
        for result in self.query(f'{{instance="{target}"}}'):
            labels = result['metric']
            name = labels.pop('__name__')
            if name != 'up' and not name.startswith('scrape_'):
                pairs = frozenset(pair for pair in labels.items()
                                  if pair[0] not in ('instance', 'job'))
                samples[name, pairs] = float(result['value'][1])
        return samples


def same(left, right):
    return left.keys() == right.keys() and all(
        value == right[key] or (math.isnan(value) and math.isnan(right[key]))
        for key, value in left.items())


def every_value_of_three_processes_comes_back():
    if not shutil.which('prometheus'):
        raise unittest.SkipTest('there is no prometheus')
    with contextlib.ExitStack() as stack:
        folder = pathlib.Path(stack.enter_context(tempfile.TemporaryDirectory()))
        programs = [Scraped(0, f'h{number}') for number in range(3)]
        for number, program in enumerate(programs):
            program.add(100 + number)
        prometheus = Prometheus(folder, [program.target for program in programs])
        stack.enter_context(prometheus.run())

        def has_all():
            return all(same(prometheus.read(program.target), program.read())
                       for program in programs)

        assert wait_for(has_all), (prometheus.read(programs[0].target), programs[0].read())
        assert len(programs[0].read()) == 29, programs[0].read()
        types = {result['metric']['__name__'] for result in prometheus.query('{job="example"}')}
        assert 'requests_total' in types and 'jobs' in types, types

        # A restart: the counter begins anew, and what it counted before is not lost.
        first = programs[0]
        first.end()
        programs[0] = Scraped(first.target.rsplit(':', 1)[1], 'h0')
        programs[0].add(40)
        assert wait_for(has_all), 'the values after the restart'
        programs[0].add(20)
        assert wait_for(has_all), 'the values after that'
        selector = f'requests_total{{instance="{first.target}"}}'
        (result,) = prometheus.query(f'{selector}[5m]')
        values = [float(value) for _, value in result['values']]
        assert sorted(set(values), key=values.index) == [100, 40, 60], values
        (result,) = prometheus.query(f'resets({selector}[5m])')
        assert result['value'][1] == '1', result
        (result,) = prometheus.query(f'rate({selector}[5m]) > 0')
        for program in programs:
            program.end()


def rate_is_right_over_a_restart():
    if not shutil.which('promtool'):
        raise unittest.SkipTest('there is no promtool')
    with tempfile.TemporaryDirectory() as folder:
        rules = pathlib.Path(folder, 'rules.yml')
        rules.write_text(RULES, encoding='utf-8')
        check = subprocess.run(['promtool', 'test', 'rules', rules], text=True, check=False,
                               capture_output=True)
    assert check.returncode == 0, check


if __name__ == '__main__':
    PROGRAM = sys.argv[1]
    tap.run([every_value_of_three_processes_comes_back, rate_is_right_over_a_restart])
