"""Tests of the dashboard of processes, with a real Prometheus, as TAP: dashboard.py CHECKSUM"""

import contextlib
import functools
import json
import math
import pathlib
import re
import runpy
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest
import urllib.parse
import urllib.request

from support import browser, drawing, tap
from support.row import UNITS
from support.servers import query_prometheus, wait_for

EXAMPLE = pathlib.Path(__file__).resolve().parents[2] / 'examples' / 'dashboard'
PROGRAM = EXAMPLE / 'dashboard.py'
NAME = r'(?<![\w"$.])[a-zA-Z_:][\w:]*(?=[{[(])'  # of a metric or a function


def fetch(url):
    with urllib.request.urlopen(url) as answer:
        return answer.read().decode()


def find_children(pid):
    return [int(child) for task in pathlib.Path(f'/proc/{pid}/task').iterdir()
            for child in (task / 'children').read_text().split()]


class Dashboard:
    """The program, with folders of files, and a folder for what it leaves."""

    def __init__(self, home, n_files=10, step=1, checksum=None):
        self.folders = [home / 'a', home / 'b']
        for folder in self.folders:
            folder.mkdir()
            for number in range(n_files):
                with open(folder / str(number), 'wb') as file:
                    file.truncate(number * step)
        self.left = home / 'left'
        self.left.mkdir()
        self.process = subprocess.Popen(
            [sys.executable, PROGRAM, checksum or CHECKSUM, *self.folders], text=True,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE,
            env={'PATH': '/usr/bin:/bin', 'TMPDIR': str(self.left),
                 'http_proxy': 'http://127.0.0.1:9'})  # which does not answer

    def read_addresses(self):
        """The console page, and the pages of the processes by their folders."""
        lines = []
        while not lines or not lines[-1].startswith('Ctrl-C'):
            lines.append(self.process.stdout.readline())
            assert lines[-1], self.process.communicate()
        _, console, _, *processes, _ = lines
        return console.strip(), {line.split()[1]: line.split()[0] for line in processes}

    def end(self, *numbers):
        """Sends signals; nothing may be left."""
        children = find_children(self.process.pid)
        assert children
        for number in numbers:
            self.process.send_signal(number)
        _, messages = self.process.communicate()
        assert (self.process.returncode, messages) == (0, ''), messages
        assert not [pid for pid in children if pathlib.Path(f'/proc/{pid}').exists()], children
        assert list(self.left.iterdir()) == []


@contextlib.contextmanager
def dashboard(**options):
    if not shutil.which('prometheus'):
        raise unittest.SkipTest('there is no prometheus')
    libraries = runpy.run_path(PROGRAM)['LIBRARIES']
    if not any(pathlib.Path(folder, 'prom.lib').exists() for folder in libraries):
        raise unittest.SkipTest('Prometheus has no console libraries')
    with tempfile.TemporaryDirectory() as home:
        opened = Dashboard(pathlib.Path(home), **options)
        try:
            yield opened
        finally:
            opened.process.terminate()
            opened.process.communicate()


@functools.cache
def shared():
    """The addresses of one for several tests: Prometheus takes 5 seconds to find the processes."""
    return unittest.enterModuleContext(dashboard()).read_addresses()


def read_panels():
    return json.loads((EXAMPLE / 'grafana.json').read_text(encoding='utf-8'))['panels']


def find_names(expressions):
    """The metrics that the expressions name."""
    names = {name for expression in expressions for name in re.findall(NAME, expression)}
    return names - {'rate', 'time'}


def second_signal_changes_nothing():
    with dashboard() as opened:
        opened.read_addresses()
        opened.end(signal.SIGINT, signal.SIGTERM)


def stops_while_it_starts():
    with dashboard() as opened:
        assert wait_for(lambda: find_children(opened.process.pid))
        opened.end(signal.SIGTERM)


def process_that_ends_ends_all():
    for checksum, status in (CHECKSUM, 0), ('/bin/false', 1):
        with dashboard(n_files=0, checksum=checksum) as opened:
            _, messages = opened.process.communicate()
            assert opened.process.returncode == 1
            assert messages == f'dashboard: {checksum} ended with the status {status}\n', messages
            assert list(opened.left.iterdir()) == []


def grafana_model_is_complete():
    model = json.loads((EXAMPLE / 'grafana.json').read_text(encoding='utf-8'))
    for key, kind in {'uid': str, 'title': str, 'tags': list, 'schemaVersion': int, 'time': dict,
                      'templating': dict, 'annotations': dict, 'panels': list}.items():
        assert isinstance(model[key], kind), key
    variables = {variable['name']: variable for variable in model['templating']['list']}
    source = {'type': 'prometheus', 'uid': '${datasource}'}
    assert variables['datasource']['type'] == 'datasource'
    assert variables['datasource']['query'] == source['type']
    assert variables['folder']['datasource'] == source

    panels = model['panels']
    assert [panel['id'] for panel in panels] == list(range(1, len(panels) + 1))
    taken = set()
    for panel in panels:
        assert panel['type'] == 'timeseries' and panel['title'] and panel['datasource'] == source
        assert panel['fieldConfig']['defaults']['unit'] in (
            'Bps', 'cps', 'decbytes', 'ms', 's', 'short')
        place = panel['gridPos']
        cells = {(x, y) for x in range(place['x'], place['x'] + place['w'])
                 for y in range(place['y'], place['y'] + place['h'])}
        assert max(x for x, _ in cells) < 24 and not cells & taken, place
        taken |= cells
        references = [target['refId'] for target in panel['targets']]
        assert references == ['A', 'B'][:len(references)] and references
        for target in panel['targets']:
            assert target['datasource'] == source
            assert set(re.findall(r'\$(\w+)', target['expr'])) <= {'__rate_interval', *variables}


