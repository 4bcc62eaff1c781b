"""The C library: where it is found, its functions, its results as exceptions."""

import ctypes
import os
from ctypes import POINTER, c_char_p, c_double, c_float, c_int, c_size_t, c_uint16, c_void_p
from pathlib import Path
from typing import List

SONAME = "libkerul_lidar_client.so.1"

OK, NO_FRAME, ENDED, INVALID_ARGUMENT, CANNOT_OPEN, CANNOT_CALIBRATE, BUSY, OUT_OF_MEMORY = range(8)
NEWEST, OLDEST = 0, 1


class KerulLidarError(Exception):
    """What the library refused; the text says why."""


class OpenError(KerulLidarError, OSError):
    """A port, a group or a capture that cannot be opened."""


class CalibrationError(KerulLidarError):
    """A directory without an angle record, or with one that cannot be used."""


class BusyError(KerulLidarError):
    """Another thread is reading this stream."""


class ClosedError(KerulLidarError, ValueError):
    """The stream was closed."""


class StaleFrameError(KerulLidarError):
    """The frame's memory holds a later one now: take what is needed before, or `frame.copy()`."""


class FrameRecord(ctypes.Structure):
    """kerul_lidar_frame."""

    _fields_ = [
        ("id", ctypes.c_int32),
        ("echoes", ctypes.c_int32),
        ("return_code", ctypes.c_int32),
        ("output_mode", ctypes.c_int32),
        ("known_flags", ctypes.c_uint32),
        ("missing_blocks", ctypes.c_int32),
        ("missing_frames", ctypes.c_int32),
        ("after_restart", ctypes.c_int32),
        ("lost_packets", ctypes.c_uint64),
        ("first_timestamp_us", ctypes.c_int64),
        ("last_timestamp_us", ctypes.c_int64),
        ("range_m", c_void_p),
        ("reflectivity", c_void_p),
        ("flags", c_void_p),
        ("ground", c_void_p),
        ("valid", c_void_p),
        ("payload", c_void_p),
        ("row_timestamp_us", c_void_p),
    ]


class CountsRecord(ctypes.Structure):
    """kerul_lidar_counts."""

    _fields_ = [
        (name, ctypes.c_uint64)
        for name in (
            "complete",
            "incomplete",
            "missing_frames",
            "packets",
            "invalid",
            "lost_packets",
            "restarts",
        )
    ]


_RESULT_FUNCTIONS = {
    "open_ring": [c_char_p, c_int, POINTER(c_void_p)],
    "open_udp": [c_uint16, c_char_p, POINTER(c_void_p)],
    "open_pipe": [c_int, POINTER(c_void_p)],
    "survive_shortening": [c_void_p],
    "next": [c_void_p, ctypes.c_int32, POINTER(POINTER(FrameRecord))],
    "get_counts": [c_void_p, POINTER(CountsRecord), c_size_t],
    "describe": [c_void_p, c_char_p, c_size_t],
    "stop": [c_void_p],
    "close": [c_void_p],
    "load_calibration": [c_char_p, POINTER(c_void_p)],
    "set_mount": [c_void_p, POINTER(c_double)],
    "points": [c_void_p, POINTER(c_float), POINTER(c_float)],
    "free_calibration": [c_void_p],
}


def source_tree() -> Path:
    """Where the checkout begins, if this package stands in one."""
    return Path(__file__).resolve().parents[3]


def build_trees() -> List[Path]:
    """The builds of the checkout that this package stands in, newest library first."""
    root = source_tree()
    if not (root / "client" / "python" / "kerul_lidar").is_dir():
        return []
    found = list(root.glob("build/*/" + SONAME))
    return [path.parent for path in sorted(found, key=os.path.getmtime, reverse=True)]


def _find() -> str:
    named = os.environ.get("KERUL_LIDAR_LIBRARY")
    if named:
        return named
    builds = build_trees()
    return str(builds[0] / SONAME) if builds else SONAME


def _load() -> ctypes.CDLL:
    path = _find()
    try:
        # A CDLL gives up the interpreter's lock during each call.
        library = ctypes.CDLL(path)
    except OSError as error:
        raise ImportError(
            f"{error}: install libkerul-lidar-client1, build the target kerul_lidar_c, "
            "or name the file in KERUL_LIDAR_LIBRARY"
        ) from None
    for name, arguments in _RESULT_FUNCTIONS.items():
        function = getattr(library, "kerul_lidar_" + name)
        function.argtypes = arguments
        function.restype = c_int
    for name in ("version", "last_error"):
        getattr(library, "kerul_lidar_" + name).restype = c_char_p
    return library


lib = _load()

_EXCEPTIONS = {
    ENDED: ClosedError,
    INVALID_ARGUMENT: ValueError,
    CANNOT_OPEN: OpenError,
    CANNOT_CALIBRATE: CalibrationError,
    BUSY: BusyError,
    OUT_OF_MEMORY: MemoryError,
}


def check(result: int) -> None:
    """Raises what a result other than OK stands for, with the library's text."""
    if result != OK:
        text: bytes = lib.kerul_lidar_last_error()
        raise _EXCEPTIONS.get(result, KerulLidarError)(text.decode(errors="replace"))


def library_version() -> str:
    """The version of the C library that is loaded, such as "0.1.0"."""
    text: bytes = lib.kerul_lidar_version()
    return text.decode()
