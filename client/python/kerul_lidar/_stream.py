"""Where frames come from: ring, UDP, pipe, capture file."""

import os
import shutil
import subprocess
import tempfile
import threading
import time
import weakref
from ctypes import POINTER, byref, c_void_p, create_string_buffer, sizeof
from typing import IO, Any, NamedTuple, Optional

import numpy as np
import numpy.typing as npt

from . import _library
from ._calibration import SHAPE
from ._frame import Frame, Planes
from ._library import BusyError, ClosedError, CountsRecord, FrameRecord, OpenError, check, lib

# The interpreter looks for Ctrl-C and for a closed stream this often while it waits.
_SLICE_MS = 100
_PROGRAM_END_SECONDS = 5.0


class FrameTimeout(_library.KerulLidarError, TimeoutError):
    """No frame came in the time that the stream was opened with."""


class Counts(NamedTuple):
    """Since the stream was opened."""

    complete: int
    """Frames given with all their blocks."""
    incomplete: int
    """Frames given with blocks missing."""
    missing_frames: int
    """Frame ids passed over."""
    packets: int
    """Point packets taken."""
    invalid: int
    """Datagrams that are no point packets."""
    lost_packets: int
    """Point packets that did not come."""
    restarts: int
    """Times another node, or a new ring, went on."""


class _Handle:
    """The C stream. Freed when neither the stream nor a view of its planes is left."""

    def __init__(self, pointer: c_void_p) -> None:
        self.pointer = pointer
        # Not at the interpreter's end, when arrays may still be looked at: the process frees all.
        weakref.finalize(self, lib.kerul_lidar_close, pointer).atexit = False


class _View:
    """Lets numpy look at a plane, and keeps its memory alive as long as an array does."""

    def __init__(self, handle: _Handle, address: int, shape: "tuple[int, ...]", kind: str) -> None:
        self._handle = handle
        self.__array_interface__ = {
            "version": 3,
            "shape": shape,
            "typestr": kind,
            "data": (address, True),  # read-only
        }


def _planes_of(handle: _Handle, record: FrameRecord) -> Planes:
    def view(address: int, kind: str, shape: "tuple[int, ...]" = SHAPE) -> "npt.NDArray[Any]":
        return np.asarray(_View(handle, address, shape, kind))

    return Planes(
        range_m=view(record.range_m, "<f4"),
        reflectivity=view(record.reflectivity, "|u1"),
        flags=view(record.flags, "<u2"),
        ground=view(record.ground, "|b1"),
        valid=view(record.valid, "|b1"),
        payload=view(record.payload, "|u1", (*SHAPE, 3)),
        row_timestamp_us=view(record.row_timestamp_us, "<i8", (36,)),
    )


