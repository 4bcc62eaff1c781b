// Has lidar_view write a frame of known points as PLY and LAS, reads the LAS back with two readers
// that are not ours and compares point by point.
//   node read_back.mjs LIDAR_VIEW    where the packages of package.json are installed
import { strict as assert } from 'node:assert';
import fs from 'node:fs';
import { createRequire } from 'node:module';
import os from 'node:os';
import path from 'node:path';
import { pathToFileURL } from 'node:url';

import { BLOCK_COLS, BLOCK_ROWS, hasEcho, runWithStream } from '../npm_support/point_stream.mjs';

// The packages stand in the working directory, which is not this file's.
const require = createRequire(pathToFileURL(process.cwd() + '/'));
const { Las } = require('copc');
const { parse } = require('@loaders.gl/core');
const { LASLoader } = require('@loaders.gl/las');

async function writeFrame(program, folder) {
  const files = { ply: path.join(folder, 'a.ply'), las: path.join(folder, 'a.las') };
  const { status } = await runWithStream(
    program, ['--frames', 1, '--seconds', 60, '--ply', files.ply, '--las', files.las]);
  assert.equal(status, 0, 'lidar_view');
  return files;
}

// 22 bytes a point: x, y, z, intensity, row, col, echo, ground.
function readPly(file) {
  const bytes = fs.readFileSync(file);
  const begin = bytes.indexOf('end_header\n') + 'end_header\n'.length;
  const points = [];
  for (let at = begin; at < bytes.length; at += 22) {
    points.push({
      xyz: [0, 4, 8].map((offset) => bytes.readFloatLE(at + offset)),
      intensity: bytes.readFloatLE(at + 12),
      row: bytes.readUInt16LE(at + 16),
      col: bytes.readUInt16LE(at + 18),
      echo: bytes[at + 20],
      ground: bytes[at + 21],
    });
  }
  return points;
}

// What a LAS reader has to give for a point.
const expected = (point) => ({
  xyz: point.xyz,
  intensity: point.intensity * 256,
  class: point.ground ? 2 : 1,
  returnNumber: point.echo + 1,
  returns: hasEcho(point.row, point.col, 1) ? 2 : 1,
});

function compare(reader, points, read) {
  assert.ok(points.length > BLOCK_ROWS * BLOCK_COLS, 'something is compared');
  points.forEach((point, i) => {
    const want = expected(point);
    const got = read(i);
    for (const axis of [0, 1, 2]) {
      // Half a step of 1 mm and the last bit of a float.
      assert.ok(Math.abs(got.xyz[axis] - want.xyz[axis]) < 0.000505, `${reader}: point ${i}`);
    }
    for (const key of Object.keys(got)) {
      if (key !== 'xyz') assert.equal(got[key], want[key], `${reader}: ${key} of point ${i}`);
    }
  });
  console.log(`${reader}: ${points.length} points as expected`);
}

function compareCopc(points, bytes) {
  const header = Las.Header.parse(bytes);
  assert.equal(`${header.majorVersion}.${header.minorVersion}`, '1.2');
  assert.equal(header.pointDataRecordFormat, 1);
  assert.equal(header.pointCount, points.length);
  assert.deepEqual(header.scale, [0.001, 0.001, 0.001]);
  for (const axis of [0, 1, 2]) {
    const values = points.map((point) => Math.round(point.xyz[axis] * 1000) / 1000);
    assert.ok(Math.abs(header.min[axis] - values.reduce((a, b) => Math.min(a, b))) < 0.0015);
    assert.ok(Math.abs(header.max[axis] - values.reduce((a, b) => Math.max(a, b))) < 0.0015);
  }
  const view = Las.View.create(bytes.subarray(header.pointDataOffset), header);
  const get = Object.fromEntries(
    ['X', 'Y', 'Z', 'Intensity', 'Classification', 'ReturnNumber', 'NumberOfReturns', 'GpsTime']
      .map((name) => [name, view.getter(name)]));
  assert.equal(view.pointCount, points.length);
  compare('copc', points, (i) => ({
    xyz: [get.X(i), get.Y(i), get.Z(i)],
    intensity: get.Intensity(i),
    class: get.Classification(i),
    returnNumber: get.ReturnNumber(i),
    returns: get.NumberOfReturns(i),
  }));
  assert.equal(get.GpsTime(0), 384035218.25);
}

async function compareLoaders(points, bytes) {
  const buffer = bytes.buffer.slice(bytes.byteOffset, bytes.byteOffset + bytes.byteLength);
  const mesh = await parse(buffer, LASLoader, { worker: false, las: { fp64: true, skip: 1 } });
  const { POSITION, intensity, classification } = mesh.attributes;
  assert.equal(POSITION.value.length, 3 * points.length);
  compare('loaders.gl', points, (i) => ({
    xyz: [0, 1, 2].map((axis) => POSITION.value[3 * i + axis]),
    intensity: intensity.value[i],
    class: classification.value[i],
  }));
}

const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'kerul_las_'));
try {
  const files = await writeFrame(process.argv[2], folder);
  const points = readPly(files.ply);
  const bytes = fs.readFileSync(files.las);
  compareCopc(points, bytes);
  await compareLoaders(points, bytes);
} finally {
  fs.rmSync(folder, { recursive: true });
}
