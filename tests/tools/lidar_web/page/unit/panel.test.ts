import assert from "node:assert/strict";
import { test } from "node:test";
import { gridLines, kRingMetres, ringLines } from "page/ground_grid.js";
import { actionOf, kKeys } from "page/keyboard.js";
import { categoriesOf } from "page/legend.js";
import { imageEcho, middleOf, pixelUnder } from "page/range_images.js";
import { plotScale } from "page/range_plot.js";
import { fileName } from "page/saving.js";
import { defaultSettings, kColourings } from "page/settings.js";
import { orderedLimits } from "page/settings_panel.js";
import { frameOf } from "../support/decoded.js";

void test("the image has the highest row on top", () => {
  assert.deepEqual(pixelUnder(0, 0, 0), { echo: 0, row: 215, col: 0 });
  assert.deepEqual(pixelUnder(0.9999, 0.9999, 1), { echo: 1, row: 0, col: 287 });
  assert.equal(pixelUnder(1, 0.5, 0), null);
  assert.equal(pixelUnder(0.5, -0.01, 0), null);
});

void test("the middle of a pixel is under the pixel", () => {
  for (const pixel of [
    { echo: 0, row: 0, col: 0 },
    { echo: 0, row: 215, col: 287 },
    { echo: 0, row: 100, col: 31 },
  ]) {
    const { left, top } = middleOf(pixel);
    assert.deepEqual(pixelUnder(left / 100, top / 100, 0), pixel);
  }
});

void test("the images show the second echo only where there is one", () => {
  const second = { ...defaultSettings(), echoes: "1" as const };
  assert.equal(imageEcho(second, frameOf([])), 1);
  assert.equal(imageEcho(second, frameOf([], { echoes: 1 })), 0);
  assert.equal(imageEcho(defaultSettings(), frameOf([])), 0);
});

void test("limits do not pass each other", () => {
  assert.deepEqual(orderedLimits(3, 9, true, 0.5), { low: 3, high: 9 });
  assert.deepEqual(orderedLimits(9, 5, true, 0.5), { low: 4.5, high: 5 });
  assert.deepEqual(orderedLimits(9, 5, false, 0.5), { low: 9, high: 9.5 });
});

void test("the plot's scale holds all returns and is never shorter than a decimetre", () => {
  const line = (ranges: number[]) => ({ ranges, colour: "" });
  assert.equal(plotScale([]), null);
  assert.equal(plotScale([line([0, 0])]), null);
  assert.deepEqual(plotScale([line([0, 5]), line([2, 9])]), { low: 2, high: 9 });
  const scale = plotScale([line([10])]);
  assert.ok(
    scale !== null && Math.abs(scale.low - 9.95) < 1e-9 && Math.abs(scale.high - 10.05) < 1e-9,
  );
});

void test("every key does one thing, in either case", () => {
  const keys = kKeys.flatMap((entry) => entry.keys);
  assert.equal(new Set(keys).size, keys.length);
  assert.deepEqual(actionOf("T"), { do: "view", name: "top" });
  assert.deepEqual(actionOf("t"), { do: "view", name: "top" });
  assert.deepEqual(actionOf(","), { do: "step", by: -1 });
  assert.deepEqual(actionOf("."), { do: "step", by: 1 });
  assert.deepEqual(actionOf("6"), { do: "colour", index: 5 });
  assert.equal(actionOf("z"), null);
  assert.equal(actionOf("Enter"), null);
});

void test("there is a key for each colouring", () => {
  kColourings.forEach((_, i) => {
    assert.deepEqual(actionOf(String(i + 1)), { do: "colour", index: i });
  });
});

void test("only colourings by class have classes in the legend", () => {
  assert.equal(categoriesOf("range", 0), null);
  assert.equal(categoriesOf("height", 0), null);
  assert.deepEqual(
    categoriesOf("echo", 0)?.map((entry) => entry.name),
    ["echo 0", "echo 1"],
  );
  assert.deepEqual(
    categoriesOf("flags", 1 << 4)?.map((entry) => entry.name),
    ["bloom", "none of these"],
  );
});

void test("rings have their radius all around", () => {
  const lines = ringLines(10);
  assert.equal(lines.length, 180 * 2 * 3);
  for (let i = 0; i < lines.length; i += 3) {
    assert.ok(Math.abs(Math.hypot(lines[i], lines[i + 1]) - 10) < 1e-9);
    assert.equal(lines[i + 2], 0);
  }
  // The last line ends where the first begins.
  const gap = Math.hypot(...lines.slice(-3).map((value, i) => value - lines[i]));
  assert.ok(gap < 1e-9);
  assert.deepEqual([...kRingMetres], [5, 10, 15, 20, 30, 40, 50, 60]);
});

void test("grid lines are five metres apart", () => {
  const lines = gridLines();
  const xs = new Set(lines.filter((_, i) => i % 3 === 0));
  assert.ok(xs.has(5) && xs.has(60) && xs.has(-10) && !xs.has(7));
});

void test("a saved file is called after its frame", () => {
  assert.equal(fileName(frameOf([], { serial: 300, frameId: 44 }), "las"), "frame_300_id44.las");
});
