"""Why something cannot be made."""


class Failure(Exception):
    """Ends the program with what it says."""
