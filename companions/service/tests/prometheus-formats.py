#!/usr/bin/python3
"""Reads the texts of random registries with parsers of others: prometheus-formats.py CLIENT

CLIENT makes the registries. What promtool and the two parsers of prometheus_client read is compared
with what was put in, by the rules of docs/scraping.md written once more, over all of a registry at
once.

VEK_SEED and VEK_REGISTRIES say which registries and how many, VEK_PROMTOOL_STEP which of the texts
promtool reads: 1 for each.
"""

import codecs
import math
import os
import random
import re
import shutil
import subprocess
import sys
import unittest

from support import tap

try:
    from prometheus_client import parser as text_parser
    from prometheus_client.openmetrics import parser as openmetrics_parser
except ImportError:
    text_parser = None

SEED = int(os.environ.get('VEK_SEED', '1'))
REGISTRIES = int(os.environ.get('VEK_REGISTRIES', '500'))
PROMTOOL_STEP = int(os.environ.get('VEK_PROMTOOL_STEP', '40'))  # each text takes it a process

# A GLib that mends puts one U+FFFD for each byte.
codecs.register_error('each', lambda error: ('\ufffd' * (error.end - error.start), error.end))


def mend(data):
    return data.decode('utf-8', 'each')


def family_name(data):
    name = re.sub(r'[^a-zA-Z0-9_:]', '_', mend(data))
    return name if re.match(r'[^0-9]', name) else '_' + name


def label_set(dimensions):
    labels = {}
    for name, value in zip(dimensions[::2], dimensions[1::2]):
        label = re.sub(r'[^a-zA-Z0-9_]', '_', mend(name))
        if not label or label[0].isdigit():
            label = '_' + label
        if label.startswith('__') or label in ('quantile', 'le'):
            label = 'dim_' + label
        free, number = label, 2
        while free in labels:
            free, number = f'{label}_{number}', number + 1
            if free.startswith('__'):
                label, free = f'dim_{label}', f'dim_{free}'
        labels[free] = mend(value)
    return frozenset((label, value) for label, value in labels.items() if value)


class Metric:
    """A metric as it was made, with the values that it was handed."""

    def __init__(self, kind, name, unit, dimensions):
        self.kind, self.name, self.unit, self.dimensions = kind, name, unit, dimensions
        self.values = []

    def key(self):
        return b'.'.join((*self.dimensions, self.name))

    def update(self, values):
        self.values += values
        fields = (self.kind.encode(), self.name, self.unit,
                  b' '.join(repr(value).encode() for value in values), *self.dimensions)
        return b'\t'.join(map(escape, fields)) + b'\n'

    def samples(self):
        return sorted(value / 1e6 if self.kind == 'timer' else value for value in self.values[-60:])


def escape(data):
    return b''.join(b'%c' % byte if chr(byte).isalnum() or byte in b' .+-' else b'\\%03o' % byte
                    for byte in data)


def quantile(samples, q):
    position = (len(samples) - 1) * q
    index = int(position)
    if index == 0:
        return samples[0]
    if index >= len(samples) - 1:
        return samples[-1]
    return samples[index] + (position - index) * (samples[index + 1] - samples[index])


def wrap(count):
    return (count + 2**63) % 2**64 - 2**63


def series_of(metric, monotonic):
    """What a metric would show: (suffix, type, {labels beside its own: value}) of each family."""
    if metric.kind == 'counter':
        count = wrap(sum(metric.values))
        if metric.name in monotonic:
            return [('', 'counter', {(): count} if count >= 0 else {})]
        return [('', 'unknown', {(): count})]
    if metric.kind == 'gauge':
        return [('', 'gauge', {(): metric.values[-1] if metric.values else 0.0})]
    if metric.kind == 'meter':
        return [('', 'gauge', {(): 0.0})]
    samples = metric.samples()
    if not samples:
        figures = [{}] * 4
    else:
        figures = [{(('quantile', str(q)),): quantile(samples, q) for q in (0.5, 0.9, 0.99)},
                   {(): sum(samples) / len(samples)}, {(): samples[0]}, {(): samples[-1]}]
    return [('', 'summary', figures[0]), ('_avg', 'gauge', figures[1]),
            ('_min', 'gauge', figures[2]), ('_max', 'gauge', figures[3]),
            ('_samples', 'gauge', {(): float(len(samples))})]


RESERVED = {'counter': ('', '_total', '_created'), 'gauge': ('',), 'unknown': ('',),
            'summary': ('', '_count', '_sum', '_created')}
