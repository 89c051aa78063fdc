"""The files that are written: each is complete, or as it was before."""

import contextlib
import os
import secrets
import stat


def get_mode(path):
    """The mode of a file that may be written, or None if there is no file."""
    try:
        with open(path, 'r+b') as file:
            return stat.S_IMODE(os.fstat(file.fileno()).st_mode)
    except FileNotFoundError:
        return None


@contextlib.contextmanager
def open_output(path):
    """Opens a file that takes the place of the one before when it is complete.

    What is no regular file, such as a terminal or a pipe, is written as it is.
    """
    target = os.path.realpath(path)
    if os.path.exists(path) and not os.path.isfile(path):
        with open(path, 'w', encoding='utf-8') as file:
            yield file
        return
    draft = f'{target}.{secrets.token_hex(4)}'
    try:
        mode = get_mode(target)
        file = open(draft, 'x', encoding='utf-8')  # pylint: disable=consider-using-with
    except OSError as error:
        error.filename = path
        raise
    try:
        with file:
            yield file
        if mode is not None:
            os.chmod(draft, mode)
        os.replace(draft, target)
    except BaseException:
        os.unlink(draft)
        raise
