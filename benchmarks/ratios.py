#!/usr/bin/python3
"""Runs the benchmarks and judges them by ratios: ratios.py FOLDER [--count] [--out FILE]

FOLDER holds the benchmark programs. The cases take turns, many times over. Each turn gives a ratio
of two sides that ran soon after each other, so that what else the machine does weighs on both, and
the median of these is judged. With --count the ratio is of instructions, as callgrind counts them:
steadier than time, but blind to waiting.

The status is 1 if a ratio does not hold.
"""

import collections
import json
import operator
import re
import statistics
import subprocess
import sys
import tempfile

import results

Row = collections.namedtuple('Row', 'operation against limit count_limit', defaults=[None])

# What is measured, against what, and at most how many times as long it may take. The second limit
# is that of instructions, a little above what they are: a guard against getting worse. An
# uncontended mutex takes few instructions and much time, so the ratios of what uses one differ.
UPDATES = [
    Row('counter add', 'baseline', 1.05, 1.22),
    Row('gauge set', 'baseline', 1.05, 1.22),
    Row('meter mark', 'baseline', 1.05, 1.22),
    Row('meter rate', 'baseline', 1.05, 1.22),
    Row('fixed-time add', 'baseline', 1.05, 1.52),
    Row('timer start and stop', 'baseline', 1.05, 1.55),
    Row('histogram set', 'baseline', 1.12, 2.12),
    Row('timer set_usec', 'baseline', 1.12, 2.02),
    Row('counter add of two threads', 'baseline', 1.25),
    Row('snapshot of 60', 'baseline', 1.03, 1.03),
    Row('snapshot of 2048', 'baseline', 1.03, 1.03),
    Row('look-up with one pair', 'baseline', 0.85, 0.85),
    Row('look-up with two pairs', 'baseline', 0.85, 0.85),
    Row('metric created', 'baseline', 1.05, 1.08),
    Row('metric got again', 'baseline', 1.05, 1.08),
    Row('histogram set', 'prometheus histogram', 0.50),
    Row('histogram set', 'prometheus summary', 0.01),
    Row('look-up with one pair', 'prometheus', 0.55),
    Row('counter add', 'prometheus', None),
    Row('increment by a tally', 'prometheus', 0.50, 0.50),
    Row('scoped timer', 'C calls', 1.02, 1.02),
    Row('update by methods', 'C calls', 1.05, 1.01),
    Row('snapshot by methods', 'C calls', 1.05, 1.02),
    Row('metric got by methods', 'C calls', 1.08, 1.04),
]

# A heap distorts what is measured after it was used: each of these runs in a process of its own.
PASSES = [
    Row('pass into console', 'prometheus', 0.50),
    Row('pass into CSV', 'prometheus', 0.75),
    Row('pass into JSON', 'pass into CSV/library', None),
    Row('pass into carbon', 'pass into CSV/library', None),
    Row('pass into nothing of 100000', 'pass into nothing/library', 3),
    Row('pass into nothing of 1000000', 'pass into nothing of 100000/library', 1.3),
]

# The text that Prometheus scrapes.
TEXTS = [
    Row('text of 11000', 'prometheus', 0.50),
    Row('pass and text of 11000', 'prometheus', None),
]

MEMORY = [Row('counter', 'bytes', 410), Row('histogram', 'bytes', 900)]

PEERS = {'pass into console/prometheus': 'collect and text/prometheus',
         'pass into CSV/prometheus': 'collect and text/prometheus'}


def sides(row):
    """The cases of a row: what is measured, and what it is measured against."""
    against = row.against if '/' in row.against else f'{row.operation}/{row.against}'
    return f'{row.operation}/library', PEERS.get(against, against)


def run(program, *options):
    """Runs a benchmark program and returns the time of each case in ns."""
    with tempfile.NamedTemporaryFile(suffix='.json') as out:
        subprocess.run([program, f'--benchmark_out={out.name}', '--benchmark_out_format=json',
                        *options], check=True, stdout=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL)
        runs = json.load(out)['benchmarks']
    times = {}
    for result in runs:
        # Threads wait for one another; what waits for nobody is measured by its own time, for
        # other programs take some of the machine's.
        time = result['real_time' if result['threads'] > 1 else 'cpu_time']
        if 'items_per_second' in result:  # of a metric, not of the pass
            time = 1e9 / result['items_per_second']
        times['/'.join(result['name'].split('/')[:2])] = time
    return times


def exactly(case):
    """The options that select one case."""
    return f'--benchmark_filter=^{case}(/|$)'


def time_turn(folder, rows):
    """One turn of every case."""
    times = {}
    if any(row in UPDATES for row in rows):
        times |= run(f'{folder}/bench-updates', '--benchmark_min_time=0.05')
    for program, group in (('bench-passes', PASSES), ('bench-prometheus', TEXTS)):
        for case in dict.fromkeys(case for row in group if row in rows for case in sides(row)):
            times |= run(f'{folder}/{program}', exactly(case), '--benchmark_min_time=0.2')
    return times


