#!/usr/bin/python3
"""Prints a line for each frame of a running node, until Ctrl-C.

  print_frames.py                        the node on this machine
  print_frames.py CAPTURE CALIBRATION    a recorded capture, played through the node
"""
import sys

import kerul_lidar

if len(sys.argv) > 2:
    stream: kerul_lidar.Stream = kerul_lidar.Capture(sys.argv[1], sys.argv[2])
else:
    stream = kerul_lidar.Ring()
try:
    for frame in stream:
        ranges = frame.range_m[frame.valid]
        nearest = f"{ranges.min():.2f} m" if ranges.size else "-"
        print(f"frame {frame.id}: {ranges.size} returns, nearest {nearest}, "
              f"{frame.ground.sum()} on the ground{', ' + str(frame.lost) if frame.lost else ''}",
              flush=True)
except KeyboardInterrupt:
    print(stream.counts)
