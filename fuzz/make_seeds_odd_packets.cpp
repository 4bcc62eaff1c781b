// The odd inputs made by hand of packets and captures of packets; see WriteOddPackets.
#include <algorithm>

#include "MIPI_reader/parser/point_packet_layout.h"
#include "MIPI_reader/parser/raw_packet.h"
#include "seed_directory.h"

namespace raw_packet = kerul::lidar::raw_packet;
namespace point_packet = kerul::lidar::point_packet;

namespace {

Bytes Cut(const Bytes& bytes, std::size_t length) {
  Bytes cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length));
  return cut;
}

// --- Datagrams, see datagram_script.h ---

// An odd datagram between two sound ones, twice: for the whole node, and for three rows, which are
// then finished out of order.
void WriteDatagram(const SeedDirectory& seeds, const char* name, const Bytes& sound,
                   const Bytes& odd) {
  const Bytes first = Joined({DatagramStep(sound), DatagramStep(odd)});
  const Bytes second = Joined({DatagramStep(odd), DatagramStep(sound)});
  seeds.Write("node_stream_fuzz", name, Joined({first, {6, 9}, second}));
  seeds.Write("packet_rows_fuzz", name, Joined({{0, 0, 5}, first, second, {8, 0, 8, 2, 8, 1}}));
}

void WriteDatagrams(const SeedDirectory& seeds, const Bytes& sound) {
  using namespace raw_packet;
  const auto write = [&](const char* name, const Bytes& odd) {
    WriteDatagram(seeds, name, sound, odd);
  };
  const auto with = [&](std::size_t offset, const Bytes& field) {
    return With(sound, offset, field);
  };
  constexpr std::size_t kAllBlocks = std::size_t{kBlocks} * kBlockBytes;
  constexpr std::size_t kLongest = 1500;
  write("one_byte", Cut(sound, 1));
  write("magic_alone", Cut(sound, 2));
  write("header_alone", Cut(sound, kBlocksOffset));
  write("one_byte_short", Cut(sound, sound.size() - 1));
  write("longest_datagram", Joined({sound, Bytes(kLongest - sound.size(), 0xFF)}));
  write("another_version", with(kVersionOffset, {6}));
  write("another_type", with(kPacketTypeOffset, {0xFF, 0xFF}));
  write("scan_mode_largest", with(kScanModeOffset, {0xFF}));
  write("blocks_all_zero", with(kBlocksOffset, Bytes(kAllBlocks, 0)));
  write("blocks_all_ones", with(kBlocksOffset, Bytes(kAllBlocks, 0xFF)));
  write("slot_outside", with(kSlotIdOffset, {4}));
  write("slot_largest", with(kSlotIdOffset, {0xFF}));
  write("group_outside", with(kGroupIdOffset, {36}));
  write("group_largest", with(kGroupIdOffset, {0xFF}));
  write("subpacket_largest", with(kSubpacketIdOffset, {0xFF}));
}

// The template with this frame id at a place in a row.
Bytes PacketOfFrame(std::uint8_t frame_id, std::uint8_t m_row) {
  return {6, frame_id, 2, m_row, 1, 9};
}

void WriteStreams(const SeedDirectory& seeds, const Bytes& sound) {
  const Bytes packet = TemplateSteps(sound);
  constexpr std::uint8_t kLastRow = 35;
  seeds.Write(
      "node_stream_fuzz", "counter_falls_and_wraps",
      Joined({packet, PacketOfFrame(250, 0), PacketOfFrame(49, 1), PacketOfFrame(50, kLastRow),
              PacketOfFrame(51, 2), PacketOfFrame(255, kLastRow), PacketOfFrame(0, 0),
              PacketOfFrame(200, kLastRow), PacketOfFrame(199, 3), PacketOfFrame(0, kLastRow)}));
  // A frame cut short by the last packet of the next, and of the one after it.
  const Bytes last_place = {2, kLastRow, 3, 47};
  seeds.Write(
      "node_stream_fuzz", "last_packet_opens_a_frame",
      Joined({packet, {6, 1, 2, 0, 0, 0}, Fill(6000), {6, 2}, last_place, {6, 3}, last_place}));
  Bytes row_again;
  for (int i = 0; i < 14; ++i) row_again = Joined({row_again, {8, 0}});
  seeds.Write("packet_rows_fuzz", "row_again_and_again",
              Joined({{32, 12, 70}, DatagramStep(sound), row_again}));
  const Bytes rows = {8, 2, 8, 0, 8, 1};
  seeds.Write("packet_rows_fuzz", "rows_before_any_packet", Joined({{0, 13, 5}, rows, rows, rows}));
}

