// Range image and reflectivity image of a frame, the highest row on top.

import { kRampEntries, makeRamp, rampIndex } from "./colours.js";
import { kCols, kPixels, kRows, type Frame, type Pixel } from "./frame.js";
import type { Limits, Settings } from "./settings.js";
import { isShown } from "./shown.js";

/** RGBA. */
type Colour = readonly [number, number, number, number];

/** The echo that the images show: the first, unless only the second is asked for and there. */
export function imageEcho(settings: Settings, frame: Frame): number {
  return settings.echoes === "1" && frame.echoes > 1 ? 1 : 0;
}

/**
 * Paints `valueOf(place)` of each pixel on `scale`; pixels that are not shown get `none`.
 * @param pixels out: kCols x kRows RGBA, upper row first
 */
function paint(
  pixels: Uint8ClampedArray,
  frame: Frame,
  settings: Settings,
  ramp: Uint8Array,
  scale: Limits,
  none: Colour,
  valueOf: (place: number) => number,
): void {
  const first = imageEcho(settings, frame) * kPixels;
  // The image shows its echo also where the points of that echo are switched off.
  const limits: Settings = { ...settings, echoes: "both" };
  for (let row = 0; row < kRows; row += 1) {
    for (let col = 0; col < kCols; col += 1) {
      const place = first + row * kCols + col;
      const at = ((kRows - 1 - row) * kCols + col) * 4;
      if (!isShown(limits, frame, place)) {
        pixels.set(none, at);
        continue;
      }
      const entry = rampIndex(valueOf(place), scale.low, scale.high) * 4;
      pixels[at] = ramp[entry];
      pixels[at + 1] = ramp[entry + 1];
      pixels[at + 2] = ramp[entry + 2];
      pixels[at + 3] = 255;
    }
  }
}

export class RangeImages {
  private readonly data = new ImageData(kCols, kRows);
  private ramp = makeRamp(false);
  private none: Colour = [0, 0, 0, 255];

  constructor(
    private readonly rangeCanvas: HTMLCanvasElement,
    private readonly reflectivityCanvas: HTMLCanvasElement,
  ) {}

  /** @param none colour of a pixel without a return */
  setTheme(light: boolean, none: string): void {
    this.ramp = makeRamp(light);
    const value = parseInt(none.replace("#", ""), 16);
    this.none = [(value >> 16) & 255, (value >> 8) & 255, value & 255, 255];
  }

  draw(frame: Frame, settings: Settings): void {
    const { data, ramp, none } = this;
    paint(
      data.data,
      frame,
      settings,
      ramp,
      settings.range,
      none,
      (place) => frame.range[place] * frame.unitMetres,
    );
    this.rangeCanvas.getContext("2d")?.putImageData(data, 0, 0);
    paint(
      data.data,
      frame,
      settings,
      ramp,
      settings.reflectivity,
      none,
      (place) => frame.reflectivity[place],
    );
    this.reflectivityCanvas.getContext("2d")?.putImageData(data, 0, 0);
  }
}

/** Pixel under a place of an image, in shares 0..1 of its width and height; null outside. */
export function pixelUnder(x: number, y: number, echo: number): Pixel | null {
  const col = Math.floor(x * kCols);
  const row = kRows - 1 - Math.floor(y * kRows);
  if (col < 0 || col >= kCols || row < 0 || row >= kRows) return null;
  return { echo, row, col };
}

/** Middle of a pixel in an image, in percent of its width and height. */
export function middleOf(pixel: Pixel): { left: number; top: number } {
  return {
    left: ((pixel.col + 0.5) / kCols) * 100,
    top: ((kRows - pixel.row - 0.5) / kRows) * 100,
  };
}

/** The ramp from left to right, for the colour bar. */
export function drawBar(canvas: HTMLCanvasElement, light: boolean): void {
  canvas.width = kRampEntries;
  canvas.height = 1;
  const image = new ImageData(kRampEntries, 1);
  image.data.set(makeRamp(light));
  canvas.getContext("2d")?.putImageData(image, 0, 0);
}
