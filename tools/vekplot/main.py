"""What vek-plot does, step by step."""

import os
import pathlib
import sys
import webbrowser

from .arguments import parse
from .document import Document
from .files import Files
from .page import Missing, write_page

DEFAULT_PAGE = 'vek-plot.html'


def say(text):
    print(f'vek-plot: {text}', file=sys.stderr)


def report_unread(unread):
    for line in unread.first:
        say(line)
    if unread.count > len(unread.first):
        say(f'{unread.count - len(unread.first)} more lines could not be read')


def write_file(path, write_content):
    """Writes a file, which is complete or not there, and prints its name."""
    with open(path, 'w', encoding='utf-8') as file:
        write_content(file.write)
    print(path)


def run(options):
    files = Files(options.paths)
    files.read()
    files.close()
    report_unread(files.unread)
    document = Document(files, options)
    if document.is_empty():
        say('there is nothing to draw')
        return 1
    page = options.output or DEFAULT_PAGE
    write_file(page, lambda write: write_page(document, write))
    if options.open:
        webbrowser.open(pathlib.Path(page).absolute().as_uri())
    return 0


def main(arguments):
    options = parse(arguments)
    try:
        return run(options)
    except (Missing, OSError) as error:
        say(error)
        return 1
