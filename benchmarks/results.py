"""What the drivers of the benchmarks share: the file of their results."""

import datetime
import json
import os
import pathlib
import re


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
