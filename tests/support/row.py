"""The figures of the example program checksum."""

import re
import time

UNITS = {'bytes': 'Bytes', 'errors': 'Count', 'file_size': 'Bytes', 'file_time': 'Milliseconds',
         'files': 'Count', 'folders': 'Count', 'open_files': 'Count', 'skipped': 'Count',
         'speed': 'Bytes/Second'}
COUNTERS = {'bytes', 'errors', 'files', 'folders', 'skipped'}


class Row:
    """A figure as the CSV file has it, which is the most exact, and as the others have it then."""

    def __init__(self, columns):
        stamp, self.name, dimensions, *figures = columns
        self.time = int(stamp)
        self.dimensions = re.findall(r'([^=;]*)=([^=;]*);', dimensions)
        self.figures = [float(figure) for figure in figures if figure]
        self.is_distribution = len(self.figures) == 7
        self.format = '.0f' if self.name in COUNTERS else 'f'

    def to_console(self):
        """A line."""
        if self.is_distribution:
            average, count, low, high, *quantiles = self.figures
            return ('{}: avg: {:f}, n samples: {:.0f}, max: {:f}, min: {:f}, '
                    'p10: {:f}, p50: {:f}, p90: {:f}').format(
                        self.name, average, count, high, low, *quantiles)
        return f'{self.name}: {self.figures[0]:{self.format}}'

    def to_carbon(self, prefix):
        """Lines."""
        pairs = [string for pair in self.dimensions for string in pair]
        key = '.'.join([prefix, *pairs, UNITS[self.name], self.name])
        seconds = self.time // 1_000_000
        if self.is_distribution:
            average, count, low, high, *_ = self.figures
            return [f'{key}.average {average:f} {seconds}',
                    f'{key}.n_samples {count:.0f} {seconds}',
                    f'{key}.min {low:f} {seconds}',
                    f'{key}.max {high:f} {seconds}']
        return [f'{key} {self.figures[0]:{self.format}} {seconds}']

    def to_json(self):
        """Data points."""
        def point(suffix='', **figures):
            seconds = time.gmtime(self.time // 1_000_000)
            return dict(MetricName=self.name + suffix, Unit=UNITS[self.name],
                        Timestamp=time.strftime('%Y-%m-%dT%H:%M:%SZ', seconds), **figures,
                        **({'Dimensions': [dict(Name=name, Value=value)
                                           for name, value in self.dimensions]}
                           if self.dimensions else {}))

        if not self.is_distribution:
            return [point(Value=self.figures[0])]
        average, count, low, high, _, p50, p90 = self.figures
        if count == 0:
            return []
        return [point(StatisticValues=dict(SampleCount=count, Average=average, Minimum=low,
                                           Maximum=high)),
                point('_p50', Value=p50), point('_p90', Value=p90), point('_p99')]
