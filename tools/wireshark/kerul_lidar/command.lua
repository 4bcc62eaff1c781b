-- Wireshark dissector of the sensor's command channel over TCP, as docs/formats.md has it. The
-- manual page kerul_lidar_dissector(7) lists the fields. Bounds as in raw.lua.

local here = debug.getinfo(1, "S").source:match("^@(.*[/\\])") or ""
local shared = dofile(here .. "shared.lua")
local byte = string.byte

local HEADER_BYTES = 8
local PASS_THROUGH, SELECTOR = 0xFF, 0x00000123
local HEAD_REGISTER, MAIN_REGISTER = 0xA02C, 0xA01C
local ANGLE_OFFSET, ANGLE_BYTES, HEAD_FIELDS_END = 20, 78, 136
-- A longer announcement is taken for false: waiting for its bytes would hide what did come.
local LONGEST_PAYLOAD = 65536

local command = Proto("kerul_command", "Kerul LiDAR Command")

local F = shared.define_fields(command, {
  { "magic", "bytes", "Magic", base.SPACE },
  { "code", "uint8", "Command", base.HEX, { [PASS_THROUGH] = "IIC pass-through" } },
  { "return_code", "uint8", "Return code", base.HEX },
  { "length", "uint32", "Payload length" },
  { "payload", "bytes", "Payload" },
  { "selector", "uint32", "Selector", base.HEX },
  { "device", "uint8", "IIC device", base.HEX },
  { "fixed_5", "uint8", "Fixed, 02", base.HEX },
  { "register", "uint16", "Register", base.HEX,
    { [HEAD_REGISTER] = "head", [MAIN_REGISTER] = "main" } },
  { "fixed_8", "uint8", "Fixed, 01", base.HEX },
  { "read_length", "uint16", "Bytes to read" },
  { "page", "uint32", "Page" },
  { "request_in", "framenum", "Request in", base.NONE, frametype.REQUEST },
  { "response_in", "framenum", "Response in", base.NONE, frametype.RESPONSE },
  { "response_time", "relative_time", "Time since the request" },
  { "data", "bytes", "Data read" },
  { "head.lidar_id", "string", "lidar_id" },
  { "head.page_count", "uint16", "page_count" },
  { "head.para2_crc", "uint32", "para2_crc", base.HEX },
  { "head.head128_crc", "uint32", "head128_crc", base.HEX },
  { "angle", "bytes", "Angle record" },
  { "angle.binning", "uint8", "Binning, x and y", base.HEX },
  { "angle.rows", "uint16", "Rows" },
  { "angle.cols", "uint16", "Columns" },
  { "angle.focal_length", "float", "Focal length" },
  { "angle.center_col", "float", "Principal point, column" },
  { "angle.center_row", "float", "Principal point, row" },
  { "angle.distortion_3", "float", "Distortion, power 3" },
  { "angle.distortion_5", "float", "Distortion, power 5" },
  { "angle.distortion_7", "float", "Distortion, power 7" },
  { "angle.distortion_9", "float", "Distortion, power 9" },
  { "angle.tilt_tangent", "float", "Tangent of half the axis tilt" },
  { "angle.tilt_direction", "float", "Direction of the tilt, rad" },
})
local E = shared.define_experts(command, {
  { "return_code", "Error told by the sensor", "RESPONSE_CODE", "WARN" },
  { "length", "Length that cannot be right", "PROTOCOL", "WARN" },
  { "short", "Fewer bytes than were asked for", "PROTOCOL", "WARN" },
  { "cut", "Captured in part", "UNDECODED", "NOTE" },
})

local header_layout = {
  { 0, 2, "magic", "big" }, { 2, 1, "code", "big" }, { 3, 1, "return_code", "big" },
  { 4, 4, "length", "big" },
}
local read_layout = {
  { 0, 4, "selector", "big" }, { 4, 1, "device", "big" }, { 5, 1, "fixed_5", "big" },
  { 6, 2, "register", "big" }, { 8, 1, "fixed_8", "big" },
}
local head_layout = {
  { 98, 2, "head.page_count" }, { 128, 4, "head.para2_crc" }, { 132, 4, "head.head128_crc" },
}
local angle_layout = {
  { 5, 1, "angle.binning" }, { 6, 2, "angle.rows" }, { 8, 2, "angle.cols" },
  { 10, 4, "angle.focal_length" }, { 14, 4, "angle.center_col" }, { 18, 4, "angle.center_row" },
  { 22, 4, "angle.distortion_3" }, { 26, 4, "angle.distortion_5" },
  { 30, 4, "angle.distortion_7" }, { 34, 4, "angle.distortion_9" },
  { 38, 4, "angle.tilt_tangent" }, { 42, 4, "angle.tilt_direction" },
}

