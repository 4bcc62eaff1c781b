#include "reference/bloom.h"

#include <cmath>
#include <vector>

#include "reference/numeric.h"

namespace reference {
namespace {

struct Place {
  int row = 0;
  int col = 0;
};

LidarEcho& EchoAt(LidarFrame& frame, int row, int col, int echo) {
  return frame.points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)].echoes[echo];
}

bool IsRange(float dist) { return std::isfinite(dist) && dist != 0.0F; }

bool IsUsableSource(const LidarEcho& e, const BloomSuppressCalib& calib) {
  if (!e.highRefl) return false;
  if (!IsRange(e.dist_raw)) return false;
  if (calib.source_min_dist_m > 0.0F && !(e.dist_raw > calib.source_min_dist_m)) return false;
  return true;
}

bool IsCandidate(const LidarEcho& e, const BloomSuppressCalib& calib) {
  return !e.highRefl && e.cogh < calib.threshold && IsRange(e.dist_raw);
}

bool SameRange(const LidarEcho& source, const LidarEcho& echo, const BloomSuppressCalib& calib) {
  if (!IsRange(source.dist_raw) || !IsRange(echo.dist_raw)) return false;
  return std::fabs(source.dist_raw - echo.dist_raw) < calib.dist_gate_m;
}

bool AnySourceNearRow(LidarFrame& frame, int m_row, const BloomSuppressCalib& calib) {
  const int first = 6 * m_row - 6 < 0 ? 0 : 6 * m_row - 6;
  const int end = 6 * m_row + 12 > frame.height ? frame.height : 6 * m_row + 12;
  for (int row = first; row < end; ++row) {
    for (int col = 0; col < frame.width; ++col) {
      if (IsUsableSource(EchoAt(frame, row, col, 0), calib)) return true;
    }
  }
  return false;
}

// Sources of the 3 x 3 blocks around (m_row, m_col), in the fixed order.
std::vector<Place> GatherSources(LidarFrame& frame, int m_row, int m_col,
                                 const BloomSuppressCalib& calib) {
  std::vector<Place> sources;
  for (int block_row = m_row - 1; block_row <= m_row + 1; ++block_row) {
    for (int block_col = m_col - 1; block_col <= m_col + 1; ++block_col) {
      if (block_row < 0 || block_row >= frame.height / 6) continue;
      if (block_col < 0 || block_col >= frame.width / 6) continue;
      for (int row = 6 * block_row; row <= 6 * block_row + 5; ++row) {
        for (int col = 6 * block_col; col <= 6 * block_col + 5; ++col) {
          if (IsUsableSource(EchoAt(frame, row, col, 0), calib)) sources.push_back(Place{row, col});
        }
      }
    }
  }
  return sources;
}

void MarkBlock(LidarFrame& frame, int m_row, int m_col, int e, const std::vector<Place>& sources,
               const BloomSuppressCalib& calib) {
  for (int row = 6 * m_row; row <= 6 * m_row + 5; ++row) {
    for (int col = 6 * m_col; col <= 6 * m_col + 5; ++col) {
      LidarEcho& echo = EchoAt(frame, row, col, e);
      if (!IsCandidate(echo, calib)) continue;
      for (const Place& place : sources) {
        if (!SameRange(EchoAt(frame, place.row, place.col, 0), echo, calib)) continue;
        echo.highReflBlooming = true;
        break;
      }
    }
  }
}

const float* ChoosePsf(int block_row_offset, int block_col_offset,
                       const BloomSuppressCalib& calib) {
  if (block_row_offset == 0 && block_col_offset == 0) return calib.psf_same_block;
  if (block_col_offset == 0 && (block_row_offset == 1 || block_row_offset == -1)) {
    return calib.psf_adjacent_block;
  }
  if (block_row_offset == 0 && (block_col_offset == 1 || block_col_offset == -1)) {
    return calib.psf_adjacent_block;
  }
  return calib.psf_diagonal_block;
}

float PsfValue(const float* table, float x) {
  if (!(x > 0.0F)) return table[0];
  if (x >= 31.0F) return table[31];
  const int i = Truncate(x);
  const float f = x - static_cast<float>(i);
  return (1.0F - f) * table[i] + f * table[i + 1];
}

struct Spill {
  int sources = 0;
  float filterpower_sum = 0.0F;
};

