#include "pixel_story/packet_road.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "MIPI_reader/node/point_calibration/high_reflectivity_check_scalar.h"
#include "MIPI_reader/node/point_calibration/packet_calibration_scalar.h"
#include "MIPI_reader/node/point_calibration/retro_calib_scalar.h"
#include "MIPI_reader/parser/echo_computation_scalar.h"
#include "MIPI_reader/parser/packet_decoding_scalar.h"

namespace kerul::lidar::story {
namespace {

struct EchoTeller {
  EchoDecisions& told;

  void HeadRise(const echo_computation::HeadRise& decision) { told.head_rise = decision; }
  void RisePulse(const echo_computation::RisePulse& decision) { told.rise_pulse = decision; }
  void Rise(const echo_computation::BaselineRise& decision) { told.rise = decision; }
  void Clip(const echo_computation::SidePeakClip& decision) { told.clip = decision; }
  void Shape(const echo_computation::PulseShape& shape) {
    told.shape = KeptShape{.window = shape.window, .sums = shape.sums, .baseline = shape.baseline};
  }
  void Detection(const echo_computation::Detection& decision) { told.detection = decision; }
  // The low threshold's come first.
  void Crossings(const echo_computation::Edges& edges) {
    (told.low_edges ? told.high_edges : told.low_edges) = edges;
  }
  void LowWidth(const echo_computation::LowWidth& decision) { told.low_width = decision; }
  void HighWidthWish(const echo_computation::HighWidthWish& wish) { told.high_wish = wish; }
  void HighWidth(const echo_computation::HighWidth& decision) { told.high_width = decision; }
  void RawRange(const echo_computation::RawRange& range) { told.raw_range = range; }
  void WidePulse(const echo_computation::WidePulse& decision) { told.wide_pulse = decision; }
};

struct BlockTeller {
  PacketRoad& road;

  void Block(const packet_decoding::BlockWords& block) {
    road.words = block.pixel;
    road.detection = block.detection;
    road.baseline = block.baseline;
    for (int slot = 0; slot < kEchoSlots; ++slot) {
      std::copy_n(block.samples + raw_packet::kWindowSample + raw_packet::kWindowStride * slot,
                  kWindowSamples, road.echoes[static_cast<std::size_t>(slot)].samples.begin());
    }
  }
  static void NoWindow(const packet_decoding::WindowStart&) {}
};

struct CalibrationTeller {
  CalibrationDecisions& told;

  void HeightGain(const point_calibration::HeightGain& gain) { told.gain = gain; }
  void BackgroundShift(const point_calibration::BackgroundShift& shift) { told.shift = shift; }
  void RangeCorrection(const point_calibration::RangeCorrection& range) { told.range = range; }
  void RangeLoss(const point_calibration::RangeLoss& loss) { told.range_loss = loss; }
  void HeightMapping(const point_calibration::HeightMapping& mapping) { told.mapping = mapping; }
  void NoScale(float range) { told.unscaled_range = range; }
  void Reflectivity(const point_calibration::ReflectivityMeasure& measure) {
    told.reflectivity = measure;
  }
  void Bright(const point_calibration::BrightOverride& bright) { told.bright = bright; }
  void Softened(const point_calibration::NearSoftening& softened) { told.softened = softened; }
  void Floor(const point_calibration::ReflectivityFloor& floor) { told.floor = floor; }
};

struct RuleTeller {
  PacketRoad& road;

