// A stream of known point packets by UDP, for programs under test.
import { spawn } from 'node:child_process';
import dgram from 'node:dgram';

export const BLOCK_ROWS = 36;
export const BLOCK_COLS = 48;
const GROUND_BIT = 0x80;
const FIRST_US = 250000; // after second 1700000000

const rangeUnits = (row, col, echo) => (echo === 0 ? 500 + row + 2 * col : 250 + row);
export const hasEcho = (row, col, echo) => echo === 0 || (row + col) % 3 === 0;
const onGround = (row) => row < 60;

// One block of 6 x 6 pixels and one echo, output mode 0.
function pointPacket(frame, blockRow, blockCol, echo, sequence, timeUs) {
  const bytes = Buffer.alloc(249);
  bytes.set([0xee, 0xff, 7, 10]);
  bytes.writeUInt16LE(216, 6);
  bytes.writeUInt16LE(288, 8);
  bytes.set([BLOCK_ROWS, BLOCK_COLS, echo + 1, 4, 36], 10);
  for (let i = 0; i < 36; ++i) {
    const row = 6 * blockRow + (i % 6);
    const col = 6 * blockCol + Math.floor(i / 6);
    if (!hasEcho(row, col, echo)) continue;
    bytes.writeUInt16LE(rangeUnits(row, col, echo), 20 + 5 * i);
    bytes[22 + 5 * i] = (row + col) % 256;
    bytes[24 + 5 * i] = onGround(row) ? GROUND_BIT : 0;
  }
  bytes.set([0, 0xdd, 0xee, 0xff, blockRow, blockCol, frame % 256, 0, 0x12, 100], 203);
  bytes.writeUInt32BE(1700000000 + Math.floor(timeUs / 1e6), 216);
  bytes.writeUInt32LE(timeUs % 1e6, 220);
  bytes[224] = 0x42;
  bytes.writeUInt32LE(sequence, 225);
  return bytes;
}

// Sends frame after frame until `stopped` says so: the socket's buffer may not hold a whole one.
async function sendFrames(port, periodUs, stopped) {
  const socket = dgram.createSocket('udp4');
  const send = (bytes) =>
    new Promise((resolve) => socket.send(bytes, port, '127.0.0.1', () => resolve()));
  let sequence = 1;
  for (let frame = 0; !stopped(); ++frame) {
    const timeUs = FIRST_US + frame * periodUs;
    for (let block = 0; block < BLOCK_ROWS * BLOCK_COLS && !stopped(); ++block) {
      const blockRow = Math.floor(block / BLOCK_COLS);
      for (const echo of [0, 1]) {
        await send(pointPacket(frame, blockRow, block % BLOCK_COLS, echo, sequence++, timeUs));
      }
      if (block % 32 === 0) await new Promise((resolve) => setTimeout(resolve, 1));
    }
  }
  socket.close();
}

function freePort() {
  return new Promise((resolve) => {
    const socket = dgram.createSocket('udp4');
    socket.bind(0, '127.0.0.1', () => {
      const { port } = socket.address();
      socket.close(() => resolve(port));
    });
  });
}

// Runs a program that takes --udp PORT and sends it frames of two echoes, stamped `periodUs` apart,
// until it ends. Gives its exit status and what it printed.
export async function runWithStream(program, args, periodUs = 0) {
  const port = await freePort();
  const child = spawn(program, ['--udp', port, ...args], { stdio: ['ignore', 'pipe', 'inherit'] });
  let out = '';
  let status = null;
  child.stdout.on('data', (text) => (out += text));
  child.on('close', (code) => (status = code ?? 128));
  await sendFrames(port, periodUs, () => status !== null);
  return { status, out };
}
