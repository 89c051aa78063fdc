"""The files that vek-plot was given: which of them are logs, in which order, and what they gain."""

import functools
import os
import re

from .csvlog import CsvReader
from .jsonlog import JsonReader

HEAD = 1 << 16  # bytes, which tell what a file contains
BATCH = 1 << 18  # bytes that are read at once
BEGINNING = 1 << 12  # bytes, which tell a copy of a file
SHOWN_UNREAD = 20

CSV_LINE = rb'\d+,[^,\n]*,[^,\n]*(?:,[^,\n]*){7}\n'
RANGE_LINE = rb'F,[^,\n]*,-?\d+,-?\d+,-?\d+\n'
JSON_LINE = rb'\d{4}-\d\d-\d\d \d\d:\d\d:\d\d,\d{6} \['
LINE = re.compile(rb'^(?:(?P<csv>%b|%b)|(?P<json>%b))' % (CSV_LINE, RANGE_LINE, JSON_LINE),
                  re.MULTILINE)
READERS = {'csv': CsvReader, 'json': JsonReader}
ROTATED = re.compile(r'\.(\d+)$')


def is_log(path):
    """Whether there is a log with this name, as far as it can be read."""
    if not os.path.isfile(path):
        return False
    try:
        with open(path, 'rb') as file:
            return bool(LINE.search(file.read(HEAD)))
    except OSError:
        return False


class Unread:
    """What could not be read."""

    def __init__(self):
        self.count = 0
        self.first = []

    def add(self, place, reason):
        self.count += 1
        if self.count <= SHOWN_UNREAD:
            self.first.append(f'{place}: {reason}')


class LogFile:
    """A file, as far as it has been read."""

    def __init__(self, path, name, find_reader, before):
        self.name = name
        self.before = before  # the file that had the path, until this one is read
        self.find_reader = find_reader  # by what the file contains
        self.file = open(path, 'rb', buffering=HEAD)  # pylint: disable=consider-using-with
        self.reader = None
        self.size = 0  # of what has been read
        self.beginning = b''  # of what has been read
        self.number = 0  # of lines
        self.rest = b''  # a line that has not ended yet, or all, until it is known what it is
        self.find_format(self.file.peek(HEAD))

    def find_format(self, head):
        """Learns from the first bytes what the file is; closes it if it is no log."""
        match = LINE.search(head)
        if match:
            self.reader = self.find_reader(match.lastgroup)
        elif len(head) >= HEAD:
            self.file.close()
            self.size, self.rest = len(head), b''

    def read_batch(self, unread):
        """Reads some lines; returns how many bytes that were, 0 at the end."""
        if self.before:
            self.go_on()
        added = self.file.read(max(BATCH, len(self.rest)))
        if len(self.beginning) < BEGINNING:
            self.beginning = (self.beginning + added)[:BEGINNING]
        self.rest += added
        self.size += len(added)
        if not self.reader:
            self.find_format(self.rest[:HEAD])
        end = self.rest.rfind(b'\n')
        if self.reader and end >= 0:
            lines = self.rest[:end].decode('utf-8', 'replace').split('\n')
            self.rest = self.rest[end + 1:]
            self.reader.read(lines, lambda index: unread.add(
                f'{self.name}:{self.number + index + 1}', 'not a line of a log'))
            self.number += len(lines)
        return len(added)

    def go_on(self):
        """Goes on where the file before ended, if this is a newer copy of it."""
        before, self.before = self.before, None
        is_copy = self.file.read(len(before.beginning)) == before.beginning
        if before.reader and is_copy and os.fstat(self.file.fileno()).st_size >= before.size:
            self.size, self.number = before.size, before.number
            self.beginning, self.rest = before.beginning, before.rest
        self.file.seek(self.size)

    def start_over(self):
        """After the file was truncated."""
        self.file.seek(0)
        self.size = 0
        self.beginning = b''
        self.rest = b''
        self.number = 0


