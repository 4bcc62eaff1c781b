"""What the tests read: point packets byte by byte, as docs/formats.md tells, rings, and the programs
that were built."""

import os
import socket
import subprocess
import sys
from pathlib import Path

import numpy as np

SOURCE = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ["KERUL_BINARY_DIR"])
TOOLS = BUILD / "tools"
# Far above what a slow machine needs: it is only spent when a test fails.
PATIENCE = 60.0

sys.path.insert(0, str(SOURCE / "tests" / "consumer"))
import feed_ring  # noqa: E402

BLOCKS = 1728


def packet(frame_id, block, sequence, distances, payloads, mode, marker):
    """36 points, six rows of one column run down, then the next column."""
    data = feed_ring.packet(frame_id, block, sequence)
    data[12] = marker
    data[203] = mode
    points = np.zeros(36, dtype=np.dtype([("distance", "<u2"), ("payload", "u1", 3)]))
    points["distance"] = distances
    points["payload"] = payloads
    data[20:200] = points.tobytes()
    return data


class Picture:
    """A frame's content: distances in units of 4 mm and payloads, for each echo and pixel."""

    def __init__(self, echoes=1, mode=12, seed=1):
        random = np.random.default_rng(seed)
        self.echoes, self.mode = echoes, mode
        self.distance = random.integers(1, 8000, (2, 216, 288), dtype=np.uint16)
        self.distance[random.random(self.distance.shape) < 0.3] = 0
        self.payload = random.integers(0, 256, (2, 216, 288, 3), dtype=np.uint8)
        self.distance[echoes:] = 0
        self.payload[echoes:] = 0

    def packets(self, frame_id, sequence=0):
        for block in range(BLOCKS):
            rows = slice(block // 48 * 6, block // 48 * 6 + 6)
            cols = slice(block % 48 * 6, block % 48 * 6 + 6)
            for echo in range(self.echoes):
                yield packet(
                    frame_id,
                    block,
                    (sequence + block * self.echoes + echo) % 2**32,
                    self.distance[echo, rows, cols].T.reshape(36),
                    self.payload[echo, rows, cols].transpose(1, 0, 2).reshape(36, 3),
                    self.mode,
                    0 if self.echoes == 1 else echo + 1,
                )

    def range_m(self):
        return (self.distance.astype(np.int32) * 4).astype(np.float32) / np.float32(1000)


class Node:
    """Writes a ring as a node does; `restart` makes a new one under the same name."""

    def __init__(self, name, slots=8192):
        self.name, self.slots = name, slots
        self.restart()

    def restart(self):
        self._ring = feed_ring.Ring(self.name, 1, self.slots, settle_seconds=0)
        self._sequence = 0

    def publish(self, picture, frame_id, without=()):
        for place, data in enumerate(picture.packets(frame_id, self._sequence)):
            if place not in without:
                self._ring.write(data)
        self._sequence += BLOCKS * picture.echoes

    def write(self, data):
        self._ring.write(data)


def send(port, datagrams):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
        for data in datagrams:
            sender.sendto(data, ("127.0.0.1", port))


def simulate(directory, frames):
    """A capture of the simulated street, and the sensor's calibration directory."""
    subprocess.run(
        [TOOLS / "sensor_simulator", "--frames", str(frames), "--capture", "run.pcap"]
        + ["--calibration", "calibration", "--quiet"],
        cwd=directory,
        check=True,
        stdout=subprocess.DEVNULL,
    )
    return directory / "run.pcap", next((directory / "calibration").iterdir())
