"""Which way each pixel looks."""

import os
import weakref
from ctypes import POINTER, byref, c_double, c_float, c_void_p
from typing import Any, Optional, Sequence

import numpy as np
import numpy.typing as npt

from ._library import check, lib

SHAPE = (2, 216, 288)
"""Echo, row from below, column: the shape of every plane."""

_FloatPointer = POINTER(c_float)


class Calibration:
    """The directions of 216 x 288 pixels, and how the sensor is mounted.

    directory: what lidar_node takes as --cali_path, or its cache of a sensor (data/ID).
    mount: x, y, z in metres and roll, pitch, yaw in radians from the sensor's axes to its
        carrier's. Without it points are in the sensor's axes: x ahead, y to the left, z up.

    Raises CalibrationError when the directory has no usable angle record, ValueError for a mounting
    that is not six finite numbers. May be used by several threads.
    """

    def __init__(
        self, directory: "str | os.PathLike[str]", mount: Optional[Sequence[float]] = None
    ) -> None:
        if mount is not None and len(mount) != 6:
            raise ValueError("a mounting is x, y, z, roll, pitch, yaw")
        handle = c_void_p()
        check(lib.kerul_lidar_load_calibration(os.fsencode(directory), byref(handle)))
        self._handle = handle
        weakref.finalize(self, lib.kerul_lidar_free_calibration, handle)
        if mount is not None:
            check(lib.kerul_lidar_set_mount(handle, (c_double * 6)(*mount)))

    def points(
        self,
        range_m: "npt.NDArray[np.float32]",
        out: "Optional[npt.NDArray[np.float32]]" = None,
    ) -> "npt.NDArray[np.float32]":
        """The points of a plane of ranges: (2, 216, 288, 3) float32, metres.

        NaN where the range is 0 or the pixel has no direction. `out`, if given, is filled and
        returned instead of a new array: float32, contiguous, of that shape.
        """
        ranges = np.ascontiguousarray(range_m, dtype=np.float32)
        if ranges.shape != SHAPE:
            raise ValueError(f"range_m has the shape {ranges.shape} instead of {SHAPE}")
        if out is None:
            out = np.empty((*SHAPE, 3), dtype=np.float32)
        elif (
            out.shape != (*SHAPE, 3)
            or out.dtype != np.float32
            or not out.flags.c_contiguous
            or not out.flags.writeable
        ):
            raise ValueError("out is no writable contiguous float32 array of (2, 216, 288, 3)")
        check(lib.kerul_lidar_points(self._handle, _floats(ranges), _floats(out)))
        return out


def _floats(array: "npt.NDArray[np.float32]") -> Any:
    return array.ctypes.data_as(_FloatPointer)
