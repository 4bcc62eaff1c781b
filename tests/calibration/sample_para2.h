// Calibration blobs for the tests.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace kerul::lidar {

struct SamplePara2 {
  std::vector<std::uint8_t> head;  // 256 bytes
  std::vector<std::uint8_t> main;
};

// One bit at a time, straight from the definition of the polynomial division.
std::uint32_t BitSerialCrc(const std::uint8_t* data, std::size_t size);

// Writes both checksums into `sample.head`.
void Seal(SamplePara2& sample);

// A sealed sample: the id followed by 0xFF bytes, a camera model, pages for `main_bytes` (rounded
// up to whole pages), and tables of a pattern without repetition from page to page.
SamplePara2 MakeSample(const std::string& id, std::size_t main_bytes = 168960);

std::vector<std::uint8_t> FileBytes(const std::filesystem::path& path);
void WriteFile(const std::filesystem::path& path, const std::vector<std::uint8_t>& bytes);

}  // namespace kerul::lidar
