"""What the drivers of the benchmarks share: their options, and the file of their results."""

import argparse
import datetime
import json
import os
import pathlib
import re


def make_parser(doc, **names):
    """A parser of a driver's arguments: the folder, --out, and of the names any number or none."""
    parser = argparse.ArgumentParser(description=doc.splitlines()[0])
    parser.add_argument('folder', help='where the benchmark programs are')
    parser.add_argument('--out', help='a file to write the results to, as JSON')
    for what, known in names.items():
        parser.add_argument(what, nargs='*', choices=[[], *known],  # the empty list is checked too
                            metavar=what.upper(), help=', '.join(known) + '; else all of them')
    return parser


def make_record(what, figure, unit, limit=None):
    """A figure, which is at most the limit if all is well."""
    return {'what': what, 'figure': figure, 'unit': unit} | ({'limit': limit} if limit else {})


def show(title, records):
    print(title)
    for record in records:
        limit = f', at most {record["limit"]}' if 'limit' in record else ''
        print(f'  {record["what"]:42}{record["figure"]:12,.2f} {record["unit"]}{limit}', flush=True)


def machine():
    cpuinfo = pathlib.Path('/proc/cpuinfo').read_text(encoding='utf-8')
    model = re.search(r'^model name\s*: (.*)', cpuinfo, re.MULTILINE)
    return f'{os.cpu_count()} cores of {model[1] if model else "an unknown processor"}'


def save(path, **results):
    """Writes the results as JSON, with the date and the machine; to nowhere without a path."""
    if path:
        with open(path, 'w', encoding='utf-8') as out:
            json.dump({'date': datetime.date.today().isoformat(), 'machine': machine()} | results,
                      out, indent=2)
            out.write('\n')
