import assert from "node:assert/strict";
import { test } from "node:test";
import { ServerClock } from "page/clock.js";
import {
  clockText,
  countText,
  framesPerSecond,
  healthOf,
  keepRecent,
  kStallMs,
  millisecondsText,
  type HealthInput,
} from "page/health.js";
import { waitBeforeTry } from "page/link.js";
import { decodeText, type Figures } from "page/stream.js";
import { figuresMessage, kUsualFigures, type FiguresFields } from "../support/sample_stream.js";

const kNow = new Date(2026, 5, 1, 12, 0, 30).getTime();

function figuresOf(fields: Partial<FiguresFields> = {}): Figures {
  const figures = decodeText(figuresMessage({ ...kUsualFigures, ...fields }));
  assert.equal(figures?.type, "figures");
  return figures;
}

function inputOf(changed: Partial<HealthInput> = {}): HealthInput {
  return {
    nowMs: kNow,
    link: "open",
    isPaused: false,
    figures: figuresOf(),
    figuresAtMs: kNow - 100,
    askedAtMs: kNow - 40,
    arrivalsMs: [kNow - 150, kNow - 50],
    newestTakenMs: kNow - 5000,
    shownTakenMs: kNow - 52,
    ...changed,
  };
}

void test("frames that come are live", () => {
  const health = healthOf(inputOf());
  assert.equal(health.state, "live");
  assert.equal(health.ageMs, 52);
  assert.equal(health.framesPerS, 1);
});

void test("a node without a packet for a second is silent, with the time since", () => {
  const silent = healthOf(inputOf({ figures: figuresOf({ silentS: 4.9 }) }));
  assert.equal(silent.state, "silent");
  assert.equal(silent.text, "node silent since 12:00:25 (5.0 s)");
  // The time since the figures came counts too: silence is seen before the next ones.
  const between = (ms: number) =>
    healthOf(inputOf({ figures: figuresOf({ silentS: 0.6 }), figuresAtMs: kNow - ms })).state;
  assert.equal(between(99), "live");
  assert.equal(between(101), "silent");
});

void test("a stall is seen within a second", () => {
  // Five looks a second: 800 ms here is a second at most on the page.
  const at = (ms: number) =>
    healthOf(inputOf({ figures: figuresOf({ silentS: 0 }), figuresAtMs: kNow - ms })).state;
  assert.equal(at(700), "live");
  assert.equal(at(799), "silent");
});

void test("a frame that came after the figures is no silence", () => {
  const figures = figuresOf({ silentS: 0.4 });
  assert.equal(
    healthOf(inputOf({ figures, figuresAtMs: kNow - 500, newestTakenMs: kNow - 300 })).state,
    "live",
  );
  assert.equal(
    healthOf(inputOf({ figures, figuresAtMs: kNow - 500, newestTakenMs: kNow - 800 })).state,
    "silent",
  );
});

void test("packets without a frame that is asked for are a stall", () => {
  assert.equal(healthOf(inputOf({ askedAtMs: kNow - kStallMs - 1 })).state, "stalled");
  assert.equal(healthOf(inputOf({ askedAtMs: kNow - kStallMs })).state, "live");
});

void test("a browser that draws slowly is no stall", () => {
  assert.equal(healthOf(inputOf({ askedAtMs: null, arrivalsMs: [kNow - 1900] })).state, "live");
});

void test("a missing ring is told with its reason", () => {
  const health = healthOf(inputOf({ figures: figuresOf({ sourceOk: false, silentS: null }) }));
  assert.equal(health.state, "no source");
  assert.equal(health.text, "no source: ring /sample (does not exist)");
});

void test("before the first packet the page waits", () => {
  assert.equal(healthOf(inputOf({ figures: figuresOf({ silentS: null }) })).state, "waiting");
});

void test("a server that is away or dumb is no silent node", () => {
  assert.equal(healthOf(inputOf({ link: "closed" })).state, "no server");
  assert.equal(healthOf(inputOf({ figuresAtMs: kNow - 2001 })).state, "no server");
  assert.equal(healthOf(inputOf({ figures: null })).state, "no server");
});

void test("pausing hides no silence", () => {
  assert.equal(healthOf(inputOf({ isPaused: true, arrivalsMs: [] })).state, "paused");
  assert.equal(
    healthOf(inputOf({ isPaused: true, figures: figuresOf({ silentS: 3 }) })).state,
    "silent",
  );
});

void test("frames a second are those of two seconds", () => {
  const arrivals = Array.from({ length: 40 }, (_, i) => kNow - 50 - 100 * i);
  assert.equal(framesPerSecond(arrivals, kNow), 10);
  assert.equal(keepRecent(arrivals, kNow).length, 20);
  assert.equal(framesPerSecond([], kNow), 0);
});

void test("times are written with the digits that mean something", () => {
  assert.equal(millisecondsText(null), "–");
  assert.equal(millisecondsText(3.14), "3.1 ms");
  assert.equal(millisecondsText(-3.14), "-3.1 ms");
  assert.equal(millisecondsText(250.4), "250 ms");
  assert.equal(millisecondsText(61_500), "61 s");
  assert.equal(countText(null), "–");
  assert.equal(countText(0), "0");
  assert.equal(clockText(new Date(2026, 0, 2, 3, 4, 5).getTime()), "03:04:05");
});

void test("tries to reach the server are at most a second apart", () => {
  assert.deepEqual([0, 1, 2, 3, 50].map(waitBeforeTry), [250, 500, 1000, 1000, 1000]);
});

void test("the server's clock is taken from the answer that was quickest", () => {
  const clock = new ServerClock();
  assert.equal(clock.aheadMs, 0);
  // 70 ms on the way back: 35 ms wrong.
  clock.take({ askedMs: 0, pulledUs: 1_000_000, sentUs: 1_000_000 }, 70);
  assert.equal(clock.aheadMs, 965);
  clock.take({ askedMs: 100, pulledUs: 1_101_000, sentUs: 1_151_000 }, 152);
  assert.equal(clock.aheadMs, 1000);
  assert.equal(clock.pageMs(3_000_000), 2000);
  clock.forget();
  assert.equal(clock.aheadMs, 0);
});
