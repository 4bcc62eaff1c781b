// Up to two pinned pixels. A third click begins anew, one on a pinned pixel takes it off.

export type Pins = readonly number[];

export const kPinNames = ["A", "B"] as const;

/** `place` is a place in the frame's planes. */
export function pinsAfterClick(pins: Pins, place: number): Pins {
  if (pins.includes(place)) return pins.filter((pinned) => pinned !== place);
  return pins.length < kPinNames.length ? [...pins, place] : [place];
}
