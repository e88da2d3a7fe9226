"""A plugin of pytest: a test fails when a sanitizer has written a report by its end.

Loaded first, so that the fixture outlives those that unmount and end what the test has started.
"""

import os
from pathlib import Path

import pytest


def reports():
    return set(Path(os.environ["KEMVI_SANITIZER_LOGS"]).iterdir())


@pytest.fixture(autouse=True)
def sanitizer_reports():
    before = reports()
    yield
    fresh = sorted(reports() - before)
    text = "\n".join(report.read_text(errors="replace") for report in fresh)
    assert not fresh, f"reported by a sanitizer:\n{text}"
