// Hovering and clicking, on the points as on the images.

import { placeOf } from "./frame.js";
import { pixelUnder } from "./range_images.js";

/** A press that moves farther than this turns the view and pins nothing, pixels. */
const kClickSlack = 4;

export interface PointingEvents {
  /** Null: nothing is hovered any more. */
  hover: (place: number | null) => void;
  pin: (place: number) => void;
}

/** How near to a point counts, pixels: a finger covers more than a cursor. */
function reachOf(event: PointerEvent): number {
  return event.pointerType === "mouse" ? 6 : 16;
}

/** @param pick gives the place at x and y within a reach, all in pixels of the canvas */
export function listenToPoints(
  canvas: HTMLCanvasElement,
  pick: (x: number, y: number, reach: number) => number | null,
  events: PointingEvents,
): void {
  let pressed: { x: number; y: number } | null = null;
  let waiting: PointerEvent | null = null;
  canvas.addEventListener("pointerdown", (event) => {
    pressed = event.isPrimary && event.button === 0 ? { x: event.clientX, y: event.clientY } : null;
  });
  canvas.addEventListener("pointerup", (event) => {
    const moved =
      pressed === null
        ? Infinity
        : Math.hypot(event.clientX - pressed.x, event.clientY - pressed.y);
    pressed = null;
    if (moved > kClickSlack) return;
    const place = pick(event.offsetX, event.offsetY, reachOf(event));
    if (place !== null) events.pin(place);
  });
  canvas.addEventListener("pointermove", (event) => {
    if (event.buttons !== 0) return;
    // All points are looked at, so once a picture is enough.
    if (waiting === null) {
      requestAnimationFrame(() => {
        if (waiting !== null)
          events.hover(pick(waiting.offsetX, waiting.offsetY, reachOf(waiting)));
        waiting = null;
      });
    }
    waiting = event;
  });
  canvas.addEventListener("pointerleave", () => {
    waiting = null;
    events.hover(null);
  });
}

/** @param echoOf the echo that the image shows */
export function listenToImage(
  canvas: HTMLCanvasElement,
  echoOf: () => number,
  events: PointingEvents,
): void {
  const placeUnder = (event: PointerEvent | MouseEvent): number | null => {
    const x = event.offsetX / canvas.clientWidth;
    const y = event.offsetY / canvas.clientHeight;
    const pixel = pixelUnder(x, y, echoOf());
    return pixel === null ? null : placeOf(pixel);
  };
  canvas.addEventListener("pointermove", (event) => {
    events.hover(placeUnder(event));
  });
  canvas.addEventListener("pointerleave", () => {
    events.hover(null);
  });
  canvas.addEventListener("click", (event) => {
    const place = placeUnder(event);
    if (place !== null) events.pin(place);
  });
}
