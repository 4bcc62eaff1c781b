"""The examples as a stranger starts them, and the types of the package as mypy sees them."""

import shutil
import subprocess
import sys

import matplotlib.image
import numpy as np
import pytest

import kerul_lidar
from streams import PATIENCE, SOURCE

EXAMPLES = SOURCE / "client" / "python" / "examples"


def run(name, *arguments):
    command = [sys.executable, EXAMPLES / name, *arguments]
    return subprocess.run(
        command, check=True, capture_output=True, text=True, timeout=2 * PATIENCE
    ).stdout


def test_print_frames_prints_a_line_for_each(street):
    lines = run("print_frames.py", *street).splitlines()
    assert [line.split(":")[0] for line in lines] == ["frame 0", "frame 1", "frame 2"]
    first = next(kerul_lidar.Capture(*street, timeout=PATIENCE))
    nearest = first.range_m[first.valid].min()
    assert lines[0] == (
        f"frame 0: {first.valid.sum()} returns, nearest {nearest:.2f} m, "
        f"{first.ground.sum()} on the ground"
    )


def test_show_image_draws_without_a_screen(street, tmp_path):
    run("show_image.py", *street, "--png", tmp_path / "frame.png")
    picture = matplotlib.image.imread(tmp_path / "frame.png")
    # The scale of the ranges and the street have many colours, an empty picture would have few.
    assert picture.shape == (900, 600, 4)
    assert len(np.unique(picture[:450].reshape(-1, 4), axis=0)) > 500


def test_save_npz_keeps_what_the_frames_held(street, tmp_path):
    capture, calibration = street
    out = tmp_path / "frames.npz"
    printed = run("save_npz.py", out, calibration, "--capture", capture, "--frames", "2")
    assert printed == f"2 frames in {out}\n"
    saved = np.load(out)
    assert saved["xyz_m"].shape == (2, 2, 216, 288, 3)
    assert saved["id"].tolist() == [0, 1]
    for number, frame in zip(range(2), kerul_lidar.Capture(*street, timeout=PATIENCE)):
        assert np.array_equal(saved["range_m"][number], frame.range_m)
        assert np.array_equal(saved["ground"][number], frame.ground)
        assert np.array_equal(saved["xyz_m"][number], frame.xyz(calibration), equal_nan=True)


def test_the_readmes_five_lines_give_numpy_arrays(street):
    text = (SOURCE / "README.md").read_text()
    block = text.split("```python\n", 1)[1].split("```", 1)[0]
    assert len(block.splitlines()) == 5
    ring = "kerul_lidar.Ring()"
    assert ring in block
    capture, calibration = map(str, street)
    script = block.replace(ring, f"kerul_lidar.Capture({capture!r}, {calibration!r})")
    script = script.replace('"data/ID"', repr(calibration))
    command = [sys.executable, "-c", script]
    lines = subprocess.run(
        command, check=True, capture_output=True, text=True, timeout=PATIENCE
    ).stdout.splitlines()
    assert len(lines) == 3


def test_the_types_hold():
    if shutil.which("mypy") is None:
        pytest.skip("mypy is not installed")
    package = SOURCE / "client" / "python" / "kerul_lidar"
    # matplotlib has no types in Debian 12.
    command = ["mypy", "--strict", "--ignore-missing-imports", "--cache-dir=/dev/null", package]
    checked = subprocess.run(
        [*command, *sorted(EXAMPLES.glob("*.py"))], cwd=package.parent, capture_output=True, text=True
    )
    assert checked.returncode == 0, checked.stdout
