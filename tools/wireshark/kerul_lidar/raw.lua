-- Wireshark dissector of the sensor's raw packets, version 7.11, as docs/formats.md has them. The
-- manual page kerul_lidar_dissector(7) lists the fields.
--
-- Bytes are split by arithmetic: no library of bit operations is in every Lua that Wireshark uses.
-- Nothing is added before a look at how much was captured, so that a cut packet raises no error.

local here = debug.getinfo(1, "S").source:match("^@(.*[/\\])") or ""
local shared = dofile(here .. "shared.lua")
local floor, byte, concat = math.floor, string.byte, table.concat

local PACKET_BYTES = 692
local BLOCKS, BLOCKS_OFFSET, BLOCK_BYTES = 9, 20, 72
local SLOT_ID, GROUP_ID, SUBPKT_ID, FRAME_ID, SEQUENCE = 671, 673, 674, 675, 688
local ROWS, COLS, PLACES = 216, 288, 6912
local MAX_PEAK_ADDR = 1000 -- a window that begins above is no echo

local raw = Proto("kerul_raw", "Kerul LiDAR Raw Packet")

local header_fields = {
  { "magic", "bytes", "Magic", base.SPACE },
  { "version_major", "uint8", "Version, major" },
  { "version_minor", "uint8", "Version, minor" },
  { "ch_num", "uint8", "Pixel blocks" },
  { "packet_type", "uint16", "Packet type" },
  { "scan_mode", "uint8", "Scan mode" },
  { "slot_id", "uint8", "Column slot" },
  { "mipi_packet_id", "uint8", "MIPI packet" },
  { "group_id", "uint8", "Miniflash row" },
  { "subpkt_id", "uint8", "Place in the run" },
  { "frame_id", "uint8", "Frame" },
  { "frame_duration", "uint16", "Frame duration" },
  { "timestamp", "uint32", "Timestamp" },
  { "place", "uint32", "Place in the frame" },
}
local block_fields = {
  { "block", "bytes", "Pixel block" },
  { "pixel_id", "uint16", "Pixel" },
  { "row", "uint16", "Row" },
  { "col", "uint16", "Column" },
  { "noise", "uint16", "Noise" },
  { "word22", "uint32", "22-bit word" },
  { "word11", "uint16", "11-bit word" },
  { "echo0.peak_addr", "uint16", "Echo 0, first bin" },
  { "echo0.samples", "string", "Echo 0, samples" },
  { "echo1.peak_addr", "uint16", "Echo 1, first bin" },
  { "echo1.samples", "string", "Echo 1, samples" },
}

local F, F_block = shared.define_field_groups(raw, header_fields, block_fields)
local E = shared.define_experts(raw, shared.with_stream_experts {
  { "version", "Another version", "UNDECODED", "NOTE" },
  { "ch_num", "Pixel blocks other than nine", "PROTOCOL", "ERROR" },
  { "place", "Place outside the frame", "PROTOCOL", "WARN" },
  { "pixel", "Pixel outside the frame", "PROTOCOL", "WARN" },
  { "frame_end", "Last place of the frame", "SEQUENCE", "CHAT" },
})

local head_layout = {
  { 0, 2, "magic", "big" }, { 2, 1, "version_major" }, { 3, 1, "version_minor" },
}
local front_layout = { { 12, 1, "ch_num" }, { 13, 2, "packet_type" }, { 15, 1, "scan_mode" } }
local back_layout = {
  { SLOT_ID, 1, "slot_id" }, { 672, 1, "mipi_packet_id" }, { GROUP_ID, 1, "group_id" },
  { SUBPKT_ID, 1, "subpkt_id" }, { FRAME_ID, 1, "frame_id" }, { 676, 2, "frame_duration" },
  { 684, 4, "timestamp" },
}

local tracker = shared.new_tracker()
function raw.init() tracker = shared.new_tracker() end

-- Pixel blocks ----------------------------------------------------------------------------------

