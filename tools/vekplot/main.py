"""What vek-plot does, step by step."""

import pathlib
import resource
import sys
from functools import partial

from . import picture
from .arguments import parse
from .document import Document
from .failure import Failure
from .files import Files
from .output import open_output
from .page import read_page, write_page
from .progress import Progress
from .trace import write_trace

DEFAULT_PAGE = 'vek-plot.html'
INTERRUPTED = 130  # as shells say it


def say(text):
    print(f'vek-plot: {text}', file=sys.stderr)


def report_unread(unread):
    for line in unread.first:
        say(line)
    if unread.count > len(unread.first):
        say(f'{unread.count - len(unread.first)} more could not be read')


def report_missing(document):
    for option, name in document.missing:
        say(f'--{option} {name}: there is no counter or gauge with this name')


def write_file(path, write_content):
    """Writes a file, and prints its name."""
    with open_output(path) as file:
        write_content(file)
    print(path)


def write_outputs(document, options):
    page = options.output
    if options.open or not (options.svg or options.png or options.trace):
        page = page or DEFAULT_PAGE
    if page:
        lines = read_page()
        write_file(page, lambda file: write_page(lines, document, file.write))
    if options.trace:
        if not document.timelines:
            raise Failure('there are no timelines for a trace')
        write_file(options.trace, lambda file: write_trace(document, file.write))
    for kind in ('svg', 'png'):
        if path := getattr(options, kind):
            write_file(path, partial(picture.draw, document, kind))
    if options.open:
        open_browser(pathlib.Path(page).absolute().as_uri())


def allow_files():
    """Allows as many open files as it may."""
    _, most = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (most, most))


def announce(address, document, options):
    report_missing(document)
    print(address, flush=True)
    if options.open:
        open_browser(address)


# What follows is imported when it is needed, since it takes time and memory.


def open_browser(address):
    import webbrowser  # pylint: disable=import-outside-toplevel
    webbrowser.open(address)


def follow(files, options):
    from .follow import serve  # pylint: disable=import-outside-toplevel
    serve(files, options, lambda address, document: announce(address, document, options))


def run(options):
    if options.svg or options.png:
        picture.check()
    files = Files(options.paths)
    with Progress(files.count_bytes()) as progress:
        if options.follow:
            allow_files()
            files.read_more(progress.advance)
        else:
            files.read(progress.advance)
    report_unread(files.unread)
    if options.follow:
        follow(files, options)
        return 0
    document = Document(files, options)
    report_missing(document)
    if document.is_empty():
        say('there is nothing to draw')
        return 1
    write_outputs(document, options)
    return 0


def main(arguments):
    """Returns the exit status."""
    options = parse(arguments)
    try:
        return run(options)
    except (Failure, OSError) as error:
        say(error)
        return 1
    except KeyboardInterrupt:
        return INTERRUPTED
