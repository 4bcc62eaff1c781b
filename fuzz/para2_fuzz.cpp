// The sensor's calibration blobs: checksums, identifier, tables, against the reference.
#include <cstring>
#include <stdexcept>
#include <vector>

#include "byte_input.h"
#include "calibration/para2_lidar_calib.h"
#include "calibration/para2_loading.h"
#include "reference/para2.h"

using namespace kerul::lidar;
using namespace kerul::lidar::para2_lidar_detail;
using fuzz::ByteInput;
using fuzz::Require;

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes Copy(std::span<const std::uint8_t> bytes) { return {bytes.begin(), bytes.end()}; }

// A main blob's size is far beyond what a fuzzer's input should be: its bytes are repeated.
Bytes Stretched(const Bytes& bytes, std::size_t size) {
  Bytes stretched(size);
  if (bytes.empty()) return stretched;
  for (std::size_t i = 0; i < size; ++i) stretched[i] = bytes[(i + i / 251) % bytes.size()];
  return stretched;
}

void PutU32(Bytes& bytes, std::size_t offset, std::uint32_t value) {
  std::memcpy(bytes.data() + offset, &value, sizeof(value));
}

void CheckHead(const Bytes& head, const Bytes& main) {
  const std::string id = ParseLidarId(head);
  Require(id.empty() == (head.size() < kLidarIdBytes), "an id in every head of 20 bytes");
  if (!id.empty()) Require(id == reference::HeadLidarId(head), "the reference's id");
  if (IsSafeLidarId(id)) {
    Require(id.find('/') == std::string::npos && id != "..", "one directory entry");
  }
  Para2LidarCalib calib;
  try {
    TakeHeadFields(head, calib);
    Require(calib.lidar_id == id, "the same id");
  } catch (const std::runtime_error&) {
    Require(head.size() < kAngleBlockOffset + kAngleRecordBytes, "fields of a long enough head");
  }
  bool accepted = true;
  try {
    VerifyHeadCrc(head, main);
  } catch (const std::runtime_error&) {
    accepted = false;
  }
  if (head.size() < kHeadMinBytes) {
    Require(!accepted, "no checksum in a short head");
    return;
  }
  std::uint32_t stored[2];
  std::memcpy(stored, head.data() + kPara2CrcOffset, sizeof(stored));
  Require(accepted == (stored[0] == reference::Para2Crc(main.data(), main.size()) &&
                       stored[1] == reference::Para2Crc(head.data(), kHeadCheckedBytes)),
          "accepted when both checksums fit");
}

void CheckMain(const Bytes& main, int tile_pixels, int tile_columns) {
  Para2LidarCalib calib;
  try {
    UnpackPara2Main(main, tile_pixels, tile_columns, calib);
  } catch (const std::runtime_error&) {
    Require(main.size() < static_cast<std::size_t>(kMainMinBytes) || tile_pixels == 0 ||
                tile_columns == 0,
            "tables of a long enough blob");
    return;
  }
  const reference::MainTables expected = reference::UnpackMain(main, tile_pixels, tile_columns);
  Require(calib.dist_offset == expected.dist_offset, "dist_offset");
  Require(calib.retro_scale == expected.retro_scale, "retro_scale");
  Require(calib.dist_curve == expected.dist_curve, "dist_curve");
  Require(calib.dist_curve_high == expected.dist_curve_high, "dist_curve_high");
  Require(calib.retro_curve == expected.retro_curve, "retro_curve");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ByteInput input(data, size);
  const unsigned options = input.Byte();
  int tile_pixels = 36;
  int tile_columns = 48;
  if ((options & 1U) != 0) {
    tile_pixels = static_cast<std::int8_t>(input.Byte());
    tile_columns = static_cast<std::int16_t>(input.Word());
  }
  Bytes head = Copy(input.Take((options & 2U) != 0 ? input.Byte() : kPageBytes));
  Bytes main = Copy(input.Take(input.Left()));
  if ((options & 8U) != 0 && head.size() >= kHeadMinBytes) {
    PutU32(head, kPara2CrcOffset, reference::Para2Crc(main.data(), main.size()));
    PutU32(head, kHeadCrcOffset, reference::Para2Crc(head.data(), kHeadCheckedBytes));
  }
  CheckHead(head, main);
  if ((options & 4U) != 0) main = Stretched(main, kMainMinBytes - 1 + (options >> 6));
  CheckMain(main, tile_pixels, tile_columns);
  return 0;
}
