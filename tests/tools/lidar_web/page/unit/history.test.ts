import assert from "node:assert/strict";
import { test } from "node:test";
import { FrameHistory, kHistoryFrames } from "page/history.js";
import { frameOf } from "../support/decoded.js";

function frameAt(serial: number, counts: number) {
  const one = { echo: 0, row: 0, col: 2, counts, reflectivity: 1, flags: 0 };
  return frameOf([one], { serial, echoes: 1, withFlags: false });
}

function serialOf(history: FrameHistory): number {
  return history.shown?.serial ?? 0;
}

function filled(count: number): FrameHistory {
  const history = new FrameHistory();
  for (let i = 1; i <= count; i += 1) history.push(frameAt(i, 250 * i), true);
  return history;
}

void test("the newest frame is shown", () => {
  assert.equal(new FrameHistory().shown, null);
  const history = filled(3);
  assert.equal(serialOf(history), 3);
  assert.equal(history.newer, 0);
});

void test("steps go back to the oldest frame and forward to the newest", () => {
  const history = filled(3);
  assert.ok(history.step(-1));
  assert.equal(serialOf(history), 2);
  assert.equal(history.newer, 1);
  assert.ok(history.step(-1));
  assert.ok(!history.step(-1));
  assert.equal(serialOf(history), 1);
  assert.ok(history.step(1));
  assert.ok(history.step(1));
  assert.ok(!history.step(1));
  assert.equal(serialOf(history), 3);
});

void test("a frame that comes while paused waits for a step", () => {
  const history = filled(2);
  history.pause();
  history.push(frameAt(3, 1), false);
  assert.equal(serialOf(history), 2);
  assert.equal(history.newer, 1);
  assert.ok(history.step(1));
  assert.equal(serialOf(history), 3);
});

void test("going on shows the newest frame", () => {
  const history = filled(5);
  history.pause();
  history.step(-1);
  history.step(-1);
  history.resume();
  assert.equal(serialOf(history), 5);
  assert.ok(!history.isPaused);
});

void test("the hundred newest frames are kept", () => {
  const history = filled(kHistoryFrames + 5);
  assert.equal(history.length, 100);
  let back = 0;
  while (history.step(-1)) back += 1;
  assert.equal(back, 99);
  assert.equal(serialOf(history), 6);
});

void test("the shown frame stays the same one while older ones go", () => {
  const history = filled(kHistoryFrames);
  history.pause();
  history.step(-1);
  history.push(frameAt(101, 1), false);
  assert.equal(serialOf(history), 99);
  assert.equal(history.newer, 2);
});

void test("a pixel's ranges end at the shown frame", () => {
  const history = filled(3);
  history.step(-1);
  assert.deepEqual(
    history.ranges(2).map((range) => range.toFixed(3)),
    ["1.000", "2.000"],
  );
  assert.deepEqual(history.ranges(3), [0, 0]);
  // A place of an echo that is not published.
  assert.deepEqual(history.ranges(216 * 288 + 2), [0, 0]);
});
