import itertools
import os

import pytest

import streams

_count = itertools.count()


@pytest.fixture
def ring_name():
    """A name of shared memory that is the test's own."""
    name = f"kerul_python_{os.getpid()}_{next(_count)}"
    yield name
    path = "/dev/shm/" + name
    if os.path.exists(path):
        os.unlink(path)


@pytest.fixture
def node(ring_name):
    return streams.Node(ring_name)


@pytest.fixture(scope="session")
def street(tmp_path_factory):
    """A capture of three frames and the calibration's directory."""
    return streams.simulate(tmp_path_factory.mktemp("street"), 3)
