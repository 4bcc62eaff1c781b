#!/usr/bin/python3
"""Saves frames as a compressed numpy file: ranges, reflectivities, ground labels, points, times.

  save_npz.py OUT.npz CALIBRATION [--frames N]            the next N frames of the node on this machine
  save_npz.py OUT.npz CALIBRATION --capture CAPTURE [...] of a recorded capture instead

Read it back with: frames = numpy.load("OUT.npz"); frames["range_m"].shape is (N, 2, 216, 288).
"""
import argparse
from itertools import islice

import numpy as np

import kerul_lidar

parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
parser.add_argument("out")
parser.add_argument("calibration", help="directory, as for lidar_node --cali_path")
parser.add_argument("--frames", type=int, default=10)
parser.add_argument("--capture")
options = parser.parse_args()

if options.capture:
    stream: kerul_lidar.Stream = kerul_lidar.Capture(options.capture, options.calibration)
else:
    stream = kerul_lidar.Ring()
calibration = kerul_lidar.Calibration(options.calibration)
with stream:
    frames = [frame.copy() for frame in islice(stream, options.frames)]
np.savez_compressed(
    options.out,
    id=[frame.id for frame in frames],
    first_timestamp_us=[frame.first_timestamp_us for frame in frames],
    range_m=[frame.range_m for frame in frames],
    reflectivity=[frame.reflectivity for frame in frames],
    ground=[frame.ground for frame in frames],
    xyz_m=[frame.xyz(calibration) for frame in frames],
)
print(f"{len(frames)} frames in {options.out}")
