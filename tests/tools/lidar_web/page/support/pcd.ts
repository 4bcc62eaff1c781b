// Reads the binary PCD that lidar_view writes.

import assert from "node:assert/strict";

export interface CloudPoint {
  x: number;
  y: number;
  z: number;
  intensity: number;
  row: number;
  col: number;
}

const kFields = "FIELDS x y z intensity row col";

/** Points of the file; fails when its fields are others. */
export function readPcd(file: Buffer): CloudPoint[] {
  const end = file.indexOf("DATA binary\n") + "DATA binary\n".length;
  const header = file.toString("latin1", 0, end);
  assert.ok(header.includes(kFields), header);
  const sizes = /^SIZE (.*)$/m.exec(header)?.[1].split(" ").map(Number) ?? [];
  assert.deepEqual(sizes.slice(0, 6), [4, 4, 4, 4, 2, 2]);
  const stride = sizes.reduce((sum, size) => sum + size, 0);
  const count = Number(/^POINTS (\d+)$/m.exec(header)?.[1]);
  assert.equal(file.length, end + count * stride);
  return Array.from({ length: count }, (_, i) => {
    const at = end + i * stride;
    return {
      x: file.readFloatLE(at),
      y: file.readFloatLE(at + 4),
      z: file.readFloatLE(at + 8),
      intensity: file.readFloatLE(at + 12),
      row: file.readUInt16LE(at + 16),
      col: file.readUInt16LE(at + 18),
    };
  });
}
