"""Views and copies: whose memory, how long."""

import gc
import pickle

import numpy as np
import pytest

import kerul_lidar
from streams import PATIENCE, Picture

PLANES = (
    "range_m",
    "reflectivity",
    "flags",
    "ground",
    "valid",
    "payload",
    "row_timestamp_us",
)


def two_frames(node):
    pictures = [Picture(seed=1), Picture(seed=2)]
    for frame_id, picture in enumerate(pictures):
        node.publish(picture, frame_id + 1)
    return kerul_lidar.Ring(node.name, oldest=True, timeout=PATIENCE), pictures


def test_views_are_no_copies_and_show_the_next_frame_when_it_is_read(node):
    ring, pictures = two_frames(node)
    first = next(ring)
    views = {name: getattr(first, name) for name in PLANES}
    assert np.array_equal(views["range_m"], pictures[0].range_m())
    second = next(ring)
    for name, view in views.items():
        assert np.shares_memory(view, getattr(second, name)), name
    assert np.array_equal(views["range_m"], pictures[1].range_m())


def test_a_frame_refuses_its_planes_when_the_next_one_is_read(node):
    ring, _ = two_frames(node)
    first = next(ring)
    assert ring.read(timeout=0) is not None
    assert first.id == 1, "its numbers stay"
    for name in PLANES:
        with pytest.raises(kerul_lidar.StaleFrameError, match="frame 1 has been overwritten"):
            getattr(first, name)
    with pytest.raises(kerul_lidar.StaleFrameError):
        first.copy()


def test_a_wait_without_a_frame_leaves_the_last_one_as_it_is(node):
    ring, pictures = two_frames(node)
    next(ring)
    second = next(ring)
    assert ring.read(timeout=0) is None
    assert np.array_equal(second.range_m, pictures[1].range_m())


def test_a_copy_keeps(node):
    ring, pictures = two_frames(node)
    copies = [frame.copy() for _, frame in zip(range(2), ring)]
    for number, (copy, picture) in enumerate(zip(copies, pictures)):
        assert copy.id == number + 1
        assert np.array_equal(copy.range_m, picture.range_m())
        assert np.array_equal(copy.payload, picture.payload)
    for name in PLANES:
        assert not np.shares_memory(getattr(copies[0], name), getattr(copies[1], name))
    copies[0].range_m[:] = 0
    assert np.array_equal(copies[1].range_m, pictures[1].range_m())


def test_views_cannot_be_written(node):
    ring, _ = two_frames(node)
    frame = next(ring)
    for name in (*PLANES, "echo"):
        with pytest.raises(ValueError, match="read-only"):
            getattr(frame, name)[0] = 0


def test_a_view_outlives_its_closed_and_forgotten_stream(node):
    ring, pictures = two_frames(node)
    view = next(ring).range_m[0, 100:110]
    ring.close()
    del ring
    gc.collect()
    # Memory that was given back would be taken by these.
    others = [np.ones((2, 216, 288), np.float32) for _ in range(20)]
    assert np.array_equal(view, pictures[0].range_m()[0, 100:110])
    assert len(others) == 20


def test_a_copy_goes_through_pickle(node):
    ring, pictures = two_frames(node)
    loaded = pickle.loads(pickle.dumps(next(ring).copy()))
    assert loaded.id == 1 and loaded.lost == kerul_lidar.Lost(0, 0, 0)
    assert np.array_equal(loaded.range_m, pictures[0].range_m())


def test_points_are_the_callers_own(node, street):
    ring, _ = two_frames(node)
    xyz = next(ring).xyz(street[1])
    before = xyz.copy()
    next(ring)
    assert np.array_equal(xyz, before, equal_nan=True)
