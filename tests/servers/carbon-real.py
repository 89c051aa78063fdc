#!/usr/bin/python3
"""Reports to real carbon servers on loopback and reads the figures back.

carbon-real.py CLIENT [CHECKSUM]: the client reports fixed figures. Checksum is the example program;
without it, nothing goes through the relay.
"""

import csv
import pathlib
import shutil
import struct
import subprocess
import sys
import tempfile
import time
import unittest

from support import tap
from support.row import Row
from support.servers import DEADLINE, SERVER_ENV, Cache, excerpt, free_port, server, wait_for

try:
    import whisper
except ImportError:
    whisper = None

# What the client reports: by key, the values of its three passes.
FIGURES = {
    'host.h0.Count.requests': [1, 2, 3],
    'host.h0.load': [0, -0.25, -0.5],
    'host.h0.Bytes.traffic': [0, 5, 5],
    'host.h0.Seconds.wait.average': [0.25, 0.25, 0.25],
    'host.h0.Seconds.wait.n_samples': [1, 2, 3],
    'host.h0.Seconds.wait.min': [0.25, 0.25, 0.25],
    'host.h0.Seconds.wait.max': [0.25, 0.25, 0.25],
    'host.h0.size.average': [0, -0.25, -0.5],
    'host.h0.size.n_samples': [2, 4, 6],
    'host.h0.size.min': [0, -1, -2],
    'host.h0.size.max': [0, 0, 0],
    'host.h1.Count.requests': [2, 4, 6],
    'host.h1.load': [1, 0.75, 0.5],
    'host.h1.Bytes.traffic': [0, 10, 10],
    'host.h1.Seconds.wait.average': [0.25, 0.25, 0.25],
    'host.h1.Seconds.wait.n_samples': [1, 2, 3],
    'host.h1.Seconds.wait.min': [0.25, 0.25, 0.25],
    'host.h1.Seconds.wait.max': [0.25, 0.25, 0.25],
    'host.h1.size.average': [0.5, 0.25, 0],
    'host.h1.size.n_samples': [2, 4, 6],
    'host.h1.size.min': [0, -1, -2],
    'host.h1.size.max': [1, 1, 1],
}


def read(cache, start):
    """Returns what the files hold: by key, the times and values since the start.

    The figures that carbon itself adds under "carbon" are left out.
    """
    root = cache.folder / 'whisper'
    return {'.'.join(path.relative_to(root).with_suffix('').parts): read_points(path, start)
            for path in root.rglob('*.wsp') if path.relative_to(root).parts[0] != 'carbon'}


def read_points(path, start):
    try:
        (first, _, step), values = whisper.fetch(str(path), start - 1)
    except (OSError, whisper.WhisperException, struct.error):
        return {}  # still being made
    return {first + i * step: value for i, value in enumerate(values) if value is not None}


def choose_start():
    """Returns when the first pass is to be: three minutes ago, at a full minute."""
    return int(time.time()) // 60 * 60 - 180


def expected_points(prefix, start):
    return {f'{prefix}.{key}': {start + 60 * i: value for i, value in enumerate(values)}
            for key, values in FIGURES.items()}


def run_all(commands):
    """Runs the commands, all at once."""
    processes = [subprocess.Popen(command) for command in commands]
    try:
        for process in processes:
            status = process.wait(DEADLINE)
            assert status == 0, f'{process.args[0]} ended with {status}'
    finally:
        for process in processes:
            process.kill()
            process.wait()


def assert_holds(cache, expected, start):
    wait_for(lambda: read(cache, start) == expected)
    found = read(cache, start)
    for key in sorted(found.keys() | expected.keys()):
        assert found.get(key) == expected.get(key), \
            f'{key}: found {found.get(key)}, expected {expected.get(key)}'


def cache_holds_every_figure_of_every_kind(folder):
    cache = Cache(folder / 'cache')
    start = choose_start()
    with cache.run():
        run_all([[CLIENT, 'site', str(cache.port), str(start)]])
        assert_holds(cache, expected_points('site', start), start)


def relay_gives_every_point_of_three_programs_to_the_cache_of_its_hash(folder):
    caches = [Cache(folder / 'a'), Cache(folder / 'b')]
    port = free_port()
    config = folder / 'relay.conf'
    config.write_text(excerpt('relay.conf', {
        ':2003': f':{port}', ':2103': f':{caches[0].port}', ':2203': f':{caches[1].port}'}))
    relay = ['carbon-c-relay', '-f', str(config)]

    start = int(time.time()) // 60 * 60
    hosts = ['x', 'y', 'z']
    with caches[0].run(), caches[1].run(), server([*relay, '-s'], port, folder):
        run_all([[CHECKSUM, '--quiet', f'--carbon=127.0.0.1:{port}', f'--prefix=site.{host}',
                  f'--csv={folder / host}', f'--wait={DEADLINE}', make_files(folder / host, 3 + i)]
                 for i, host in enumerate(hosts)])
        sent = {}
        for host in hosts:
            sent |= read_csv(folder / host / 'figures.csv', f'site.{host}')
        port_of = ask_relay_for_ports(relay, sent)
        for cache in caches:
            share = {key: points for key, points in sent.items() if port_of[key] == cache.port}
            assert share, 'the hash gives one cache nothing'
            assert_holds(cache, share, start)


def make_files(folder, number):
    files = folder / 'files'
    files.mkdir(parents=True)
    for i in range(number):
        (files / f'{i}').write_text('x' * i)
    return files


def read_csv(path, prefix):
    """Returns by key the points that a relay passes on."""
    points = {}
    with path.open() as file:
        for row in map(Row, csv.reader(file)):
            for line in row.to_carbon(prefix):
                key, value, seconds = line.split(' ')
                minute = int(seconds) // 60 * 60
                points.setdefault(key.replace('/', '_'), {})[minute] = float(value)
    return points


def ask_relay_for_ports(relay, keys):
    """Returns by key the one port that the relay would send it to."""
    answer = subprocess.run([*relay, '-t'], input=''.join(f'{key}\n' for key in keys), check=True,
                            stdout=subprocess.PIPE, text=True, timeout=DEADLINE,
                            env=SERVER_ENV).stdout
    ports = {}
    for match in answer.split('\nmatch\n')[1:]:
        key, _, destination, *_ = match.splitlines()
        ports[key.split(' -> ')[1]] = int(destination.rsplit(':', 1)[1])
    assert ports.keys() == keys.keys(), f'the relay answers: {answer}'
    return ports


def make_test(test, *programs):
    def run_test():
        missing = [program for program in programs if not shutil.which(program)]
        if missing or not whisper:
            raise unittest.SkipTest(f'not installed: {", ".join(missing) or "python3-whisper"}')
        with tempfile.TemporaryDirectory(prefix='vek-carbon-') as folder:
            test(pathlib.Path(folder))
    run_test.__name__ = test.__name__
    return run_test


TESTS = (
    make_test(cache_holds_every_figure_of_every_kind, 'carbon-cache'),
    make_test(relay_gives_every_point_of_three_programs_to_the_cache_of_its_hash,
              'carbon-cache', 'carbon-c-relay'),
)

if __name__ == '__main__':
    CLIENT, CHECKSUM = [*sys.argv[1:], None][:2]
    tap.run(TESTS if CHECKSUM else TESTS[:1])
