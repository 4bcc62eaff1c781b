// Random records for comparing two computations: plausible ones, wild ones, and the values at which
// computations differ.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "MIPI_reader/parser/lidar_point.h"
#include "calibration/angle_calib.h"

namespace kerul::lidar::testing {

enum class FrameStyle {
  kEmpty,     // no echo at all
  kSurface,   // a tilted surface with a little noise, a second echo here and there
  kSalted,    // the same, with edge values sprinkled over it
  kPatches,   // blocks at ranges of their own, some with bright pixels
  kIsolated,  // a few echoes, far between
  kWild,      // any value in any field
};
inline constexpr int kFrameStyles = 6;

class RandomRecords {
 public:
  explicit RandomRecords(std::uint64_t seed) : state_(seed) {}

  // One round in four draws its floats from coarse steps, so that what is compared is often equal.
  void StartRound() { coarse_ = Chance(0.25); }

  std::uint64_t Bits();
  std::uint8_t Byte() { return static_cast<std::uint8_t>(Bits() >> 56); }
  int Below(int limit);                  // 0..limit-1, limit above 0
  int Between(int lowest, int highest);  // both included
  bool Chance(double probability);
  float Uniform(float lowest, float highest);

  // NaN, infinities, zeros of both signs, the smallest and largest numbers, whole numbers, limits
  // of the integer types.
  float EdgeValue();
  // Any 32 bits as a float.
  float AnyFloat();
  // Uniform except for a share of edge values.
  float Salted(float lowest, float highest, double share = 0.02);
  std::vector<float> Table(std::size_t entries, float lowest, float highest, double share = 0.0);

  // Every field random: plausible by default, edge values as often as `share` says, bits of any
  // kind when wild. Few have samples in `bins`. `row` and `col` lie in the 216 x 288 grid.
  LidarEcho Echo(double share);
  LidarPoint Point(double share);
  LidarPoint WildPoint();

  // height and width in pixels; each point carries its place. Sets LidarPoint::echo_num.
  LidarFrame Frame(int height, int width, int echo_num, FrameStyle style);
  FrameStyle Style() { return static_cast<FrameStyle>(Below(kFrameStyles)); }

  // 17 samples: empty, flat, one pulse, two peaks, saturated, or any.
  void Window(std::uint16_t* samples);
  // A raw packet of this protocol, mostly with a place of a sound sensor. Everything that has no
  // part in that is random.
  UdpPacket RawPacket();
  // The packet at place `index`, 0..6911, of a frame. Most first echoes of a miniflash row lie at
  // about the same range.
  UdpPacket RawPacketAt(int index, int frame_id);

  // A direction for each pixel, looking forward; edge values as often as `share` says.
  AngleCalibGrid AngleGrid(int rows, int cols, double share);

 private:
  void FillSurface(LidarFrame& frame, double share);
  void FillPatches(LidarFrame& frame);
  void FillIsolated(LidarFrame& frame);
  UdpPacket RawPacketBytes();
  void PutPixel(int pixel_id, int address, std::uint8_t* block);
  void PutEcho(LidarEcho& echo, float range, float height);

  std::uint64_t state_;
  bool coarse_ = false;
};

}  // namespace kerul::lidar::testing