-- Requests and responses ------------------------------------------------------------------------

-- waiting: the open request of a connection; exchanges: by frame, offset and length of each
-- message the exchange that it belongs to; pages: reads of the main register by connection.
local waiting, exchanges, pages
local function forget() waiting, exchanges, pages = {}, {}, {} end
command.init = forget
forget()

local function connection_of(pinfo, is_request)
  local source, dest = tostring(pinfo.src) .. " " .. pinfo.src_port,
                       tostring(pinfo.dst) .. " " .. pinfo.dst_port
  return is_request and source .. " " .. dest or dest .. " " .. source
end

-- The sensor handles one request at a time, and a response belongs to the one before it. Only the
-- first pass sees the packets in their order: it keeps what later ones show. asked: register and
-- length of a request, nil for one that is no read.
local function exchange_of(pinfo, key, is_request, asked)
  if pinfo.visited then return exchanges[key] end
  local connection = connection_of(pinfo, is_request)
  local exchange
  if is_request then
    exchange = { request_in = pinfo.number, asked_at = pinfo.rel_ts, asked = asked }
    if asked and asked.register == MAIN_REGISTER then
      exchange.page = pages[connection] or 0
      pages[connection] = exchange.page + 1
    end
    waiting[connection] = exchange
  else
    exchange = waiting[connection]
    waiting[connection] = nil
    if exchange then
      exchange.response_in, exchange.answered_at = pinfo.number, pinfo.rel_ts
    end
  end
  exchanges[key] = exchange
  return exchange
end

-- Register and length that a read's payload asks for, nil for another payload.
local function parse_read(payload)
  if #payload < 10 then return nil end
  local high, low, _, length, length_high, length_low = byte(payload, 7, 12)
  if payload:sub(1, 4) ~= string.char(0, 0, 1, 0x23) then return nil end
  local field, size = length, 1
  if length == 0xFF then -- the mark of a length in the two bytes that follow
    if not length_low then return nil end
    field, size = length_high * 256 + length_low, 3
  end
  return { register = high * 256 + low, length = field, length_size = size }
end

local function seconds_between(from, to)
  local seconds = to - from
  local whole = math.floor(seconds)
  return NSTime(whole, math.floor((seconds - whole) * 1e9 + 0.5))
end

local function add_exchange(tree, range, exchange, is_request)
  if not exchange then return end
  if exchange.page then tree:add(F.page, range, exchange.page):set_generated() end
  if is_request then
    if exchange.response_in then
      tree:add(F.response_in, range, exchange.response_in):set_generated()
    end
    return
  end
  tree:add(F.request_in, range, exchange.request_in):set_generated()
  tree:add(F.response_time, range,
           seconds_between(exchange.asked_at, exchange.answered_at)):set_generated()
end

-- Payloads --------------------------------------------------------------------------------------

local function add_head(tree, tvb)
  local id = tvb:raw(0, 20):match("^[^\255]*")
  tree:add(F["head.lidar_id"], tvb(0, 20), (id:gsub("[^\32-\126]", "?")))
  shared.add_layout(tree, tvb, F, head_layout)
  local range = tvb(ANGLE_OFFSET, ANGLE_BYTES)
  shared.add_layout(tree:add(F.angle, range), range:tvb(), F, angle_layout)
end

local function add_request(tree, payload, asked)
  shared.add_layout(tree, payload, F, read_layout)
  if asked then
    tree:add(F.read_length, payload(9, asked.length_size), asked.length)
    return string.format("Read %d bytes at register 0x%04X", asked.length, asked.register)
  end
  return "Request"
end

