"""Waiting for servers, and the processor time that they take."""

import os
import pathlib
import time

DEADLINE = 120  # seconds that only a failure takes


def wait_until(condition, what):
    end = time.monotonic() + DEADLINE
    while not condition():
        if time.monotonic() > end:
            raise TimeoutError(f'{what} took more than {DEADLINE} seconds')
        time.sleep(0.02)


def cpu_seconds(pid):
    fields = pathlib.Path(f'/proc/{pid}/stat').read_text(encoding='utf-8').rsplit(')', 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf('SC_CLK_TCK')
