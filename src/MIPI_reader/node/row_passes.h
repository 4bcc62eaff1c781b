// The row passes in their order: the one place that says which pass follows which.
#pragma once

#include <cstdint>
#include <string_view>
#include <type_traits>

#include "MIPI_reader/node/lidar_node_miniflash_processing.h"
#include "MIPI_reader/parser/lidar_point.h"
#include "calibration/angle_calib.h"
#include "config/default_config.h"

namespace kerul::lidar {

enum class RowPass : std::uint8_t { kPrime, kGround, kNeighbours, kShotNoise, kBloom, kOrder };

inline constexpr RowPass kRowPassOrder[] = {RowPass::kPrime,      RowPass::kGround,
                                            RowPass::kNeighbours, RowPass::kShotNoise,
                                            RowPass::kBloom,      RowPass::kOrder};

// "prime", "ground", "neighbours", "shot_noise", "bloom" or "order".
std::string_view RowPassName(RowPass pass) noexcept;

// Priming has no switch: what is published is what it or a later pass leaves.
struct RowSwitches {
  bool ground = false;
  bool neighbours = false;
  bool shot_noise = false;
  bool bloom = false;
  bool order = false;  // looked at only while two echo slots are in use
};

// Without calib_enable none.
RowSwitches MakeRowSwitches(const DefaultConfig& config) noexcept;

// The traced echo of the bloom pass; a negative row or column switches the trace off.
BloomTrace MakeBloomTrace(const DefaultConfig::Debug& debug) noexcept;

// What a start has made of the configuration for the passes. Refers to it: it must outlive this.
struct RowPassTables {
  const GroundSettings& ground;
  const AngleCalibGrid& angle_grid;
  const BloomSuppressCalib& bloom;
  EchoOutputPlan echo_plan;
};

// What the passes of one row work with.
struct RowPassSettings {
  RowPassTables tables;
  RowSwitches on;
  float shot_noise_dist_gate = 0.0F;  // metres
  bool blooming_filter = false;
  BloomTrace bloom_trace;
  int row_height = 6;      // pixel rows in a miniflash row
  int block_columns = 48;  // blocks of columns that the shot-noise filter judges
  std::uint32_t possibly_bright_rows = ~std::uint32_t{0};  // as SuppressBlooming takes it
};

// For a frame of the sensor's size, with all rows possibly bright.
RowPassSettings MakeRowPassSettings(const DefaultConfig& config,
                                    const RowPassTables& tables) noexcept;

bool IsOn(RowPass pass, const RowSwitches& on) noexcept;

// One pass of miniflash row `m_row`, whatever the switches say.
void RunRowPass(RowPass pass, LidarFrame& frame, int m_row, const RowPassSettings& settings);

// Whether priming can wait for the neighbour validation, which then does both in one go over the
// records (PrimeAndValidateNeighbours). It can after the first ground stage: every echo whose
// processed fields that stage writes has a range, and the validation writes these fields anew. It
// cannot after the plane stage: a pull above 1 may erase an echo's range, and its fields then keep
// what was primed before.
bool CanPrimeLate(const RowPassSettings& settings) noexcept;

// The hook for callers who only want the row.
struct NoRowHook {
  static constexpr bool kPrimesLate = true;
  void operator()(RowPass /*pass*/, const LidarFrame& /*frame*/) const noexcept {}
};

// A hook with a true kPrimesLate takes the passes as the fastest way runs them.
template <typename Hook>
inline constexpr bool kHookPrimesLate = requires {
  requires std::remove_cvref_t<Hook>::kPrimesLate;
};

// Runs the passes that are on over miniflash row `m_row`, in the order of kRowPassOrder. The passes
// look at one miniflash row above and below; these rows must be settled.
//   hook  called as hook(pass, frame) after each pass that ran. What it sees after one pass is what
//         the next one finds. Priming is a step of its own then, unless the hook has a true
//         kPrimesLate; the row comes out the same either way.
template <typename Hook>
void RunRowPasses(LidarFrame& frame, int m_row, const RowPassSettings& settings, Hook&& hook) {
  const bool primes_late = kHookPrimesLate<Hook> && CanPrimeLate(settings);
  for (const RowPass pass : kRowPassOrder) {
    if (!IsOn(pass, settings.on) || (primes_late && pass == RowPass::kPrime)) continue;
    if (primes_late && pass == RowPass::kNeighbours) {
      PrimeAndValidateNeighbours(frame.points, m_row * settings.row_height, settings.row_height);
    } else {
      RunRowPass(pass, frame, m_row, settings);
    }
    hook(pass, frame);
  }
}

}  // namespace kerul::lidar