// --- Captures: a header of 24 bytes, then records of 16 bytes with the frame's length at 8 ---

Bytes Length(std::size_t length) { return Joined({Word(length), Word(length >> 16)}); }

void WriteCaptures(const SeedDirectory& seeds, const Bytes& capture) {
  constexpr std::size_t kHeader = 24;
  constexpr std::size_t kRecordHeader = 16;
  constexpr std::size_t kFirstLength = kHeader + 8;
  constexpr std::size_t kFrame = 734;
  constexpr std::size_t kRecord = kRecordHeader + kFrame;
  constexpr std::size_t kUdpHeaders = 42;
  const auto write = [&](const char* name, const Bytes& bytes) {
    seeds.Write("capture_fuzz", name, bytes);
  };
  const Bytes header = Cut(capture, kHeader);
  const Bytes one = Cut(capture, kHeader + kRecord);
  const Bytes record(one.begin() + kHeader, one.end());
  // The record cut, or filled with zeros, to a frame of this length.
  const auto record_of = [&](std::size_t length) {
    Bytes resized = record;
    resized.resize(kRecordHeader + length);
    return With(resized, 8, Joined({Length(length), Length(length)}));
  };
  write("cut_header", Cut(capture, kHeader - 1));
  write("header_only", header);
  write("other_byte_order", With(one, 0, {0xA1, 0xB2, 0xC3, 0xD4}));
  write("length_all_ones", With(one, kFirstLength, Bytes(8, 0xFF)));
  const Bytes sign_bit = Length(std::size_t{1} << 31);
  write("length_sign_bit",
        With(Cut(capture, kHeader + 2 * kRecord), kFirstLength, Joined({sign_bit, sign_bit})));
  constexpr std::size_t kLongerThanAnyDatagram = 1543;
  write("longer_than_the_buffer",
        Joined({header, record_of(kLongerThanAnyDatagram), record, record}));
  write("shorter_than_its_headers", Joined({header, record, record_of(kUdpHeaders - 1),
                                            record_of(kUdpHeaders), record_of(0), record}));
}

// --- Published packets, see point_packet_fuzz ---

void WritePointPackets(const SeedDirectory& seeds, const Bytes& sound) {
  using namespace point_packet;
  const auto write = [&](const char* name, const Bytes& bytes) {
    seeds.Write("point_packet_fuzz", name, bytes);
  };
  // A whole packet, then 200 blocks that follow it, then the last again.
  const auto write_with = [&](const char* name, std::size_t offset, std::uint8_t value) {
    write(name, Joined({{1}, With(sound, offset, {value}), {4}, Word(200), {3}}));
  };
  write_with("block_row_outside", kBlockRowOffset, kBlocksPerColumn);
  write_with("block_row_largest", kBlockRowOffset, 0xFF);
  write_with("block_column_outside", kBlockColOffset, kBlocksPerRow);
  write_with("block_column_largest", kBlockColOffset, 0xFF);
  write("sequence_wraps",
        Joined({{1}, With(sound, kSequenceOffset, Bytes(4, 0xFF)), {4}, Word(100)}));
  write("same_block_again", Joined({{1}, sound, Bytes(50, 3), {5, 1, 3, 3, 3}}));
  write("all_ones", Joined({{1}, Bytes(kBytes, 0xFF)}));
  Bytes repeated;
  while (repeated.size() < 1500) repeated = Joined({repeated, sound});
  for (const std::size_t length : {0U, 1U, 248U, 250U, 1500U}) {
    write(("length_" + std::to_string(length)).c_str(), DatagramStep(Cut(repeated, length)));
  }
}

}  // namespace

void WriteOddPackets(const SeedDirectory& seeds, const SoundInputs& sound) {
  WriteDatagrams(seeds, sound.raw_packet);
  WriteStreams(seeds, sound.raw_packet);
  WriteCaptures(seeds, sound.capture);
  WritePointPackets(seeds, sound.point_packet);
}
