"""Errors with their texts, closed streams, threads, Ctrl-C."""

import os
import signal
import socket
import subprocess
import sys
import threading
import time

import numpy as np
import pytest

import kerul_lidar
from kerul_lidar import _library, _stream
from streams import PATIENCE, Picture, send


def wait_until(condition):
    deadline = time.monotonic() + PATIENCE
    while not condition():
        assert time.monotonic() < deadline
        time.sleep(0.002)


def is_reading(stream):
    return stream._lock.locked()


def test_a_taken_port_is_an_os_error_with_the_systems_text():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as holder:
        holder.bind(("", 0))
        with pytest.raises(OSError, match="^bind: Address already in use$"):
            kerul_lidar.Udp(holder.getsockname()[1])
    with pytest.raises(kerul_lidar.OpenError, match="^multicast group: Invalid argument$"):
        kerul_lidar.Udp(0, "nonsense")


def test_a_closed_udp_stream_gives_its_port_back_although_arrays_are_left():
    udp = kerul_lidar.Udp(0, timeout=PATIENCE)
    port = int(udp.describe().removeprefix("UDP port "))
    send(port, [next(Picture().packets(frame_id)) for frame_id in (1, 2)])
    view = next(udp).valid
    udp.close()
    kerul_lidar.Udp(port).close()
    assert view.shape == (2, 216, 288)


def test_a_directory_without_calibration_is_refused(tmp_path):
    with pytest.raises(kerul_lidar.CalibrationError) as raised:
        kerul_lidar.Calibration(tmp_path)
    text = f"no Lidar-*_angle_calib.dat and no *_head.bin in {tmp_path}"
    assert str(raised.value) == text


def test_arguments_that_make_no_sense_are_value_errors(street, node):
    node.publish(Picture(), 1)
    ring = kerul_lidar.Ring(node.name, oldest=True, timeout=PATIENCE)
    frame = next(ring)
    calibration = kerul_lidar.Calibration(street[1])
    for call, text in (
        (lambda: kerul_lidar.Udp(65536), "65536 is no UDP port"),
        (lambda: kerul_lidar.Udp(-1), "-1 is no UDP port"),
        (lambda: kerul_lidar.Ring("a\0b"), "a name with a NUL character"),
        (lambda: ring.read(timeout=-1), "a timeout of -1 seconds"),
        (lambda: ring.read(timeout=float("nan")), "a timeout of nan seconds"),
        (lambda: kerul_lidar.Calibration(street[1], mount=(1, 2)), "a mounting is x, y, z"),
        (lambda: kerul_lidar.Calibration(street[1], mount=[np.inf] * 6), "is not finite"),
        (lambda: calibration.points(np.zeros((216, 288))), "has the shape"),
        (lambda: frame.xyz(calibration, np.empty((2, 216, 288, 3))), "out is no writable"),
        (lambda: frame.xyz(calibration, np.empty((216, 288, 3), np.float32)), "out is no"),
    ):
        with pytest.raises(ValueError, match=text):
            call()


def test_every_result_of_the_library_becomes_its_exception():
    for result, exception in (
        (_library.CANNOT_OPEN, OSError),
        (_library.CANNOT_CALIBRATE, kerul_lidar.CalibrationError),
        (_library.BUSY, kerul_lidar.BusyError),
        (_library.OUT_OF_MEMORY, MemoryError),
        (_library.OUT_OF_MEMORY + 1, kerul_lidar.KerulLidarError),
        (99, kerul_lidar.KerulLidarError),
    ):
        with pytest.raises(exception):
            _library.check(result)


def test_a_silent_stream_raises_after_its_timeout_and_can_be_read_on(node):
    ring = kerul_lidar.Ring(node.name, oldest=True, timeout=0.05)
    with pytest.raises(TimeoutError, match=f"^no frame for 0.05 seconds from ring /{node.name}$"):
        next(ring)
    node.publish(Picture(), 1)
    frame = ring.read(timeout=PATIENCE)
    assert frame is not None and frame.id == 1


def test_a_closed_stream_ends_its_iteration_and_refuses_to_be_read(node):
    node.publish(Picture(), 1)
    with kerul_lidar.Ring(node.name, oldest=True, timeout=PATIENCE) as ring:
        frame = next(ring)
    assert ring.closed
    assert list(ring) == []
    with pytest.raises(kerul_lidar.ClosedError, match="the stream is closed"):
        ring.read()
    ring.close()
    assert frame.valid.any() and ring.counts.complete == 1
    assert ring.describe() == f"ring /{node.name} (stopped)"


def test_a_second_reading_thread_is_refused_and_another_may_close(ring_name):
    ring = kerul_lidar.Ring(ring_name)
    frames = []
    reader = threading.Thread(target=lambda: frames.extend(ring))
    reader.start()
    wait_until(lambda: is_reading(ring))
    with pytest.raises(kerul_lidar.BusyError, match="another thread is reading this stream"):
        ring.read(timeout=0)
    ring.close()
    reader.join(PATIENCE)
    assert not reader.is_alive() and frames == []
    assert ring.describe() == f"ring /{ring_name} (not there) (stopped)"


def test_other_threads_run_while_one_waits(ring_name):
    ring = kerul_lidar.Ring(ring_name)
    reader = threading.Thread(target=lambda: list(ring))
    reader.start()
    wait_until(lambda: is_reading(ring))
    # With the interpreter's lock held, one step would take as long as a wait of the library.
    start = time.monotonic()
    steps = 0
    while steps < 20:
        time.sleep(0)
        steps += 1
    elapsed = time.monotonic() - start
    ring.close()
    reader.join(PATIENCE)
    assert elapsed < 20 * _stream._SLICE_MS / 1000


def test_ctrl_c_ends_a_wait(ring_name):
    # The wait is looked at this often; what comes on top is the interpreter's.
    assert _stream._SLICE_MS <= 200
    script = f"""
import kerul_lidar, sys, time
ring = kerul_lidar.Ring({ring_name!r})
try:
    print("waiting", flush=True)
    for frame in ring:
        pass
except KeyboardInterrupt:
    print("interrupted", ring.read(timeout=0), flush=True)
"""
    child = subprocess.Popen([sys.executable, "-c", script], stdout=subprocess.PIPE, text=True)
    assert child.stdout.readline() == "waiting\n"
    time.sleep(0.3)
    child.send_signal(signal.SIGINT)
    assert child.communicate(timeout=PATIENCE)[0] == "interrupted None\n"
    assert child.returncode == 0


def test_a_library_that_is_not_there_says_what_to_do():
    imported = subprocess.run(
        [sys.executable, "-c", "import kerul_lidar"],
        env={**os.environ, "KERUL_LIDAR_LIBRARY": "/nowhere.so"},
        capture_output=True,
        text=True,
    )
    assert imported.returncode == 1
    assert "ImportError: /nowhere.so: cannot open shared object file" in imported.stderr
    assert "install libkerul-lidar-client1" in imported.stderr
