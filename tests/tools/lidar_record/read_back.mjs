// Has lidar_record record known frames and reads its files back with readers that are not ours.
//   node read_back.mjs LIDAR_RECORD SENSOR_SIMULATOR
// in a folder where the packages of tests/dds/decoder are installed.
import { strict as assert } from 'node:assert';
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import { createRequire } from 'node:module';
import os from 'node:os';
import path from 'node:path';
import { pathToFileURL } from 'node:url';

import { hasEcho, runWithStream } from '../npm_support/point_stream.mjs';

// The packages stand in the working directory, which is not this file's.
const require = createRequire(pathToFileURL(process.cwd() + '/'));
const { McapIndexedReader, McapStreamReader } = require('@mcap/core');
const { FileHandleReadable } = require('@mcap/nodejs');
const { loadDecompressHandlers } = require('@mcap/support');
const { parse } = require('@foxglove/rosmsg');
const { MessageReader } = require('@foxglove/rosmsg2-serialization');
const { ros2humble } = require('@foxglove/rosmsg-msgs-common');

const [recorder, simulator] = process.argv.slice(2);
const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'kerul_mcap_'));
const inFolder = (name) => path.join(folder, name);
const FRAMES = 3;
const PERIOD_US = 100000;
const CLOUDS = '/lidar/points';
const RAW = '/lidar/raw_packets';

async function record(name, args) {
  const file = inFolder(name);
  const { status } = await runWithStream(
    recorder, ['--out', file, '--frames', FRAMES, '--seconds', 60, '--echo', 'both', ...args],
    PERIOD_US);
  assert.equal(status, 0, `recording ${name}`);
  return file;
}

// Everything that a reader who cannot seek gets of the bytes; `error` is what ended it.
async function streamed(bytes) {
  const reader = new McapStreamReader({
    decompressHandlers: await loadDecompressHandlers(), validateCrcs: true, includeChunks: true });
  const result = { byType: new Map(), error: null, done: false };
  try {
    reader.append(bytes);
    for (let record = reader.nextRecord(); record; record = reader.nextRecord()) {
      if (!result.byType.has(record.type)) result.byType.set(record.type, []);
      result.byType.get(record.type).push(record);
    }
    result.done = reader.done();
  } catch (error) {
    result.error = error;
  }
  result.of = (type) => result.byType.get(type) ?? [];
  return result;
}

async function indexed(file) {
  const handle = await fs.promises.open(file);
  try {
    const reader = await McapIndexedReader.Initialize({
      readable: new FileHandleReadable(handle),
      decompressHandlers: await loadDecompressHandlers() });
    const messages = [];
    for await (const message of reader.readMessages({ validateCrcs: true })) messages.push(message);
    return { reader, messages };
  } finally {
    await handle.close();
  }
}

// --- What the file tells of itself ---

function checkDescription(schemas, channels) {
  const channel = [...channels].find((one) => one.topic === CLOUDS);
  const schema = [...schemas].find((one) => one.id === channel.schemaId);
  assert.equal(channel.messageEncoding, 'cdr');
  assert.equal(schema.name, 'sensor_msgs/msg/PointCloud2');
  assert.equal(schema.encoding, 'ros2msg');
  const qos = channel.metadata.get('offered_qos_profiles');
  assert.match(qos, /^- history: 1\n {2}depth: 5\n {2}reliability: 1\n {2}durability: 2\n/);
  return new TextDecoder().decode(schema.data);
}

// Each type that the text defines, field by field as ROS 2 Humble defines it.
function checkSchema(text) {
  const ours = parse(text, { ros2: true });
  assert.ok(text.includes(`\n${'='.repeat(80)}\nMSG: std_msgs/Header\n`));
  // Without what is undefined in one of the two.
  const strip = (fields) => JSON.parse(JSON.stringify(fields).replaceAll('/msg/', '/'));
  const names = ['sensor_msgs/PointCloud2', 'std_msgs/Header', 'builtin_interfaces/Time',
    'sensor_msgs/PointField'];
  let compared = 0;
  for (const name of names) {
    const mine = ours.find((one) => (one.name ?? names[0]).replace('/msg/', '/') === name);
    const theirs = Object.values(ros2humble).find((one) => one.name.replace('/msg/', '/') === name);
    assert.deepEqual(strip(mine.definitions), strip(theirs.definitions), name);
    ++compared;
  }
  assert.equal(compared, ours.length, 'every type compared');
  return ours;
}

