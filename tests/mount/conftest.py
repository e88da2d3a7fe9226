"""Fixtures of the mount tests: volumes that are held to leave nothing behind, or with --plain a plain directory."""

import os

import pytest

from harness import system
from harness.volume import PlainVolume, Volume


def close_leaked(workspace):
    """A test that failed may have left descriptors open; they are not to make its unmount fail too."""
    for descriptor, target in system.descriptors(os.getpid()).items():
        if target.startswith(str(workspace) + "/"):
            try:
                os.close(descriptor)
            except OSError:
                pass


@pytest.fixture
def mount(request, workspace, limit):
    """Makes volumes: mount(options=["ro"], control=True). Not to be had on a plain directory."""
    if request.config.getoption("--plain"):
        pytest.skip("needs a mount")
    made = []

    def make(**more):
        more.setdefault("name", str(len(made) or ""))
        volume = Volume(workspace, **more)
        made.append(volume)
        return volume.open(limit)

    yield make
    close_leaked(workspace)
    faults = []
    for volume in reversed(made):
        try:
            volume.close()
        except AssertionError as fault:
            faults.append(str(fault))
    assert not faults, "\n".join(faults)


@pytest.fixture
def volume(request, workspace):
    """A volume with the shipped helper and no options; with --plain a plain directory."""
    if request.config.getoption("--plain"):
        yield PlainVolume(workspace)
    else:
        yield request.getfixturevalue("mount")()


@pytest.fixture
def controlled(mount):
    """A volume whose helper tells what it was asked and misbehaves on demand."""
    return mount(control=True)
