// Compares received clouds, decoded by other people's code, with what our own reader saw, bit for
// bit.
//   node check_clouds.mjs RECEIVED EXPECTED FRAME_ID
// EXPECTED has for each frame seconds, nanoseconds and the points as PointsFile writes them
// (expected_frames.h), with the sensor's row 0 first.
import { strict as assert } from 'node:assert';
import fs from 'node:fs';

import { receivedMessages } from './received.mjs';

const ROWS = 216;
const COLS = 288;
const VALUES = ['x', 'y', 'z', 'intensity', 'range', 'echo', 'flags', 'time'];
const READ = {
  2: (data, at) => data.getUint8(at),
  4: (data, at) => data.getUint16(at, true),
  7: (data, at) => data.getFloat32(at, true),
};

function compareFrame(cloud, stamp, expected) {
  assert.deepEqual({ sec: cloud.header.stamp.sec, nanosec: cloud.header.stamp.nanosec }, stamp);
  assert.equal(cloud.header.frame_id, process.argv[4]);
  assert.deepEqual([cloud.height, cloud.width, cloud.is_bigendian, cloud.is_dense],
    [ROWS, COLS, false, false]);
  assert.equal(cloud.row_step, COLS * cloud.point_step);
  assert.equal(cloud.data.length, ROWS * cloud.row_step);
  const data = new DataView(cloud.data.buffer, cloud.data.byteOffset, cloud.data.length);
  const field = Object.fromEntries(cloud.fields.map((each) => [each.name, each]));
  const value = (name, point) =>
    READ[field[name].datatype](data, point * cloud.point_step + field[name].offset);
  for (let point = 0; point < ROWS * COLS; ++point) {
    const row = value('row', point);
    const col = value('col', point);
    assert.deepEqual([row, col], [ROWS - 1 - Math.floor(point / COLS), point % COLS]);
    const place = (row * COLS + col) * VALUES.length;
    VALUES.forEach((name, i) => {
      if (!Object.is(value(name, point), expected[place + i])) {
        assert.fail(`${name} of ${row}, ${col}: ${value(name, point)}, not ${expected[place + i]}`);
      }
    });
  }
}

const clouds = receivedMessages(process.argv[2], 'sensor_msgs/PointCloud2');
const bytes = fs.readFileSync(process.argv[3]);
const frameBytes = 8 + 4 * VALUES.length * ROWS * COLS;
assert.equal(clouds.length, bytes.length / frameBytes, 'frames');
assert(clouds.length > 0);
clouds.forEach((cloud, i) => {
  const at = i * frameBytes;
  const stamp = { sec: bytes.readInt32LE(at), nanosec: bytes.readUInt32LE(at + 4) };
  const values = bytes.subarray(at + 8, at + frameBytes);
  compareFrame(cloud, stamp, new Float32Array(new Uint8Array(values).buffer));
});
console.log(`${clouds.length} clouds are equal`);
