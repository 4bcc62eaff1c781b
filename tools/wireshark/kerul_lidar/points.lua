-- Wireshark dissector of the node's point packets, version 7.10, as docs/formats.md has them. The
-- manual page kerul_lidar_dissector(7) lists the fields. Arithmetic and bounds as in raw.lua.

local here = debug.getinfo(1, "S").source:match("^@(.*[/\\])") or ""
local shared = dofile(here .. "shared.lua")
local floor, byte = math.floor, string.byte

local PACKET_BYTES = 249
local POINTS, POINTS_OFFSET, POINT_BYTES = 36, 20, 5
local UNIT, MODE, BLOCK_ROW, BLOCK_COL, FRAME_ID = 13, 203, 207, 208, 209
local SECONDS, MICROSECONDS, SEQUENCE = 216, 220, 225

local points = Proto("kerul_points", "Kerul LiDAR Point Packet")

local header_fields = {
  { "magic", "bytes", "Magic", base.SPACE },
  { "version_major", "uint8", "Version, major" },
  { "version_minor", "uint8", "Version, minor" },
  { "height", "uint16", "Frame height" },
  { "width", "uint16", "Frame width" },
  { "blocks_per_column", "uint8", "Blocks in a column" },
  { "blocks_per_row", "uint8", "Blocks in a row" },
  { "marker", "uint8", "Marker", base.DEC,
    { [0] = "the only packet of its block", "first of two", "second of two" } },
  { "unit_mm", "uint8", "Distance unit, mm" },
  { "count", "uint16", "Points" },
  { "output_mode", "uint8", "Output mode" },
  { "tail", "bytes", "Tail magic", base.SPACE },
  { "block_row", "uint8", "Miniflash row of the block" },
  { "block_col", "uint8", "Column group of the block" },
  { "frame_id", "uint8", "Frame" },
  { "fixed_210", "uint8", "Fixed, 0" },
  { "return_code", "uint8", "Return code, decimal digits", base.HEX },
  { "fixed_212", "uint16", "Fixed, 100" },
  { "seconds", "uint32", "Seconds" },
  { "microseconds", "uint32", "Microseconds" },
  { "time", "absolute_time", "Built at", base.UTC },
  { "fixed_224", "uint8", "Fixed, 0x42", base.HEX },
}
local point_fields = {
  { "point", "bytes", "Point" },
  { "row", "uint16", "Row" },
  { "col", "uint16", "Column" },
  { "distance", "uint16", "Distance, units" },
  { "range_m", "double", "Range, m" },
  { "payload", "bytes", "Payload", base.SPACE },
  { "reflectivity", "uint8", "Reflectivity" },
  { "ground", "bool", "Ground" },
  { "cogh", "uint16", "cogh, truncated" },
  { "shot_ratio", "double", "shot_ratio, truncated" },
  { "word22", "uint16", "22-bit word, low bits" },
  { "noise", "uint16", "Noise, low bits" },
  { "peak", "uint16", "peak, low bits" },
  { "cogw", "double", "cogw, low bits" },
  { "direction_x", "double", "Direction, x" },
  { "direction_y", "double", "Direction, y" },
  { "direction_z", "double", "Direction, z" },
  { "waveform_rms_ratio", "double", "waveform_rms_ratio" },
  { "shot_times", "uint16", "shot_times" },
  { "peak_addr", "uint8", "peak_addr, low byte" },
  { "cogw_flag", "uint8", "cogw_flag" },
  { "high_reflectivity", "bool", "High reflectivity" },
  { "bloom", "bool", "Bloom" },
  { "after_pulse", "bool", "After-pulse" },
  { "filled", "bool", "Filled" },
  { "shot_noise", "bool", "Shot noise" },
  { "debug", "bool", "Debug" },
  { "echo_flags", "bool", "echo_flags" },
  { "below_detection", "bool", "Below the detection level" },
  { "removed", "bool", "Removed by the block rule" },
}
local F, F_point = shared.define_field_groups(points, header_fields, point_fields)
local E = shared.define_experts(points, shared.with_stream_experts {
  { "refused", "Not a sound point packet", "PROTOCOL", "WARN" },
})

