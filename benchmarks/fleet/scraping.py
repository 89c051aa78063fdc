"""What Prometheus takes that scrapes a fleet, every sample accounted for."""

import json
import pathlib
import re
import signal
import subprocess
import tempfile
import time

from support.servers import free_port, query_prometheus, server
from waiting import cpu_seconds, wait_until

PROCESSES = 100
METRICS = 100  # of a process
SECONDS = 60


class Scraped:
    """A process that Prometheus scrapes."""

    def __init__(self, program):
        self.process = subprocess.Popen([program, str(METRICS)], text=True,
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.target = f'127.0.0.1:{int(self.process.stdout.readline())}'

    def end(self):
        """Returns its scrapes, their samples, and its seconds of processor time."""
        return [float(figure) for figure in self.process.communicate()[0].split()]


def measure_prometheus(program, folder):
    processes = [Scraped(program) for _ in range(PROCESSES)]
    config, port = folder / 'prometheus.yml', free_port()

    def configure(targets):
        config.write_text(json.dumps({
            'global': {'scrape_interval': '1s', 'scrape_timeout': '1s'},
            'scrape_configs': [{'job_name': 'fleet', 'static_configs': [{'targets': targets}]}]}))

    def query(expression):
        return query_prometheus(f'http://127.0.0.1:{port}', expression)

    def count(expression):
        samples = query(f'sum({expression})')
        return float(samples[0]['value'][1]) if samples else 0

    configure([process.target for process in processes])
    command = ['prometheus', f'--config.file={config}', f'--storage.tsdb.path={folder / "data"}',
               '--log.level=error', f'--web.listen-address=127.0.0.1:{port}']
    with server(command, port, folder) as prometheus:
        wait_until(lambda: count('up') == PROCESSES, 'the first scrape of each')
        before, start = cpu_seconds(prometheus.pid), time.monotonic()
        scrapes = count('count_over_time(up[1h])')
        time.sleep(SECONDS)
        cpu, seconds = cpu_seconds(prometheus.pid) - before, time.monotonic() - start
        scrapes = count('count_over_time(up[1h])') - scrapes
        status = pathlib.Path(f'/proc/{prometheus.pid}/status').read_text(encoding='utf-8')
        resident = int(re.search(r'^VmRSS:\s+(\d+) kB', status, re.MULTILINE)[1]) * 1024

        names = [group['metric']['__name__']
                 for group in query('group by (__name__) ({job="fleet"})')]
        series = int(query('count({job="fleet"})')[0]['value'][1])
        configure([])
        prometheus.send_signal(signal.SIGHUP)
        wait_until(lambda: count('up') == 0, 'the end of scraping')
        stored = sum(count(f'count_over_time({name}{{job="fleet"}}[1h])') for name in names
                     if name != 'up' and not name.startswith('scrape_'))
        failed = count('count_over_time(up[1h])') - count('sum_over_time(up[1h])')
    served = [process.end() for process in processes]
    n_scrapes, n_samples, client_cpu = (sum(figures) for figures in zip(*served))
    return {'served': n_samples, 'stored': stored, 'failed': failed, 'series': series,
            'samples': n_samples / n_scrapes, 'per_second': scrapes / seconds,
            'cpu': cpu / (scrapes * n_samples / n_scrapes) * 1e6, 'bytes': resident / series,
            'client_cpu': client_cpu / n_scrapes * 1e3}


def scrape(program):
    """What Prometheus takes that scrapes a fleet."""
    with tempfile.TemporaryDirectory(prefix='vek-fleet-') as folder:
        taken = measure_prometheus(program, pathlib.Path(folder))
    print(f'\nprometheus, {PROCESSES} processes of {METRICS} metrics, every second:\n'
          f'{taken["served"]:,.0f} samples served, {taken["stored"]:,.0f} stored, '
          f'{taken["failed"]:,.0f} scrapes failed\n'
          f'{taken["per_second"]:,.1f} scrapes/s of {taken["samples"]:,.0f} samples, '
          f'{taken["cpu"]:.2f} µs of CPU a sample, '
          f'{taken["bytes"]:,.0f} bytes for each of {taken["series"]:,} series\n'
          f'{taken["client_cpu"]:.2f} ms of CPU of a process for a pass and a scrape')
    return taken
