"""The page as one HTML file: a template, its style and scripts, and the data."""

import pathlib
import re

from .failure import Failure
from .writing import write_document

FOLDER = pathlib.Path(__file__).resolve().parents[1]  # tools of the source, or of the prefix
PAGE = next((folder for folder in (FOLDER / 'page', FOLDER.parent / 'page') if folder.is_dir()),
            FOLDER / 'page')
DYGRAPHS = pathlib.Path('/usr/share/javascript/dygraphs')

STYLE = re.compile(r'<link rel="stylesheet" href="([\w.-]+)">')
SCRIPT = re.compile(r'<script src="([\w.-]+)"></script>')
DATA = '<script type="application/json" id="data">'


def find_file(name):
    """The path of a file that the page refers to."""
    for folder in (PAGE, DYGRAPHS):
        if (folder / name).is_file():
            return folder / name
    package = 'libjs-dygraphs' if 'dygraph' in name else 'vek-plot'
    raise Failure(f'{name} is missing: install {package}')


def read_template():
    return find_file('index.html').read_text(encoding='utf-8')


def find_references():
    """The names of the files that the page refers to."""
    template = read_template()
    return STYLE.findall(template) + SCRIPT.findall(template)


def embed(line):
    """A line of the template, with the contents of the file that it refers to."""
    if match := STYLE.fullmatch(line.strip()):
        return f'<style>\n{find_file(match[1]).read_text(encoding="utf-8")}</style>\n'
    if match := SCRIPT.fullmatch(line.strip()):
        script = find_file(match[1]).read_text(encoding='utf-8').replace('</script', r'<\/script')
        return f'<script>\n{script}</script>\n'
    return line


def read_page():
    """The lines of the template, with all that they refer to."""
    return [embed(line) for line in read_template().splitlines(keepends=True)]


def write_page(lines, document, write):
    """Writes the page, with the data."""
    for line in lines:
        if line.startswith(DATA):
            write(DATA)
            write_document(document, write)
            line = line.removeprefix(DATA)
        write(line)