def get_base(path):
    """The name that a log had before it was rotated."""
    return ROTATED.sub('', path)


def get_order(path):
    """Orders the files of a log by their age, the oldest first."""
    match = ROTATED.search(path)
    return get_base(path), -int(match[1]) if match else 0


def get_key(status):
    """Tells files apart, whatever they are called."""
    return status.st_dev, status.st_ino


class Files:
    """All files that were given, and what they say."""

    def __init__(self, paths):
        self.paths = paths
        self.unread = Unread()
        self.readers = {}  # by the path of the log, without a number, and its format
        self.known = {}  # files by their keys
        self.latest = {}  # files by their paths, even if they are gone
        self.failed = set()  # paths

    @property
    def sources(self):
        return [file.name for file in self.known.values() if file.reader]

    @property
    def logs(self):
        """The logs by name and format; a name has no extension unless another log is called so."""
        logs = {}
        for (path, kind), reader in self.readers.items():
            name, spare = os.path.splitext(path)[0], path
            while (name, kind) in logs:
                name, spare = spare, f"{spare}'"
            logs[name, kind] = reader.log
        return logs

    def count_ranges(self):
        """How many bounds each lane has."""
        return {(key, *lane): len(bounds) for key, log in self.logs.items()
                for lane, bounds in log.ranges.items()}

    def count_bytes(self):
        return sum(os.path.getsize(path) for path, _ in self.find() if os.path.isfile(path))

    def fail(self, path, reason):
        if path not in self.failed:
            self.failed.add(path)
            self.unread.add(path, reason)

    def find(self):
        """Yields the path of each file, and what it is called."""
        folders = [path for path in self.paths if os.path.isdir(path)]
        for path in sorted(set(self.paths).difference(folders), key=get_order):
            yield path, path
        for folder in folders:
            try:
                paths = [entry.path for entry in os.scandir(folder) if entry.is_file()]
            except OSError as error:
                self.fail(folder, error.strerror)
                continue
            for path in sorted(paths, key=get_order):
                yield path, os.path.basename(path) if len(self.paths) == 1 else path

    def find_reader(self, path, kind):
        return self.readers.setdefault((get_base(path), kind), READERS[kind]())

    def open(self, path, name):
        """Opens a file if it is new; returns its key, or None if that fails."""
        try:
            status = os.stat(path)
            key = get_key(status)
            file = self.known.get(key)
            # When a file that was closed is deleted, a new one can get its key.
            if not file or not file.reader and file.file.closed and file.name != name:
                self.known[key] = LogFile(path, name, functools.partial(self.find_reader, path),
                                          self.latest.get(path))
            file = self.latest[path] = self.known[key]
            file.name = name
            if status.st_size < file.size and not file.file.closed:
                file.start_over()
            return key
        except OSError as error:
            self.fail(path, error.strerror)
            return None

    def read_rest(self, file, progress):
        """Reads what a file has gained; returns how many bytes that were."""
        total = 0
        while not file.file.closed and (size := file.read_batch(self.unread)):
            total += size
            progress(file.name, size)
        return total

    def read(self, progress):
        """Reads all files, one after the other. Names those that are no logs, unless they were only
        found in a folder.
        """
        for path, name in self.find():
            if key := self.open(path, name):
                self.read_rest(self.known[key], progress)
                self.known[key].file.close()
        for file in self.known.values():
            if not file.reader and file.size and file.name in self.paths:
                self.fail(file.name, 'not a log')

    def read_more(self, progress=lambda path, size: None):
        """Reads what the files have gained; returns how many bytes that were.

        Logs are kept open, so that their rest can be read after they were renamed or deleted.
        """
        found = {self.open(path, name) for path, name in self.find()}
        total = sum(self.read_rest(file, progress) for file in self.known.values())
        for key in set(self.known) - found:
            self.known.pop(key).file.close()
        return total
