#!/usr/bin/python3
"""Draws a million lines of 100 series with vek-plot: plot.py FOLDER [--out FILE] [CASE]...

FOLDER holds vek-plot. The times are processor times; splitting the lines, which is the least that a
program in Python can do with them, tells how fast the machine is.
"""

import os
import random
import sys
import tempfile
import time

import results

LINES = 1_000_000
PERIOD = 60_000_000  # µs between two passes
CASES = {  # counters, gauges and timers
    'counters': (100, 0, 0),
    'mixed': (40, 40, 20),
    'timers': (0, 0, 100),
}
MOST_SECONDS = 5
MOST_MEGABYTES = 100
SPLIT = 'import sys\nfor line in open(sys.argv[1], "rb"): line.split(b",")'


def write_log(path, counters, gauges, timers):
    source = random.Random(1)
    totals = [0] * counters
    stamps = [0] * counters
    with open(path, 'w', encoding='ascii') as file:
        for number in range(LINES // (counters + gauges + timers)):
            now = 1_700_000_000_000_000 + number * PERIOD + source.randrange(1000)
            for index in range(counters):
                if number == 0 or source.random() < 0.8:
                    totals[index] += source.randrange(1, 1000)
                    stamps[index] = now - source.randrange(PERIOD // 2)
                file.write(f'{stamps[index]},requests,host=h{index};,{totals[index]},,,,,,\n')
            for index in range(gauges):
                file.write(f'{now + index},load,host=h{index};,{source.random():.17g},,,,,,\n')
            for index in range(timers):
                low, p10, p50, p90, high = sorted(source.random() for _ in range(5))
                file.write(f'{now + index},latency,host=h{index};route=home;,{p50:.17g},60,'
                           f'{low:.17g},{high:.17g},{p10:.17g},{p50:.17g},{p90:.17g}\n')


def run(*command):
    """Runs a command; returns its seconds, by the processor and by the clock, and its MB."""
    begin = time.monotonic()
    child = os.posix_spawn(command[0], command, os.environ,
                           file_actions=[(os.POSIX_SPAWN_OPEN, 1, os.devnull, os.O_WRONLY, 0)])
    _, status, usage = os.wait4(child, 0)
    assert status == 0, command
    return (usage.ru_utime + usage.ru_stime, time.monotonic() - begin, usage.ru_maxrss * 1024 / 1e6)


def describe(case):
    return '{} counters, {} gauges, {} timers'.format(*CASES[case])


def measure(program, case, page):
    """The figures of a case, as records; writes the page."""
    with tempfile.TemporaryDirectory() as folder:
        log = f'{folder}/figures.csv'
        write_log(log, *CASES[case])
        split = run(sys.executable, '-c', SPLIT, log)
        drawn = run(sys.executable, program, '-o', page, log)
        sizes = [os.path.getsize(path) / 1e6 for path in (log, page)]
    return [results.make_record('splitting the lines', split[0], 's'),
            results.make_record('drawing them', drawn[0], 's', MOST_SECONDS),
            results.make_record('drawing them, by the clock', drawn[1], 's'),
            results.make_record('drawing them, relative to splitting', drawn[0] / split[0], ''),
            results.make_record('peak memory', drawn[2], 'MB', MOST_MEGABYTES),
            results.make_record('size of the log', sizes[0], 'MB'),
            results.make_record('size of the page', sizes[1], 'MB')]


def main():
    arguments = results.make_parser(__doc__, case=CASES).parse_args()
    figures = {}
    for case in arguments.case or CASES:
        with tempfile.NamedTemporaryFile() as page:
            figures[case] = measure(f'{arguments.folder}/vek-plot', case, page.name)
        results.show(f'{case}: {describe(case)}', figures[case])
    results.save(arguments.out, cases=figures)


if __name__ == '__main__':
    sys.exit(main())