-- The 48 samples of a block, numbered from 0: two share three bytes.
local function unpack_samples(block)
  local samples = {}
  for i = 0, 23 do
    local a, b, c = byte(block, 3 * i + 1, 3 * i + 3)
    samples[2 * i] = a * 16 + c % 16
    samples[2 * i + 1] = b * 16 + floor(c / 16)
  end
  return samples
end

-- Sample 3 alone.
local function pixel_id_of(block)
  local high, low = byte(block, 5, 6)
  return high * 16 + floor(low / 16)
end

local function place_pixel(pixel_id, group_id, slot_id)
  local in_block = floor(pixel_id / 12) % 9
  return in_block % 3 + group_id * 6 + floor(pixel_id / 108) % 2 * 3,
         floor(in_block / 3) + slot_id * 6 + pixel_id % 12 * 24 + floor(pixel_id / 216) * 3
end

-- Where the samples first to last stand in their block: offset and size.
local function bytes_of_samples(first, last)
  local from = floor(first / 2) * 3
  return from, floor(last / 2) * 3 + 3 - from
end

-- Each lookup and each item counts: there are a hundred to a packet.
local F_pixel_id, F_row, F_col = F.pixel_id, F.row, F.col
local F_noise, F_word22, F_word11 = F.noise, F.word22, F.word11
local NOISE_AT, NOISE_SIZE = bytes_of_samples(4, 5)
local WORD22_AT, WORD22_SIZE = bytes_of_samples(6, 7)
local PIXEL_AT, PIXEL_SIZE = bytes_of_samples(3, 3)
local WORD11_AT, WORD11_SIZE = bytes_of_samples(8, 8)
local echoes = {}
for echo = 0, 1 do
  local first = 10 + 19 * echo
  local peak_at, peak_size = bytes_of_samples(1 + echo, 1 + echo)
  local samples_at, samples_size = bytes_of_samples(first, first + 16)
  echoes[echo] = {
    peak_field = F["echo" .. echo .. ".peak_addr"], peak_at = peak_at, peak_size = peak_size,
    samples_field = F["echo" .. echo .. ".samples"], first = first,
    samples_at = samples_at, samples_size = samples_size,
  }
end

local function add_echo(tree, tvb, offset, samples, echo)
  local known = echoes[echo]
  local peak = samples[1 + echo]
  local item = tree:add(known.peak_field, tvb(offset + known.peak_at, known.peak_size), peak)
  if peak > MAX_PEAK_ADDR then item:append_text(" (empty)") end
  tree:add(known.samples_field, tvb(offset + known.samples_at, known.samples_size),
           concat(samples, " ", known.first, known.first + 16))
end

-- row, col: nil when the packet ends before the words that tell them.
local function add_block(tree, tvb, offset, block, row, col)
  local s = unpack_samples(block)
  local range = tvb(offset, BLOCK_BYTES)
  local item = tree:add(F.block, range)
  item:add(F_pixel_id, tvb(offset + PIXEL_AT, PIXEL_SIZE), s[3])
  if row then
    item:set_text("Pixel " .. s[3] .. ": row " .. row .. ", column " .. col)
    item:add(F_row, range, row):set_generated()
    item:add(F_col, range, col):set_generated()
  else
    item:set_text("Pixel " .. s[3])
  end
  item:add(F_noise, tvb(offset + NOISE_AT, NOISE_SIZE), s[4] % 16 * 4096 + s[5])
  item:add(F_word22, tvb(offset + WORD22_AT, WORD22_SIZE), s[6] % 1024 * 4096 + s[7])
  item:add(F_word11, tvb(offset + WORD11_AT, WORD11_SIZE), s[8] % 2048)
  add_echo(item, tvb, offset, s, 0)
  add_echo(item, tvb, offset, s, 1)
end