// --- The points ---

const READ = {
  2: (view, at) => view.getUint8(at), 4: (view, at) => view.getUint16(at, true),
  7: (view, at) => view.getFloat32(at, true) };

// As the decoder and the fields of the message give them; without a place they are left out.
function pointsOfMessage(cloud) {
  const data = cloud.data;
  const view = new DataView(data.buffer, data.byteOffset, data.byteLength);
  const points = [];
  for (let line = 0; line < cloud.height; ++line) {
    for (let column = 0; column < cloud.width; ++column) {
      const at = line * cloud.row_step + column * cloud.point_step;
      const point = {};
      for (const field of cloud.fields) {
        point[field.name] = READ[field.datatype](view, at + field.offset);
      }
      if (!Number.isNaN(point.x)) points.push(point);
    }
  }
  return points;
}

// As our own reader gives them: 22 bytes each after the header of a PCD file.
function pointsOfExtract(file, frame) {
  const pcd = inFolder('frame.pcd');
  const run = spawnSync(recorder, ['extract', file, '--frame', frame, '--pcd', pcd]);
  assert.equal(run.status, 0, run.stderr.toString());
  const bytes = fs.readFileSync(pcd);
  const points = [];
  for (let at = bytes.indexOf('DATA binary\n') + 12; at < bytes.length; at += 22) {
    points.push({
      x: bytes.readFloatLE(at), y: bytes.readFloatLE(at + 4), z: bytes.readFloatLE(at + 8),
      intensity: bytes.readFloatLE(at + 12), row: bytes.readUInt16LE(at + 16),
      col: bytes.readUInt16LE(at + 18), echo: bytes[at + 20], ground: bytes[at + 21] });
  }
  return points;
}

function checkPoints(file, decoded) {
  let compared = 0;
  decoded.forEach((cloud, frame) => {
    assert.equal(cloud.header.frame_id, 'lidar');
    assert.equal(cloud.height, 2 * 216);
    assert.equal(cloud.width, 288);
    const theirs = pointsOfMessage(cloud);
    const ours = pointsOfExtract(file, frame);
    assert.equal(theirs.length, ours.length);
    theirs.forEach((point, i) => {
      const own = ours[i];
      for (const name of ['x', 'y', 'z', 'intensity', 'row', 'col', 'echo']) {
        assert.equal(point[name], own[name], `${name} of point ${i} of frame ${frame}`);
      }
      assert.equal((point.flags >> 6) & 1, own.ground);
      // What was sent.
      const { row, col, echo } = point;
      assert.ok(hasEcho(row, col, echo));
      assert.equal(point.intensity, (row + col) % 256);
      assert.equal(point.range, Math.fround((echo === 0 ? 500 + row + 2 * col : 250 + row) * 4 / 1000));
      ++compared;
    });
  });
  assert.ok(compared > FRAMES * 60000, 'points compared');
  return compared;
}

async function checkRecording(compression) {
  const file = await record(`${compression}.mcap`, ['--compression', compression]);
  const stream = await streamed(fs.readFileSync(file));
  assert.equal(stream.error, null);
  assert.ok(stream.done);
  assert.equal(stream.of('Header')[0].profile, 'ros2');
  const messages = stream.of('Message');
  assert.equal(messages.length, FRAMES);
  assert.equal(stream.of('Chunk').length, FRAMES);
  for (const chunk of stream.of('Chunk')) {
    assert.equal(chunk.compression, compression === 'none' ? '' : compression);
  }
  assert.equal(stream.of('DataEnd')[0].dataSectionCrc === 0, false);
  const text = checkDescription(stream.of('Schema'), stream.of('Channel'));
  const types = checkSchema(text);

  const index = await indexed(file);
  assert.equal(checkDescription(index.reader.schemasById.values(), index.reader.channelsById.values()),
    text);
  assert.equal(index.reader.statistics.messageCount, BigInt(FRAMES));
  assert.equal(index.reader.chunkIndexes.length, FRAMES);
  assert.equal(index.messages.length, FRAMES);
  index.messages.forEach((message, i) => {
    assert.deepEqual(message, messages[i]);
    const before = i === 0 ? message : messages[i - 1];
    assert.equal(message.logTime - before.logTime, i === 0 ? 0n : BigInt(PERIOD_US) * 1000n);
    assert.equal(message.sequence, i);
  });
  const decoder = new MessageReader(types);
  const count = checkPoints(file, messages.map((message) => decoder.readMessage(message.data)));
  console.log(`${compression}: ${count} points as sent, in both readers`);
  return file;
}

