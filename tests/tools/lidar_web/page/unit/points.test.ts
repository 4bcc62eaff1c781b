import assert from "node:assert/strict";
import { test } from "node:test";
import { kPixels, pixelAt, placeOf, pointAt } from "page/frame.js";
import { pickPoint, project } from "page/picking.js";
import { pinsAfterClick } from "page/pins.js";
import { distanceOf, infoOf } from "page/pixel_info.js";
import { defaultSettings, type Settings } from "page/settings.js";
import { colourScale, groundHeight, isShown } from "page/shown.js";
import { frameOf, sampleDirections } from "../support/decoded.js";
import { directionOf, kRows, type Return } from "../support/sample_stream.js";

const kDirections = sampleDirections();
const kSize = { width: 800, height: 600 };

/** Looks along x from the origin: right is -y, up is z. 90 degrees high, near 0.1, far 100. */
function lookAhead(): number[] {
  const aspect = kSize.width / kSize.height;
  const [near, far] = [0.1, 100];
  const a = -(far + near) / (near - far);
  const b = (2 * far * near) / (near - far);
  // Columns: what x, y, z and 1 give to right, up, depth and w. w is x.
  return [0, 0, a, 1, -1 / aspect, 0, 0, 0, 0, 1, 0, 0, 0, 0, b, 0];
}

function returnAt(row: number, col: number, counts: number, echo = 0, reflectivity = 100): Return {
  return { echo, row, col, counts, reflectivity, flags: 0 };
}

function settingsWith(changed: Partial<Settings>): Settings {
  return { ...defaultSettings(), ...changed };
}

void test("a place is a pixel of an echo and back", () => {
  for (const pixel of [
    { echo: 0, row: 0, col: 0 },
    { echo: 1, row: 215, col: 287 },
    { echo: 1, row: 3, col: 0 },
  ]) {
    assert.deepEqual(pixelAt(placeOf(pixel)), pixel);
  }
  assert.equal(placeOf({ echo: 1, row: 1, col: 2 }), 62208 + 288 + 2);
});

void test("what is straight ahead is in the middle, what is behind nowhere", () => {
  const middle = project(lookAhead(), kSize, [10, 0, 0]);
  assert.ok(middle !== null);
  assert.deepEqual([middle.x, middle.y], [400, 300]);
  assert.equal(project(lookAhead(), kSize, [-10, 0, 0]), null);
  assert.equal(project(lookAhead(), kSize, [1000, 0, 0]), null);
});

void test("left is left and up is up", () => {
  // 45 degrees up is the upper edge; 4/3 of that to the left is the left edge.
  const corner = project(lookAhead(), kSize, [3, 4, 3]);
  assert.ok(corner !== null);
  assert.ok(Math.abs(corner.x) < 1e-9 && Math.abs(corner.y) < 1e-9);
});

void test("the limits hold their ends and the far end switches off", () => {
  // 1250 counts are 5 m and a little.
  const frame = frameOf([returnAt(0, 0, 1250), returnAt(0, 1, 20_000)]);
  const shown = (range: { low: number; high: number }, place: number) =>
    isShown(settingsWith({ range }), frame, place);
  assert.ok(shown({ low: 5, high: 10 }, 0));
  assert.ok(!shown({ low: 5.1, high: 10 }, 0));
  assert.ok(!shown({ low: 0, high: 5 }, 0));
  assert.ok(shown({ low: 0, high: 5.1 }, 0));
  assert.ok(!shown({ low: 0, high: 59.5 }, 1));
  assert.ok(shown({ low: 0, high: 60 }, 1));
  assert.ok(!shown({ low: 0, high: 60 }, 2));
});

void test("reflectivity limits and the choice of the echo hide points", () => {
  const frame = frameOf([returnAt(0, 0, 500, 0, 7), returnAt(0, 0, 600, 1, 9)]);
  const shown = (changed: Partial<Settings>) =>
    [0, kPixels].map((place) => isShown(settingsWith(changed), frame, place));
  assert.deepEqual(shown({}), [true, true]);
  assert.deepEqual(shown({ echoes: "0" }), [true, false]);
  assert.deepEqual(shown({ echoes: "1" }), [false, true]);
  assert.deepEqual(shown({ reflectivity: { low: 8, high: 255 } }), [false, true]);
  assert.deepEqual(shown({ reflectivity: { low: 0, high: 7 } }), [true, false]);
});

void test("picking finds the pixel whose point is under the cursor", () => {
  const returns = [returnAt(100, 40, 2500), returnAt(150, 200, 5000), returnAt(20, 250, 700, 1)];
  const frame = frameOf(returns);
  const input = {
    frame,
    directions: kDirections,
    settings: defaultSettings(),
    matrix: lookAhead(),
    size: kSize,
  };
  for (const { echo, row, col } of returns) {
    const place = placeOf({ echo, row, col });
    const point = pointAt(frame, kDirections, place);
    const at = point === null ? null : project(lookAhead(), kSize, point);
    assert.ok(at !== null);
    assert.equal(pickPoint(input, at.x + 3, at.y - 2, 6), place);
    assert.equal(pickPoint(input, at.x + 7, at.y, 6), null);
  }
});

