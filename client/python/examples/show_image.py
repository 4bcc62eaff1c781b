#!/usr/bin/python3
"""Shows range and reflectivity of a running node in a window, the newest frame each time.

  show_image.py                        the node on this machine
  show_image.py CAPTURE CALIBRATION    a recorded capture, played through the node
  --png FILE                           writes the first frame as a picture and ends; needs no screen
"""
import argparse

parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
parser.add_argument("capture", nargs="?")
parser.add_argument("calibration", nargs="?")
parser.add_argument("--png")
options = parser.parse_args()

import matplotlib  # noqa: E402

if options.png:
    matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402

import kerul_lidar  # noqa: E402

if options.capture:
    stream: kerul_lidar.Stream = kerul_lidar.Capture(options.capture, options.calibration or ".")
else:
    stream = kerul_lidar.Ring()

figure, (above, below) = plt.subplots(2, 1, figsize=(6, 9))
empty = [[0] * 288] * 216
range_image = above.imshow(empty, origin="lower", cmap="turbo", vmin=0, vmax=40)
reflectivity_image = below.imshow(empty, origin="lower", cmap="gray", vmin=0, vmax=255)
figure.colorbar(range_image, label="range, m")
figure.colorbar(reflectivity_image, label="reflectivity")
try:
    for frame in stream:
        # Drawing takes longer than a frame lasts: what has come meanwhile is passed over.
        while not options.capture and (newer := stream.read(timeout=0)) is not None:
            frame = newer
        range_image.set_data(frame.range_m[0])
        reflectivity_image.set_data(frame.reflectivity[0])
        above.set_title(f"frame {frame.id}")
        if options.png:
            figure.savefig(options.png)
            break
        plt.pause(0.001)
        if not plt.fignum_exists(figure.number):
            break
except KeyboardInterrupt:
    pass
stream.close()
