// A pixel's way through its packet, by the node's scalar forms: what they read and decided, as they
// told it, and the records between the steps.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "MIPI_reader/node/point_calibration/calibration_decisions.h"
#include "MIPI_reader/node/point_calibration/packet_calibrator.h"
#include "MIPI_reader/parser/echo_decisions.h"
#include "MIPI_reader/parser/lidar_point.h"
#include "MIPI_reader/parser/packet_decoding_scalar.h"
#include "MIPI_reader/parser/raw_packet.h"

namespace kerul::lidar::story {

// The pulse as the echo computation saw it, after the cut of side peaks.
struct KeptShape {
  echo_computation::Window window;
  echo_computation::Sums sums;
  float baseline;
};

// What was decided about one window. A record is missing where the computation did not come by.
struct EchoDecisions {
  std::array<std::uint16_t, kWindowSamples> samples{};  // as received
  std::optional<echo_computation::HeadRise> head_rise;
  std::optional<echo_computation::RisePulse> rise_pulse;
  std::optional<echo_computation::BaselineRise> rise;
  std::optional<echo_computation::SidePeakClip> clip;
  std::optional<KeptShape> shape;
  std::optional<echo_computation::Detection> detection;
  std::optional<echo_computation::Edges> low_edges;
  std::optional<echo_computation::LowWidth> low_width;
  std::optional<echo_computation::HighWidthWish> high_wish;
  std::optional<echo_computation::Edges> high_edges;
  std::optional<echo_computation::HighWidth> high_width;
  std::optional<echo_computation::RawRange> raw_range;
  std::optional<echo_computation::WidePulse> wide_pulse;
};

// What the calibration decided about one echo, and the echo after each of its steps.
struct CalibrationDecisions {
  std::optional<point_calibration::HeightGain> gain;
  std::optional<point_calibration::BackgroundShift> shift;
  LidarEcho after_environment;
  std::optional<point_calibration::RangeCorrection> range;
  std::optional<point_calibration::RangeLoss> range_loss;
  LidarEcho after_range;
  std::optional<point_calibration::HeightMapping> mapping;
  LidarEcho after_map;
  LidarEcho after_check;
  std::optional<float> unscaled_range;  // of an echo that a missing scale erased, metres
  std::optional<point_calibration::ReflectivityMeasure> reflectivity;
  std::optional<point_calibration::BrightOverride> bright;
  std::optional<point_calibration::NearSoftening> softened;
  std::optional<point_calibration::ReflectivityFloor> floor;
};

// A rule of the high-reflectivity check that was looked at, with its comparisons until one failed.
struct RuleTold {
  point_calibration::HighReflRule rule;
  std::vector<point_calibration::HighReflComparison> comparisons;
};

struct PacketRoad {
  RawHeader header;
  RawPixel words;
  std::optional<packet_decoding::DetectionLevel> detection;
  float baseline = 0.0F;  // of the noise, level units
  std::array<EchoDecisions, kEchoSlots> echoes;
  std::array<bool, kEchoSlots> has_window{};  // decoded: not empty by its address
  LidarPoint decoded;

  int pixel_entry = 0;  // in the tables by pixel
  std::array<CalibrationDecisions, kEchoSlots> calibration;
  std::vector<RuleTold> rules;
  std::optional<point_calibration::HighReflVerdict> verdict;
  LidarPoint calibrated;
};

// Walks block `block` (0..8) of a packet that the parser takes. `context` belongs to the packet;
// `steps` are the calibration's, none when it is off. Works on LidarPoint::echo_num slots.
PacketRoad WalkPacketRoad(const PacketContext& context, const std::uint8_t* packet, int block,
                          const CalibrationSteps& steps);

// Whether two records hold the same values, floats bit for bit. Every NaN equals every other: which
// of two NaNs an operation hands on is left to the compiler.
bool SameRecord(const LidarPoint& a, const LidarPoint& b) noexcept;

}  // namespace kerul::lidar::story
