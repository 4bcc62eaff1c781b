// A frame as the page holds it, and where its pixels are.

export const kRows = 216;
export const kCols = 288;
export const kPixels = kRows * kCols;

/** Bit numbers of the flags plane. */
export const kFlagBit = {
  highReflectivity: 3,
  bloom: 4,
  afterPulse: 5,
  ground: 6,
  filled: 7,
  shotNoise: 8,
  belowLevel: 11,
} as const;

/** What an output mode tells of a point beside its range; bit numbers of `carries`. */
export const kCarriesReflectivity = 0;

/**
 * One published frame. The planes are [echo][row][col], views of `message` and never written.
 * Clocks in microseconds since the epoch are the node's.
 */
export interface Frame {
  serial: number;
  id: number;
  echoes: number;
  returnCode: number;
  outputMode: number;
  knownFlags: number;
  carries: number;
  unitMetres: number;
  lastUs: number;
  takenUs: number;
  afterRestart: boolean;
  missingBlocks: number;
  missingFrames: number;
  lostPackets: number;
  /** In units of `unitMetres`; 0 is no return. */
  range: Uint16Array<ArrayBuffer>;
  reflectivity: Uint8Array<ArrayBuffer>;
  /** Null when the message came without flags. */
  flags: Uint16Array<ArrayBuffer> | null;
  /** As it came, for the server that makes files of it. */
  message: ArrayBuffer;
}

/** Which way each pixel looks: a return at range r stands at `offset + r * unit`. */
export interface Directions {
  offset: readonly [number, number, number];
  /** [row][col] x, y, z; 0 0 0 where a pixel looks nowhere. */
  unit: Float32Array<ArrayBuffer>;
}

export type Vec3 = readonly [number, number, number];

/** A pixel of one echo. Row 0 is the lowest. */
export interface Pixel {
  echo: number;
  row: number;
  col: number;
}

/** Place of a pixel in a plane. */
export function placeOf(pixel: Pixel): number {
  return pixel.echo * kPixels + pixel.row * kCols + pixel.col;
}

export function pixelAt(place: number): Pixel {
  const inEcho = place % kPixels;
  return {
    echo: Math.floor(place / kPixels),
    row: Math.floor(inEcho / kCols),
    col: inEcho % kCols,
  };
}

/** Metres; 0 without a return. */
export function rangeAt(frame: Frame, place: number): number {
  return place < frame.range.length ? frame.range[place] * frame.unitMetres : 0;
}

export function flagsAt(frame: Frame, place: number): number {
  return frame.flags === null || place >= frame.flags.length ? 0 : frame.flags[place];
}

export function hasFlag(flags: number, bit: number): boolean {
  return ((flags >> bit) & 1) !== 0;
}

/** Null without a return or a direction. */
export function pointAt(frame: Frame, directions: Directions, place: number): Vec3 | null {
  const range = rangeAt(frame, place);
  const at = (place % kPixels) * 3;
  const { unit, offset } = directions;
  const x = unit[at];
  const y = unit[at + 1];
  const z = unit[at + 2];
  if (range === 0 || (x === 0 && y === 0 && z === 0)) return null;
  return [offset[0] + range * x, offset[1] + range * y, offset[2] + range * z];
}

export function distanceBetween(a: Vec3, b: Vec3): number {
  return Math.hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]);
}
