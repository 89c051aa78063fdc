"""Looks for logs that break vek-plot, for some minutes of processor time: fuzz-logs.py MINUTES
FOLDER. Without arguments, tests what it has found.

An input consists of parts with a NUL between them: a byte for each of up to two options, and the
contents of up to five files. An input that reaches new code is kept in the folder, and one that
breaks vek-plot ends the search.
"""

import contextlib
import hashlib
import json
import pathlib
import random
import re
import sys
import time

from plot import Run
from randomlogs import MAKERS, OPTIONS, damage, draw
from support import tap
from vekplot import files as vekplot_files

KEPT = pathlib.Path(__file__).parent / 'fuzz' / 'vek-plot'
VEKPLOT = str(pathlib.Path(vekplot_files.__file__).parent)
SMALL_BATCH = 7
NUMBER = re.compile(rb'\d+(?:\.\d+)?')
TOKENS = (b'nan', b'-inf', b'1e999', b'9' * 400, b'0', b'-1', b'9007199254740991', b'1' * 19,
          b'null', b'{}', b'[]', b'"', b'\\ud800', b'\xff', b',,', b'\n', b'\r\n', b'\0', b'F,',
          b'"Value":', b'"Dimensions":[', b'"Timestamp":"0001-01-01T00:00:00Z"',
          b'0000-00-00 00:00:00,000000 [', b'9999-12-31 23:59:59,999999 []\n', b'[' * 2000)


def unpack(data):
    """The options and the files of an input."""
    head, *contents = data.split(b'\0', len(MAKERS))
    options = [OPTIONS[byte % len(OPTIONS)] for byte in head[:2]]
    return options, {name: content for name, content in zip(MAKERS, contents) if content}


def try_input(data, context=contextlib.nullcontext()):
    """Draws the files, reads them again bit by bit, and writes a trace."""
    options, files = unpack(data)
    with context:
        whole = draw(files, *options)
    usual = vekplot_files.BATCH
    vekplot_files.BATCH = SMALL_BATCH
    try:
        parts = draw(files, *options)
    finally:
        vekplot_files.BATCH = usual
    assert (whole.data, whole.said) == (parts.data, parts.said), (whole.said, parts.said)
    trace = Run(files, *options, '--trace=trace.json')
    assert trace.status in (0, 1), trace.status
    for content in trace.contents.values():
        json.loads(content)


class Coverage:
    """The steps from one line of vek-plot to another."""

    def __init__(self):
        self.steps = set()
        self.line = None

    def trace(self, frame, _event, _argument):
        return self.trace_line if frame.f_code.co_filename.startswith(VEKPLOT) else None

    def trace_line(self, frame, _event, _argument):
        line = (frame.f_code, frame.f_lineno)
        self.steps.add((self.line, line))
        self.line = line
        return self.trace_line

    def __enter__(self):
        sys.settrace(self.trace)

    def __exit__(self, *_):
        sys.settrace(None)


def mutate(source, data, other):
    """Damages an input, inserts a token or replaces a number by it, or takes another's end."""
    way = source.randrange(4)
    if way == 0:
        start = source.randrange(len(data) + 1)
        return data[:start] + source.choice(TOKENS) + data[start + source.choice((0, 0, 1, 9)):]
    if way == 1:
        return data[:source.randrange(len(data) + 1)] + other[source.randrange(len(other) + 1):]
    if way == 2 and (numbers := list(NUMBER.finditer(data))):
        number = source.choice(numbers)
        return data[:number.start()] + source.choice(TOKENS) + data[number.end():]
    return damage(source, data)


def fuzz(minutes, folder):
    folder = pathlib.Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    coverage, source = Coverage(), random.Random()
    inputs = [path.read_bytes() for path in sorted([*KEPT.iterdir(), *folder.iterdir()])]
    for data in inputs:
        try_input(data, coverage)
    runs = 0
    while time.process_time() < minutes * 60:
        data = mutate(source, source.choice(inputs), source.choice(inputs))[:4096]
        name = hashlib.sha1(data).hexdigest()
        runs += 1
        known = len(coverage.steps)
        try:
            try_input(data, coverage)
        except KeyboardInterrupt:
            break
        except BaseException:
            pathlib.Path(f'{folder}-crash-{name}').write_bytes(data)
            print(f'{folder}-crash-{name}', runs, 'runs')
            raise
        if len(coverage.steps) > known:
            inputs.append(data)
            (folder / name).write_bytes(data)
    print(f'{runs} runs, {len(inputs)} inputs, {len(coverage.steps)} steps between lines')


def kept_inputs_are_drawn():
    inputs = sorted(KEPT.iterdir())
    assert inputs
    for path in inputs:
        print('#', path.name)
        try_input(path.read_bytes())


if __name__ == '__main__':
    if len(sys.argv) == 3:
        fuzz(float(sys.argv[1]), sys.argv[2])
    else:
        tap.run([kept_inputs_are_drawn])
