#include "MIPI_reader/node/rows/echo_ordering.h"

#include <cstddef>

#include "MIPI_reader/node/rows/echo_ranking.h"
#include "MIPI_reader/node/rows/row_range.h"

namespace kerul::lidar {
namespace {

using namespace echo_order;

bool IsSelector(int value) noexcept { return value >= kPreferred && value <= kSlot1; }

// The fields that travel with an echo into its output slot.
struct OutputFields {
  float dist_proc;
  float refl_proc;
  float cogh;
  float cogw;
  float cogw_high;
  float peak;
  float noise;
};

OutputFields ReadFields(const LidarEcho& echo) noexcept {
  return {echo.dist_proc, echo.refl_proc, echo.cogh, echo.cogw,
          echo.cogw_high, echo.peak,      echo.noise};
}

void WriteFields(LidarEcho& echo, const OutputFields& fields) noexcept {
  echo.dist_proc = fields.dist_proc;
  echo.refl_proc = fields.refl_proc;
  echo.cogh = fields.cogh;
  echo.cogw = fields.cogw;
  echo.cogw_high = fields.cogw_high;
  echo.peak = fields.peak;
  echo.noise = fields.noise;
}

}  // namespace

EchoOutputPlan MakeEchoOutputPlan(int echo_num, int echo_output_code) noexcept {
  EchoOutputPlan plan;
  if (echo_num == 1 || echo_output_code > 99) return plan;
  if (echo_output_code <= 9) {
    if (IsSelector(echo_output_code)) plan.first = echo_output_code;
    return plan;
  }
  const int tens = echo_output_code / 10;
  const int units = echo_output_code % 10;
  if (IsSelector(tens) && IsSelector(units)) plan = {2, tens, units};
  return plan;
}

void PrimeProcessedFields(FrameRows& rows, int first_row, int row_count) noexcept {
  const int echo_count = LidarPoint::echo_num;
  const RowRange range = ClipRows(rows, first_row, row_count);
  for (std::size_t row = range.begin; row < range.end; ++row) {
    for (LidarPoint& pixel : rows[row]) {
      for (int slot = 0; slot < echo_count; ++slot) {
        LidarEcho& echo = pixel.echoes[slot];
        echo.dist_proc = echo.dist_raw;
        echo.refl_proc = echo.refl_raw;
      }
    }
  }
}

void OrderEchoes(FrameRows& rows, int first_row, int row_count,
                 const EchoOutputPlan& plan) noexcept {
  const RowRange range = ClipRows(rows, first_row, row_count);
  for (std::size_t row = range.begin; row < range.end; ++row) {
    for (LidarPoint& pixel : rows[row]) {
      const Ranking ranking = RankEchoes(pixel);
      const int first_slot = SelectSlot(plan.first, ranking);
      const int second_slot = plan.count == 2 ? SelectSlot(plan.second, ranking) : 1;
      // Most pixels: each echo is where it belongs.
      if (first_slot == 0 && second_slot == 1) continue;
      // Both are read before either slot is written, so that a plan can swap the slots.
      const OutputFields first = ReadFields(pixel.echoes[first_slot]);
      const OutputFields second = ReadFields(pixel.echoes[second_slot]);
      WriteFields(pixel.echoes[0], first);
      WriteFields(pixel.echoes[1], second);
    }
  }
}

}  // namespace kerul::lidar
