"""What a library exports, as Debian's symbols file of it lists it."""

import pathlib


def read_symbols(path):
    """Returns the library's soname, and the names of its functions in order."""
    head, *lines = pathlib.Path(path).read_text(encoding='utf-8').splitlines()
    return head.split()[0], [line.split('@')[0].strip() for line in lines if '@' in line]
