#!/usr/bin/env python3
"""Plays a node's life into a ring, byte by byte as docs/formats.md tells: frames, a gap in their
ids, a long silence, a frame with blocks missing, then a restarted node with a new ring.
  feed_ring.py NAME SILENCE_SECONDS
Every frame of 1728 blocks has one return: the first point of its last block, 2.0 m."""
import mmap
import os
import struct
import sys
import time

SLOTS = 16384
BLOCKS = 1728
# A reader looks for a ring every 20 ms and begins with the next packet.
SETTLE_SECONDS = 0.5


def packet(frame_id, block, sequence):
    data = bytearray(249)
    data[0:4] = bytes([0xEE, 0xFF, 7, 10])
    struct.pack_into("<HHBBBBH", data, 6, 216, 288, 36, 48, 0, 4, 36)
    if block == BLOCKS - 1:
        struct.pack_into("<HB", data, 20, 500, 80)
    data[204:207] = bytes([0xDD, 0xEE, 0xFF])
    data[207], data[208], data[209] = block // 48, block % 48, frame_id
    data[211] = 1
    now = time.time_ns() // 1000
    struct.pack_into("<H", data, 212, 100)
    struct.pack_into(">I", data, 216, now // 1000000)
    struct.pack_into("<I", data, 220, now % 1000000)
    data[224] = 0x42
    struct.pack_into("<I", data, 225, sequence)
    return data


class Ring:
    """A new object under the name, as a node makes it at its start."""

    def __init__(self, name, boot_id, slots=SLOTS, settle_seconds=SETTLE_SECONDS):
        self.slots = slots
        path = "/dev/shm/" + name
        if os.path.exists(path):
            os.unlink(path)
        size = 20 + slots * 1508
        fd = os.open(path, os.O_CREAT | os.O_RDWR, 0o666)
        os.ftruncate(fd, size)
        self.memory = mmap.mmap(fd, size)
        os.close(fd)
        struct.pack_into("<BBBBIIIHH", self.memory, 0, 0x53, 0x48, 3, 0, 0, boot_id, slots, 1508, 1500)
        self.number = 0
        self.sequence = 0
        time.sleep(settle_seconds)

    def write(self, data):
        self.number += 1
        at = 20 + (self.number - 1) % self.slots * 1508
        self.memory[at + 4 : at + 8] = struct.pack("<I", len(data))
        self.memory[at + 8 : at + 8 + len(data)] = bytes(data)
        self.memory[at : at + 4] = struct.pack("<I", self.number)
        self.memory[4:8] = struct.pack("<I", self.number)

    def frame(self, frame_id, without=()):
        for block in range(BLOCKS):
            if block not in without:
                self.write(packet(frame_id, block, self.sequence + block))
        self.sequence += BLOCKS


def main():
    name, silence_seconds = sys.argv[1], float(sys.argv[2])
    ring = Ring(name, 1)
    for frame_id in (0, 8, 9, 12):
        ring.frame(frame_id)
    time.sleep(silence_seconds)
    ring.frame(13, without=(5, 6, 7))
    ring.frame(14)
    time.sleep(0.1)
    ring = Ring(name, 1)
    for frame_id in (0, 100, 101):
        ring.frame(frame_id)


if __name__ == "__main__":
    main()
