// What the bloom pass prints about the one traced echo. Kept apart from the arithmetic: the kernels
// take a trace as a parameter, and the silent one costs nothing.
#pragma once

#include <cstddef>

#include "MIPI_reader/parser/lidar_point.h"
#include "config/bloom_suppress_calib.h"

namespace kerul::lidar {

// The pixel and echo whose way through the pass is printed.
struct BloomTrace {
  bool armed = false;
  int row = 0;
  int col = 0;
  int echo = 0;
};

// Rows or columns between an echo and a source of the blocks around it: 0 .. kBloomReach - 1.
inline constexpr int kBloomReach = 12;

// The PSF by the rows between echo and source, and by the columns from source to echo, counted from
// 1 - kBloomReach on. Lanes that no echo uses read up to two columns more, zeros.
struct BloomWeights {
  float at[kBloomReach][2 * kBloomReach + 1] = {};
};

// A usable source as the blocks around it see it. The weights depend on the block that looks.
struct BloomSource {
  int row = 0;
  int col = 0;
  float dist = 0.0F;  // dist_raw of echo 0, metres, finite and not 0
  float power = 0.0F;
  const BloomWeights* weights = nullptr;
};

struct BloomBlock {
  int m_row = 0;
  int m_col = 0;
  int echo = 0;
};

// Both are 1 when switched off.
struct BloomBlockGains {
  float dist_std = 1.0F;
  float edge_neighbor = 1.0F;
};

// The power spilled into an echo, from the bare sum over the sources to the final value.
struct BloomSpill {
  float psf_sum = 0.0F;
  float filterpower_psf = 0.0F;
  float pattern_score = -1.0F;
  float gate_energy = 1.0F;
  float final_filterpower = 0.0F;
};

enum class BloomAction { kScaleRefl, kZeroByRatioOrRefl, kZeroByPower };

struct BloomOutcome {
  BloomAction action = BloomAction::kZeroByPower;
  float pr = 0.0F;     // power less the spill
  float ratio = 0.0F;  // pr / power, not set when zeroed by power
  float refl = 0.0F;   // scaled by it, before it may be zeroed
};

// The trace of every echo but one.
struct SilentBloomTrace {
  static constexpr bool kPrints = false;
  static constexpr bool kHearsAll = false;  // of each source, also where none can match
  void MarkPixel(const LidarEcho& /*echo*/, std::size_t /*sources*/) const noexcept {}
  void MarkNotCandidate(const LidarEcho& /*echo*/) const noexcept {}
  void MarkSource(const LidarEcho& /*echo*/, const BloomSource& /*source*/,
                  bool /*matched*/) const noexcept {}
  void MarkResult(const BloomSource* /*source*/) const noexcept {}
  void FilterNotMarked() const noexcept {}
  void FilterNotCandidate(const LidarEcho& /*echo*/) const noexcept {}
  void FilterSource(const LidarEcho& /*echo*/, const BloomSource& /*source*/, float /*psf_w*/,
                    float /*contribution*/, float /*filterpower_sum*/) const noexcept {}
  void FilterNoSource() const noexcept {}
  void FilterGain(const BloomSpill& /*spill*/, const BloomBlockGains& /*gains*/) const noexcept {}
  void FilterResult(const LidarEcho& /*echo*/, const BloomOutcome& /*outcome*/) const noexcept {}
};

// The trace of the one echo: a line on standard output for each call.
class PrintingBloomTrace {
 public:
  static constexpr bool kPrints = true;
  static constexpr bool kHearsAll = true;

  // Both must outlive the trace.
  PrintingBloomTrace(const BloomTrace& place, const BloomSuppressCalib& calib) noexcept
      : place_(place), calib_(calib) {}

  void MarkPixel(const LidarEcho& echo, std::size_t sources) const;
  void MarkNotCandidate(const LidarEcho& echo) const;
  void MarkSource(const LidarEcho& echo, const BloomSource& source, bool matched) const;
  // Null: no source matched.
  void MarkResult(const BloomSource* source) const;
  void FilterNotMarked() const;
  void FilterNotCandidate(const LidarEcho& echo) const;
  void FilterSource(const LidarEcho& echo, const BloomSource& source, float psf_w,
                    float contribution, float filterpower_sum) const;
  void FilterNoSource() const;
  void FilterGain(const BloomSpill& spill, const BloomBlockGains& gains) const;
  // `echo` as the filter left it.
  void FilterResult(const LidarEcho& echo, const BloomOutcome& outcome) const;

 private:
  const BloomTrace& place_;
  const BloomSuppressCalib& calib_;
};

// Once per call of the pass, wherever the traced pixel lies.
void PrintBloomFilterDisabled(const BloomTrace& place);
void PrintBloomBlock(const BloomBlock& block, const BloomSuppressCalib& calib,
                     const BloomBlockGains& gains);

}  // namespace kerul::lidar
