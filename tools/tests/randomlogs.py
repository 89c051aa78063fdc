"""Random logs, damaged ones, and what vek-plot must make of them."""

import itertools

from plot import Run, csv_lines, json_line

NAMES = ('a', 'b', 'a_p50', 'requests', '</script>', 'größe', ' ', '')
DIMENSIONS = ('', 'host=a;', 'host=a;route=;', 'odd=', ';', '=;=;')
FIGURES = (0, 1, -1, 7, 0.1, 1e22, -2.5e-300, 'nan', '-nan', 'inf', '-inf', 2 ** 62)
ALPHABET = bytes(range(256)) + b',;=\n' * 20
OPTIONS = ('--select=a', '--since=-2m', '--until=-1m', '--counter=a', '--gauge=requests',
           '--range-unit=s', '--since=2023-11-14T22:20', '--range-unit=ns')


def make_csv(source):
    rows = []
    for minute in range(source.randrange(8)):
        for name in source.sample(NAMES, source.randrange(len(NAMES))):
            time = 1_700_000_000 + source.choice((minute * 60, minute * 60 + source.random(), 0, 3))
            figures = source.choices(FIGURES, k=source.choice((1, 7)))
            rows.append((time, (name, source.choice(DIMENSIONS)), *figures))
    return csv_lines(*rows)


def make_ranges(source):
    bounds = (0, -5, 1_700_000_060_000_000, 2 ** 63 - 1, source.randrange(10 ** 16))
    return ''.join(f'F,{source.choice(NAMES)},{source.randrange(-2, 3)},'
                   f'{source.choice(bounds)},{source.choice(bounds)}\n' for _ in range(5))


def make_point(source):
    members = {'Value': source.choice((1, 2.5, None, -1e108))}
    if source.random() < 0.3:
        members = {'StatisticValues': {key: source.choice((0, 1, 2.5, None)) for key in
                                       ('SampleCount', 'Sum', 'Minimum', 'Maximum')}}
    if source.random() < 0.5:
        members['Unit'] = source.choice(('Seconds', 'Count'))
    if source.random() < 0.5:
        members['Dimensions'] = [{'Name': source.choice(('instance', 'host')), 'Value': 'a'}]
    if source.random() < 0.2:
        members['Timestamp'] = source.choice((None, '2023-11-14T22:13:20Z'))
    return source.choice(NAMES), members


def make_json(source):
    return ''.join(json_line(minute * 60, *(make_point(source) for _ in range(source.randrange(5))))
                   for minute in range(source.randrange(8)))


def damage(source, content):
    """Changes bytes, inserts them, or leaves them out."""
    content = bytearray(content)
    for _ in range(source.randrange(6)):
        start = source.randrange(len(content) + 1)
        end = min(len(content), start + source.choice((0, 0, 1, 1, 40)))
        content[start:end] = bytes(source.choices(ALPHABET, k=source.choice((0, 1, 1, 30))))
    return bytes(content)


MAKERS = {'a.csv': make_csv, 'a.json': make_json, 'a.json.1': make_json, 'b.csv': make_csv,
          'timeline.csv': make_ranges}


def check(data):
    """Whether the data is what a page can draw."""
    for times in data['times']:
        assert all(map(float.__le__, map(float, times), map(float, times[1:]))), times
    for metric in data['metrics']:
        for figures in metric.get('statistics', {'value': metric.get('values')}).values():
            assert len(figures) == len(data['times'][metric['times']]), metric
            assert all(isinstance(figure, (int, float)) or figure in (None, 'inf', '-inf')
                       for figure in figures), figures
    for timeline in data['timelines']:
        for lane in timeline['lanes']:
            starts, ends = lane['ranges'][::2], lane['ranges'][1::2]
            assert starts == sorted(starts) and all(map(float.__le__, map(float, starts),
                                                        map(float, ends))), lane
    rows = [(metric['name'], str(metric['dimensions']), 'values' in metric)
            for metric in data['metrics']]
    assert all(first != second for first, second in itertools.pairwise(sorted(rows))), rows


def draw(files, *options):
    """Runs vek-plot over files, which may be damaged; returns the run."""
    run = Run(files, *options)
    assert run.status in (0, 1), run.status
    assert (run.data is not None) == (run.status == 0), run.said
    if run.data:
        check(run.data)
    return run
