"""The place in which a test uses the command."""

import pytest

from harness import system
from harness.place import Place


@pytest.fixture
def place(workspace):
    yield Place(workspace)
    assert system.mount_points(workspace) == [], "a mount outlived its test"