Spill SumSpill(LidarFrame& frame, int m_row, int m_col, Place at, const LidarEcho& echo,
               const std::vector<Place>& sources, const BloomSuppressCalib& calib) {
  Spill spill;
  for (const Place& place : sources) {
    const LidarEcho& source = EchoAt(frame, place.row, place.col, 0);
    if (!SameRange(source, echo, calib)) continue;
    const float x = 2.0F * std::hypot(static_cast<float>(place.row - at.row),
                                      static_cast<float>(place.col - at.col));
    const float* table = ChoosePsf(place.row / 6 - m_row, place.col / 6 - m_col, calib);
    const float psf_w = PsfValue(table, x);
    const float contribution = psf_w * source.power;
    spill.filterpower_sum += contribution;
    ++spill.sources;
  }
  return spill;
}

float GateEnergy(LidarFrame& frame, Place at, int e, const BloomSuppressCalib& calib) {
  if (!calib.pattern_enabled) return 1.0F;
  const float pattern_score = PatternMatchPower(frame, at.row, at.col, e, calib);
  if (!(pattern_score >= 0.0F)) return 1.0F;  // no score
  const float gate = pattern_score * calib.pattern_gain + calib.pattern_offset;
  if (gate < 0.6F) return 0.6F;
  if (gate > 1.4F) return 1.4F;
  return gate;
}

void TakeSpillOff(LidarEcho& echo, float final_filterpower) {
  const float p = echo.power;
  const float pr = p - final_filterpower;
  if (!(pr > 0.0F) || !(p > 0.0F)) {
    echo.dist_proc = 0.0F;
    echo.refl_proc = 0.0F;
    return;
  }
  const float ratio = pr / p;
  echo.refl_proc = echo.refl_proc * ratio;
  if (echo.refl_proc < 1.0F || ratio <= 0.05F) {
    echo.dist_proc = 0.0F;
    echo.refl_proc = 0.0F;
  }
}

void FilterBlock(LidarFrame& frame, int m_row, int m_col, int e, const std::vector<Place>& sources,
                 const BloomSuppressCalib& calib) {
  // Gains, once for the block and this echo.
  const int r0 = 6 * m_row;
  const int c0 = 6 * m_col;
  float dist_std_gain = 1.0F;
  if (calib.dist_pattern_enabled) dist_std_gain = DistStdGain(frame.points, r0, c0, e, calib);
  float edge_neighbor_gain = 1.0F;
  if (calib.dist_neighbor_enabled) {
    edge_neighbor_gain = EdgeNeighborGain(frame.points, frame.height, frame.width, r0, r0 + 6, c0,
                                          e, calib.edge_neighbor_threshold_m);
  }
  for (int row = r0; row <= r0 + 5; ++row) {
    for (int col = c0; col <= c0 + 5; ++col) {
      // Marked echoes that are still candidates.
      LidarEcho& echo = EchoAt(frame, row, col, e);
      if (!echo.highReflBlooming || !IsCandidate(echo, calib)) continue;
      // Expected spill of all sources at the same range.
      const Place at{row, col};
      const Spill spill = SumSpill(frame, m_row, m_col, at, echo, sources, calib);
      if (spill.sources == 0) continue;
      // Pattern gate.
      const float gate_energy = GateEnergy(frame, at, e, calib);
      // All gains, in this order.
      const float filterpower_psf = spill.filterpower_sum * calib.psf_coeff;
      const float final_filterpower =
          gate_energy * filterpower_psf * dist_std_gain * edge_neighbor_gain;
      TakeSpillOff(echo, final_filterpower);
    }
  }
}

}  // namespace

void SuppressHighReflBlooming(LidarFrame& frame, int m_row, const BloomSuppressCalib& calib,
                              bool filter_enable) {
  // Early exits.
  if (!calib.enable) return;
  if (frame.height < 1 || frame.width < 1) return;
  if (6 * m_row + 6 > frame.height || 6 * m_row < 0) return;
  if (!AnySourceNearRow(frame, m_row, calib)) return;
  if (frame.echo_num < 1) return;
  const int echoes = frame.echo_num > 2 ? 2 : frame.echo_num;
  const int block_columns = frame.width / 6;

  std::vector<std::vector<Place>> sources;
  for (int m_col = 0; m_col < block_columns; ++m_col) {
    sources.push_back(GatherSources(frame, m_row, m_col, calib));
  }

  for (int e = 0; e < echoes; ++e) {
    for (int m_col = 0; m_col < block_columns; ++m_col) {
      const std::vector<Place>& list = sources[static_cast<std::size_t>(m_col)];
      if (!list.empty()) MarkBlock(frame, m_row, m_col, e, list, calib);
    }
  }

  if (!filter_enable) return;
  for (int e = 0; e < echoes; ++e) {
    for (int m_col = 0; m_col < block_columns; ++m_col) {
      const std::vector<Place>& list = sources[static_cast<std::size_t>(m_col)];
      if (!list.empty()) FilterBlock(frame, m_row, m_col, e, list, calib);
    }
  }
}

}  // namespace reference
