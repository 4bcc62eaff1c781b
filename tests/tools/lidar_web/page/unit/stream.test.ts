import assert from "node:assert/strict";
import { test } from "node:test";
import { flagsAt, pointAt, rangeAt } from "page/frame.js";
import { clockAheadMs, decodeBinary, decodeText, encodePull } from "page/stream.js";
import {
  directionsMessage,
  figuresMessage,
  frameMessage,
  helloMessage,
  kPixels,
  kUsualFigures,
  usualFields,
} from "../support/sample_stream.js";

const kOneReturn = { echo: 1, row: 3, col: 5, counts: 2500, reflectivity: 80, flags: 0x1041 };

function decodedFrame(fields: Partial<ReturnType<typeof usualFields>> = {}) {
  const decoded = decodeBinary(frameMessage({ ...usualFields(7), ...fields }, [kOneReturn]));
  assert.equal(decoded?.kind, "frame");
  return decoded;
}

void test("a frame message gives back what was put into it", () => {
  const { frame, transfer } = decodedFrame({
    missingBlocks: 300,
    lastUs: 1.7e15,
    takenUs: 1.7e15 + 3,
    askedMs: 5.5,
  });
  assert.equal(frame.serial, 7);
  assert.equal(frame.id, 7);
  assert.equal(frame.echoes, 2);
  assert.equal(frame.returnCode, 12);
  assert.equal(frame.outputMode, 12);
  assert.equal(frame.knownFlags, 0x1fff);
  assert.equal(frame.carries, 0x801);
  assert.equal(frame.missingBlocks, 300);
  assert.equal(frame.lastUs, 1.7e15);
  assert.equal(frame.takenUs, 1.7e15 + 3);
  assert.equal(transfer.askedMs, 5.5);
  const place = kPixels + 3 * 288 + 5;
  assert.equal(frame.range[place], 2500);
  assert.equal(frame.reflectivity[place], 80);
  assert.equal(flagsAt(frame, place), 0x1041);
  // All others are without a return.
  assert.equal(frame.range.filter((range) => range > 0).length, 1);
});

void test("the unit of ranges is single precision, as the node computes it", () => {
  const { frame } = decodedFrame();
  // 0.004 is 0x3B83126F, a little above.
  assert.equal(frame.unitMetres, 0.004000000189989805);
  assert.equal(rangeAt(frame, kPixels + 3 * 288 + 5).toFixed(3), "10.000");
});

void test("a frame without the plane of flags has none", () => {
  const { frame } = decodedFrame({ withFlags: false });
  assert.equal(frame.flags, null);
  assert.equal(flagsAt(frame, kPixels + 3 * 288 + 5), 0);
});

void test("a frame of another length than its planes is no frame", () => {
  const message = frameMessage(usualFields(1), []);
  assert.equal(decodeBinary(message.slice(0, message.byteLength - 1)), null);
  const longer = new Uint8Array(message.byteLength + 1);
  longer.set(new Uint8Array(message));
  assert.equal(decodeBinary(longer.buffer), null);
  const three = message.slice(0);
  new DataView(three).setUint8(2, 3);
  assert.equal(decodeBinary(three), null);
  assert.equal(decodeBinary(message.slice(0, 95)), null);
  assert.equal(decodeBinary(new ArrayBuffer(0)), null);
});

void test("a message of an unknown kind is passed over", () => {
  const message = frameMessage(usualFields(1), []);
  new DataView(message).setUint8(0, 3);
  assert.equal(decodeBinary(message), null);
  assert.equal(decodeText('{"type": "later"}'), null);
  assert.equal(decodeText("no JSON"), null);
  assert.equal(decodeText("17"), null);
});

void test("directions place a return at its range from the offset", () => {
  const decoded = decodeBinary(directionsMessage([1, 2, 3]));
  assert.equal(decoded?.kind, "directions");
  const { frame } = decodedFrame();
  const place = kPixels + 3 * 288 + 5;
  const point = pointAt(frame, decoded.directions, place);
  assert.ok(point !== null);
  // Pixel (3, 5) of the pinhole: y 138.5 / 200, z -104.5 / 200, and 10 m along that way.
  const length = Math.sqrt(1 + 0.6925 ** 2 + 0.5225 ** 2);
  [1 + 10 / length, 2 + 6.925 / length, 3 - 5.225 / length].forEach((expected, axis) => {
    // Directions are single precision: 1e-7 of 10 m.
    assert.ok(Math.abs(point[axis] - expected) < 2e-6, `axis ${String(axis)}`);
  });
  assert.equal(pointAt(frame, decoded.directions, 0), null);
});

void test("directions of another length are none", () => {
  assert.equal(decodeBinary(directionsMessage().slice(0, 1000)), null);
});

void test("hello and figures are told apart", () => {
  assert.equal(decodeText(helloMessage())?.type, "hello");
  const figures = decodeText(figuresMessage({ ...kUsualFigures, kernel: 12 }));
  assert.equal(figures?.type, "figures");
  assert.equal(figures.lost.kernel, 12);
});

void test("a pull is 16 bytes with the client's clock at 8", () => {
  const bytes = [...new Uint8Array(encodePull(1, true))];
  // 1.0 is 3F F0 and six zeros, little-endian here.
  assert.deepEqual(bytes, [1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xf0, 0x3f]);
  assert.equal(new Uint8Array(encodePull(1, false))[1], 0);
});

void test("the server's clock is found halfway between way there and way back", () => {
  // The server is 500 ms ahead; 4 ms there, 100 ms waiting, 4 ms back.
  const transfer = { askedMs: 1000, pulledUs: 1_504_000, sentUs: 1_604_000 };
  assert.equal(clockAheadMs(transfer, 1108), 500);
});
