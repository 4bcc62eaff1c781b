// Reads and writes pictures.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kerul::lidar {

// The file's bytes; otherwise as WritePng.
bool EncodePng(int width, int height, const std::vector<std::uint8_t>& rgb,
               std::vector<char>& encoded, std::string& error);

// Eight bits a channel, 3 * width * height bytes, rows from the top. False, with the reason in
// `error`, when the file cannot be written or the sizes do not fit.
bool WritePng(const std::string& path, int width, int height, const std::vector<std::uint8_t>& rgb,
              std::string& error);

// Reads any PNG as eight bits a channel, rows from the top. What is transparent lies on black.
// False with the reason in `error`: no such file, no PNG, damaged, or more than 16384 pixels wide
// or high.
bool ReadPng(const std::string& path, int& width, int& height, std::vector<std::uint8_t>& rgb,
             std::string& error);

}  // namespace kerul::lidar