OWN = ('vekmetrics_last_pass_timestamp_seconds', 'vekmetrics_metrics',
       'vekmetrics_pass_duration_seconds')
HELP = {'_avg': ': average', '_min': ': minimum', '_max': ': maximum',
        '_samples': ': number of samples'}


class Family:
    def __init__(self, kind):
        self.type = kind
        self.values = {}  # from labels to value
        self.taken = set()  # labels, and whether they are a summary's
        self.helps = []  # name, unit, and what is said behind them

    def help(self):
        name, unit, figure = min(self.helps)
        return mend(name) + (f', in {mend(unit)}' if unit else '') + HELP.get(figure, '')


def families_of(prefix, metrics, monotonic, negative):
    """The families that a pass should show, by their names in OpenMetrics."""
    families = {name: Family('gauge') for name in OWN}
    for name, family in families.items():
        family.taken.add((frozenset(), False))
        family.values[frozenset()] = None  # not compared
        family.helps.append((name.encode(), b'Count' if name == OWN[1] else b'Seconds', ''))
    kept = {name: name for name in OWN}

    for metric in sorted(metrics, key=lambda metric: (metric.dimensions, metric.name)):
        own = label_set(metric.dimensions)
        joins = []
        for suffix, kind, values in series_of(metric, monotonic):
            name = family_name(prefix + metric.name) + suffix
            if kind == 'counter' and name != '_total':
                name = name.removesuffix('_total')
            mark = (own, kind == 'summary')
            family = families.get(name)
            if family and (family.type == 'counter') == (kind == 'counter'):
                if mark in family.taken:
                    break
            elif any(name + reserved in kept for reserved in RESERVED[kind]):
                break
            joins.append((name, suffix, kind, values, mark))
        else:
            for name, suffix, kind, values, mark in joins:
                if name not in families:
                    families[name] = Family(kind)
                    kept |= {name + reserved: name for reserved in RESERVED[kind]}
                family = families[name]
                family.type = kind if family.type == kind else 'unknown'
                family.taken.add(mark)
                family.helps.append((metric.name, metric.unit, suffix))
                for labels, value in values.items():
                    family.values[own | frozenset(labels)] = value

    for name, family in families.items():
        if family.type == 'summary':
            if any(value < 0 for value in family.values.values()):
                negative.add(name)
            family.type = 'gauge' if name in negative else 'summary'
    return {name: family for name, family in families.items() if family.values}


def same(read, expected):
    return expected is None or read == expected or (
        math.isnan(expected) and math.isnan(read)) or math.isclose(read, expected, rel_tol=1e-12)


def compare(read, expected, openmetrics):
    """Compares the families that a parser read with those expected; both in their order."""
    def order(name):
        counter = expected[name].type == 'counter' and not openmetrics
        return name + '_total' if counter else name

    names = [family.name for family in read]
    assert names == sorted(expected, key=order), (names, sorted(expected, key=order))
    for family in read:
        wanted = expected[family.name]
        assert family.type == wanted.type, (family.name, family.type, wanted.type)
        # The parser of the text format strips lines.
        read_help, help_text = (text if openmetrics else text.strip()
                                for text in (family.documentation, wanted.help()))
        assert read_help == help_text, (read_help, help_text)
        name = family.name + ('_total' if family.type == 'counter' else '')
        assert all(sample.name == name for sample in family.samples), family
        values = {frozenset(sample.labels.items()): sample.value for sample in family.samples}
        assert len(values) == len(family.samples), ('twice', family.name)
        assert values.keys() == wanted.values.keys(), (family.name, values, wanted.values)
        for labels, value in values.items():
            assert same(value, wanted.values[labels]), (family.name, value, wanted.values[labels])


PIECES = [b'a', b'b', b'a', b'_', b'_', b'.', b'9', b':', b' ', b'-', b'"', b'\\', b'\n', b'\t',
          b'\r', b'{', b'}', b'=', b',', b'#', b'\xc3\xa9', b'\xe2\x82\xac', b'\xff', b'\xc3',
          b'\x01', b'quantile', b'le', b'_total', b'_created', b'_count', b'_sum', b'_avg',
          b'_samples']


def random_text(rng, longest):
    if rng.random() < 0.1:
        return bytes(rng.randrange(1, 256) for _ in range(rng.randrange(longest + 1)))
    return b''.join(rng.choice(PIECES) for _ in range(rng.randrange(longest + 1)))


def random_number(rng):
    return rng.choice((0.0, -0.0, 1.0, -1.0, 1e15, 5e-324, 1.7976931348623157e308, math.inf,
                       -math.inf, rng.random(), rng.gauss(0, 1), rng.uniform(-1e18, 1e18)))