local front_layout = {
  { 0, 2, "magic", "big" }, { 2, 1, "version_major" }, { 3, 1, "version_minor" },
  { 6, 2, "height" }, { 8, 2, "width" }, { 10, 1, "blocks_per_column" },
  { 11, 1, "blocks_per_row" }, { 12, 1, "marker" }, { UNIT, 1, "unit_mm" }, { 14, 2, "count" },
}
local back_layout = {
  { MODE, 1, "output_mode" }, { 204, 3, "tail", "big" }, { BLOCK_ROW, 1, "block_row" },
  { BLOCK_COL, 1, "block_col" }, { FRAME_ID, 1, "frame_id" }, { 210, 1, "fixed_210" },
  { 211, 1, "return_code" }, { 212, 2, "fixed_212" }, { SECONDS, 4, "seconds", "big" },
  { MICROSECONDS, 4, "microseconds" }, { 224, 1, "fixed_224" },
}

local tracker = shared.new_tracker()
function points.init() tracker = shared.new_tracker() end

-- Payload ---------------------------------------------------------------------------------------

local function bit(value, place) return floor(value / 2 ^ place) % 2 == 1 end

-- Twelve bits: the upper eight in byte a and the others in b's high nibble, or in byte c and in b's
-- low nibble.
local function front_twelve(a, b) return a * 16 + floor(b / 16) end
local function back_twelve(b, c) return c * 16 + b % 16 end

-- The ground flag takes the top bit of byte c.
local function add_height(put, b, c)
  put(F.cogh, b % 4 + c % 128 * 4)
  put(F.ground, bit(c, 7))
end

-- By output mode: what the three payload bytes a, b, c of a point carry.
local modes = {
  [0] = function(put, a, b, c)
    put(F.reflectivity, a)
    add_height(put, b, c)
    put(F.shot_ratio, floor(b / 4) / 10)
  end,
  [1] = function(put, a, b) put(F.word22, a * 256 + b) end,
  [3] = function(put, a, b, c)
    put(F.noise, front_twelve(a, b))
    put(F.cogw, back_twelve(b, c) / 128)
  end,
  [4] = function(put, a, b, c)
    put(F.noise, front_twelve(a, b))
    put(F.peak, back_twelve(b, c))
  end,
  [5] = function(put, a, b, c)
    put(F.noise, front_twelve(a, b))
    put(F.cogh, back_twelve(b, c))
  end,
  [6] = function(put, a, b, c)
    put(F.cogw, front_twelve(a, b) / 128)
    put(F.peak, back_twelve(b, c))
  end,
  [9] = function(put, a, b, c)
    put(F.word22, a * 16 + b % 16)
    put(F.cogh, c * 2 + floor(b / 128))
  end,
  [10] = function(put, a, b, c)
    put(F.direction_x, a / 127.5 - 1)
    put(F.direction_y, b / 127.5 - 1)
    put(F.direction_z, c / 127.5 - 1)
  end,
  [11] = function(put, a, b, c)
    put(F.waveform_rms_ratio, a / 256)
    add_height(put, b, c)
    put(F.shot_times, floor(b / 4) * 64)
  end,
  [12] = function(put, a, b, c)
    put(F.reflectivity, a)
    put(F.cogw_flag, b % 8)
    put(F.high_reflectivity, bit(b, 3))
    put(F.bloom, bit(b, 4))
    put(F.after_pulse, bit(b, 5))
    put(F.ground, bit(b, 6))
    put(F.filled, bit(b, 7))
    put(F.shot_noise, bit(c, 0))
    put(F.debug, bit(c, 1))
    put(F.echo_flags, bit(c, 2))
    put(F.below_detection, bit(c, 3))
    put(F.removed, bit(c, 4))
  end,
}
local function other_mode(put, a) put(F.peak_addr, a) end

-- Points ----------------------------------------------------------------------------------------

