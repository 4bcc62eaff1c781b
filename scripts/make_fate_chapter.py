#!/usr/bin/env python3
"""Remakes the chapter on fates and stories in docs/filters.md, and its pictures in docs/images.

  make_fate_chapter.py [build directory]          writes them
  make_fate_chapter.py --check [build directory]  fails when the chapter is out of date

The build directory has sensor_simulator and pixel_story; build/release when left out.
"""

import json
import os
import re
import subprocess
import sys
import tempfile
import textwrap

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
DOCUMENT = os.path.join(ROOT, "docs", "filters.md")
BEGIN = "<!-- Made by scripts/make_fate_chapter.py -->\n"
END = "<!-- End of what scripts/make_fate_chapter.py makes -->\n"
SCENES = ["street", "retro", "noise", "crosstalk", "targets", "empty"]
PICTURES = ["street", "retro", "crosstalk"]
FRAME = 1

# Title, scene, pixel, slot, the steps that decide.
STORIES = [
    ("A far edge that too few neighbours confirm", "street", (99, 150), 0,
     ["thresholds", "raw_range", "neighbours", "published"]),
    ("An after-pulse", "street", (93, 102), 1, ["raw_range", "high_reflectivity", "neighbours"]),
    ("Crosstalk that its neighbours confirm", "crosstalk", (84, 33), 0,
     ["edges", "neighbours", "shot_noise", "published"]),
    ("Light of a bright target on a return beside it", "street", (112, 185), 0,
     ["neighbours", "bloom", "published"]),
]
# One for each bright pixel or row of an edge.
LEFT_OUT = ("from ", "its rows ")


def run(tool, *arguments):
    done = subprocess.run([tool, *arguments], capture_output=True, text=True)
    if done.returncode != 0:
        sys.exit(f"{' '.join([tool, *arguments])}: {done.stderr}")
    return done.stdout


class Maker:
    def __init__(self, build, place):
        self.tools = os.path.join(build, "tools")
        self.place = place

    def capture(self, scene):
        return os.path.join(self.place, scene + ".pcap")

    def simulate(self, scene):
        run(os.path.join(self.tools, "sensor_simulator"), "--scene", scene, "--frames", "2",
            "--capture", self.capture(scene), "--calibration", os.path.join(self.place, "data"))

    def tell(self, scene, *arguments):
        return json.loads(run(
            os.path.join(self.tools, "pixel_story"), self.capture(scene), "--calib",
            os.path.join(self.place, "data", "SIM-0001"), "--frame", str(FRAME), "--json", "-",
            *arguments))


def number_rows(tables, kind):
    """Words of each fate or mark that occurs, with its echoes in each scene."""
    for i, entry in enumerate(tables[SCENES[0]][kind]):
        counts = [sum(tables[scene][kind][i]["echoes"]) for scene in SCENES]
        if any(counts):
            yield entry["words"], counts


def table(tables):
    lines = ["| fate | " + " | ".join(SCENES) + " |\n", "|---|" + "--:|" * len(SCENES) + "\n"]
    rows = list(number_rows(tables, "fates"))
    rows.append(("**sum**", [tables[scene]["echoes"] for scene in SCENES]))
    rows += [("published: " + words, counts) for words, counts in number_rows(tables, "marks")]
    lines += [f"| {words} | " + " | ".join(map(str, counts)) + " |\n" for words, counts in rows]
    return "".join(lines)


def story(maker, title, scene, pixel, slot, steps):
    place = f"{pixel[0]},{pixel[1]}"
    echo = maker.tell(scene, "--pixel", place)["stories"][0]["echoes"][slot]
    lines = [f"### {title}\n\n`pixel_story {scene}.pcap --calib data/SIM-0001 --frame {FRAME} "
             f"--pixel {place}`, slot {slot}:\n\n"]
    for step in echo["steps"]:
        if step["name"] in steps:
            told = [s for s in step["sentences"] if not s.startswith(LEFT_OUT)]
            lines.append(textwrap.fill(f"- `{step['name']}`: " + "; ".join(told), 104,
                                       subsequent_indent="  ", break_on_hyphens=False) + "\n")
    return "".join(lines)


def chapter(maker, images):
    tables = {}
    for scene in SCENES:
        maker.simulate(scene)
        picture = []
        if scene in PICTURES:
            picture = ["--picture", os.path.join(images, f"fates_{scene}.png")]
        tables[scene] = maker.tell(scene, "--all", *picture)["fates"]
    parts = [table(tables), "\n"]
    for scene in PICTURES:
        parts.append(f"![Fates of scene {scene}](images/fates_{scene}.png)\n\n")
    parts += [story(maker, *one) + "\n" for one in STORIES]
    return "".join(parts)


def pieces(text):
    """Table rows, list entries and paragraphs, each on one line."""
    return [" ".join(piece.split()) for piece in re.split(r"\n(?=\n|- |\|)", text)]


def shape(piece):
    """Without its numbers, which may differ a little between machines."""
    return re.sub(r"-?\d+(\.\d+)?", "#", piece.partition("the bytes of the point are")[0])


def counts(piece):
    return [int(count) for count in re.findall(r"(?<=\| )\d+", piece)]


def differs(old, new):
    """Counts may differ by a fiftieth and ten: the simulated sensor computes with the system's own
    mathematical functions, whose last bits are not the same everywhere."""
    return shape(old) != shape(new) or any(
        abs(x - y) > 10 + x / 50 for x, y in zip(counts(old), counts(new)))


def differences(old, new):
    old, new = pieces(old), pieces(new)
    if len(old) != len(new):
        return [f"{len(old)} pieces instead of {len(new)}"]
    return [a for a, b in zip(old, new) if differs(a, b)]


def main(arguments):
    if arguments and arguments[0] in ("-h", "--help"):
        print(__doc__.strip())
        return 0
    check = arguments[:1] == ["--check"]
    arguments = arguments[1:] if check else arguments
    build = os.path.abspath(arguments[0]) if arguments else os.path.join(ROOT, "build", "release")
    with open(DOCUMENT, encoding="utf-8") as file:
        document = file.read()
    before, rest = document.split(BEGIN)
    old, after = rest.split(END)
    with tempfile.TemporaryDirectory() as place:
        images = place if check else os.path.join(ROOT, "docs", "images")
        new = "\n" + chapter(Maker(build, place), images)
    if not check:
        with open(DOCUMENT, "w", encoding="utf-8") as file:
            file.write(before + BEGIN + new + END + after)
        return 0
    stale = differences(old, new)
    for line in stale:
        print("out of date:", line)
    if stale:
        print("run scripts/make_fate_chapter.py")
    return 1 if stale else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
