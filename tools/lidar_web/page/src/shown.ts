// Which points are shown and on which scale they are coloured: one rule for shader, images and
// picking.

import {
  hasFlag,
  kFlagBit,
  kPixels,
  pointAt,
  rangeAt,
  type Directions,
  type Frame,
} from "./frame.js";
import { kMaxRange, type Limits, type Settings } from "./settings.js";

/** Height of the scale of heights above the ground, and how far it begins below it; metres. */
const kHeightSpan = 5;
const kBelowGround = 0.5;
/** Fewer ground points than this tell no height. */
const kFewestGroundPoints = 200;
/** Of all points: below it are few but wrong ones. */
const kLowShare = 0.03;

export function echoIsShown(settings: Settings, echo: number): boolean {
  return settings.echoes === "both" || settings.echoes === String(echo);
}

/** The far limit's end switches it off. */
export function farLimit(settings: Settings): number {
  return settings.range.high >= kMaxRange ? Infinity : settings.range.high;
}

export function isShown(settings: Settings, frame: Frame, place: number): boolean {
  const range = rangeAt(frame, place);
  const reflectivity = frame.reflectivity[place];
  return (
    range > 0 &&
    echoIsShown(settings, Math.floor(place / kPixels)) &&
    range >= settings.range.low &&
    range <= farLimit(settings) &&
    reflectivity >= settings.reflectivity.low &&
    reflectivity <= settings.reflectivity.high
  );
}

/** Metres of z, from below the ground upward. */
export function heightScale(groundHeight: number): Limits {
  return { low: groundHeight - kBelowGround, high: groundHeight - kBelowGround + kHeightSpan };
}

/** Ends of the colour bar, in the unit of the coloured value. */
export function colourScale(settings: Settings, ground: number): Limits {
  switch (settings.colouring) {
    case "height":
      return heightScale(ground);
    case "reflectivity":
      return settings.reflectivity;
    default:
      return settings.range;
  }
}

function heightsWhere(
  frame: Frame,
  directions: Directions,
  takes: (place: number) => boolean,
): number[] {
  const heights: number[] = [];
  for (let place = 0; place < kPixels; place += 1) {
    if (!takes(place)) continue;
    const point = pointAt(frame, directions, place);
    if (point !== null) heights.push(point[2]);
  }
  return heights.sort((a, b) => a - b);
}

/**
 * z of the ground, metres, to a tenth: the middle one of the points labelled as ground. Where too
 * few are, a height that few points lie below; null in a frame of nothing.
 */
export function groundHeight(frame: Frame, directions: Directions): number | null {
  const { flags } = frame;
  const ground =
    flags === null
      ? []
      : heightsWhere(frame, directions, (place) => hasFlag(flags[place], kFlagBit.ground));
  if (ground.length >= kFewestGroundPoints) return toTenth(ground[Math.floor(ground.length / 2)]);
  const all = heightsWhere(frame, directions, () => true);
  return all.length === 0 ? null : toTenth(all[Math.floor(all.length * kLowShare)]);
}

function toTenth(metres: number): number {
  return Math.round(metres * 10) / 10;
}