// --- Damage ---

const info = (file) => {
  const run = spawnSync(recorder, ['info', file]);
  const out = run.stdout.toString();
  return { status: run.status, out, value: (name) => out.match(new RegExp(`^${name}: (.*)$`, 'm'))?.[1] };
};

// Cut in the middle of each chunk, and right after it.
async function checkCuts(file) {
  const bytes = fs.readFileSync(file);
  const { reader } = await indexed(file);
  for (const [i, chunk] of reader.chunkIndexes.entries()) {
    const start = Number(chunk.chunkStartOffset);
    const end = start + Number(chunk.chunkLength);
    for (const [size, whole] of [[Math.floor((start + end) / 2), i], [end, i + 1]]) {
      const cut = inFolder('cut.mcap');
      fs.writeFileSync(cut, bytes.subarray(0, size));
      const stream = await streamed(bytes.subarray(0, size));
      assert.equal(stream.error, null);
      assert.ok(!stream.done);
      assert.equal(stream.of('Message').length, whole, `${whole} chunks before byte ${size}`);
      const ours = info(cut);
      assert.equal(ours.value('messages'), `${whole}`);
      assert.match(ours.value('finished'), /^no, /);
      assert.equal(ours.status, 0);
    }
  }
  console.log('cut: every whole chunk is read');
}

// A byte of the points of the second frame, where nothing is compressed.
async function checkFlip(file) {
  const bytes = fs.readFileSync(file);
  const { reader } = await indexed(file);
  bytes[Number(reader.chunkIndexes[1].chunkStartOffset) + 100000] ^= 1;
  const flipped = inFolder('flipped.mcap');
  fs.writeFileSync(flipped, bytes);
  const stream = await streamed(bytes);
  assert.match(`${stream.error}`, /crc/i);
  assert.equal(stream.of('Message').length, 1, 'the chunk before it');
  await assert.rejects(indexed(flipped), /crc/i);
  const ours = info(flipped);
  assert.equal(ours.status, 1);
  assert.equal(ours.value('damaged chunks'), '1');
  assert.match(ours.out, /damaged chunk: its CRC does not match/);
  console.log('flipped byte: told by both');
}

// --- Raw datagrams ---

async function checkRaw() {
  const capture = inFolder('raw.pcap');
  const made = spawnSync(simulator, ['--frames', 2, '--loop', 1, '--capture', capture, '--quiet']);
  assert.equal(made.status, 0, made.stderr.toString());
  const file = await record('raw.mcap', ['--raw', capture]);
  const { reader, messages } = await indexed(file);
  const channel = [...reader.channelsById.values()].find((one) => one.topic === RAW);
  const schema = reader.schemasById.get(channel.schemaId);
  const decoder = new MessageReader(parse(new TextDecoder().decode(schema.data), { ros2: true }));
  const raw = messages.filter((message) => message.channelId === channel.id);
  const bytes = fs.readFileSync(capture);
  let at = 24;
  for (const message of raw) {
    const time = BigInt(bytes.readUInt32LE(at)) * 1000000n + BigInt(bytes.readUInt32LE(at + 4));
    const length = bytes.readUInt32LE(at + 8);
    assert.equal(message.logTime, time * 1000n);
    assert.deepEqual(Buffer.from(decoder.readMessage(message.data).data),
      bytes.subarray(at + 16 + 42, at + 16 + length));
    at += 16 + length;
  }
  assert.equal(at, bytes.length, 'the whole capture');
  assert.equal(raw.length, 2 * 6912);
  assert.equal(messages.length, FRAMES + raw.length);
  assert.equal(reader.chunkIndexes.length, FRAMES + 2, 'a chunk a frame');
  console.log(`raw: ${raw.length} datagrams as captured`);
}

try {
  await checkRecording('zstd');
  await checkRecording('lz4');
  const plain = await checkRecording('none');
  await checkCuts(plain);
  await checkFlip(plain);
  await checkRaw();
} finally {
  fs.rmSync(folder, { recursive: true });
}
