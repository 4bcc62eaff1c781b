-- What the three dissectors share. Wireshark loads this file by itself as well: it registers
-- nothing and only gives its table.

local shared = {}

-- Gives the fields of a protocol by name; lines are { name, type, title, display, values }.
function shared.define_fields(proto, lines)
  local fields = {}
  for _, line in ipairs(lines) do
    local abbreviation = proto.name:lower() .. "." .. line[1]
    fields[line[1]] = ProtoField[line[2]](abbreviation, line[3], line[4], line[5])
  end
  proto.fields = fields
  return fields
end

local sequence_fields = {
  { "sequence", "uint32", "Sequence number" },
  { "missing", "uint32", "Numbers missing before this one" },
  { "late", "bool", "Late: counted as missing before" },
  { "repeated", "bool", "Repeated, or too late to tell" },
  { "restarted", "bool", "Counts anew" },
}

local stream_experts = {
  { "gap", "Gap in the sequence numbers", "SEQUENCE", "WARN" },
  { "late", "Late packet", "SEQUENCE", "NOTE" },
  { "repeated", "Repeated packet", "SEQUENCE", "NOTE" },
  { "restarted", "Sequence numbers count anew", "SEQUENCE", "WARN" },
  { "length", "Wrong length", "PROTOCOL", "ERROR" },
  { "cut", "Captured in part", "UNDECODED", "NOTE" },
}

-- The fields of a numbered packet: its header's, its pixels', and those of the numbers. Gives all
-- of them by name, and the pixels' alone.
function shared.define_field_groups(proto, header, pixels)
  local lines, names = {}, {}
  for _, group in ipairs { header, pixels, sequence_fields } do
    for _, line in ipairs(group) do lines[#lines + 1] = line end
  end
  local fields = shared.define_fields(proto, lines)
  for _, line in ipairs(pixels) do names[line[1]] = fields[line[1]] end
  return fields, names
end

-- Appends what is told of every numbered packet.
function shared.with_stream_experts(lines)
  for _, line in ipairs(stream_experts) do lines[#lines + 1] = line end
  return lines
end

-- Gives the expert information of a protocol by name; lines are { name, title, group, severity }.
function shared.define_experts(proto, lines)
  local experts = {}
  for _, line in ipairs(lines) do
    experts[line[1]] =
      ProtoExpert.new(proto.name:lower() .. ".expert." .. line[1], line[2],
                      expert.group[line[3]], expert.severity[line[4]])
  end
  proto.experts = experts
  return experts
end

-- Registers a protocol at the ports of its preference, a list like "2368,2400-2402", and again
-- whenever that changes. table_name: "udp.port" or "tcp.port".
function shared.bind_ports(proto, table_name, ports, title)
  proto.prefs.ports = Pref.range("Ports", ports, title, 65535)
  local bound = ""
  local function bind()
    local ports_table = DissectorTable.get(table_name)
    if bound ~= "" then ports_table:remove(bound, proto) end
    bound = proto.prefs.ports
    if bound ~= "" then ports_table:add(bound, proto) end
  end
  proto.prefs_changed = bind
  bind()
end

-- Adds an integer or bytes at a fixed place, unless they were not captured: layout lines are
-- { offset, size, name }. A `big` fourth entry marks big-endian.
function shared.add_layout(tree, tvb, fields, layout)
  local length = tvb:len()
  for _, line in ipairs(layout) do
    local offset, size, field = line[1], line[2], fields[line[3]]
    if offset + size <= length then
      if line[4] then
        tree:add(field, tvb(offset, size))
      else
        tree:add_le(field, tvb(offset, size))
      end
    end
  end
end

-- True when some item of these fields is looked at: by eye, filter or column. Where Wireshark
-- cannot say, all are taken to be.
function shared.any_referenced(tree, fields)
  if tree.visible ~= false or not tree.referenced then return true end
  for _, field in pairs(fields) do
    if tree:referenced(field) then return true end
  end
  return false
end

-- Tells a datagram that is shorter or longer than it should be, and one that was captured in part.
function shared.check_length(item, experts, tvb, pinfo, expected)
  local sent, captured = tvb:reported_len(), tvb:len()
  -- An ICMP message quotes only the beginning of what it complains about.
  if sent ~= expected and not pinfo.in_error_pkt then
    item:add_proto_expert_info(experts.length,
                               string.format("%d bytes instead of %d", sent, expected))
  end
  if captured < sent then
    item:add_proto_expert_info(experts.cut,
                               string.format("%d of %d bytes captured", captured, sent))
  end
end

-- Sequence numbers ------------------------------------------------------------------------------

-- A step of more numbers than this in either direction is a new count, as in the client library.
local LARGEST_GAP = 2 ^ 19
-- How far back a missing number is remembered.
local REACH = 4096

-- Follows the sequence numbers of each sender and receiver.
function shared.new_tracker()
  return { streams = {}, marks = {} }
end

local function open_gap(stream, sequence, step)
  for number = math.max(1, step - REACH), step - 1 do
    local missing = (stream.newest + number) % 2 ^ 32
    stream.missing[missing % REACH] = missing
  end
  stream.newest = sequence
  return { missing = step - 1 }
end

local function step_back(stream, sequence, back)
  if back > LARGEST_GAP then
    stream.newest, stream.missing = sequence, {}
    return { restarted = true }
  end
  if stream.missing[sequence % REACH] == sequence then
    stream.missing[sequence % REACH] = nil
    return { late = true }
  end
  return { repeated = true }
end

-- The mark of this packet: nil when its number is the next one, else a table with one of
-- missing, late, repeated, restarted. Wireshark shows packets again and in any order, so that only
-- the first pass counts and its marks are kept.
local function mark_of(tracker, pinfo, sequence)
  if pinfo.in_error_pkt then return nil end
  if pinfo.visited then return tracker.marks[pinfo.number] end
  local key = tostring(pinfo.src) .. " " .. pinfo.src_port .. " " .. tostring(pinfo.dst) .. " " ..
    pinfo.dst_port
  local stream = tracker.streams[key]
  if not stream then
    tracker.streams[key] = { newest = sequence, missing = {} }
    return nil
  end
  local step = (sequence - stream.newest) % 2 ^ 32
  local mark
  if step == 1 then
    stream.newest = sequence
  elseif step > 1 and step <= LARGEST_GAP then
    mark = open_gap(stream, sequence, step)
  else
    mark = step_back(stream, sequence, (stream.newest - sequence) % 2 ^ 32)
  end
  tracker.marks[pinfo.number] = mark
  return mark
end

-- Adds the number that stands in `range`, and what it tells about those before it. Gives what to
-- append to the packet's line in the list.
function shared.add_sequence(tree, range, fields, experts, tracker, pinfo)
  local sequence = range:le_uint()
  local item = tree:add_le(fields.sequence, range)
  local mark = mark_of(tracker, pinfo, sequence)
  if not mark then return "" end
  if mark.missing then
    tree:add(fields.missing, range, mark.missing):set_generated()
    item:add_proto_expert_info(experts.gap,
                               string.format("%d missing before this one", mark.missing))
    return string.format(" [%d missing]", mark.missing)
  end
  local name = next(mark)
  tree:add(fields[name], range, true):set_generated()
  item:add_proto_expert_info(experts[name])
  return " [" .. name .. "]"
end

return shared
