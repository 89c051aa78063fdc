#!/usr/bin/python3
"""Runs the library with a million of everything: scale.py FOLDER [--out FILE] [CASE]...

FOLDER holds the benchmark programs. There are no limits here: what waits depends on what else the
machine does.
"""

import subprocess
import sys

import results

# What bench-scale knows, in the order of the table.
CASES = {
    'pass-nothing': 'a million counters, ten reporters that take nothing',
    'pass-console': 'a million counters, a console reporter',
    'pass-csv': 'a million counters, a CSV reporter',
    'pass-carbon': 'a million counters, a carbon reporter',
    'pass-json-1000': 'a thousand counters, a JSON log reporter',
    'pass-json-100000': 'a hundred thousand counters, a JSON log reporter',
    'pass-json': 'a million counters, a JSON log reporter',
    'pass-all': 'a million counters, two reporters of each kind',
    'waits': 'the registry of a million counters, during a pass',
    'timeline': 'a million ranges in one timeline',
    'queue': 'a million lines that wait for a carbon server',
}


def run(program, case):
    """The figures of a case, as records."""
    lines = subprocess.run([program, case], check=True, capture_output=True,
                           text=True).stdout.splitlines()
    return [{'what': what, 'figure': float(figure), 'unit': unit}
            for what, figure, unit in (line.split('\t') for line in lines)]


def main():
    arguments = results.make_parser(__doc__, case=CASES).parse_args()

    figures = {}
    for case in arguments.case or CASES:
        print(CASES[case], flush=True)
        figures[case] = run(f'{arguments.folder}/bench-scale', case)
        for record in figures[case]:
            print(f'  {record["what"]:42}{record["figure"]:12,.2f} {record["unit"]}', flush=True)
    results.save(arguments.out, cases=figures)


if __name__ == '__main__':
    sys.exit(main())
