"""What the arrays hold, against the viewer's files and against bytes laid out by hand."""

import subprocess
import time

import numpy as np
import pytest

import kerul_lidar
from streams import PATIENCE, TOOLS, Picture

_POINT = np.dtype(
    [(name, "<f4") for name in ("x", "y", "z", "intensity")]
    + [("row", "<u2"), ("col", "<u2"), ("echo", "u1"), ("ground", "u1")]
)


def points_of_the_viewer(node, publish, calibration, directory):
    """What lidar_view writes of the ring, while `publish` is called again and again."""
    files = {"pcd": directory / "frame.pcd", "ply": directory / "frame.ply"}
    command = [TOOLS / "lidar_view", "--shm", node.name, "--frames", "1", "--calib", calibration]
    for option, path in files.items():
        command += ["--" + option, path]
    viewer = subprocess.Popen(command, stdout=subprocess.DEVNULL)
    deadline = time.monotonic() + PATIENCE
    frame_id = 1
    while viewer.poll() is None:
        assert time.monotonic() < deadline
        frame_id = frame_id % 255 + 1
        publish(frame_id)
        time.sleep(0.02)
    assert viewer.returncode == 0
    ends = {"pcd": b"DATA binary\n", "ply": b"end_header\n"}
    read = {
        kind: np.frombuffer(path.read_bytes().split(ends[kind], 1)[1], dtype=_POINT)
        for kind, path in files.items()
    }
    assert np.array_equal(read["pcd"], read["ply"])
    return read["pcd"]


def require_the_same(frame, calibration, points):
    xyz = frame.xyz(calibration)
    echo, row, col = np.nonzero(~np.isnan(xyz[..., 0]))
    assert len(points) == len(row) > 1000
    for ours, theirs in ((echo, "echo"), (row, "row"), (col, "col")):
        assert np.array_equal(ours, points[theirs]), theirs
    at = (echo, row, col)
    for axis, name in enumerate("xyz"):
        assert np.array_equal(xyz[at][:, axis], points[name]), name
    assert np.array_equal(frame.reflectivity[at], points["intensity"])
    assert np.array_equal(frame.ground[at], points["ground"].astype(bool))
    assert np.array_equal(frame.echo[at], points["echo"])


@pytest.mark.parametrize("echoes", [1, 2])
def test_arrays_equal_the_viewers_files(node, street, tmp_path, echoes):
    picture = Picture(echoes)
    points = points_of_the_viewer(
        node, lambda frame_id: node.publish(picture, frame_id), street[1], tmp_path
    )
    with kerul_lidar.Ring(node.name, oldest=True, timeout=PATIENCE) as ring:
        require_the_same(next(ring), street[1], points)


def test_a_frame_of_the_real_node_equals_the_viewers_files(node, street, tmp_path):
    capture, calibration = street
    with kerul_lidar.Capture(capture, calibration, timeout=PATIENCE) as played:
        frame = next(played).copy()
    packets = subprocess.run(
        [TOOLS / "lidar_replay", capture, "--cali_path", calibration], check=True, capture_output=True
    ).stdout[: 1728 * 249]

    def publish(frame_id):
        for at in range(0, len(packets), 249):
            data = bytearray(packets[at : at + 249])
            data[209] = frame_id
            node.write(data)

    points = points_of_the_viewer(node, publish, calibration, tmp_path)
    require_the_same(frame, calibration, points)


def test_planes_hold_what_was_published(node):
    picture = Picture(echoes=2)
    node.publish(picture, 5)
    ring = kerul_lidar.Ring(node.name, oldest=True, timeout=PATIENCE)
    frame = next(ring)
    assert (frame.id, frame.echoes, frame.output_mode, frame.return_code) == (5, 2, 12, 1)
    assert np.array_equal(frame.range_m, picture.range_m())
    assert np.array_equal(frame.valid, picture.distance > 0)
    assert np.array_equal(frame.payload, picture.payload)
    assert np.array_equal(frame.reflectivity, picture.payload[..., 0])
    flags = picture.payload[..., 1].astype(np.uint16) + 256 * (picture.payload[..., 2] & 0x1F)
    assert np.array_equal(frame.flags, flags)
    assert np.array_equal(frame.ground, (flags & kerul_lidar.Flags.GROUND) != 0)
    assert frame.known_flags == 0x1FF8
    assert kerul_lidar.Flags.GROUND in frame.known_flags
    for plane in (frame.range_m, frame.reflectivity, frame.flags, frame.ground, frame.valid):
        assert plane.shape == frame.echo.shape == (2, 216, 288)
    dtypes = {name: str(getattr(frame, name).dtype) for name in ("range_m", "flags", "ground", "echo")}
    assert dtypes == {"range_m": "float32", "flags": "uint16", "ground": "bool", "echo": "uint8"}
    assert abs(frame.last_timestamp_us / 1e6 - time.time()) < 2 * PATIENCE


def test_points_follow_directions_and_mounting(node, street):
    node.publish(Picture(), 5)
    frame = next(kerul_lidar.Ring(node.name, oldest=True, timeout=PATIENCE))
    plain = frame.xyz(street[1])
    valid = frame.valid
    lengths = np.linalg.norm(plain[valid].astype(np.float64), axis=1)
    # Unit directions in single precision.
    assert np.allclose(lengths, frame.range_m[valid], rtol=1e-6)
    assert np.isnan(plain[~valid]).all()
    turned = kerul_lidar.Calibration(street[1], mount=(1, 2, 3, 0, 0, np.pi / 2))
    out = np.empty((2, 216, 288, 3), np.float32)
    assert frame.xyz(turned, out) is out
    expected = np.stack([1 - plain[..., 1], 2 + plain[..., 0], 3 + plain[..., 2]], axis=-1)
    # The rotation is rounded to single precision; ranges are below 32 m.
    assert np.allclose(out[valid], expected[valid], atol=1e-5)