-- The data read is the end of the payload; whatever stands in front of it is skipped.
local function add_response(tree, payload, exchange, return_code)
  if return_code ~= 0 then
    tree:add_proto_expert_info(E.return_code, string.format("Return code 0x%02X", return_code))
    return string.format("Error 0x%02X", return_code)
  end
  local asked = exchange and exchange.asked
  local held = payload and payload:reported_len() or 0
  if not asked then return string.format("Response, %d bytes", held) end
  if held < asked.length then
    tree:add_proto_expert_info(E.short,
                               string.format("%d bytes instead of %d", held, asked.length))
  elseif asked.length > 0 and payload:len() == held then
    local range = payload(held - asked.length, asked.length)
    local item = tree:add(F.data, range)
    local is_head = asked.register == HEAD_REGISTER or exchange.page == 0
    if is_head and asked.length >= HEAD_FIELDS_END then add_head(item, range:tvb()) end
  end
  return string.format("Response, %d bytes of register 0x%04X", held, asked.register)
end

-- One message. length: that of its payload, of which `tvb` may hold only a part. Gives the bytes
-- taken and the line for the packet list.
local function dissect_message(tvb, pinfo, tree, offset, length)
  local held = math.min(tvb:len() - offset, HEADER_BYTES + length)
  local range = tvb(offset, held)
  local message = range:tvb()
  local root = tree:add(command, range)
  shared.add_layout(root, message, F, header_layout)
  if length > LONGEST_PAYLOAD then
    root:add_proto_expert_info(E.length, length .. " bytes announced")
  elseif held < HEADER_BYTES + length then
    root:add_proto_expert_info(E.cut, string.format("%d of %d bytes", held, HEADER_BYTES + length))
  end
  local payload = held > HEADER_BYTES and range(HEADER_BYTES, held - HEADER_BYTES):tvb() or nil
  local payload_item = payload and root:add(F.payload, payload()) or root

  local is_request = pinfo.dst_port == pinfo.match_uint
  local code, return_code = byte(message:raw(2, 2), 1, 2)
  local asked = is_request and payload and code == PASS_THROUGH and
    parse_read(payload:raw(0, payload:len())) or nil
  local key = pinfo.number .. " " .. offset .. " " .. tvb:len()
  local exchange = exchange_of(pinfo, key, is_request, asked)
  local info
  if not is_request then
    info = add_response(payload_item, payload, exchange, return_code)
  elseif payload and code == PASS_THROUGH then
    info = add_request(payload_item, payload, asked)
  else
    info = string.format("Request 0x%02X", code)
  end
  if exchange and exchange.page then info = info .. ", page " .. exchange.page end
  add_exchange(root, range, exchange, is_request)
  root:append_text(", " .. info)
  return held, info
end

-- Asks for the bytes that are missing from `offset` on; false where Wireshark does not put
-- segments together.
local function wait_for(pinfo, offset, missing)
  if pinfo.can_desegment == 0 then return false end
  pinfo.desegment_offset = offset
  pinfo.desegment_len = missing
  return true
end

-- Messages may share a segment or spread over several. What does not begin as one is left to
-- others.
function command.dissector(tvb, pinfo, tree)
  local offset, captured, infos = 0, tvb:len(), {}
  while offset < captured do
    local left = captured - offset
    local first, second = byte(tvb:raw(offset, math.min(left, 2)), 1, 2)
    if first ~= 0x47 or (second and second ~= 0x74) then return offset end
    if left < HEADER_BYTES then
      return wait_for(pinfo, offset, DESEGMENT_ONE_MORE_SEGMENT) and captured or offset
    end
    local length = tvb(offset + 4, 4):uint()
    local missing = HEADER_BYTES + length - left
    if missing > 0 and length <= LONGEST_PAYLOAD and wait_for(pinfo, offset, missing) then
      return captured
    end
    local size, info = dissect_message(tvb, pinfo, tree, offset, length)
    offset, infos[#infos + 1] = offset + size, info
    pinfo.cols.protocol = "KERUL-CMD"
    pinfo.cols.info = table.concat(infos, ", ")
  end
  return captured
end

shared.bind_ports(command, "tcp.port", "9347", "TCP ports of the sensor's command service")