  void Rule(point_calibration::HighReflRule rule) { road.rules.push_back({rule, {}}); }
  void Comparison(const point_calibration::HighReflComparison& comparison) {
    road.rules.back().comparisons.push_back(comparison);
  }
  void Verdict(const point_calibration::HighReflVerdict& verdict) { road.verdict = verdict; }
};

void Decode(const PacketContext& context, const std::uint8_t* block, PacketRoad& road) {
  road.decoded.ResetEchoes();
  BlockTeller tell{road};
  DecodeBlock(context, block, road.decoded, tell,
              [&road](const EchoSettings& settings, const std::uint16_t* samples, LidarPoint& point,
                      int slot) {
                const auto at = static_cast<std::size_t>(slot);
                road.has_window[at] = true;
                EchoTeller echo{road.echoes[at]};
                ComputeEcho(settings, samples, point, slot, echo);
              });
}

// The steps of CalibratePacket over the echoes of one point.
void Calibrate(const CalibrationSteps& steps, PacketRoad& road) {
  LidarPoint& point = road.calibrated;
  const auto slots = static_cast<std::size_t>(LidarPoint::echo_num);
  for (std::size_t slot = 0; slot < slots; ++slot) {
    CalibrationDecisions& told = road.calibration[slot];
    LidarEcho& echo = point.echoes[slot];
    CalibrationTeller tell{told};
    if (steps.env != nullptr) point_calibration::CompensateEcho(*steps.env, echo, tell);
    told.after_environment = echo;
    if (steps.dist != nullptr) {
      const float offset = PixelTableEntry(steps.dist->offset, point.row, point.col);
      point_calibration::CalibrateEchoRange(*steps.dist, offset, echo, tell);
    }
    told.after_range = echo;
    if (steps.high_threshold_map != nullptr) {
      point_calibration::MapEchoHeight(*steps.high_threshold_map, echo, tell);
    }
    told.after_map = echo;
  }
  if (steps.high_refl_check != nullptr && steps.high_refl_check->enable) {
    RuleTeller tell{road};
    point_calibration::CheckPixel(*steps.high_refl_check, point.echoes[0],
                                  slots > 1 ? &point.echoes[1] : nullptr, tell);
  }
  for (std::size_t slot = 0; slot < slots; ++slot) {
    road.calibration[slot].after_check = point.echoes[slot];
    if (steps.retro == nullptr) continue;
    CalibrationTeller tell{road.calibration[slot]};
    point_calibration::CalibrateEcho(
        *steps.retro, PixelTableEntry(steps.retro->retro_scale, point.row, point.col),
        std::max(point.row % kEfficiantCols, 0), point, static_cast<int>(slot), tell);
  }
}

bool Same(float a, float b) noexcept {
  return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b) ||
         (std::isnan(a) && std::isnan(b));
}

bool SameEcho(const LidarEcho& a, const LidarEcho& b) noexcept {
  for (const auto field :
       {&LidarEcho::dist_raw, &LidarEcho::refl_raw, &LidarEcho::dist_proc, &LidarEcho::refl_proc,
        &LidarEcho::cogh, &LidarEcho::cogw, &LidarEcho::cogw_high, &LidarEcho::waveform_rms_ratio,
        &LidarEcho::conf, &LidarEcho::echosum, &LidarEcho::totsum, &LidarEcho::peak,
        &LidarEcho::peak_ratio, &LidarEcho::power, &LidarEcho::noise, &LidarEcho::baseline,
        &LidarEcho::change_noise_noise_append, &LidarEcho::timming_th,
        &LidarEcho::ground_refl_scale}) {
    if (!Same(a.*field, b.*field)) return false;
  }
  for (const auto flag : {&LidarEcho::highRefl, &LidarEcho::highReflBlooming,
                          &LidarEcho::afterPulse, &LidarEcho::debug_flag, &LidarEcho::ground,
                          &LidarEcho::fill_point, &LidarEcho::shot_noise_point,
                          &LidarEcho::shot_noise_group_point, &LidarEcho::detect_pass}) {
    if (a.*flag != b.*flag) return false;
  }
  return a.echo_flags == b.echo_flags && a.cogw_flag == b.cogw_flag && a.peak_addr == b.peak_addr &&
         a.bins == b.bins;
}

}  // namespace

PacketRoad WalkPacketRoad(const PacketContext& context, const std::uint8_t* packet, int block,
                          const CalibrationSteps& steps) {
  PacketRoad road{};
  road.header = ReadRawHeader(packet);
  Decode(context, packet + raw_packet::kBlocksOffset + block * raw_packet::kBlockBytes, road);
  road.pixel_entry =
      std::clamp(TileOrderIndex(road.decoded.row, road.decoded.col), 0, kPixelTableEntries - 1);
  road.calibrated = road.decoded;
  Calibrate(steps, road);
  return road;
}

bool SameRecord(const LidarPoint& a, const LidarPoint& b) noexcept {
  for (const auto field :
       {&LidarPoint::pixel_word22, &LidarPoint::pixel_word11, &LidarPoint::shot_times,
        &LidarPoint::shot_ratio, &LidarPoint::detect_threshold}) {
    if (!Same(a.*field, b.*field)) return false;
  }
  return a.row == b.row && a.col == b.col && SameEcho(a.echoes[0], b.echoes[0]) &&
         SameEcho(a.echoes[1], b.echoes[1]);
}

}  // namespace kerul::lidar::story
