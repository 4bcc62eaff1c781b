import assert from "node:assert/strict";
import { test } from "node:test";
import {
  flagNames,
  kFlagCategories,
  knownCategories,
  makeRamp,
  rampIndex,
  shaded,
} from "page/colours.js";

void test("the ramp goes from blue to red", () => {
  const ramp = makeRamp(false);
  assert.deepEqual([...ramp.slice(0, 4)], [74, 84, 214, 255]);
  assert.deepEqual([...ramp.slice(255 * 4)], [236, 62, 46, 255]);
});

void test("a value takes the nearest entry, ends included", () => {
  assert.equal(rampIndex(0, 0, 40), 0);
  assert.equal(rampIndex(40, 0, 40), 255);
  assert.equal(rampIndex(-1, 0, 40), 0);
  assert.equal(rampIndex(99, 0, 40), 255);
  // 20 of 40 is entry 127.5, rounded up.
  assert.equal(rampIndex(20, 0, 40), 128);
  assert.equal(rampIndex(19.9, 0, 40), 127);
});

void test("the light theme is darker, entry by entry", () => {
  const dark = makeRamp(false);
  const light = makeRamp(true);
  for (let i = 0; i < 256; i += 1) {
    for (let channel = 0; channel < 3; channel += 1)
      assert.ok(light[4 * i + channel] < dark[4 * i + channel]);
    assert.equal(light[4 * i + 3], 255);
  }
  assert.deepEqual(shaded([100, 50, 0], true), [72, 36, 0]);
});

void test("flags have their bits of the packet", () => {
  const bitOf = Object.fromEntries(kFlagCategories.map(({ name, bit }) => [name, bit]));
  assert.deepEqual(bitOf, {
    bloom: 4,
    "after-pulse": 5,
    filled: 7,
    "shot noise": 8,
    "below level": 11,
    "high reflectivity": 3,
    ground: 6,
  });
  assert.deepEqual(flagNames((1 << 6) | (1 << 4)), ["bloom", "ground"]);
  assert.deepEqual(flagNames(0b111), []);
});

void test("the legend lists the flags that the mode carries, and none", () => {
  assert.deepEqual(
    knownCategories(1 << 6).map((entry) => entry.name),
    ["ground", "none of these"],
  );
  assert.equal(knownCategories(0x1fff).length, 8);
});
