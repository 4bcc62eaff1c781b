// Computes the hash of a type from its definition, as ROS 2 does (RIHS01: SHA-256 over the type's
// description as JSON), and compares.
//   node check_hash.mjs sensor_msgs/PointCloud2 RIHS01_...
import { strict as assert } from 'node:assert';
import crypto from 'node:crypto';

import { withDependencies } from './ros_types.mjs';

// type_description_interfaces/msg/FieldType
const NUMBERS = { int8: 2, uint8: 3, int16: 4, uint16: 5, int32: 6, uint32: 7, bool: 15, string: 17 };
const NESTED = 1;
const UNBOUNDED_SEQUENCE = 144;

const longName = (name) => name.replace('/', '/msg/');

// The standard package's time is a primitive of the parser.
const TIME = { name: 'builtin_interfaces/Time',
  definitions: [{ name: 'sec', type: 'int32' }, { name: 'nanosec', type: 'uint32' }] };

function fieldOf({ name, type, isArray }) {
  const nested = type === 'time' ? TIME.name : type in NUMBERS ? '' : type;
  const number = nested ? NESTED : NUMBERS[type];
  return { name, type: { type_id: number + (isArray ? UNBOUNDED_SEQUENCE : 0), capacity: 0,
    string_capacity: 0, nested_type_name: nested && longName(nested) } };
}

function describe({ name, definitions }) {
  return { type_name: longName(name),
    fields: definitions.filter((field) => !field.isConstant).map(fieldOf) };
}

const [main, ...others] = withDependencies(process.argv[2]);
if (!others.some((type) => type.name === TIME.name)) others.push(TIME);
const description = { type_description: describe(main),
  referenced_type_descriptions:
    others.map(describe).sort((a, b) => (a.type_name < b.type_name ? -1 : 1)) };
// ", " and ": " between the parts; no text in it holds either.
const json = JSON.stringify(description).replaceAll(',', ', ').replaceAll(':', ': ');
const hash = 'RIHS01_' + crypto.createHash('sha256').update(json).digest('hex');
assert.equal(process.argv[3], hash);
console.log('the hash is right');
