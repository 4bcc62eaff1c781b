#include "MIPI_reader/parser/raw_packet.h"

namespace kerul::lidar {
namespace {

std::uint16_t LoadU16(const std::uint8_t* bytes) noexcept {
  return static_cast<std::uint16_t>(bytes[0] | (bytes[1] << 8));
}

std::uint32_t LoadU32(const std::uint8_t* bytes) noexcept {
  return LoadU16(bytes) | (static_cast<std::uint32_t>(LoadU16(bytes + 2)) << 16);
}

constexpr PixelPlaceTable MakePixelPlaces() noexcept {
  PixelPlaceTable table{};
  for (int id = 0; id < kPixelIds; ++id) {
    const PixelPlace place = PlacePixel(id, 0, 0, 0, 0);
    table.offsets[id] = place.row + 65536 * place.col;
  }
  return table;
}

}  // namespace

constinit const PixelPlaceTable kPixelPlaces = MakePixelPlaces();

std::uint16_t ReadMagic(const std::uint8_t* packet) noexcept {
  return LoadU16(packet + raw_packet::kMagicOffset);
}

std::uint16_t ReadVersion(const std::uint8_t* packet) noexcept {
  return LoadU16(packet + raw_packet::kVersionOffset);
}

RawHeader ReadRawHeader(const std::uint8_t* packet) noexcept {
  using namespace raw_packet;
  return {.ch_num = packet[kChannelCountOffset],
          .packet_type = LoadU16(packet + kPacketTypeOffset),
          .scan_mode = packet[kScanModeOffset],
          .slot_id = packet[kSlotIdOffset],
          .mipi_packet_id = packet[kMipiPacketIdOffset],
          .group_id = packet[kGroupIdOffset],
          .subpkt_id = packet[kSubpacketIdOffset],
          .frame_id = packet[kFrameIdOffset],
          .frame_duration = LoadU16(packet + kFrameDurationOffset),
          .timestamp = LoadU32(packet + kTimestampOffset),
          .udp_sequence_num = static_cast<std::int32_t>(LoadU32(packet + kSequenceOffset))};
}

void UnpackBlock(const std::uint8_t* block, std::uint16_t* samples) noexcept {
  for (int pair = 0; pair < raw_packet::kSamplesPerBlock / 2; ++pair) {
    const unsigned a = block[3 * pair];
    const unsigned b = block[3 * pair + 1];
    const unsigned c = block[3 * pair + 2];
    samples[2 * pair] = static_cast<std::uint16_t>(a * 16 + (c & 0x0F));
    samples[2 * pair + 1] = static_cast<std::uint16_t>(b * 16 + (c >> 4));
  }
}

RawPixel ReadRawPixel(const std::uint16_t* samples) noexcept {
  using namespace raw_packet;
  const std::uint16_t* noise = samples + kNoiseSample;
  const std::uint16_t* word22 = samples + kWord22Sample;
  return {.pixel_id = samples[kPixelIdSample],
          .peak_addr = {samples[kPeakAddrSample], samples[kPeakAddrSample + 1]},
          .noise = static_cast<std::uint16_t>(((noise[0] << 12) & 0xFFFF) | noise[1]),
          .pixel_word22 = (static_cast<std::uint32_t>(word22[0] << 12) & 0x3FF000U) | word22[1],
          .pixel_word11 = samples[kWord11Sample] & 0x7FFU};
}

int TotalPacketId(const RawHeader& header, int pixel_id) noexcept {
  using namespace raw_packet;
  return header.group_id * kPacketsPerRow + header.slot_id * kPacketsPerSlot +
         pixel_id / kPixelIdsPerRun * kPacketsPerRun + header.subpkt_id;
}

}  // namespace kerul::lidar
