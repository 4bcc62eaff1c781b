// What the subscriber wrote: for each message its length (4 bytes) and its bytes.
import fs from 'node:fs';

import { readerOf } from './ros_types.mjs';

export function receivedMessages(file, type) {
  const bytes = fs.readFileSync(file);
  const reader = readerOf(type);
  const messages = [];
  for (let at = 0; at < bytes.length;) {
    const length = bytes.readUInt32LE(at);
    messages.push(reader.readMessage(bytes.subarray(at + 4, at + 4 + length)));
    at += 4 + length;
  }
  return messages;
}