-- Gives the pixel id of the last block that is there.
local function add_blocks(tree, root, tvb, bytes)
  local slot_id, group_id = byte(bytes, SLOT_ID + 1), byte(bytes, GROUP_ID + 1)
  local wanted = shared.any_referenced(tree, F_block)
  local last_pixel
  for i = 0, BLOCKS - 1 do
    local offset = BLOCKS_OFFSET + i * BLOCK_BYTES
    if offset + BLOCK_BYTES > #bytes then break end
    local block = bytes:sub(offset + 1, offset + BLOCK_BYTES)
    last_pixel = pixel_id_of(block)
    local row, col
    if group_id then
      row, col = place_pixel(last_pixel, group_id, slot_id)
      if row >= ROWS or col >= COLS then
        root:add_proto_expert_info(E.pixel, string.format(
          "Pixel %d at row %d, column %d is outside the frame and dropped", last_pixel, row, col))
      end
    end
    if wanted then add_block(tree, tvb, offset, block, row, col) end
  end
  return last_pixel
end

-- Packets ---------------------------------------------------------------------------------------

local function add_place(tree, root, tvb, bytes, last_pixel)
  local group_id, subpkt_id = byte(bytes, GROUP_ID + 1, SUBPKT_ID + 1)
  local place = group_id * 192 + byte(bytes, SLOT_ID + 1) * 48 + floor(last_pixel / 72) * 8 +
    subpkt_id
  local item = tree:add(F.place, tvb(SLOT_ID, SUBPKT_ID - SLOT_ID + 1), place)
  item:set_generated()
  if place >= PLACES then
    root:add_proto_expert_info(E.place, "Place " .. place .. " is outside the frame")
  elseif place == PLACES - 1 then
    item:add_proto_expert_info(E.frame_end, "Place " .. place .. " closes the frame")
  end
  return place
end

-- The node looks at no packet of another version.
local function dissect_other_version(tvb, pinfo, tree, major, minor)
  pinfo.cols.protocol = "KERUL-RAW"
  local text = string.format("Version %d.%d, ignored by the node", major, minor)
  pinfo.cols.info = text
  local root = tree:add(raw, tvb())
  shared.add_layout(root, tvb, F, head_layout)
  root:add_proto_expert_info(E.version, text)
  return tvb:len()
end

local function dissect_packet(tvb, pinfo, tree)
  local length = math.min(tvb:len(), PACKET_BYTES)
  local bytes = tvb:raw(0, length)
  pinfo.cols.protocol = "KERUL-RAW"
  local root = tree:add(raw, tvb(0, length))
  shared.check_length(root, E, tvb, pinfo, PACKET_BYTES)
  shared.add_layout(root, tvb, F, head_layout)
  shared.add_layout(root, tvb, F, front_layout)
  local ch_num = byte(bytes, 13)
  if ch_num and ch_num ~= BLOCKS then
    root:add_proto_expert_info(E.ch_num, ch_num .. " pixel blocks: the node asserts nine and ends")
  end

  local last_pixel = add_blocks(root, root, tvb, bytes)
  shared.add_layout(root, tvb, F, back_layout)
  local info = "Raw packet"
  if length > FRAME_ID then
    local place = add_place(root, root, tvb, bytes, last_pixel)
    info = string.format("Frame %d, place %d", byte(bytes, FRAME_ID + 1), place)
  end
  if length == PACKET_BYTES then
    local range = tvb(SEQUENCE, 4)
    info = info .. ", sequence " .. range:le_uint() ..
      shared.add_sequence(root, range, F, E, tracker, pinfo)
  end
  pinfo.cols.info = info
  root:append_text(", " .. info)
  return length
end

-- Another sender's datagram on the port is left to others.
function raw.dissector(tvb, pinfo, tree)
  if tvb:len() < 4 then return 0 end
  local magic, lead, major, minor = byte(tvb:raw(0, 4), 1, 4)
  if magic ~= 0xEE or lead ~= 0xFF then return 0 end
  if major == 7 and minor == 11 then return dissect_packet(tvb, pinfo, tree) end
  if major == 7 and minor == 10 and tvb:reported_len() == 249 then
    return Dissector.get("kerul_points"):call(tvb, pinfo, tree)
  end
  return dissect_other_version(tvb, pinfo, tree, major, minor)
end

shared.bind_ports(raw, "udp.port", "2368", "UDP ports of the sensor's raw packets")
