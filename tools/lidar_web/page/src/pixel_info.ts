// What is known of a pixel, as text.

import { flagNames } from "./colours.js";
import {
  distanceBetween,
  flagsAt,
  kCarriesReflectivity,
  pixelAt,
  pointAt,
  rangeAt,
  hasFlag,
  type Directions,
  type Frame,
} from "./frame.js";

export interface PixelInfo {
  pixel: string;
  range: string;
  reflectivity: string;
  x: string;
  y: string;
  z: string;
  flags: string;
}

export const kInfoNames: readonly (readonly [keyof PixelInfo, string])[] = [
  ["pixel", "row, col"],
  ["range", "range"],
  ["reflectivity", "reflect."],
  ["x", "x ahead"],
  ["y", "y left"],
  ["z", "z up"],
  ["flags", "flags"],
];

const kNothing = "–";

export const kNoInfo: PixelInfo = {
  pixel: "",
  range: "",
  reflectivity: "",
  x: "",
  y: "",
  z: "",
  flags: "",
};

function metres(value: number): string {
  return `${value.toFixed(3)} m`;
}

export function infoOf(frame: Frame, directions: Directions | null, place: number): PixelInfo {
  const { echo, row, col } = pixelAt(place);
  const name = `${String(row)}, ${String(col)}${echo === 0 ? "" : " e1"}`;
  const range = rangeAt(frame, place);
  if (range === 0) return { ...kNoInfo, pixel: name, range: "no return" };
  const point = directions === null ? null : pointAt(frame, directions, place);
  const coordinate = (axis: 0 | 1 | 2) => (point === null ? kNothing : metres(point[axis]));
  const names = flagNames(flagsAt(frame, place) & frame.knownFlags);
  return {
    pixel: name,
    range: metres(range),
    reflectivity: hasFlag(frame.carries, kCarriesReflectivity)
      ? String(frame.reflectivity[place])
      : kNothing,
    x: coordinate(0),
    y: coordinate(1),
    z: coordinate(2),
    flags: frame.knownFlags === 0 ? kNothing : names.join(", ") || "none",
  };
}

/** Between the points of two pixels; null where one has no return. */
export function distanceOf(
  frame: Frame,
  directions: Directions,
  a: number,
  b: number,
): number | null {
  const from = pointAt(frame, directions, a);
  const to = pointAt(frame, directions, b);
  return from === null || to === null ? null : distanceBetween(from, to);
}
