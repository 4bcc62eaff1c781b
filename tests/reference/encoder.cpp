#include "reference/encoder.h"

#include <cmath>

#include "reference/numeric.h"

namespace reference {

float AngleAt(const kerul::lidar::AngleCalibGrid& grid, int plane, int row, int col) {
  if (plane < 0 || row < 0 || col < 0) return 0.0F;
  if (plane > 2 || row >= grid.rows || col >= grid.cols || grid.xyz.empty()) return 0.0F;
  const std::int64_t place = (static_cast<std::int64_t>(plane) * grid.rows + row) * grid.cols + col;
  return grid.xyz[static_cast<std::size_t>(place)];
}

std::uint8_t EncodeAngle(float value) {
  if (!std::isfinite(value)) return 127;
  float v = value;
  if (v < -1.0F) v = -1.0F;
  if (v > 1.0F) v = 1.0F;
  return static_cast<std::uint8_t>(std::lround((v + 1.0F) * 127.5F));
}

namespace {

std::uint8_t LowByte(std::int64_t value) { return static_cast<std::uint8_t>(value & 0xFF); }

void Put16(UdpPacket& packet, int offset, std::int64_t value) {
  packet.buffer[offset] = LowByte(value);
  packet.buffer[offset + 1] = LowByte(value >> 8);
}

void Put32(UdpPacket& packet, int offset, std::uint32_t value) {
  Put16(packet, offset, value & 0xFFFFU);
  Put16(packet, offset + 2, value >> 16);
}

std::uint32_t SequenceNumber(const Parser& parser, const PacketRequest& request) {
  const auto index = static_cast<std::uint32_t>(request.packet_index);
  if (request.marker == 0) return parser.udp_seq_base + index;
  if (request.marker == 1) return parser.udp_seq_base + 2U * index;
  return parser.udp_seq_base + 2U * index + 1U;
}

void WriteHeader(const Parser& parser, UdpPacket& packet, const PacketRequest& request,
                 const WallClock& clock) {
  std::uint8_t* b = packet.buffer;
  b[0] = 0xEE;
  b[1] = 0xFF;
  b[2] = 7;
  b[3] = 10;
  Put16(packet, 6, 216);
  Put16(packet, 8, 288);
  b[10] = 36;
  b[11] = 48;
  b[12] = LowByte(request.marker);
  b[13] = 4;
  Put16(packet, 14, 36);
  b[203] = LowByte(request.output_mode);
  b[204] = 0xDD;
  b[205] = 0xEE;
  b[206] = 0xFF;
  b[207] = LowByte(request.packet_index / 48);
  b[208] = LowByte(request.packet_index % 48);
  b[209] = LowByte(request.frame_id);
  b[210] = 0;
  const int code = request.echo_output_code;
  b[211] = code <= 9 ? LowByte(code) : LowByte(((code / 10) << 4) | (code % 10));
  Put16(packet, 212, 100);
  Put16(packet, 214, 0);
  b[216] = LowByte(clock.seconds >> 24);
  b[217] = LowByte(clock.seconds >> 16);
  b[218] = LowByte(clock.seconds >> 8);
  b[219] = LowByte(clock.seconds);
  Put32(packet, 220, clock.microseconds);
  b[224] = 0x42;
  Put32(packet, 225, SequenceNumber(parser, request));
}

std::int64_t DistanceUnits(float d, int output_mode) {
  if (output_mode == 0) {
    if (static_cast<double>(d) <= static_cast<double>(0.05F)) return 0;
    if (d >= 40.0F) return 0;
  }
  const float unit = 4.0F / 1000.0F;
  return Truncate(static_cast<double>(d) / static_cast<double>(unit));
}

struct Payload {
  std::int64_t byte2 = 0;
  std::int64_t byte3 = 0;
  std::int64_t byte4 = 0;
};

std::int64_t Reflectivity(const LidarEcho& e) {
  return e.refl_proc > 255.0F ? 255 : Truncate(e.refl_proc);
}

int Bit(bool flag, int place) { return flag ? 1 << place : 0; }

Payload FlagPayload(const LidarEcho& e) {
  const int a = (e.cogw_flag & 7) | Bit(e.highRefl, 3) | Bit(e.highReflBlooming, 4) |
                Bit(e.afterPulse, 5) | Bit(e.ground, 6) | Bit(e.fill_point, 7);
  const int b = Bit(e.shot_noise_point, 0) | Bit(e.debug_flag, 1) |
                Bit((e.echo_flags & 1) != 0, 2) | Bit(!e.detect_pass, 3) |
                Bit(e.shot_noise_group_point, 4);
  return Payload{Reflectivity(e), a, b};
}

Payload AnglePayload(const kerul::lidar::AngleCalibGrid& grid, int row, int col) {
  if (!grid.valid || row < 0 || row >= grid.rows || col < 0 || col >= grid.cols) return Payload{};
  return Payload{EncodeAngle(AngleAt(grid, 0, row, col)), EncodeAngle(AngleAt(grid, 1, row, col)),
                 EncodeAngle(AngleAt(grid, 2, row, col))};
}

// All terms are 64-bit so that a value out of range only loses its high bits.
Payload PointPayload(const Parser& parser, const LidarPoint& p, const LidarEcho& e, int mode,
                     int row, int col) {
  const std::int64_t c = Truncate(e.cogh);
  const std::int64_t peak = Truncate(e.peak);
  const std::int64_t noise = Truncate(e.noise);
  const std::int64_t noise16 = Truncate(e.noise * 0.0625F);
  const std::int64_t ground = e.ground ? 128 : 0;
  switch (mode) {
    case 0:
      return Payload{Reflectivity(e), c % 4 + 4 * std::int64_t{Truncate(10.0F * p.shot_ratio)},
                     c / 4 - ground};
    case 1:
      return Payload{Truncate(p.pixel_word22 * 0.00390625F), Truncate(p.pixel_word22), 0};
    case 3: {
      const std::int64_t x = Truncate(128.0F * e.cogw);
      return Payload{noise16, x % 16 + 16 * noise, x / 16};
    }
    case 4:
      return Payload{noise16, peak % 16 + 16 * noise, Truncate(e.peak * 0.0625F)};
    case 5:
      return Payload{noise16, c % 16 + 16 * noise, Truncate(e.cogh * 0.0625F)};
    case 6: {
      const float y = 128.0F * e.cogw;
      return Payload{Truncate(y * 0.0625F), peak % 16 + 16 * std::int64_t{Truncate(y)},
                     Truncate(e.peak * 0.0625F)};
    }
    case 9:
      return Payload{Truncate(p.pixel_word22 * 0.0625F),
                     std::int64_t{Truncate(p.pixel_word22)} % 16 + 128 * c, c / 2};
    case 10:
      return AnglePayload(parser.angle_grid, row, col);
    case 11: {
      const float rms = 256.0F * e.waveform_rms_ratio;
      const std::int64_t byte2 = rms > 255.0F ? 255 : Truncate(rms);
      return Payload{byte2, c % 4 + 4 * std::int64_t{Truncate(0.015625F * p.shot_times)},
                     c / 4 - ground};
    }
    case 12:
      return FlagPayload(e);
    default:
      return Payload{e.peak_addr, 0, 0};
  }
}

}  // namespace

int EncodePacket(Parser& parser, const FrameRows& rows, UdpPacket& packet,
                 const PacketRequest& request, const WallClock& clock) {
  WriteHeader(parser, packet, request, clock);
  if (request.echo >= LidarPoint::echo_num) return -1;

  for (int i = 0; i < 36; ++i) {
    const int row = (request.packet_index / 48) * 6 + i % 6;
    const int col = (request.packet_index % 48) * 6 + i / 6;
    const LidarPoint& p = rows[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)];
    const LidarEcho& e = p.echoes[request.echo];
    const Payload payload = PointPayload(parser, p, e, request.output_mode, row, col);
    const int offset = 20 + 5 * i;
    Put16(packet, offset, DistanceUnits(e.dist_proc, request.output_mode));
    packet.buffer[offset + 2] = LowByte(payload.byte2);
    packet.buffer[offset + 3] = LowByte(payload.byte3);
    packet.buffer[offset + 4] = LowByte(payload.byte4);
  }

  if (request.packet_index == 6912 / 4 - 1) {
    if (request.marker == 0) parser.udp_seq_base += 6912 / 4;
    if (request.marker == 2) parser.udp_seq_base += 6912 / 2;
  }
  return 249;
}

}  // namespace reference