class Stream:
    """Frames one by one; what Ring, Udp, Pipe and Capture have in common.

    Iterate over it, or call `read`. One thread reads a stream; a second one that tries while the
    first reads gets BusyError. Any thread may call `close`, which ends the reading one's iteration.
    Use it in a `with` statement, or close it, to let go of ring, port or program at a known time.

    While it waits, other threads run, and Ctrl-C raises KeyboardInterrupt within a fifth of a
    second; the stream can be read on after that.
    """

    def __init__(self, pointer: c_void_p, timeout: Optional[float]) -> None:
        self._handle = _Handle(pointer)
        self._timeout = timeout
        self._planes: Optional[Planes] = None
        self._frame: Optional[Frame] = None
        self._lock = threading.Lock()
        self._closed = False
        self._stopped = False

    def read(self, timeout: Optional[float] = None) -> Optional[Frame]:
        """The next frame, or None when none came within `timeout` seconds or the stream has ended.

        A timeout of None waits for ever, 0 takes what is there. Raises ClosedError for a closed
        stream, BusyError while another thread reads it.
        """
        if timeout is not None and not timeout >= 0:
            raise ValueError(f"a timeout of {timeout} seconds")
        if self._closed:
            raise ClosedError("the stream is closed")
        if not self._lock.acquire(blocking=False):
            raise BusyError("another thread is reading this stream")
        try:
            return self._wait(timeout)
        finally:
            self._lock.release()
            if self._closed:
                self._stop()

    def close(self) -> None:
        """Lets go of what is read. Arrays of the last frame stay readable. Harmless if closed."""
        self._closed = True
        self._stop()

    @property
    def closed(self) -> bool:
        """Whether `close` was called."""
        return self._closed

    @property
    def counts(self) -> Counts:
        """What came and what did not, since the stream was opened; also of a closed one.

        For the thread that reads.
        """
        record = CountsRecord()
        check(lib.kerul_lidar_get_counts(self._handle.pointer, byref(record), sizeof(record)))
        return Counts(*(getattr(record, name) for name in Counts._fields))

    def describe(self) -> str:
        """What is read, and whether it is there: "ring /kerul_lidar_udp_shm (not there)"."""
        text = create_string_buffer(512)
        check(lib.kerul_lidar_describe(self._handle.pointer, text, len(text)))
        return text.value.decode(errors="replace")

    def __iter__(self) -> "Stream":
        return self

    def __next__(self) -> Frame:
        """The next frame. Ends when the stream ends or is closed.

        Raises FrameTimeout after the time that the stream was opened with.
        """
        try:
            frame = self.read(self._timeout)
        except (ClosedError, BusyError):
            if not self._closed:
                raise
            frame = None
        if frame is not None:
            return frame
        if self._closed or self._stopped:
            raise StopIteration
        raise FrameTimeout(f"no frame for {self._timeout} seconds from {self.describe()}")

    def __enter__(self) -> "Stream":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def __repr__(self) -> str:
        return f"<{type(self).__name__}{' closed' if self._closed else ''}>"

    def _wait(self, timeout: Optional[float]) -> Optional[Frame]:
        deadline = None if timeout is None else time.monotonic() + timeout
        pointer = POINTER(FrameRecord)()
        while not self._closed and not self._stopped:
            wait_ms = _SLICE_MS
            if deadline is not None:
                left = max(0.0, deadline - time.monotonic())
                wait_ms = min(wait_ms, int(left * 1000 + 0.999))
            result = lib.kerul_lidar_next(self._handle.pointer, wait_ms, byref(pointer))
            if result == _library.OK:
                return self._take(pointer.contents)
            if result == _library.ENDED:
                self._stopped = True
                self._ended()
            elif result != _library.NO_FRAME:
                check(result)
            elif deadline is not None and time.monotonic() >= deadline:
                break
        return None

    def _take(self, record: FrameRecord) -> Frame:
        if self._frame is not None:
            self._frame._expire()
        if self._planes is None:
            self._planes = _planes_of(self._handle, record)
        self._frame = Frame(record, self._planes)
        return self._frame

    def _ended(self) -> None:
        """Called when the stream has come to its end by itself."""

    # Whoever finds nobody reading lets go; a reading thread does it when it leaves.
    def _stop(self) -> None:
        if not self._lock.acquire(blocking=False):
            return
        try:
            self._stopped = True
            lib.kerul_lidar_stop(self._handle.pointer)
            self._let_go()
        finally:
            self._lock.release()

    def _let_go(self) -> None:
        """Called when the stream is closed, perhaps more than once."""


class Ring(Stream):
    """Follows the shared-memory ring of a node on this machine.

    name: of the ring; empty is the node's default. A ring that is not there yet is waited for, and
        a restarted node is followed.
    timeout: seconds without a frame after which iteration raises FrameTimeout; None waits for ever.
    oldest: begin with what the ring still holds, some seconds, instead of the next packet.
    survive_shortening: outlive that somebody makes the ring's object shorter. Installs a handler
        of SIGBUS for the whole process.
    """

    def __init__(
        self,
        name: str = "",
        *,
        timeout: Optional[float] = None,
        oldest: bool = False,
        survive_shortening: bool = False,
    ) -> None:
        pointer = c_void_p()
        start = _library.OLDEST if oldest else _library.NEWEST
        check(lib.kerul_lidar_open_ring(_bytes(name), start, byref(pointer)))
        super().__init__(pointer, timeout)
        if survive_shortening:
            check(lib.kerul_lidar_survive_shortening(pointer))


