#!/usr/bin/python3
"""Measures what servers take from a fleet, and how many it needs: fleet.py FOLDER [SERVER]...

FOLDER holds the benchmark programs. All servers run on loopback, one after the other, and are ended
by the end. Each is sent lines by the library's own reporter, over many connections at once.

A server has received its lines when it has closed the connections, which it does when it has read
them to their end. What it does with them then is "stored": written to a file, or passed on.

prometheus scrapes processes instead. It has stored what its queries count.
"""

import contextlib
import json
import math
import os
import pathlib
import random
import re
import selectors
import shutil
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time
import urllib.request

import whisper

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path += [str(ROOT / 'benchmarks'), str(ROOT / 'tests')]
import results  # noqa: E402
from scraping import scrape  # noqa: E402
from support.servers import Cache, excerpt, free_port, server  # noqa: E402
from waiting import cpu_seconds, wait_until  # noqa: E402

INTERVAL = 60  # seconds between passes
METRICS = 1000  # of a process
LINES = 1600  # that a process sends in a pass: a histogram and a timer send four each
UTILISATION = 0.5  # of a server, so that it keeps up with more than the mean


def count_connections(port):
    """How many connections the server at a port has not closed yet."""
    open_states = ('01', '08')  # established, and closed by the other side
    count = 0
    for table in ('tcp', 'tcp6'):
        for line in pathlib.Path(f'/proc/net/{table}').read_text(encoding='utf-8').splitlines()[1:]:
            _, local, _, state, *_ = line.split()
            count += int(local.rsplit(':', 1)[1], 16) == port and state in open_states
    return count


class Sink:
    """A server that counts the lines and bytes that it is sent."""

    def __init__(self):
        self.lines = 0
        self.bytes = 0
        self.listener = socket.create_server(('127.0.0.1', 0))
        self.port = self.listener.getsockname()[1]
        self.selector = selectors.DefaultSelector()
        self.selector.register(self.listener, selectors.EVENT_READ)
        threading.Thread(target=self.serve, daemon=True).start()

    def serve(self):
        while True:
            for key, _ in self.selector.select():
                if key.fileobj is self.listener:
                    self.selector.register(self.listener.accept()[0], selectors.EVENT_READ)
                elif data := key.fileobj.recv(1 << 18):
                    self.lines += data.count(b'\n')
                    self.bytes += len(data)
                else:
                    self.selector.unregister(key.fileobj)
                    key.fileobj.close()


class Sending:
    """The lines of some processes of a fleet, on their way to a server."""

    def __init__(self, client, port, pid, connections, passes):
        self.lines = connections * LINES * passes
        self.pid = pid
        self.first = int(time.time()) // INTERVAL * INTERVAL - INTERVAL * passes
        self.last = self.first + INTERVAL * (passes - 1)
        cpu = cpu_seconds(pid)
        with subprocess.Popen([client, str(port), str(connections), str(METRICS), str(passes),
                               str(self.first)], stdout=subprocess.PIPE, text=True) as process:
            process.stdout.readline()
            self.start = time.monotonic()
            self.start_cpu = cpu
            self.client_cpu = float(process.stdout.readline())
        wait_until(lambda: count_connections(port) == 0, 'receiving')
        self.received = self.measure()

    def measure(self):
        """What it has taken so far: lines in a second, and processor time for each in µs."""
        return {'lines': self.lines, 'per_second': self.lines / (time.monotonic() - self.start),
                'cpu': (cpu_seconds(self.pid) - self.start_cpu) / self.lines * 1e6}

    def wait_stored(self, condition):
        wait_until(condition, 'storing')
        return self.measure()


def measure_wire(client):
    """The mean length of a line, and how many a reporter sends in a second of processor time."""
    sink = Sink()
    sending = Sending(client, sink.port, os.getpid(), 10, 6)
    assert sink.lines == sending.lines, f'{sink.lines} of {sending.lines} lines came'
    return {'bytes': sink.bytes / sink.lines, 'cpu': sending.client_cpu / sink.lines * 1e6}


def holds(path, time_of_point):
    """Whether a whisper file holds a point of a time; not while it is being made."""
    with contextlib.suppress(OSError, whisper.WhisperException, struct.error, IndexError):
        return whisper.fetch(str(path), time_of_point - 1, time_of_point)[1][0] is not None
    return False


def measure_cache(client, folder):
    """carbon-cache: stored is what the whisper files hold, with a point in each file a minute."""
    connections = 10
    # The shorter retention spares the disk; the rate of writing is the machine's, not the default.
    cache = Cache(folder / 'cache', retention='1d', more='MAX_UPDATES_PER_SECOND = inf\n')

    def stored(sending):
        def all_hold():
            files = list((cache.folder / 'whisper' / 'site').rglob('*.wsp'))
            if len(files) < connections * LINES:
                return False
            for path in files:
                wait_until(lambda path=path: holds(path, sending.last), f'a point of {path.stem}')
            return True
        return sending.wait_stored(all_hold)

    with cache.run() as process:
        def send(passes):
            return Sending(client, cache.port, process.pid, connections, passes)

        created = stored(send(1))
        burst = send(6)
        stored(burst)
        time.sleep(INTERVAL - time.time() % INTERVAL)  # so that the next has a time of its own
        return {'received': burst.received, 'stored': stored(send(1)), 'created': created}


def measure_relay(client, folder):
    """carbon-c-relay: stored is what has arrived at the two caches behind it.

    Its queue drops what does not fit, so it is measured with one that holds everything, and then
    with its own.
    """
    taken = relay(client, folder, '-q', '1000000')
    return taken | {'default -q': relay(client, folder)['stored']}


