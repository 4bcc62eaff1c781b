// The sensor's factory calibration: the two blobs, their checksums, the record they unpack into.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "calibration/angle_calib.h"

namespace kerul::lidar {

// Where a calibration came from.
enum class Para2CalibSource : std::int32_t {
  kLocalCache = 0,  // the para_read cache, or a directory named on the command line
  kOnline = 1,      // read from the sensor in this run
  kFallback = 2,    // the online read failed, the cache served
};

// Pixel tables stand in tile order: index = tile * 36 + position in the tile, 48 tiles to a row of
// tiles, 6 x 6 pixels to a tile. An entry of exactly 0 marks a pixel without calibration.
struct Para2LidarCalib {
  std::string lidar_id;  // the sensor this data belongs to; may hold any byte
  Para2CalibSource source = Para2CalibSource::kOnline;
  std::vector<float> dist_curve;       // 512: range correction by pulse height, low threshold
  std::vector<float> dist_curve_high;  // 512: the same for the high threshold
  std::vector<float> dist_offset;      // 288 * 288: range offset of each pixel
  std::vector<float> retro_curve;      // 512: reflectivity curve
  std::vector<float> retro_scale;      // 288 * 288: reflectivity scale of each pixel
  QndrAngleDatRecord angle_record{};   // camera model out of the head
};

namespace para2_lidar_detail {

// Head blob, one page of 256 bytes, little-endian:
//   0    20  lidar_id, ended by the first byte 0xFF
//   20   78  camera model, one QndrAngleDatRecord
//   98    2  page_count: pages of 256 bytes in all, the head page included
//   128   4  para2_crc: checksum of the whole main blob
//   132   4  head128_crc: checksum of head bytes 0 to 127
inline constexpr std::size_t kPageBytes = 256;
inline constexpr std::size_t kLidarIdBytes = 20;
inline constexpr std::size_t kAngleBlockOffset = 20;
inline constexpr std::size_t kPageCountOffset = 98;
inline constexpr std::size_t kHeadCheckedBytes = 128;
inline constexpr std::size_t kPara2CrcOffset = 128;
inline constexpr std::size_t kHeadCrcOffset = 132;
inline constexpr std::size_t kHeadMinBytes = 136;

// Main blob: two tables of one byte per pixel, then three curves of i16, little-endian:
//   0 dist_offset   82944 retro_scale   165888 dist_curve   166912 dist_curve_high
//   167936 retro_curve
inline constexpr int kPixelEntries = 288 * 288;
inline constexpr int kCurveEntries = 512;
inline constexpr std::int32_t kMainMinBytes = 168960;

// CRC-32/MPEG-2: polynomial 0x04C11DB7, start 0xFFFFFFFF, nothing reflected, no final XOR. A null
// pointer or a size of 0 gives 0, not the start value.
std::uint32_t GenPara2Crc32(const std::uint8_t* data, std::size_t size) noexcept;

// Throws std::runtime_error when `head` is too short or one of its two checksums does not fit.
void VerifyHeadCrc(const std::vector<std::uint8_t>& head, const std::vector<std::uint8_t>& main);

// Fills the five tables of `calib`. Throws std::runtime_error for a blob that is too short and for
// a tile value of 0; `calib` is then left partly filled.
void UnpackPara2Main(const std::vector<std::uint8_t>& main, int tile_pixels, int tile_columns,
                     Para2LidarCalib& calib);

// The identifier in the first 20 bytes of `head`; empty when there are fewer. Bytes below 0x20 and
// zero bytes are kept. When the very first byte is 0xFF, gives bytes 0 to 7 unchanged.
std::string ParseLidarId(const std::vector<std::uint8_t>& head);

}  // namespace para2_lidar_detail
}  // namespace kerul::lidar
