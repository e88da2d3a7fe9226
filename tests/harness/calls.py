"""Short words that nearly every test uses."""

import pytest


def failure(call, *arguments):
    """The errno of a call that must fail."""
    with pytest.raises(OSError) as caught:
        call(*arguments)
    return caught.value.errno


def put(path, data=b"content"):
    """Writes a file and returns its path."""
    path.write_bytes(data)
    return path
