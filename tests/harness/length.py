"""How thorough a run is: whole, or short, as all day between two changes and where another user does the same again."""

import os

IS_SHORT = os.environ.get("KEMVI_TEST_SHORT") == "1"


def amount(whole, short):
    """How much of something random or repeated this run does."""
    return short if IS_SHORT else whole
