"""Runs vek-plot for tests, in this process."""

import base64
import contextlib
import datetime
import io
import json
import math
import os
import pathlib
import re
import struct
import sys
import tempfile

PROGRAM = pathlib.Path(__file__).resolve().parents[1] / 'vek-plot'

sys.path.insert(0, str(PROGRAM.parent))
sys.dont_write_bytecode = True

from vekplot.main import main  # pylint: disable=wrong-import-position

T = 1_700_000_000  # 2023-11-14T22:13:20Z; most logs here begin a minute later
SAMPLE = (2, 5, 1, 3, 1, 2, 3)  # average, samples, minimum, maximum, quantiles

DATA = re.compile(r'<script type="application/json" id="data">(.*?)</script>', re.DOTALL)


def read_page(path):
    """The data of a page."""
    return json.loads(DATA.search(pathlib.Path(path).read_text(encoding='utf-8'))[1])


def decode(figures):
    """Figures as a list, in which NaN is None and infinities are texts."""
    if isinstance(figures, str):
        figures = [item for item, in struct.iter_unpack('<d', base64.b64decode(figures))]
        figures = [None if math.isnan(item) else str(item) if math.isinf(item) else item
                   for item in figures]
    return figures


class Run:
    """A run of vek-plot in a new folder; files are texts or bytes by their names."""

    def __init__(self, files, *arguments, paths=None):
        with tempfile.TemporaryDirectory() as folder, contextlib.chdir(folder):
            for name, content in files.items():
                path = pathlib.Path('logs', name)
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_bytes(content.encode() if isinstance(content, str) else content)
            printed, said = io.StringIO(), io.StringIO()
            with contextlib.redirect_stdout(printed), contextlib.redirect_stderr(said):
                try:
                    self.status = main([*arguments, *(['logs'] if paths is None else paths)])
                except SystemExit as ended:
                    self.status = ended.code
            self.printed, self.said = printed.getvalue(), said.getvalue()
            self.written = sorted(set(os.listdir()) - {'logs'})
            self.contents = {name: pathlib.Path(name).read_bytes() for name in self.written}
            self.data = read_page('vek-plot.html') if 'vek-plot.html' in self.written else None

    @property
    def metrics(self):
        """The metrics by their names, which must be different."""
        metrics = {metric['name']: metric for metric in self.data['metrics']}
        assert len(metrics) == len(self.data['metrics']), self.data
        return metrics


def csv_lines(*rows):
    """Lines of a CSV log: each row is a time in seconds, a name, and a value or seven statistics;
    the name may be a pair of a name and dimensions.
    """
    lines = []
    for time, metric, *figures in rows:
        name, dimensions = metric if isinstance(metric, tuple) else (metric, '')
        figures += [''] * (7 - len(figures))
        columns = (round(time * 1_000_000), name, dimensions, *figures)
        lines.append(','.join(map(str, columns)) + '\n')
    return ''.join(lines)


def json_line(time, *points):
    """A line of a JSON log, T + time seconds, from pairs of a name and other members."""
    date = datetime.datetime.fromtimestamp(T + time, datetime.timezone.utc)
    stamp = f'{date:%Y-%m-%dT%H:%M:%SZ}'
    array = [{'MetricName': name, 'Timestamp': stamp, **members} for name, members in points]
    return f'{date:%Y-%m-%d %H:%M:%S},000500 {json.dumps(array)}\n'


# Two metrics in three passes, and a timeline.
FIGURES = csv_lines((T + 55.5, 'requests', 5), (T + 60.1, 'load', 0.5),
                    (T + 119.5, 'requests', 8), (T + 120.1, 'load', 0.25),
                    (T + 177.5, 'requests', 9), (T + 180.1, 'load', 1.5))
RANGES = 'F,work,1,1700000060000000,1700000062000000\nF,work,2,1700000119000000,1700000125000000\n'
