// The pinned pixels' range over the last frames.

import { kHistoryFrames } from "./history.js";
import type { Limits } from "./settings.js";

/** Room for the scale's numbers, pixels. */
const kLeft = 52;
const kBelow = 14;
const kAbove = 6;
/** The scale spans at least this, metres, so that millimetres of noise do not fill it. */
const kLeastSpan = 0.1;

export interface PlotLine {
  /** Metres, oldest first; 0 is no return. */
  ranges: readonly number[];
  colour: string;
}

/** Scale around all returns; null without one. */
export function plotScale(lines: readonly PlotLine[]): Limits | null {
  const values = lines.flatMap((line) => line.ranges).filter((range) => range > 0);
  if (values.length === 0) return null;
  const low = Math.min(...values);
  const high = Math.max(...values);
  const missing = Math.max(0, kLeastSpan - (high - low)) / 2;
  return { low: low - missing, high: high + missing };
}

function drawLine(
  context: CanvasRenderingContext2D,
  line: PlotLine,
  xOf: (i: number) => number,
  yOf: (r: number) => number,
): void {
  context.strokeStyle = line.colour;
  context.fillStyle = line.colour;
  context.beginPath();
  let isDown = false;
  line.ranges.forEach((range, i) => {
    // A frame without a return leaves a gap.
    if (range === 0) {
      isDown = false;
      return;
    }
    const x = xOf(i + kHistoryFrames - line.ranges.length);
    const y = yOf(range);
    if (isDown) context.lineTo(x, y);
    else context.moveTo(x, y);
    isDown = true;
    context.fillRect(x - 1, y - 1, 2, 2);
  });
  context.stroke();
}

/** The newest frame is at the right edge. */
export function drawPlot(
  canvas: HTMLCanvasElement,
  lines: readonly PlotLine[],
  edge: string,
  text: string,
): void {
  const ratio = window.devicePixelRatio;
  const width = canvas.clientWidth;
  const height = canvas.clientHeight;
  canvas.width = Math.round(width * ratio);
  canvas.height = Math.round(height * ratio);
  const context = canvas.getContext("2d");
  if (context === null) return;
  context.scale(ratio, ratio);
  context.font = "11px system-ui, sans-serif";
  context.strokeStyle = edge;
  context.strokeRect(kLeft + 0.5, kAbove + 0.5, width - kLeft - 2, height - kBelow - kAbove);
  context.fillStyle = text;
  context.textBaseline = "middle";
  context.fillText(`${String(kHistoryFrames)} frames`, kLeft, height - 6);
  context.textAlign = "right";
  context.fillText("now", width - 2, height - 6);
  const scale = plotScale(lines);
  if (scale === null) return;
  context.fillText(`${scale.high.toFixed(2)} m`, kLeft - 4, kAbove + 5);
  context.fillText(`${scale.low.toFixed(2)} m`, kLeft - 4, height - kBelow - 5);
  const inner = height - kBelow - kAbove - 6;
  const xOf = (i: number) => kLeft + 2 + (i * (width - kLeft - 6)) / (kHistoryFrames - 1);
  const yOf = (r: number) => kAbove + 3 + (1 - (r - scale.low) / (scale.high - scale.low)) * inner;
  for (const line of lines) drawLine(context, line, xOf, yOf);
}