class Udp(Stream):
    """Receives point packets on a UDP port, and from a multicast group if one is named.

    port: 0 to 65535; 0 takes a free one, which `describe` tells.
    group: an IPv4 address as text.
    timeout: as for Ring.
    Raises OpenError when the port cannot be opened or the group not be joined.
    """

    def __init__(
        self, port: int = 2369, group: str = "", *, timeout: Optional[float] = None
    ) -> None:
        if not 0 <= port <= 65535:
            raise ValueError(f"{port} is no UDP port")
        pointer = c_void_p()
        check(lib.kerul_lidar_open_udp(port, _bytes(group), byref(pointer)))
        super().__init__(pointer, timeout)


class Pipe(Stream):
    """Reads point packets one after another from a binary file or pipe, to its end.

    file: an open file with a descriptor. The stream keeps it open, and does not close it.
    timeout: as for Ring.
    """

    def __init__(self, file: IO[bytes], *, timeout: Optional[float] = None) -> None:
        pointer = c_void_p()
        check(lib.kerul_lidar_open_pipe(file.fileno(), byref(pointer)))
        self._file = file
        super().__init__(pointer, timeout)


class Capture(Pipe):
    """Plays a capture file of raw packets through the node, once, without loss and without haste.

    path: a classic capture file, as tcpdump and sensor_simulator write it.
    calibration: directory of the sensor's calibration, as for lidar_node --cali_path.
    replay: the program lidar_replay, which has the node in it; by default that of the package, or
        of the build that this package stands beside. KERUL_LIDAR_REPLAY names another one.

    The settings are those compiled into the node, the times are those of the playing. Iteration
    ends after the last frame. Raises OpenError, at the first read at the latest, when capture or
    calibration cannot be used.
    """

    def __init__(
        self,
        path: "str | os.PathLike[str]",
        calibration: "str | os.PathLike[str]",
        *,
        timeout: Optional[float] = None,
        replay: "str | os.PathLike[str] | None" = None,
    ) -> None:
        command = [_replay_program(replay), os.fspath(path), "--cali_path", os.fspath(calibration)]
        self._messages = tempfile.TemporaryFile()
        try:
            self._program = subprocess.Popen(
                command,
                stdin=subprocess.DEVNULL,
                stdout=subprocess.PIPE,
                stderr=self._messages,
                start_new_session=True,  # Ctrl-C is this process's to handle
            )
        except OSError as error:
            self._messages.close()
            raise OpenError(f"{command[0]}: {error.strerror}") from None
        weakref.finalize(self, _end_program, self._program, self._messages)
        assert self._program.stdout is not None
        super().__init__(self._program.stdout, timeout=timeout)

    def _ended(self) -> None:
        if self._program.wait() != 0 and not self._closed:
            self._messages.seek(0)
            text = self._messages.read().decode(errors="replace").strip()
            raise OpenError(text or f"lidar_replay ended with status {self._program.returncode}")

    def _let_go(self) -> None:
        _end_program(self._program, self._messages)


def _end_program(program: "subprocess.Popen[bytes]", messages: IO[bytes]) -> None:
    # It ends by itself when nobody reads, and takes its shared memory along.
    if program.stdout is not None:
        program.stdout.close()
    try:
        program.wait(timeout=_PROGRAM_END_SECONDS)
    except subprocess.TimeoutExpired:
        program.kill()
        program.wait()
    messages.close()


def _replay_program(named: "str | os.PathLike[str] | None") -> str:
    choice = named or os.environ.get("KERUL_LIDAR_REPLAY")
    if choice:
        return os.fspath(choice)
    for build in _library.build_trees():
        if (build / "tools" / "lidar_replay").is_file():
            return str(build / "tools" / "lidar_replay")
    found = shutil.which("lidar_replay")
    if found is None:
        raise OpenError("lidar_replay is not there: install kerul-lidar-node, or build it")
    return found


def _bytes(text: str) -> bytes:
    if "\0" in text:
        raise ValueError("a name with a NUL character")
    return os.fsencode(text)
