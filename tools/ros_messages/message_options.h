// What goes into the messages of a frame, and how a program's user says so.
#pragma once

#include <bitset>
#include <cstdint>
#include <string>

#include "kerul_lidar/point_packet_view.h"

namespace CLI {
class App;
}

namespace kerul::lidar::ros {

inline constexpr int kFramePixels = kFrameRows * kFrameCols;

enum class EchoChoice : std::uint8_t { kFirst, kSecond, kBoth };

struct MessageOptions {
  std::string frame_id = "lidar";  // of every header
  // Clouds only: one line of the points that have a place, instead of a grid with NaN.
  bool valid_only = false;
  EchoChoice echoes = EchoChoice::kFirst;
  int every_row = 1;  // rows whose number this divides are kept, row 0 at the bottom
  int every_col = 1;
  // Pixels that read as no return whatever was measured, by row * 288 + col: the own vehicle.
  std::bitset<kFramePixels> masked;
};

// Adds --frame-id, --valid-only, --echo, --every-row, --every-col and --mask. A mask that cannot be
// read is an error of the command line. `options` must outlive the parsing.
void AddMessageOptions(CLI::App& app, MessageOptions& options);

// Reads a PNG of 288 x 216 pixels, top of the picture up: black leaves a pixel out. False with the
// reason in `error`; `masked` is unchanged then.
bool ReadMask(const std::string& path, std::bitset<kFramePixels>& masked, std::string& error);

}  // namespace kerul::lidar::ros
