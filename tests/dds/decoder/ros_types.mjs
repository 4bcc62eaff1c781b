// The ROS 2 types and their decoder, both other people's. They stand in the working directory.
import { createRequire } from 'node:module';
import { pathToFileURL } from 'node:url';

const require = createRequire(pathToFileURL(process.cwd() + '/'));
const { MessageReader } = require('@foxglove/rosmsg2-serialization');
const { ros2jazzy: types } = require('@foxglove/rosmsg-msgs-common');

// A definition and all that it needs, itself first.
export function withDependencies(name, found = []) {
  if (found.some((type) => type.name === name)) return found;
  found.push(types[name]);
  for (const field of types[name].definitions) {
    if (field.isComplex) withDependencies(field.type, found);
  }
  return found;
}

export function readerOf(name) {
  return new MessageReader(withDependencies(name));
}
