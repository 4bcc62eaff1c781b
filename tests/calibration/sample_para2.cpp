#include "calibration/sample_para2.h"

#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "calibration/angle_calib.h"

namespace kerul::lidar {
namespace {

void StoreU32(std::uint8_t* bytes, std::uint32_t value) {
  for (unsigned i = 0; i < 4; ++i) bytes[i] = static_cast<std::uint8_t>(value >> (8 * i));
}

}  // namespace

std::uint32_t BitSerialCrc(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  std::uint32_t state = 0xFFFFFFFF;
  for (std::size_t bit = 0; bit < 8 * size; ++bit) {
    const std::uint32_t in = (data[bit / 8] >> (7 - bit % 8)) & 1U;
    const std::uint32_t out = state >> 31U;
    state <<= 1U;
    if (in != out) state ^= 0x04C11DB7;
  }
  return state;
}

void Seal(SamplePara2& sample) {
  StoreU32(&sample.head[128], BitSerialCrc(sample.main.data(), sample.main.size()));
  StoreU32(&sample.head[132], BitSerialCrc(sample.head.data(), 128));
}

SamplePara2 MakeSample(const std::string& id, std::size_t main_bytes) {
  SamplePara2 sample;
  sample.head.assign(256, 0xFF);
  std::memcpy(sample.head.data(), id.data(), id.size());
  QndrAngleDatRecord record{};
  record.binning = 0x22;
  record.rows = 216;
  record.cols = 288;
  record.f = 300.0F;
  record.cx = 289.0F;
  record.cy = 286.0F;
  std::memcpy(&sample.head[20], &record, sizeof(record));
  const std::size_t pages = 1 + (main_bytes + 255) / 256;
  sample.head[98] = static_cast<std::uint8_t>(pages);
  sample.head[99] = static_cast<std::uint8_t>(pages >> 8U);
  sample.main.resize((pages - 1) * 256);
  for (std::size_t i = 0; i < sample.main.size(); ++i) {
    sample.main[i] = static_cast<std::uint8_t>(i * 7 + i / 256 * 31 + i / 65536);
  }
  Seal(sample);
  return sample;
}

std::vector<std::uint8_t> FileBytes(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("test file missing: " + path.string());
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void WriteFile(const std::filesystem::path& path, const std::vector<std::uint8_t>& bytes) {
  if (path.has_parent_path()) std::filesystem::create_directories(path.parent_path());
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  if (!file.flush()) throw std::runtime_error("test file not written: " + path.string());
}

}  // namespace kerul::lidar
