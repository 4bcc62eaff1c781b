// Wire format of the sensor's raw packet, version 7.11, and its unpacking. Offsets are bytes from
// the start of the datagram; integers are little-endian. Records and pure functions only.
#pragma once

#include <cstdint>

namespace kerul::lidar {

namespace raw_packet {

inline constexpr std::uint16_t kMagic = 0xFFEE;    // bytes 0xEE, 0xFF
inline constexpr std::uint16_t kVersion = 0x0B07;  // bytes 7, 11

inline constexpr int kMagicOffset = 0;
inline constexpr int kVersionOffset = 2;
inline constexpr int kChannelCountOffset = 12;
inline constexpr int kPacketTypeOffset = 13;
inline constexpr int kScanModeOffset = 15;
inline constexpr int kBlocksOffset = 20;
inline constexpr int kSlotIdOffset = 671;
inline constexpr int kMipiPacketIdOffset = 672;
inline constexpr int kGroupIdOffset = 673;
inline constexpr int kSubpacketIdOffset = 674;
inline constexpr int kFrameIdOffset = 675;
inline constexpr int kFrameDurationOffset = 676;
inline constexpr int kTimestampOffset = 684;
inline constexpr int kSequenceOffset = 688;

inline constexpr int kBlocks = 9;            // pixel blocks in a packet
inline constexpr int kBlockBytes = 72;       // 24 groups of three bytes
inline constexpr int kSamplesPerBlock = 48;  // 12 bits each

// Places of the words within the unpacked samples of a block.
inline constexpr int kPeakAddrSample = 1;  // of echo 0; that of echo 1 follows
inline constexpr int kPixelIdSample = 3;
inline constexpr int kNoiseSample = 4;   // high part, low part follows
inline constexpr int kWord22Sample = 6;  // high part, low part follows
inline constexpr int kWord11Sample = 8;
inline constexpr int kWindowSample = 10;  // first of echo 0
inline constexpr int kWindowStride = 19;  // from one echo's window to the next

// A window that starts above this bin is no echo.
inline constexpr int kMaxPeakAddr = 1000;

// Places of a packet in the frame: 36 miniflash rows of 192 packets, each row in four column slots
// of 48 packets, each slot in six runs of 72 pixel ids of 8 packets.
inline constexpr int kPacketsPerRow = 192;
inline constexpr int kPacketsPerSlot = 48;
inline constexpr int kPixelIdsPerRun = 72;
inline constexpr int kPacketsPerRun = 8;

static_assert(kBlocksOffset + kBlocks * kBlockBytes <= kSlotIdOffset);

}  // namespace raw_packet

// The words around the pixel blocks.
struct RawHeader {
  std::uint8_t ch_num;  // pixel blocks in this packet
  std::uint16_t packet_type;
  std::uint8_t scan_mode;
  std::uint8_t slot_id;  // column slot, 0..3 from a sound sensor
  std::uint8_t mipi_packet_id;
  std::uint8_t group_id;   // miniflash row, 0..35
  std::uint8_t subpkt_id;  // packet within its run of 72 pixels, 0..7
  std::uint8_t frame_id;   // the sensor's frame counter
  std::uint16_t frame_duration;
  std::uint32_t timestamp;
  std::int32_t udp_sequence_num;
};

// The words of one pixel block besides its two windows.
struct RawPixel {
  int pixel_id;                // 12 bits, 0..431 from a sound sensor
  int peak_addr[2];            // 12 bits, bins
  std::uint16_t noise;         // 16 bits, raw units
  std::uint32_t pixel_word22;  // 22 bits
  std::uint32_t pixel_word11;  // 11 bits
};

struct PixelPlace {
  int row;
  int col;
};

std::uint16_t ReadMagic(const std::uint8_t* packet) noexcept;
std::uint16_t ReadVersion(const std::uint8_t* packet) noexcept;

// Reads the fixed offsets; `packet` holds at least 692 bytes.
RawHeader ReadRawHeader(const std::uint8_t* packet) noexcept;

// Unpacks 72 bytes into 48 samples of 12 bits. Two samples share three bytes a, b, c: the even one
// is a * 16 + low nibble of c, the odd one b * 16 + high nibble of c.
void UnpackBlock(const std::uint8_t* block, std::uint16_t* samples) noexcept;

// The pixel id of a block as it stands in the packet.
inline int PixelIdOf(const std::uint8_t* block) noexcept { return block[4] * 16 + (block[5] >> 4); }

// Picks the words out of the 48 samples of a block.
RawPixel ReadRawPixel(const std::uint16_t* samples) noexcept;

// Place of a pixel id in the frame. Twelve consecutive ids step through the columns at a distance
// of 24, nine such dozens fill a block of 3 x 3 pixels, and what is left of the id moves on by
// three rows (bit 0 of id / 108) and three columns (id / 216). Ids, groups and slots beyond those
// of a sound sensor give places outside the frame.
constexpr PixelPlace PlacePixel(int pixel_id, int group_id, int slot_id, int mrow_height,
                                int group_width) noexcept {
  const int in_block = pixel_id / 12 % 9;
  return {.row = in_block % 3 + group_id * mrow_height + ((pixel_id / 108) & 1) * 3,
          .col = in_block / 3 + slot_id * group_width + pixel_id % 12 * 24 + pixel_id / 216 * 3};
}

inline constexpr int kPixelIds = 4096;  // of 12 bits

// What a pixel id adds to the place of its group and slot: the row, and 65536 times the column. A
// table, because the divisions are slow.
struct PixelPlaceTable {
  std::int32_t offsets[kPixelIds];
};
extern const PixelPlaceTable kPixelPlaces;

// Number of the packet within the frame, 0..6911 for a sound packet; `pixel_id` is that of its last
// block.
int TotalPacketId(const RawHeader& header, int pixel_id) noexcept;

}  // namespace kerul::lidar
