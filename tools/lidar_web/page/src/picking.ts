// From points to places on the page and back.

import { kPixels, type Directions, type Frame, type Vec3 } from "./frame.js";
import { echoIsShown, isShown } from "./shown.js";
import type { Settings } from "./settings.js";

/** A camera's projection times its view, 16 numbers column by column. */
export type Matrix = readonly number[];

export interface Size {
  width: number;
  height: number;
}

/** x and y from the upper left corner, in units of `size`, and the depth: smaller is nearer. */
export interface Projected {
  x: number;
  y: number;
  depth: number;
}

/** Null for what is not in front of the camera. */
export function project(matrix: Matrix, size: Size, point: Vec3): Projected | null {
  const [x, y, z] = point;
  const w = matrix[3] * x + matrix[7] * y + matrix[11] * z + matrix[15];
  if (w <= 0) return null;
  const right = (matrix[0] * x + matrix[4] * y + matrix[8] * z + matrix[12]) / w;
  const up = (matrix[1] * x + matrix[5] * y + matrix[9] * z + matrix[13]) / w;
  const depth = (matrix[2] * x + matrix[6] * y + matrix[10] * z + matrix[14]) / w;
  if (depth < -1 || depth > 1) return null;
  return { x: ((right + 1) / 2) * size.width, y: ((1 - up) / 2) * size.height, depth };
}

export interface PickInput {
  frame: Frame;
  directions: Directions;
  settings: Settings;
  matrix: Matrix;
  size: Size;
}

/**
 * Place of the shown point at (x, y): the one in front among those within `radius`, or else the
 * closest on the page. Null where none is near.
 */
export function pickPoint(input: PickInput, x: number, y: number, radius: number): number | null {
  const { frame, directions, settings, matrix: m, size } = input;
  const { unit, offset } = directions;
  const reach = radius * radius;
  // A point that is as good as under the cursor counts by its depth alone.
  const close = (radius / 3) * (radius / 3);
  let best: number | null = null;
  let bestScore = Infinity;
  for (let echo = 0; echo < frame.echoes; echo += 1) {
    if (!echoIsShown(settings, echo)) continue;
    for (let pixel = 0; pixel < kPixels; pixel += 1) {
      const place = echo * kPixels + pixel;
      if (frame.range[place] === 0) continue;
      // Written out, without a vector a point: this runs over all points with each move.
      const range = frame.range[place] * frame.unitMetres;
      const px = offset[0] + range * unit[3 * pixel];
      const py = offset[1] + range * unit[3 * pixel + 1];
      const pz = offset[2] + range * unit[3 * pixel + 2];
      if (unit[3 * pixel] === 0 && unit[3 * pixel + 1] === 0 && unit[3 * pixel + 2] === 0) continue;
      const w = m[3] * px + m[7] * py + m[11] * pz + m[15];
      if (w <= 0) continue;
      const dx = (((m[0] * px + m[4] * py + m[8] * pz + m[12]) / w + 1) / 2) * size.width - x;
      const dy = ((1 - (m[1] * px + m[5] * py + m[9] * pz + m[13]) / w) / 2) * size.height - y;
      const away = dx * dx + dy * dy;
      if (away > reach || !isShown(settings, frame, place)) continue;
      // Depths w are metres; the square of pixels far outweighs them outside the close circle.
      const score = away <= close ? w : 1e6 + away;
      if (score < bestScore) {
        bestScore = score;
        best = place;
      }
    }
  }
  return best;
}
