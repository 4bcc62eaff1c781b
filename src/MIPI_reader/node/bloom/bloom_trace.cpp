#include "MIPI_reader/node/bloom/bloom_trace.h"

#include <cmath>
#include <iostream>

namespace kerul::lidar {
namespace {

// -1 when a range is not finite.
float DistDiff(float a, float b) {
  return std::isfinite(a) && std::isfinite(b) ? std::fabs(a - b) : -1.0F;
}

}  // namespace

void PrintingBloomTrace::MarkPixel(const LidarEcho& echo, std::size_t sources) const {
  std::cout << "[BloomDebug][mark] pixel=(" << place_.row << "," << place_.col << ")"
            << " echo=" << place_.echo << " raw_dist=" << echo.dist_raw
            << " proc_dist=" << echo.dist_proc << " raw_refl=" << echo.refl_raw
            << " proc_refl=" << echo.refl_proc << " cogh=" << echo.cogh << " power=" << echo.power
            << " highRefl=" << echo.highRefl << " threshold=" << calib_.threshold
            << " high_ref_sources=" << sources << " dist_gate_m=" << calib_.dist_gate_m << '\n';
}

void PrintingBloomTrace::MarkNotCandidate(const LidarEcho& /*echo*/) const {
  std::cout << "[BloomDebug][mark] skip=not_candidate\n";
}

void PrintingBloomTrace::MarkSource(const LidarEcho& echo, const BloomSource& source,
                                    bool matched) const {
  std::cout << "[BloomDebug][mark] source=(" << source.row << "," << source.col << ")"
            << " src_dist=" << source.dist << " src_power=" << source.power
            << " dist_diff=" << DistDiff(source.dist, echo.dist_raw) << " matched=" << matched
            << '\n';
}

void PrintingBloomTrace::MarkResult(const BloomSource* source) const {
  if (source == nullptr) {
    std::cout << "[BloomDebug][mark] result=not_marked_no_dist_gate_source\n";
    return;
  }
  std::cout << "[BloomDebug][mark] result=marked_by_source"
            << " source=(" << source->row << "," << source->col << ")\n";
}

void PrintingBloomTrace::FilterNotMarked() const {
  std::cout << "[BloomDebug][filter] skip=not_marked\n";
}

void PrintingBloomTrace::FilterNotCandidate(const LidarEcho& echo) const {
  std::cout << "[BloomDebug][filter] skip=not_candidate_after_mark"
            << " highRefl=" << echo.highRefl << " cogh=" << echo.cogh
            << " threshold=" << calib_.threshold << " dist=" << echo.dist_raw << '\n';
}

void PrintingBloomTrace::FilterSource(const LidarEcho& echo, const BloomSource& source, float psf_w,
                                      float contribution, float filterpower_sum) const {
  std::cout << "[BloomDebug][filter][psf] source=(" << source.row << "," << source.col << ")"
            << " src_dist=" << source.dist << " src_power=" << source.power
            << " dist_diff=" << DistDiff(source.dist, echo.dist_raw) << " psf_w=" << psf_w
            << " contribution=" << contribution << " filterpower_sum=" << filterpower_sum << '\n';
}

void PrintingBloomTrace::FilterNoSource() const {
  std::cout << "[BloomDebug][filter] skip=no_valid_dist_gate_source\n";
}

void PrintingBloomTrace::FilterGain(const BloomSpill& spill, const BloomBlockGains& gains) const {
  std::cout << "[BloomDebug][filter][gain] psf_sum=" << spill.psf_sum
            << " psf_coeff=" << calib_.psf_coeff << " filterpower_psf=" << spill.filterpower_psf
            << " pattern_enabled=" << calib_.pattern_enabled
            << " pattern_score=" << spill.pattern_score << " gate_energy=" << spill.gate_energy
            << " dist_std_gain=" << gains.dist_std << " edge_neighbor_gain=" << gains.edge_neighbor
            << " final_filterpower=" << spill.final_filterpower << '\n';
}

void PrintingBloomTrace::FilterResult(const LidarEcho& echo, const BloomOutcome& outcome) const {
  std::cout << "[BloomDebug][filter][result] power=" << echo.power << " pr=" << outcome.pr;
  if (outcome.action == BloomAction::kZeroByPower) {
    std::cout << " action=zero_by_power";
  } else {
    const bool scaled = outcome.action == BloomAction::kScaleRefl;
    std::cout << " ratio=" << outcome.ratio
              << " action=" << (scaled ? "scale_refl" : "zero_by_ratio_or_refl");
  }
  std::cout << " out_dist=" << echo.dist_proc << " out_refl=" << echo.refl_proc << '\n';
}

void PrintBloomFilterDisabled(const BloomTrace& place) {
  std::cout << "[BloomDebug][filter] skip=blooming_filter_disabled"
            << " pixel=(" << place.row << "," << place.col << ")"
            << " echo=" << place.echo << '\n';
}

void PrintBloomBlock(const BloomBlock& block, const BloomSuppressCalib& calib,
                     const BloomBlockGains& gains) {
  std::cout << "[BloomDebug][filter_block] echo=" << block.echo << " m_row=" << block.m_row
            << " m_col=" << block.m_col << " dist_pattern_enabled=" << calib.dist_pattern_enabled
            << " dist_neighbor_enabled=" << calib.dist_neighbor_enabled
            << " dist_std_gain=" << gains.dist_std << " edge_neighbor_gain=" << gains.edge_neighbor
            << '\n';
}

}  // namespace kerul::lidar