void test("of two points under the cursor the nearer one is picked", () => {
  const frame = frameOf([returnAt(100, 40, 2500), returnAt(100, 40, 2000, 1)]);
  const input = {
    frame,
    directions: kDirections,
    settings: defaultSettings(),
    matrix: lookAhead(),
    size: kSize,
  };
  const point = pointAt(frame, kDirections, placeOf({ echo: 0, row: 100, col: 40 }));
  const at = point === null ? null : project(lookAhead(), kSize, point);
  assert.ok(at !== null);
  assert.equal(pickPoint(input, at.x, at.y, 6), placeOf({ echo: 1, row: 100, col: 40 }));
  const onlyFirst = { ...input, settings: settingsWith({ echoes: "0" }) };
  assert.equal(pickPoint(onlyFirst, at.x, at.y, 6), placeOf({ echo: 0, row: 100, col: 40 }));
});

void test("a third pin begins anew and a second click takes one off", () => {
  assert.deepEqual(pinsAfterClick([], 5), [5]);
  assert.deepEqual(pinsAfterClick([5], 9), [5, 9]);
  assert.deepEqual(pinsAfterClick([5, 9], 7), [7]);
  assert.deepEqual(pinsAfterClick([5, 9], 5), [9]);
});

void test("two points on one way are as far apart as their ranges", () => {
  const frame = frameOf([returnAt(100, 40, 2500), returnAt(100, 40, 1000, 1)]);
  const [first, second] = [0, 1].map((echo) => placeOf({ echo, row: 100, col: 40 }));
  const metres = distanceOf(frame, kDirections, first, second);
  // 1500 counts of 4 mm; directions are single precision.
  assert.ok(metres !== null && Math.abs(metres - 6) < 1e-5);
  assert.equal(distanceOf(frame, kDirections, first, 0), null);
});

void test("a pixel's values are written as the formats say", () => {
  const frame = frameOf([
    { echo: 0, row: 107, col: 143, counts: 2500, reflectivity: 83, flags: (1 << 6) | (1 << 7) },
  ]);
  const place = placeOf({ echo: 0, row: 107, col: 143 });
  const [x, y, z] = directionOf(107, 143).map((value) => `${(10 * value).toFixed(3)} m`);
  const info = infoOf(frame, kDirections, place);
  assert.deepEqual(info, {
    pixel: "107, 143",
    range: "10.000 m",
    reflectivity: "83",
    x,
    y,
    z,
    flags: "filled, ground",
  });
  assert.equal(infoOf(frame, kDirections, place + kPixels).range, "no return");
  assert.equal(infoOf(frame, kDirections, place + kPixels).pixel, "107, 143 e1");
});

void test("what the mode does not carry is not told", () => {
  const frame = frameOf([returnAt(1, 1, 100)], {
    outputMode: 3,
    carries: 1 << 5,
    knownFlags: 0,
    withFlags: false,
  });
  const info = infoOf(frame, null, placeOf({ echo: 0, row: 1, col: 1 }));
  assert.deepEqual([info.reflectivity, info.flags, info.x], ["–", "–", "–"]);
});

/** A flat ground 1.5 m below the sensor, and a wall of points above. */
function streetReturns(groundFlag: number): Return[] {
  const returns: Return[] = [];
  for (let row = 0; row < kRows; row += 2) {
    for (let col = 0; col < 288; col += 8) {
      const [, , z] = directionOf(row, col);
      const isGround = row < 80;
      const range = isGround ? 1.5 / -z : 10;
      returns.push({
        ...returnAt(row, col, Math.round(range / 0.004)),
        flags: isGround ? groundFlag : 0,
      });
    }
  }
  return returns;
}

void test("the ground's height comes from the points labelled as ground", () => {
  assert.equal(groundHeight(frameOf(streetReturns(1 << 6)), kDirections), -1.5);
  assert.equal(groundHeight(frameOf(streetReturns(1 << 6)), sampleDirections([0, 0, 2])), 0.5);
});

void test("without labels the ground is where the lowest points are", () => {
  assert.equal(groundHeight(frameOf(streetReturns(0), { withFlags: false }), kDirections), -1.5);
  assert.equal(groundHeight(frameOf([]), kDirections), null);
});

void test("the scale of heights is five metres from half a metre below the ground", () => {
  assert.deepEqual(colourScale(settingsWith({ colouring: "height" }), -1.5), { low: -2, high: 3 });
  assert.deepEqual(colourScale(settingsWith({ range: { low: 2, high: 9 } }), 0), {
    low: 2,
    high: 9,
  });
  const byReflectivity = settingsWith({
    colouring: "reflectivity",
    reflectivity: { low: 3, high: 90 },
  });
  assert.deepEqual(colourScale(byReflectivity, 0), { low: 3, high: 90 });
});
