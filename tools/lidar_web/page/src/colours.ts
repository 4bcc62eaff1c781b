// Colours of points and of the legend. Shader and images use the same ramp entries.

import { hasFlag, kFlagBit } from "./frame.js";

/** 0..255 each. */
export type Rgb = readonly [number, number, number];

export const kRampEntries = 256;

// The lower half has most of the colours: most of what stands around a vehicle is near and dark.
const kAnchors: readonly (readonly [number, Rgb])[] = [
  [0, [74, 84, 214]],
  [0.12, [38, 168, 235]],
  [0.28, [48, 214, 150]],
  [0.48, [188, 226, 62]],
  [0.72, [253, 170, 48]],
  [1, [236, 62, 46]],
];
// Colours bright enough for a dark ground are too pale for a light one.
const kLightShare = 0.72;

export function shaded(colour: Rgb, light: boolean): Rgb {
  if (!light) return colour;
  return [
    Math.round(colour[0] * kLightShare),
    Math.round(colour[1] * kLightShare),
    Math.round(colour[2] * kLightShare),
  ];
}

/** Colour of `share`, 0..1, before the theme. */
function rampColour(share: number): Rgb {
  let index = 1;
  while (index < kAnchors.length - 1 && share > kAnchors[index][0]) index += 1;
  const [low, from] = kAnchors[index - 1];
  const [high, to] = kAnchors[index];
  const part = (share - low) / (high - low);
  const mix = (channel: 0 | 1 | 2) =>
    Math.round(from[channel] + (to[channel] - from[channel]) * part);
  return [mix(0), mix(1), mix(2)];
}

/** The ramp as RGBA bytes, low to high. */
export function makeRamp(light: boolean): Uint8Array<ArrayBuffer> {
  const ramp = new Uint8Array(kRampEntries * 4);
  for (let i = 0; i < kRampEntries; i += 1) {
    ramp.set([...shaded(rampColour(i / (kRampEntries - 1)), light), 255], i * 4);
  }
  return ramp;
}

/** Entry of the ramp for a value on a scale; values outside get the ends. */
export function rampIndex(value: number, low: number, high: number): number {
  const share = Math.min(Math.max((value - low) / (high - low), 0), 1);
  return Math.floor(share * (kRampEntries - 1) + 0.5);
}

/** A class of points with a colour of its own. */
export interface Category {
  name: string;
  colour: Rgb;
}

export const kEchoCategories: readonly Category[] = [
  { name: "echo 0", colour: [64, 168, 255] },
  { name: "echo 1", colour: [255, 158, 44] },
];

export const kGroundCategories: readonly Category[] = [
  { name: "not ground", colour: [168, 176, 196] },
  { name: "ground", colour: [96, 184, 76] },
];

/** The most telling flag first: a point with several gets the colour of the first. */
export const kFlagCategories: readonly (Category & { bit: number })[] = [
  { name: "bloom", colour: [255, 64, 255], bit: kFlagBit.bloom },
  { name: "after-pulse", colour: [255, 128, 16], bit: kFlagBit.afterPulse },
  { name: "filled", colour: [32, 208, 240], bit: kFlagBit.filled },
  { name: "shot noise", colour: [255, 72, 88], bit: kFlagBit.shotNoise },
  { name: "below level", colour: [150, 110, 255], bit: kFlagBit.belowLevel },
  { name: "high reflectivity", colour: [244, 228, 88], bit: kFlagBit.highReflectivity },
  { name: "ground", colour: [96, 168, 76], bit: kFlagBit.ground },
];
export const kNoFlag: Category = { name: "none of these", colour: [136, 140, 152] };

/** Names of the flags that are set. */
export function flagNames(flags: number): string[] {
  return kFlagCategories.filter((entry) => hasFlag(flags, entry.bit)).map((entry) => entry.name);
}

/** What can be told apart by the flags that an output mode carries. */
export function knownCategories(knownFlags: number): Category[] {
  const known = kFlagCategories.filter((entry) => hasFlag(knownFlags, entry.bit));
  return [...known, kNoFlag];
}
