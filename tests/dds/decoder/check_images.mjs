// Compares received images with what our own reader saw.
//   node check_images.mjs RECEIVED EXPECTED range|intensity
// EXPECTED as for check_clouds.mjs.
import { strict as assert } from 'node:assert';
import fs from 'node:fs';

import { receivedMessages } from './received.mjs';

const ROWS = 216;
const COLS = 288;
const VALUES = 8;
const KINDS = {
  range: { place: 4, bytes: 4, encoding: '32FC1', none: NaN,
    read: (data, at) => data.getFloat32(at, true) },
  intensity: { place: 3, bytes: 1, encoding: 'mono8', none: 0,
    read: (data, at) => data.getUint8(at) },
};

const kind = KINDS[process.argv[4]];
const images = receivedMessages(process.argv[2], 'sensor_msgs/Image');
const bytes = fs.readFileSync(process.argv[3]);
const frameBytes = 8 + 4 * VALUES * ROWS * COLS;
assert.equal(images.length, bytes.length / frameBytes, 'frames');
assert(images.length > 0);
images.forEach((image, i) => {
  assert.equal(image.header.stamp.nanosec, bytes.readUInt32LE(i * frameBytes + 4));
  assert.deepEqual([image.height, image.width, image.encoding, image.is_bigendian, image.step],
    [ROWS, COLS, kind.encoding, 0, COLS * kind.bytes]);
  const data = new DataView(image.data.buffer, image.data.byteOffset, image.data.length);
  for (let line = 0; line < ROWS; ++line) {
    for (let col = 0; col < COLS; ++col) {
      const row = ROWS - 1 - line;
      const at = i * frameBytes + 8 + 4 * VALUES * (row * COLS + col);
      const isReturn = bytes.readFloatLE(at + 16) > 0;
      const expected = isReturn ? bytes.readFloatLE(at + 4 * kind.place) : kind.none;
      const value = kind.read(data, (line * COLS + col) * kind.bytes);
      if (!Object.is(value, expected)) assert.fail(`${row}, ${col}: ${value}, not ${expected}`);
    }
  }
});
console.log(`${images.length} images are equal`);
