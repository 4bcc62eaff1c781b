import assert from "node:assert/strict";
import { test } from "node:test";
import {
  defaultSettings,
  hashFromSettings,
  settingsFromHash,
  type Settings,
} from "page/settings.js";

void test("settings come back from their link", () => {
  const settings: Settings = {
    colouring: "flags",
    echoes: "1",
    pointSize: 3.5,
    range: { low: 2, high: 25.5 },
    reflectivity: { low: 10, high: 200 },
    grid: false,
    theme: "light",
    camera: { position: [1.25, -2, 3], target: [4, 5, -6.5] },
  };
  assert.deepEqual(settingsFromHash(`#${hashFromSettings(settings)}`), settings);
});

void test("the defaults need no words in the address", () => {
  assert.equal(hashFromSettings(defaultSettings()), "");
  assert.deepEqual(settingsFromHash(""), defaultSettings());
});

void test("what makes no sense in a link is left out", () => {
  const senseless = [
    "colour=blue",
    "echo=2",
    "theme=red",
    "size=0",
    "size=9",
    "size=x",
    "range=5",
    "range=5,4",
    "range=5,5",
    "range=-1,4",
    "range=0,61",
    "refl=0,256",
    "range=,4",
    "range=NaN,4",
    "camera=1,2,3",
    "camera=1,2,3,4,5,1e9",
    "camera=1,2,3,4,5,Infinity",
    "grid=maybe",
    "other=1",
  ];
  for (const hash of senseless) assert.deepEqual(settingsFromHash(hash), defaultSettings(), hash);
});

void test("one wrong word spoils no other", () => {
  const settings = settingsFromHash("#colour=blue&echo=1&range=3,x&refl=5,9");
  assert.equal(settings.echoes, "1");
  assert.deepEqual(settings.reflectivity, { low: 5, high: 9 });
  assert.deepEqual(settings.range, defaultSettings().range);
});
