"""Whole frames of the LiDAR node as numpy arrays.

    import kerul_lidar

    for frame in kerul_lidar.Ring():
        print(frame.id, frame.range_m[frame.valid].mean(), frame.lost)

`Ring` follows the node's shared memory on this machine, `Udp` receives its point packets, `Capture`
plays a recorded capture file through the node. All give the same `Frame`. Every plane of a frame has
the shape (2, 216, 288): echo, row from below, column. `Calibration` tells which way each pixel
looks: `frame.xyz(calibration)` is (2, 216, 288, 3) in metres.

The arrays of a frame are views of the library's memory, without a copy. They hold the frame until
the next one is read; then they show that one, and the `Frame` refuses with `StaleFrameError`.
`frame.copy()` keeps.
"""

from ._calibration import Calibration
from ._frame import Flags, Frame, Lost, OwnedFrame
from ._library import (
    BusyError,
    CalibrationError,
    ClosedError,
    KerulLidarError,
    OpenError,
    StaleFrameError,
    library_version,
)
from ._stream import Capture, Counts, FrameTimeout, Pipe, Ring, Stream, Udp

__all__ = [
    "BusyError",
    "Calibration",
    "CalibrationError",
    "Capture",
    "ClosedError",
    "Counts",
    "Flags",
    "Frame",
    "FrameTimeout",
    "KerulLidarError",
    "Lost",
    "OpenError",
    "OwnedFrame",
    "Pipe",
    "Ring",
    "StaleFrameError",
    "Stream",
    "Udp",
    "library_version",
]
