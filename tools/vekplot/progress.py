"""A line that shows how much of long files has been read, if it is a terminal that gets it."""

import sys

LONG = 16 << 20  # bytes, which take about a second
ERASE = '\r\x1b[K'


class Progress:
    """The line, which is there until the end."""

    def __init__(self, total):
        self.total = total
        self.done = 0
        self.is_shown = total >= LONG and sys.stderr.isatty()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.print('')

    def print(self, text):
        if self.is_shown:
            print(ERASE + text, end='', file=sys.stderr, flush=True)

    def advance(self, name, size):
        """After more bytes of a file were read."""
        self.done += size
        self.print(f'{self.done * 100 // max(self.done, self.total)} % read: {name}')
