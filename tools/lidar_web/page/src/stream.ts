// The messages of the server's stream; docs/formats.md has them byte by byte.

import { kPixels, type Directions, type Frame } from "./frame.js";

export const kSubprotocol = "kerul-lidar-1";
export const kPullBytes = 16;
const kPull = 1;
const kDirections = 1;
const kFrame = 2;
const kFlagsPlane = 1;
const kDirectionsHeader = 16;
const kFrameHeader = 96;

/** The server's first message: what is shown. */
export interface Hello {
  type: "hello";
  protocol: number;
  version: string;
  rows: number;
  cols: number;
  source: string;
  directions: string;
  default_directions: boolean;
  mounted: boolean;
  /** Whether pixels' stories are told; not there before there were any. */
  stories?: boolean;
}

/** Twice a second: how node and server do. Totals count from the server's start. */
export interface Figures {
  type: "figures";
  clock_us: number;
  source: string;
  source_ok: boolean;
  frames_per_s: number;
  latency_ms: number | null;
  silent_s: number | null;
  clients: number;
  frames: { complete: number; incomplete: number; missing: number };
  lost: { before_host: number | null; kernel: number | null; ring: number };
  missing_blocks: number;
  restarts: number;
}

/** When a frame was asked for and sent: what the client's clock is set by. */
export interface Transfer {
  askedMs: number;
  pulledUs: number;
  sentUs: number;
}

export type BinaryMessage =
  | { kind: "directions"; directions: Directions }
  | { kind: "frame"; frame: Frame; transfer: Transfer };

/** Null for what is not one of the two; members that may come later are let through. */
export function decodeText(text: string): Hello | Figures | null {
  let value: unknown;
  try {
    value = JSON.parse(text);
  } catch {
    return null;
  }
  if (typeof value !== "object" || value === null || !("type" in value)) return null;
  if (value.type === "hello") return value as Hello;
  if (value.type === "figures") return value as Figures;
  return null;
}

function decodeDirections(message: ArrayBuffer): BinaryMessage | null {
  if (message.byteLength !== kDirectionsHeader + kPixels * 12) return null;
  const view = new DataView(message);
  const offset = [4, 8, 12].map((at) => view.getFloat32(at, true));
  return {
    kind: "directions",
    directions: {
      offset: [offset[0], offset[1], offset[2]],
      unit: new Float32Array(message, kDirectionsHeader),
    },
  };
}

/** Length of a frame message: its header and the planes that it says it has. */
function frameBytes(echoes: number, planes: number): number {
  const bytesEach = (planes & kFlagsPlane) !== 0 ? 5 : 3;
  return kFrameHeader + echoes * kPixels * bytesEach;
}

function decodeFrame(message: ArrayBuffer): BinaryMessage | null {
  if (message.byteLength < kFrameHeader) return null;
  const view = new DataView(message);
  const planes = view.getUint8(1);
  const echoes = view.getUint8(2);
  if (echoes < 1 || echoes > 2 || message.byteLength !== frameBytes(echoes, planes)) return null;
  const count = echoes * kPixels;
  const frame: Frame = {
    serial: view.getUint32(4, true),
    id: view.getUint8(56),
    echoes,
    returnCode: view.getUint8(57),
    outputMode: view.getUint8(58),
    knownFlags: view.getUint16(60, true),
    carries: view.getUint32(72, true),
    // In single precision, as the node computes it.
    unitMetres: Math.fround(view.getUint8(3) / 1000),
    lastUs: view.getFloat64(16, true),
    takenUs: view.getFloat64(24, true),
    afterRestart: view.getUint8(59) !== 0,
    missingBlocks: view.getUint16(62, true),
    missingFrames: view.getUint32(64, true),
    lostPackets: view.getUint32(68, true),
    range: new Uint16Array(message, kFrameHeader, count),
    reflectivity: new Uint8Array(message, kFrameHeader + 2 * count, count),
    flags:
      (planes & kFlagsPlane) === 0
        ? null
        : new Uint16Array(message, kFrameHeader + 3 * count, count),
    message,
  };
  const transfer = {
    askedMs: view.getFloat64(48, true),
    pulledUs: view.getFloat64(32, true),
    sentUs: view.getFloat64(40, true),
  };
  return { kind: "frame", frame, transfer };
}

/** Null for a message of another kind or of a wrong length. */
export function decodeBinary(message: ArrayBuffer): BinaryMessage | null {
  if (message.byteLength === 0) return null;
  const kind = new Uint8Array(message, 0, 1)[0];
  if (kind === kDirections) return decodeDirections(message);
  if (kind === kFrame) return decodeFrame(message);
  return null;
}

/** Asks for one frame. `askedMs` is the client's clock and comes back in the answer. */
export function encodePull(askedMs: number, withFlags: boolean): ArrayBuffer {
  const message = new ArrayBuffer(kPullBytes);
  const view = new DataView(message);
  view.setUint8(0, kPull);
  view.setUint8(1, withFlags ? kFlagsPlane : 0);
  view.setFloat64(8, askedMs, true);
  return message;
}

/** How far the server's clock is ahead of the client's, milliseconds. */
export function clockAheadMs(transfer: Transfer, nowMs: number): number {
  const out = transfer.pulledUs / 1000 - transfer.askedMs;
  const back = transfer.sentUs / 1000 - nowMs;
  return (out + back) / 2;
}
