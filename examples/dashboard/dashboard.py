#!/usr/bin/python3
"""Runs processes of the example and a Prometheus that scrapes them: dashboard.py CHECKSUM FOLDER...

There is a process for each folder. All of it ends on a signal, and leaves nothing.
"""

import contextlib
import json
import os
import pathlib
import select
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import urllib.error
import urllib.request

END = (signal.SIGHUP, signal.SIGINT, signal.SIGTERM)
HERE = pathlib.Path(__file__).resolve().parent
LIBRARIES = ('/etc/prometheus/console_libraries',
             '/usr/share/doc/prometheus/examples/console_libraries')


def find_console_libraries():
    for folder in LIBRARIES:
        if pathlib.Path(folder, 'prom.lib').exists():
            return folder
    sys.exit('dashboard: there is no prom.lib in ' + ' or '.join(LIBRARIES))


def catch_signals():
    """Returns a file from which the numbers of signals can be read. The signals do nothing else."""
    reading, writing = os.pipe()
    os.set_blocking(writing, False)
    signal.set_wakeup_fd(writing)
    for number in (*END, signal.SIGCHLD):
        signal.signal(number, lambda *_: None)
    return reading


def reserve_port():
    """Returns a socket that keeps a port until a server binds to it, with SO_REUSEADDR as well."""
    reservation = socket.socket()
    reservation.bind(('127.0.0.1', 0))
    reservation.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    return reservation


@contextlib.contextmanager
def started(*command, **options):
    """Runs a process for as long as the block lasts; the keyboard's signals do not reach it."""
    process = subprocess.Popen(command, start_new_session=True, **options)
    try:
        yield process
    finally:
        process.terminate()
        process.wait()


def fail(process):
    sys.exit(f'dashboard: {process.args[0]} ended with the status {process.wait()}')


def read_address(process):
    return process.stdout.readline().strip() or fail(process)


def is_ready(url):
    direct = urllib.request.build_opener(urllib.request.ProxyHandler({}))
    try:
        with direct.open(url + '/-/ready'):
            return True
    except (urllib.error.URLError, ConnectionError):
        return False


def run(checksum, folders):
    signals = catch_signals()
    libraries = find_console_libraries()

    def ended(processes, seconds=None):
        """Waits for a signal; returns whether it asks to end. Exits if a process has ended."""
        if not select.select([signals], [], [], seconds)[0]:
            return False
        if os.read(signals, 1)[0] in END:
            return True
        for process in processes:
            if process.poll() is not None:
                fail(process)
        return False

    with contextlib.ExitStack() as stack:
        home = pathlib.Path(stack.enter_context(tempfile.TemporaryDirectory(prefix='dashboard-')))
        # They take all the time that they get; what Prometheus and the browser need goes first.
        processes = [stack.enter_context(started(
            checksum, '--quiet', '--repeat', '--jobs=1', '--every=1', '--serve=0', folder,
            stdout=subprocess.PIPE, text=True, preexec_fn=lambda: os.nice(10)))
            for folder in folders]
        urls = list(map(read_address, processes))
        targets = [{'targets': [url.removeprefix('http://').removesuffix('/')],
                    'labels': {'folder': folder}} for folder, url in zip(folders, urls)]
        (home / 'targets.json').write_text(json.dumps(targets), encoding='utf-8')
        shutil.copy(HERE / 'prometheus.yml', home)

        reservation = stack.enter_context(reserve_port())
        url = f'http://127.0.0.1:{reservation.getsockname()[1]}'
        processes.append(stack.enter_context(started(
            'prometheus', f'--config.file={home}/prometheus.yml',
            f'--storage.tsdb.path={home}/data', '--log.level=error',
            f'--web.listen-address={url.removeprefix("http://")}',
            f'--web.console.templates={HERE}/consoles',
            f'--web.console.libraries={libraries}')))
        while not is_ready(url):
            if ended(processes, 0.1):
                return

        print('Charts of every metric, by Prometheus:', f'  {url}/consoles/checksum.html',
              'Each process:', *(f'  {process_url}  {folder}' for folder, process_url
                                 in zip(folders, urls)),
              'Ctrl-C ends all of them.', sep='\n', flush=True)
        while not ended(processes):
            pass


if __name__ == '__main__':
    run(sys.argv[1], sys.argv[2:])
