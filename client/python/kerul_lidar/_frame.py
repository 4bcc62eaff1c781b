"""One frame: what it is, what is missing, its planes."""

import enum
from dataclasses import dataclass
from functools import lru_cache
from os import PathLike, fspath
from typing import Any, Optional

import numpy as np
import numpy.typing as npt

from ._calibration import SHAPE, Calibration
from ._library import FrameRecord, StaleFrameError


class Flags(enum.IntFlag):
    """Bits of `Frame.flags`. The lower three bits (mask 7) are a number, the width's verdict."""

    HIGH_REFL = 1 << 3
    BLOOM = 1 << 4
    AFTER_PULSE = 1 << 5
    GROUND = 1 << 6
    FILLED = 1 << 7
    SHOT_NOISE = 1 << 8
    DEBUG = 1 << 9
    ECHO = 1 << 10
    DETECT_FAILED = 1 << 11
    SHOT_NOISE_GROUP = 1 << 12


@dataclass(frozen=True)
class Lost:
    """What did not come. False when nothing is missing: `if frame.lost: ...`."""

    blocks: int
    """Blocks of 6 x 6 pixels of this frame, of 1728 for each echo; their pixels read as no return."""
    frames: int
    """Frame ids passed over since the frame before."""
    packets: int
    """Point packets that did not come since the frame before."""

    def __bool__(self) -> bool:
        return bool(self.blocks or self.frames or self.packets)


class Planes:
    """The arrays of a frame."""

    __slots__ = (
        "range_m",
        "reflectivity",
        "flags",
        "ground",
        "valid",
        "payload",
        "row_timestamp_us",
    )

    def __init__(self, **planes: "npt.NDArray[Any]") -> None:
        for name, plane in planes.items():
            setattr(self, name, plane)

    range_m: "npt.NDArray[np.float32]"
    reflectivity: "npt.NDArray[np.uint8]"
    flags: "npt.NDArray[np.uint16]"
    ground: "npt.NDArray[np.bool_]"
    valid: "npt.NDArray[np.bool_]"
    payload: "npt.NDArray[np.uint8]"
    row_timestamp_us: "npt.NDArray[np.int64]"

    def copy(self) -> "Planes":
        return Planes(**{name: getattr(self, name).copy() for name in self.__slots__})


def _echo_numbers() -> "npt.NDArray[np.uint8]":
    numbers = np.arange(2, dtype=np.uint8).reshape(2, 1, 1)
    return np.broadcast_to(numbers, SHAPE)


_ECHO = _echo_numbers()


class Frame:
    """A whole frame.

    The arrays are read-only views of the stream's memory: when the next frame is read, they show
    that one. This object then refuses its planes with StaleFrameError; its numbers stay.
    """

    __slots__ = (
        "id",
        "echoes",
        "return_code",
        "output_mode",
        "known_flags",
        "first_timestamp_us",
        "last_timestamp_us",
        "after_restart",
        "lost",
        "_planes",
    )

    id: int
    """The sensor's count, 0 to 255; a node's first frame is 0."""
    echoes: int
    """Echoes published, 1 or 2. An echo that is not reads as no return."""
    return_code: int
    """Which echoes, two decimal digits."""
    output_mode: int
    """What a point carries beside its range."""
    known_flags: Flags
    """The flags that this output mode carries; the others are 0."""
    first_timestamp_us: int
    """When the frame's first packet was built: microseconds of the node's clock since the epoch."""
    last_timestamp_us: int
    """And its last one, nearly a frame time later."""
    after_restart: bool
    """The first frame of another node, or of a new ring."""
    lost: Lost
    """What is missing."""

    def __init__(self, record: FrameRecord, planes: Planes) -> None:
        self.id = record.id
        self.echoes = record.echoes
        self.return_code = record.return_code
        self.output_mode = record.output_mode
        self.known_flags = Flags(record.known_flags & ~7)
        self.first_timestamp_us = record.first_timestamp_us
        self.last_timestamp_us = record.last_timestamp_us
        self.after_restart = bool(record.after_restart)
        self.lost = Lost(record.missing_blocks, record.missing_frames, record.lost_packets)
        self._planes: Optional[Planes] = planes

    @property
    def planes(self) -> Planes:
        """All arrays, or StaleFrameError."""
        if self._planes is None:
            raise StaleFrameError(f"frame {self.id} has been overwritten by the next one")
        return self._planes

    @property
    def is_complete(self) -> bool:
        """All blocks that the node published have come."""
        return self.lost.blocks == 0

    @property
    def range_m(self) -> "npt.NDArray[np.float32]":
        """Metres along the pixel's direction, (2, 216, 288) float32; 0 is no return."""
        return self.planes.range_m

    @property
    def reflectivity(self) -> "npt.NDArray[np.uint8]":
        """0 to 255, (2, 216, 288) uint8; 0 where the output mode does not carry it."""
        return self.planes.reflectivity

    @property
    def flags(self) -> "npt.NDArray[np.uint16]":
        """Bits of `Flags`, (2, 216, 288) uint16."""
        return self.planes.flags

    @property
    def ground(self) -> "npt.NDArray[np.bool_]":
        """Lies on the ground, (2, 216, 288) bool; False where the output mode does not tell."""
        return self.planes.ground

    @property
    def valid(self) -> "npt.NDArray[np.bool_]":
        """A return, (2, 216, 288) bool."""
        return self.planes.valid

    @property
    def echo(self) -> "npt.NDArray[np.uint8]":
        """The number of the echo at each place, 0 or 1, (2, 216, 288) uint8: for `echo[valid]`."""
        return _ECHO

    @property
    def payload(self) -> "npt.NDArray[np.uint8]":
        """What the output mode carries, as published, (2, 216, 288, 3) uint8."""
        return self.planes.payload

    @property
    def row_timestamp_us(self) -> "npt.NDArray[np.int64]":
        """When the first packet of each miniflash row was built, (36,) int64; 0 where none came.

        A miniflash row is six rows of pixels, from below: `row_timestamp_us[row // 6]`. The same
        clock as first_timestamp_us; a row is published a little after it was measured.
        """
        return self.planes.row_timestamp_us

    def xyz(
        self,
        calibration: "Calibration | str | PathLike[str]",
        out: "Optional[npt.NDArray[np.float32]]" = None,
    ) -> "npt.NDArray[np.float32]":
        """The points, (2, 216, 288, 3) float32, metres; NaN without return or direction.

        calibration: a Calibration, or its directory, which is read once. `frame.xyz(c)[frame.valid]`
        are the points alone, (N, 3). An array of the caller's: it does not change afterwards.
        """
        if not isinstance(calibration, Calibration):
            calibration = _loaded(fspath(calibration))
        return calibration.points(self.range_m, out)

    def copy(self) -> "OwnedFrame":
        """The same frame in memory of its own, which stays when the next one is read."""
        return OwnedFrame(self)

    def _expire(self) -> None:
        self._planes = None

    def __repr__(self) -> str:
        return f"<{type(self).__name__} {self.id}, {self.echoes} echoes, {self.lost}>"


class OwnedFrame(Frame):
    """A frame in memory of its own; its arrays may be written."""

    __slots__ = ()

    def __init__(self, frame: Frame) -> None:
        for name in Frame.__slots__:
            setattr(self, name, getattr(frame, name))
        self._planes = frame.planes.copy()


@lru_cache(maxsize=8)
def _loaded(directory: str) -> Calibration:
    return Calibration(directory)
