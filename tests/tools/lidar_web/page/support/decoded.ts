// Decoded sample frames for unit tests.

import type { Directions, Frame } from "page/frame.js";
import { decodeBinary } from "page/stream.js";
import {
  directionsMessage,
  frameMessage,
  usualFields,
  type FrameFields,
  type Return,
} from "./sample_stream.js";

export function frameOf(returns: readonly Return[], fields: Partial<FrameFields> = {}): Frame {
  const decoded = decodeBinary(frameMessage({ ...usualFields(1), ...fields }, returns));
  if (decoded?.kind !== "frame") throw new Error("no frame");
  return decoded.frame;
}

export function sampleDirections(offset: readonly number[] = [0, 0, 0]): Directions {
  const decoded = decodeBinary(directionsMessage(offset));
  if (decoded?.kind !== "directions") throw new Error("no directions");
  return decoded.directions;
}
