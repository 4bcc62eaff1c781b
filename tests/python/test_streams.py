"""What happens to a stream: gaps, a wrapped ring, a restarted node, other ways in, the end."""

import subprocess
from pathlib import Path

import numpy as np
import pytest

import kerul_lidar
from streams import BLOCKS, PATIENCE, TOOLS, Node, Picture, send


def opened(node, **options):
    return kerul_lidar.Ring(node.name, oldest=True, timeout=PATIENCE, **options)


def test_frames_come_one_by_one_and_none_when_there_is_none(node):
    picture = Picture()
    for frame_id in (1, 2):
        node.publish(picture, frame_id)
    ring = opened(node)
    assert [next(ring).id, next(ring).id] == [1, 2]
    assert ring.read(timeout=0) is None
    node.publish(picture, 3)
    frame = ring.read(timeout=0)
    assert frame is not None and frame.id == 3 and not frame.lost and frame.is_complete


def test_missing_blocks_and_frames_are_told(node):
    picture = Picture()
    node.publish(picture, 1, without=range(100, 105))
    node.publish(picture, 5)
    ring = opened(node)
    first, second = next(ring).copy(), next(ring)
    assert first.lost == kerul_lidar.Lost(blocks=5, frames=0, packets=0)
    assert first.lost and not first.is_complete
    stamps = first.row_timestamp_us
    assert stamps.shape == (36,) and (np.diff(stamps) >= 0).all()
    assert stamps[0] == first.first_timestamp_us > 0 and stamps[35] <= first.last_timestamp_us
    # Block 100 is row 12 to 17, column 24 to 29.
    assert not first.valid[0, 12:18, 24:54].any()
    assert second.lost == kerul_lidar.Lost(blocks=0, frames=3, packets=0)
    assert ring.counts == kerul_lidar.Counts(1, 1, 3, 2 * BLOCKS - 5, 0, 0, 0)


def test_a_ring_that_wraps_under_the_reader_tells_what_was_lost(ring_name):
    node = Node(ring_name, slots=2000)
    picture = Picture()
    node.publish(picture, 1)
    ring = opened(node)
    view = next(ring).range_m
    for frame_id in (2, 3, 4):
        node.publish(picture, frame_id)
    lost_packets = lost_blocks = frames = 0
    while (frame := ring.read(timeout=0)) is not None:
        lost_packets += frame.lost.packets
        lost_blocks += frame.lost.blocks
        frames += 1
    assert frame is None and frames > 0
    # The ring holds the last 2000 of three frames, and the reader skips an eighth of it.
    assert lost_packets == ring.counts.lost_packets == 3 * BLOCKS - 2000 + 250
    assert lost_blocks + BLOCKS * ring.counts.missing_frames == lost_packets
    assert np.array_equal(view, picture.range_m()), "the last frame is whole"


def test_a_restarted_node_is_followed(node):
    node.publish(Picture(seed=1), 40)
    ring = opened(node)
    assert not next(ring).after_restart
    node.restart()
    second = Picture(seed=2)
    node.publish(second, 0)
    node.publish(second, 90)
    frame = next(ring)
    assert frame.id == 0 and frame.after_restart and not frame.lost
    assert np.array_equal(frame.range_m, second.range_m())
    frame = next(ring)
    assert frame.id == 90 and not frame.after_restart and not frame.lost
    assert ring.counts.restarts == 1


def test_a_ring_that_comes_later_is_found(ring_name):
    ring = kerul_lidar.Ring(ring_name, oldest=True, timeout=PATIENCE)
    assert ring.read(timeout=0) is None
    assert ring.describe() == f"ring /{ring_name} (not there)"
    Node(ring_name).publish(Picture(), 3)
    assert next(ring).id == 3
    assert ring.describe() == f"ring /{ring_name}"


def test_datagrams_are_taken_and_their_loss_is_told():
    udp = kerul_lidar.Udp(0, timeout=PATIENCE)
    port = int(udp.describe().removeprefix("UDP port "))
    picture = Picture()
    # The lowest blocks of each frame, so that any socket buffer holds them.
    for frame_id in (1, 2, 3):
        send(port, list(picture.packets(frame_id, BLOCKS * frame_id))[:48])
    first = next(udp).copy()
    second = next(udp)
    assert (first.id, second.id) == (1, 2)
    assert first.lost == kerul_lidar.Lost(BLOCKS - 48, 0, BLOCKS - 48)
    assert np.array_equal(second.range_m[:, :6], picture.range_m()[:, :6])
    assert not second.valid[:, 6:].any()
    assert second.row_timestamp_us[0] > 0 and not second.row_timestamp_us[1:].any()


def test_a_capture_gives_every_frame_of_the_node_and_ends(street):
    capture, calibration = street
    command = [TOOLS / "lidar_replay", capture, "--cali_path", calibration]
    with subprocess.Popen(command, stdout=subprocess.PIPE) as replay:
        expected = [frame.copy() for frame in kerul_lidar.Pipe(replay.stdout, timeout=PATIENCE)]
    with kerul_lidar.Capture(capture, calibration, timeout=PATIENCE) as played:
        frames = [frame.copy() for frame in played]
        assert played.read() is None, "after the end nothing comes, and nobody waits"
        assert list(played) == []
    assert [frame.id for frame in frames] == [0, 1, 2]
    assert len(expected) == 3
    for ours, theirs in zip(frames, expected):
        assert not ours.lost
        assert np.array_equal(ours.range_m, theirs.range_m)
        assert np.array_equal(ours.payload, theirs.payload)
    # Distance 0 beside some 40,000 returns: the simulated street as the node sees it.
    assert 30_000 < frames[0].valid.sum() < 62_208


def test_a_capture_that_is_closed_midway_ends_its_program(street):
    played = kerul_lidar.Capture(*street, timeout=PATIENCE)
    view = next(played).range_m
    program = played._program
    before = view.copy()
    rings = f"lidar_replay_{program.pid}_*"
    assert len(list(Path("/dev/shm").glob(rings))) == 1
    played.close()
    # By itself, as nobody reads any more, and not by a signal.
    assert program.poll() == 1
    assert list(Path("/dev/shm").glob(rings)) == []
    assert np.array_equal(view, before)


@pytest.mark.parametrize("what", ["capture", "calibration", "program"])
def test_a_capture_that_cannot_be_played_says_why(street, what):
    capture, calibration = street
    options = {"timeout": PATIENCE}
    if what == "capture":
        capture, text = "/nowhere.pcap", 'lidar_replay: Fail to open .pcap file: "/nowhere.pcap"'
    elif what == "calibration":
        calibration, text = "/nowhere", "lidar_replay: cali_path is not a valid directory: /nowhere"
    else:
        options["replay"], text = "/nowhere", "/nowhere: No such file or directory"
    with pytest.raises(kerul_lidar.OpenError) as raised:
        next(kerul_lidar.Capture(capture, calibration, **options))
    assert str(raised.value) == text
