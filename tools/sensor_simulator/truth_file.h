// The ground truth beside a stream.
//
// A file header of 32 bytes, then one record per frame. All little-endian.
//
//   header  0  8  "KLTRUTH1"
//           8  4  rows (216)         12  4  columns (288)
//          16  4  echo slots (2)     20  4  bytes of an echo record (20)
//          24  8  zero
//   frame   0  4  frame number; the stream carries it modulo 256
//           4  4  zero
//           8  8  f64, seconds since frame 0
//          16     rows x columns x echo slots echo records, row by row, both slots of a pixel side
//                 by side, by slot as sent
//   echo    0  4  f32, range in metres: of the surface, or where a false return seems to be
//           4  4  f32, apparent reflectivity: 100 is white and head-on; not capped at 255
//           8  4  f32, cosine of the angle of incidence; 0 for false returns
//          12  4  f32, strength: expected detections per 160 shots
//          16  1  kind: 0 none, 1 ground, 2 wall, 3 object, 4 retro-reflector, 5 fence, 6 bloom,
//                 7 after-pulse, 8 ghost, 9 noise, 10 crosstalk
//          17  1  body: index into the scene, 255 none
//          18  1  1 when the window was sent; a surface too weak for that stands here with 0
//          19  1  zero
#pragma once

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "sensor_simulator/frame_simulator.h"

namespace kerul::lidar::simulator {

class TruthWriter {
 public:
  // Creates or empties the file. Throws std::runtime_error when it cannot be written, here or
  // later.
  explicit TruthWriter(const std::string& path);
  void Write(const SimulatedFrame& frame);

 private:
  std::string path_;
  std::ofstream file_;
};

// Frames of a truth file; `pixels` of each stay empty. Throws std::runtime_error for a file that
// cannot be read or is no truth file. A cut last frame is left out.
std::vector<SimulatedFrame> ReadTruthFile(const std::string& path);

}  // namespace kerul::lidar::simulator