def random_values(rng, kind):
    if kind == 'counter':
        return [rng.choice((0, 1, 2, -1, 2**63 - 1, -2**63, rng.randrange(1 << 40)))]
    if kind == 'gauge':
        return [rng.choice((math.nan, random_number(rng)))]
    if kind == 'meter':
        return [rng.random()]
    n_values = rng.choice((0, 0, 1, 2, 5, 70))
    if kind == 'timer':
        return [rng.randrange(-10, 10**9) for _ in range(n_values)]
    extreme = rng.random() < 0.1
    return [random_number(rng) if extreme else rng.uniform(-1, 10) for _ in range(n_values)]


class Registry:
    def __init__(self, rng):
        self.rng = rng
        self.prefix = rng.choice((b'', b'', b'site.', b'9', random_text(rng, 2)))
        self.metrics, self.monotonic, self.negative = {}, set(), set()
        self.names = [random_text(rng, 3) for _ in range(rng.randrange(1, 6))] + [
            b'vekmetrics_metrics'][:rng.random() < 0.1]
        self.values = [random_text(rng, 3) for _ in range(3)]

    def next_pass(self):
        """Changes it, and returns the lines that do so, and the families of the pass."""
        rng, lines = self.rng, []
        for _ in range(rng.randrange(8)):
            name = rng.choice(self.names)
            if rng.random() < 0.3:
                self.monotonic.add(name)
                lines.append(b'declare\t' + escape(name) + b'\n')
            metric = Metric(
                rng.choice(('counter', 'counter', 'gauge', 'meter', 'histogram', 'timer')), name,
                rng.choice((b'', b'Seconds', b'Bytes', random_text(rng, 2))),
                [rng.choice(self.names + self.values) for _ in range(rng.randrange(5))])
            if metric.kind == 'timer':
                metric.unit = b'Seconds'
            metric = self.metrics.setdefault(metric.key(), metric)
            lines.append(metric.update(random_values(rng, metric.kind)))
        lines.append(b'report\n')
        families = families_of(self.prefix, self.metrics.values(), self.monotonic, self.negative)
        return lines, families


def random_passes():
    """Thousands of random registries, with one to three passes each."""
    rng = random.Random(SEED)
    lines, expected = [], []
    for _ in range(REGISTRIES):
        registry = Registry(rng)
        lines.append(b'new\t' + escape(registry.prefix) + b'\n')
        for _ in range(rng.randrange(1, 4)):
            more, families = registry.next_pass()
            lines += more
            expected.append(families)
    output = subprocess.run([CLIENT], input=b''.join(lines), stdout=subprocess.PIPE,
                            stderr=subprocess.DEVNULL, check=True).stdout
    texts, at = [], 0
    while at < len(output):
        end = output.index(b'\n', at) + 1
        size = int(output[at:end])
        texts.append(output[end:end + size].decode())
        at = end + size
    assert len(texts) == 2 * len(expected), len(texts)
    return texts[::2], texts[1::2], expected


def compare_all(texts, expected, parse, openmetrics):
    for text, families in zip(texts, expected):
        try:
            compare(list(parse(text)), families, openmetrics)
        except Exception:
            print(text.replace('\n', '\n# ').replace('\r', '<CR>'))
            raise


def needs_parsers(test):
    def run():
        if not text_parser:
            raise unittest.SkipTest('there is no prometheus_client')
        test()
    run.__name__ = test.__name__
    return run


@needs_parsers
def openmetrics_is_read_as_it_was_put_in():
    compare_all(OPENMETRICS, EXPECTED, openmetrics_parser.text_string_to_metric_families, True)


@needs_parsers
def text_format_is_read_as_it_was_put_in():
    compare_all(TEXTS, EXPECTED, text_parser.text_string_to_metric_families, False)


def promtool_finds_no_fault():
    if not shutil.which('promtool'):
        raise unittest.SkipTest('there is no promtool')
    for text in TEXTS[::PROMTOOL_STEP]:
        check = subprocess.run(['promtool', 'check', 'metrics'], input=text, text=True,
                               check=False, capture_output=True)
        # 3 is advice on names, which are the users'.
        assert check.returncode in (0, 3), (text, check.stderr)


if __name__ == '__main__':
    CLIENT = sys.argv[1]
    OPENMETRICS, TEXTS, EXPECTED = random_passes()
    tap.run([openmetrics_is_read_as_it_was_put_in, text_format_is_read_as_it_was_put_in,
             promtool_finds_no_fault])