class Pages(browser.Test):
    def test_page_of_each_process_draws_its_metrics(self):
        with dashboard(step=4 << 20) as opened:  # few ranges, so that the server keeps them all
            _, pages = opened.read_addresses()
            for page in pages.values():
                self.browser.open(page)
                self.browser.until('vekPage.series().some(({name, values}) =>'
                                   ' name === "bytes" && values.some(value => value > 0))')
                # A range of a worker ends with its file, of which the bytes are counted earlier.
                self.browser.until('vekPage.series().some(({name}) => name === "workers")')
                drawing.check(self, self.browser)
                self.assertEqual({row['name'] for row in self.browser.series()},
                                 {*UNITS, 'workers'})
            self.browser.show('about:blank')  # else it complains when the program ends


class Console(unittest.TestCase):
    def setUp(self):
        self.console, self.pages = shared()
        self.prometheus = self.console.partition('/consoles/')[0]

    def query(self, expression, **options):
        return query_prometheus(self.prometheus, expression, **options)

    def ask(self, expression):
        """The values for each folder, and the names of the metrics."""
        values, names = {}, set()
        for result in self.query(expression):
            names.add(result['metric'].get('__name__'))
            values.setdefault(result['metric']['folder'], []).append(float(result['value'][1]))
        return values, names

    def test_every_metric_of_every_process_is_drawn(self):
        # Rates need two scrapes, and distributions a pass with samples.
        assert wait_for(lambda: [values for values in self.ask('rate(bytes_total[10s])')[0].values()
                                 if values[0] > 0][1:])
        assert wait_for(lambda: len(self.ask('file_time')[0]) == 2)
        for page in self.pages.values():
            served = set(re.findall(r'^(\w+)', fetch(f'{page}metrics'), re.MULTILINE))
            assert {'bytes_total', 'file_size_max', 'file_time', 'speed'} < served, served
        _, names = self.ask("{job='checksum', __name__!~'up|scrape_.*'}")
        assert served == names, served ^ names

        graphs = [json.loads(text) for text in re.findall(r'expr: (".*"),', fetch(self.console))]
        assert find_names(graphs) == names and len(graphs) == len(names), graphs
        queries = [target['expr'].replace('$__rate_interval', '10s').replace('$folder', '.*')
                   for panel in read_panels() for target in panel['targets']]
        assert find_names(queries) == names, find_names(queries) ^ names
        for expression in graphs + queries:
            values, _ = self.ask(expression)
            assert set(values) == set(self.pages), expression
            assert not any(math.isnan(value) for list in values.values() for value in list)

    def test_charts_are_of_the_values_that_prometheus_has(self):
        self.browser = browser.shared()
        address = json.dumps({'duration': 60, 'endTime': self.find_end()})
        for width in 1600, 800, 400:
            with self.subTest(width=width):
                url = f'{self.console}#pctc{urllib.parse.quote(address)}'
                for graph in self.draw(url, width):
                    self.check(graph)
        # Debian's files that the library refers to are not all there.
        self.assertEqual([complaint for complaint in self.browser.complaints()
                          if '/classic/static/' not in complaint], [])

    def find_end(self):
        """Waits until every metric has a value; returns a time until which all is scraped."""
        def drawn():
            scrapes = self.query("timestamp(up{job='checksum'})")
            end = min((float(result['value'][1]) for result in scrapes), default=0)
            counts = [len(self.query(expression, time=end - 2))
                      for expression in ('rate(bytes_total[10s])', 'file_time_max')]
            return end if counts == [2, 2] else None
        return wait_for(drawn)

    def draw(self, address, width):
        """What each chart shows: its expression, and the points of each series."""
        self.browser.show(address, width=width)
        self.browser.until('PromConsole._graph_registry.every(graph => graph.rickshawGraph)')
        self.browser.screenshot(f'console-{width}')
        # Where the labels of times stand depends on when the test runs: behind each chart, there is
        # room for the longest one.
        overhang = self.browser.run("""
            const label = document.querySelector('.x_tick .title');
            label.textContent = 'May 30';
            const charts = [...document.querySelectorAll('.rickshaw_graph svg')].map(
              chart => chart.getBoundingClientRect().right);
            const room = label.offsetLeft + label.offsetWidth;
            const {clientWidth, scrollWidth} = document.documentElement;
            return Math.max(scrollWidth, ...charts.map(right => right + room)) - clientWidth;""")
        self.assertLessEqual(overhang, 0)
        return self.browser.run("""
            return PromConsole._graph_registry.map(graph => ({
              expression: graph.params.expr[0],
              series: graph.rickshawGraph.series.map(
                ({data}) => data.filter(point => point.y !== null).map(({x, y}) => [x, y])),
            }));""")

    def check(self, graph):
        """Compares the first and the last point of each series."""
        self.assertEqual(len(graph['series']) % 2, 0, graph)  # there are two processes
        for points in graph['series']:
            for time, value in points[0], points[-1]:
                results = self.query(graph['expression'], time=time)
                values = [float(result['value'][1]) for result in results]
                self.assertIn(value, values, graph['expression'])


if __name__ == '__main__':
    CHECKSUM = sys.argv[1]
    tap.run([second_signal_changes_nothing, stops_while_it_starts, process_that_ends_ends_all,
             grafana_model_is_complete, Pages, Console])