-- block_row, block_col and mode: nil when the packet ends before them.
local function add_point(tree, tvb, bytes, i, block_row, block_col, mode)
  local offset = POINTS_OFFSET + i * POINT_BYTES
  local low, high, a, b, c = byte(bytes, offset + 1, offset + POINT_BYTES)
  local distance = low + high * 256
  local range_m = distance * byte(bytes, UNIT + 1) / 1000
  local range = tvb(offset, POINT_BYTES)
  local item = tree:add(F.point, range)
  local place = ""
  if block_col then
    local row, col = block_row * 6 + i % 6, block_col * 6 + floor(i / 6)
    place = ": row " .. row .. ", column " .. col
    item:add(F.row, range, row):set_generated()
    item:add(F.col, range, col):set_generated()
  end
  item:set_text("Point " .. i .. place ..
    (distance == 0 and ", no return" or string.format(", %.3f m", range_m)))
  item:add(F.distance, tvb(offset, 2), distance)
  item:add(F.range_m, tvb(offset, 2), range_m):set_generated()
  local payload = tvb(offset + 2, 3)
  local payload_item = item:add(F.payload, payload)
  if mode then
    local function put(field, value) payload_item:add(field, payload, value) end
    local decode = modes[mode] or other_mode
    decode(put, a, b, c)
  end
end

local function add_points(tree, tvb, bytes)
  if not shared.any_referenced(tree, F_point) then return end
  local mode = byte(bytes, MODE + 1)
  local block_row, block_col = byte(bytes, BLOCK_ROW + 1, BLOCK_COL + 1)
  for i = 0, POINTS - 1 do
    if POINTS_OFFSET + (i + 1) * POINT_BYTES > #bytes then break end
    add_point(tree, tvb, bytes, i, block_row, block_col, mode)
  end
end

-- Packets ---------------------------------------------------------------------------------------

-- Why a reader refuses a packet of the right length, as the client library has it, or nil.
local function refusal(bytes)
  local function is(offset, ...)
    for i, value in ipairs { ... } do
      if byte(bytes, offset + i) ~= value then return false end
    end
    return true
  end
  if not is(2, 7, 10) then return "version" end
  if not is(204, 0xDD, 0xEE, 0xFF) then return "tail" end
  if not is(6, 216, 0, 32, 1, 36, 48) or not is(14, POINTS, 0) or is(UNIT, 0) then
    return "geometry"
  end
  if byte(bytes, 13) > 2 then return "marker" end
  if byte(bytes, BLOCK_ROW + 1) >= 36 or byte(bytes, BLOCK_COL + 1) >= 48 then return "block" end
  return nil
end

local function add_time(tree, tvb)
  local seconds, microseconds = tvb(SECONDS, 4):uint(), tvb(MICROSECONDS, 4):le_uint()
  local carried = floor(microseconds / 1000000)
  local time = NSTime(seconds + carried, microseconds % 1000000 * 1000)
  tree:add(F.time, tvb(SECONDS, 8), time):set_generated()
end

local function dissect_packet(tvb, pinfo, tree)
  local length = math.min(tvb:len(), PACKET_BYTES)
  local bytes = tvb:raw(0, length)
  pinfo.cols.protocol = "KERUL-POINTS"
  local root = tree:add(points, tvb(0, length))
  shared.check_length(root, E, tvb, pinfo, PACKET_BYTES)
  shared.add_layout(root, tvb, F, front_layout)
  add_points(root, tvb, bytes)
  shared.add_layout(root, tvb, F, back_layout)

  local info = "Point packet"
  if length > FRAME_ID then
    info = string.format("Frame %d, block row %d, column %d", byte(bytes, FRAME_ID + 1),
                         byte(bytes, BLOCK_ROW + 1, BLOCK_COL + 1))
  end
  if length == PACKET_BYTES then
    local reason = refusal(bytes)
    if reason then root:add_proto_expert_info(E.refused, "Readers refuse it: " .. reason) end
    add_time(root, tvb)
    local range = tvb(SEQUENCE, 4)
    info = info .. ", sequence " .. range:le_uint() ..
      shared.add_sequence(root, range, F, E, tracker, pinfo)
  end
  pinfo.cols.info = info
  root:append_text(", " .. info)
  return length
end

-- Another sender's datagram on the port is left to others, another version to the raw packets.
function points.dissector(tvb, pinfo, tree)
  if tvb:len() < 4 then return 0 end
  local magic, lead, major, minor = byte(tvb:raw(0, 4), 1, 4)
  if magic ~= 0xEE or lead ~= 0xFF then return 0 end
  if major == 7 and minor == 10 then return dissect_packet(tvb, pinfo, tree) end
  return Dissector.get("kerul_raw"):call(tvb, pinfo, tree)
end

shared.bind_ports(points, "udp.port", "2369", "UDP ports of the node's point packets")