def time_all(folder, rows, n_turns):
    """The times of each case, turn by turn."""
    turns = [time_turn(folder, rows) for _ in range(n_turns)]
    return {case: [turn[case] for turn in turns] for case in turns[0]}


def count(program, case, few, many):
    """The instructions of one turn of a case: what more turns add, so that setting up is not in."""
    totals = []
    for turns in (few, many):
        log = subprocess.run(['valgrind', '--tool=callgrind', '--callgrind-out-file=/dev/null',
                              program, f'--iterations={turns}', exactly(case)], check=True,
                             stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True).stderr
        totals.append(int(re.search(r'Collected : (\d+)', log).group(1)))
    return (totals[1] - totals[0]) / (many - few)


def count_all(folder, rows):
    counts = {}
    for program, group, few, many in (('bench-updates', UPDATES, 2000, 6000),
                                      ('bench-passes', PASSES, 4, 12)):
        for case in sorted({case for row in group if row in rows for case in sides(row)}):
            counts[case] = [count(f'{folder}/{program}', case, few, many)]
    return counts


def measure_memory(folder):
    lines = subprocess.run([f'{folder}/bench-memory'], check=True, capture_output=True,
                           text=True).stdout.splitlines()
    return {kind: float(size) for kind, size in (line.split() for line in lines)}


def measure_graphite(folder, n_turns):
    """Two lines of the table, as records: a line's time, and its memory while it waits."""
    turns = []
    for _ in range(n_turns):
        lines = subprocess.run([f'{folder}/bench-graphite'], check=True, capture_output=True,
                               text=True).stdout.splitlines()
        turns.append({name: float(figure) for name, figure in map(str.split, lines)})
    time, carbon, waiting, ratio = (
        statistics.median(turn) for turn in zip(*(
            (turn['graphite'], turn['carbon'], turn['waiting'], turn['graphite'] / turn['carbon'])
            for turn in turns)))
    return [{'operation': 'line to Graphite, in real time', 'against': 'carbon reporter',
             'measured': time, 'other': carbon, 'ratio': ratio, 'limit': 0.1,
             'holds': ratio <= 0.1},
            {'operation': 'memory of a waiting line', 'against': 'its text',
             'measured': waiting, 'other': 1, 'ratio': waiting, 'limit': 1.2,
             'holds': waiting <= 1.2}]


def judge(row, measured, limit):
    """One line of the table, as a record."""
    this, other = (measured[case] for case in sides(row))
    ratio = statistics.median(map(operator.truediv, this, other))
    return {'operation': row.operation, 'against': row.against,
            'measured': statistics.median(this), 'other': statistics.median(other),
            'ratio': ratio, 'limit': limit, 'holds': limit is None or ratio <= limit}


def show(records, unit):
    print(f'{"operation":34}{"against":36}{unit:>10}{"other":>12}{"ratio":>8}{"at most":>9}')
    for record in records:
        limit = '' if record['limit'] is None else f'{record["limit"]:g}'
        verdict = '' if record['holds'] else '  TOO MUCH'
        print(f'{record["operation"]:34}{record["against"]:36}{record["measured"]:10.1f}'
              f'{record["other"]:12.1f}{record["ratio"]:8.3f}{limit:>9}{verdict}')


def main():
    parser = results.make_parser(__doc__)
    parser.add_argument('--count', action='store_true', help='count instructions')
    parser.add_argument('--updates', action='store_true', help='leave the passes out')
    parser.add_argument('--turns', type=int, default=15, help='how often each case is measured')
    arguments = parser.parse_args()

    if arguments.count:
        rows = [row for row in UPDATES + ([] if arguments.updates else PASSES) if row.count_limit]
        measured = count_all(arguments.folder, rows)
        records = [judge(row, measured, row.count_limit) for row in rows]
        unit = 'instr.'
    else:
        rows = UPDATES + ([] if arguments.updates else PASSES + TEXTS)
        measured = time_all(arguments.folder, rows, arguments.turns)
        records = [judge(row, measured, row.limit) for row in rows]
        sizes = measure_memory(arguments.folder)
        records += [{'operation': f'memory of a {row.operation}', 'against': 'bytes',
                     'measured': sizes[row.operation], 'other': row.limit,
                     'ratio': sizes[row.operation] / row.limit, 'limit': 1,
                     'holds': sizes[row.operation] <= row.limit} for row in MEMORY]
        if not arguments.updates:
            records += measure_graphite(arguments.folder, arguments.turns)
        unit = 'ns'

    show(records, unit)
    results.save(arguments.out, unit=unit, rows=records)
    failed = sum(not record['holds'] for record in records)
    print(f'{len(records) - failed} passed, {failed} failed')
    return 1 if failed else 0


if __name__ == '__main__':
    sys.exit(main())
