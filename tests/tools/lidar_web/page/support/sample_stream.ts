// Messages of the server's stream, built byte by byte as docs/formats.md lays them out.

export const kRows = 216;
export const kCols = 288;
export const kPixels = kRows * kCols;
/** Of the plain pinhole camera that looks along x, pixels. */
const kFocalLength = 200;

/** The unit direction of a pixel. */
export function directionOf(row: number, col: number): [number, number, number] {
  const y = (143.5 - col) / kFocalLength;
  const z = (row - 107.5) / kFocalLength;
  const length = Math.hypot(1, y, z);
  return [1 / length, y / length, z / length];
}

export function directionsMessage(offset: readonly number[] = [0, 0, 0]): ArrayBuffer {
  const message = new ArrayBuffer(16 + kPixels * 12);
  const view = new DataView(message);
  view.setUint8(0, 1);
  offset.forEach((value, i) => {
    view.setFloat32(4 + 4 * i, value, true);
  });
  for (let row = 0; row < kRows; row += 1) {
    for (let col = 0; col < kCols; col += 1) {
      directionOf(row, col).forEach((value, i) => {
        view.setFloat32(16 + ((row * kCols + col) * 3 + i) * 4, value, true);
      });
    }
  }
  return message;
}

/** A return of one pixel. `counts` are units of 4 mm. */
export interface Return {
  echo: number;
  row: number;
  col: number;
  counts: number;
  reflectivity: number;
  flags: number;
}

export interface FrameFields {
  serial: number;
  echoes: number;
  withFlags: boolean;
  frameId: number;
  outputMode: number;
  knownFlags: number;
  carries: number;
  missingBlocks: number;
  firstUs: number;
  lastUs: number;
  takenUs: number;
  pulledUs: number;
  sentUs: number;
  askedMs: number;
}

/** All flags of mode 12. */
export const kAllFlags = 0x1fff;
/** Reflectivity and flags. */
export const kCarriesInMode12 = (1 << 0) | (1 << 11);

export function usualFields(serial: number): FrameFields {
  const nowUs = Date.now() * 1000;
  return {
    serial,
    echoes: 2,
    withFlags: true,
    frameId: serial % 256,
    outputMode: 12,
    knownFlags: kAllFlags,
    carries: kCarriesInMode12,
    missingBlocks: 0,
    firstUs: nowUs - 100_000,
    lastUs: nowUs - 3000,
    takenUs: nowUs - 2000,
    pulledUs: nowUs - 1000,
    sentUs: nowUs,
    askedMs: nowUs / 1000,
  };
}

export function frameMessage(fields: FrameFields, returns: readonly Return[]): ArrayBuffer {
  const n = fields.echoes * kPixels;
  const message = new ArrayBuffer(96 + n * (fields.withFlags ? 5 : 3));
  const view = new DataView(message);
  view.setUint8(0, 2);
  view.setUint8(1, fields.withFlags ? 1 : 0);
  view.setUint8(2, fields.echoes);
  view.setUint8(3, 4);
  view.setUint32(4, fields.serial, true);
  const times = [
    fields.firstUs,
    fields.lastUs,
    fields.takenUs,
    fields.pulledUs,
    fields.sentUs,
    fields.askedMs,
  ];
  times.forEach((value, i) => {
    view.setFloat64(8 + 8 * i, value, true);
  });
  view.setUint8(56, fields.frameId);
  view.setUint8(57, fields.echoes === 2 ? 12 : 1);
  view.setUint8(58, fields.outputMode);
  view.setUint16(60, fields.knownFlags, true);
  view.setUint16(62, fields.missingBlocks, true);
  view.setUint32(72, fields.carries, true);
  for (const { echo, row, col, counts, reflectivity, flags } of returns) {
    const place = echo * kPixels + row * kCols + col;
    view.setUint16(96 + 2 * place, counts, true);
    view.setUint8(96 + 2 * n + place, reflectivity);
    if (fields.withFlags) view.setUint16(96 + 3 * n + 2 * place, flags, true);
  }
  return message;
}

export function helloMessage(defaultDirections = false, stories = false): string {
  return JSON.stringify({
    type: "hello",
    protocol: 1,
    version: "0.1.0",
    rows: kRows,
    cols: kCols,
    source: "ring /sample",
    directions: "a pinhole camera",
    default_directions: defaultDirections,
    mounted: false,
    stories,
  });
}

export interface FiguresFields {
  silentS: number | null;
  sourceOk: boolean;
  beforeHost: number | null;
  kernel: number | null;
  ring: number;
  incomplete: number;
  missingBlocks: number;
}

export const kUsualFigures: FiguresFields = {
  silentS: 0.02,
  sourceOk: true,
  beforeHost: 0,
  kernel: 0,
  ring: 0,
  incomplete: 0,
  missingBlocks: 0,
};

export function figuresMessage(fields: FiguresFields): string {
  return JSON.stringify({
    type: "figures",
    clock_us: Date.now() * 1000,
    uptime_s: 10,
    source: fields.sourceOk ? "ring /sample" : "ring /sample (does not exist)",
    source_ok: fields.sourceOk,
    frames_per_s: 10,
    packets_per_s: 17280,
    latency_ms: 0.6,
    silent_s: fields.silentS,
    clients: 1,
    frames: { complete: 99, incomplete: fields.incomplete, missing: 0 },
    lost: { before_host: fields.beforeHost, kernel: fields.kernel, ring: fields.ring },
    packets: 171072,
    invalid: 0,
    missing_blocks: fields.missingBlocks,
    restarts: 0,
    node: null,
  });
}