def relay(client, folder, *options):
    sinks = [Sink(), Sink()]
    port = free_port()
    config = folder / 'relay.conf'
    config.write_text(excerpt('relay.conf', {
        ':2003': f':{port}', ':2103': f':{sinks[0].port}', ':2203': f':{sinks[1].port}'}))

    def arrived():
        return sum(sink.lines for sink in sinks)

    def nothing_comes_any_more():
        before = arrived()
        time.sleep(2)
        return arrived() == before

    with server(['carbon-c-relay', '-f', str(config), '-s', *options], port, folder) as process:
        sending = Sending(client, port, process.pid, 100, 6)
        stored = sending.wait_stored(
            lambda: arrived() == sending.lines or nothing_comes_any_more())
        return {'received': sending.received, 'stored': stored | {'lines': arrived()}}


def measure_victoria(client, folder):
    """VictoriaMetrics: stored is what it counts as rows of its parts, with none pending."""
    port, http = free_port(), free_port()
    command = ['victoria-metrics', f'-storageDataPath={folder / "data"}', '-loggerLevel=ERROR',
               f'-httpListenAddr=127.0.0.1:{http}', f'-graphiteListenAddr=127.0.0.1:{port}']

    def count(pattern):
        with urllib.request.urlopen(f'http://127.0.0.1:{http}/metrics') as answer:
            text = answer.read().decode()
        return sum(float(value) for value in re.findall(rf'^{pattern} (\S+)$', text, re.MULTILINE))

    with server(command, port, folder) as process:
        sending = Sending(client, port, process.pid, 100, 6)
        stored = sending.wait_stored(
            lambda: count(r'vm_rows\{type="storage/[^"]*"\}') >= sending.lines
            and count(r'vm_pending_rows\{type="storage"\}') == 0)
        received = count(r'vm_rows_inserted_total\{type="graphite"\}')
        assert received == sending.lines, f'{received} of {sending.lines} lines came'
        return {'received': sending.received, 'stored': stored}


PUSHED = {'carbon-cache': measure_cache, 'carbon-c-relay': measure_relay,
           'victoria-metrics': measure_victoria}


def simulate(wire, n_processes, phases):
    """Lines in a second, in the mean and in the busiest, if each pass begins at its phase."""
    burst = LINES * wire['cpu'] / 1e6  # how long a process sends, at the fastest
    seconds = [0.0] * INTERVAL
    for phase in phases(n_processes):
        # A burst is far shorter than a second: it falls into two at most.
        first = int(phase)
        share = min(1.0, (first + 1 - phase) / burst)
        seconds[first] += LINES * share
        seconds[(first + 1) % INTERVAL] += LINES * (1 - share)
    return {'mean': n_processes * LINES / INTERVAL, 'peak': max(seconds)}


def equal_phases(n_processes):
    return [0.0] * n_processes


def spread_phases(n_processes):
    uniform = random.Random(1)
    return [uniform.uniform(0, INTERVAL) for _ in range(n_processes)]


def needed(n_processes, cpu):
    """How many cores take the lines of a fleet, if a line takes so many µs of one."""
    return math.ceil(n_processes * LINES / INTERVAL * cpu / 1e6 / UTILISATION)


def push(client, names):
    """What servers take that a fleet sends to, with the lines on the wire."""
    wire = measure_wire(client)
    print(f'a line has {wire["bytes"]:.1f} bytes and takes its sender {wire["cpu"]:.2f} µs')
    for name, phases in (('equal', equal_phases), ('spread', spread_phases)):
        wire[name] = simulate(wire, 1000, phases)
        print(f'1,000 processes of 1,000 metrics, {name} phases: '
              + ', '.join(f'{what} {lines:,.0f} lines/s, {lines * wire["bytes"] / 1e6:.1f} MB/s'
                          for what, lines in wire[name].items()))

    servers = {}
    print(f'\n{"server":18}{"lines":>10}{"what":>12}{"lines/s":>12}{"µs of CPU a line":>18}')
    for name in names:
        with tempfile.TemporaryDirectory(prefix='vek-fleet-') as folder:
            servers[name] = PUSHED[name](client, pathlib.Path(folder))
        for what, taken in servers[name].items():
            print(f'{name:18}{taken["lines"]:10,}{what:>12}{taken["per_second"]:12,.0f}'
                  f'{taken["cpu"]:18.2f}', flush=True)

    print(f'\ncores that a fleet needs, {UTILISATION:.0%} busy')
    print(f'{"processes":>10}{"lines/s":>12}' + ''.join(f'{name:>18}' for name in servers))
    for n_processes in (100, 1000, 10000):
        cores = [needed(n_processes, taken['stored']['cpu']) for taken in servers.values()]
        print(f'{n_processes:10,}{n_processes * LINES / INTERVAL:12,.0f}'
              + ''.join(f'{n:18,}' for n in cores))
    return {'wire': wire, 'servers': servers}


def main():
    known = [*PUSHED, 'prometheus']
    arguments = results.make_parser(__doc__, server=known).parse_args()
    names = [name for name in arguments.server or known if shutil.which(name)]
    for name in set(arguments.server or known).difference(names):
        print(f'{name} is not installed')

    figures = {}
    pushed = [name for name in names if name in PUSHED]
    if pushed:
        figures |= push(f'{arguments.folder}/fleet/bench-fleet', pushed)
    if 'prometheus' in names:
        figures['prometheus'] = scrape(f'{arguments.folder}/fleet/bench-scraped')
    results.save(arguments.out, **figures)


if __name__ == '__main__':
    sys.exit(main())
