#include "MIPI_reader/node/ground/ground_rows.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <iterator>

#include "MIPI_reader/node/ground/ground_rows_scalar.h"
#include "MIPI_reader/node/ground/ground_rules.h"
#include "MIPI_reader/node/rows/row_range.h"
#include "lanes/instruction_set.h"

namespace kerul::lidar {
namespace {

using namespace ground;

using VectorForm = void (*)(const ground::RowRun&, const GroundSettings&,
                            ground::GroundBits&) noexcept;
constexpr VectorForms<VectorForm> kForms{ground::FindGroundPlain, ground::FindGroundAvx2,
                                         ground::FindGroundAvx512};

// The rows of the range that can hold ground.
RowRange CutToGroundRows(const FrameRows& rows, RowRange range) noexcept {
  const std::size_t height = rows.size();
  const std::size_t end =
      std::min({range.end, kLastGroundRow + 1, height - std::min<std::size_t>(height, kReach)});
  const std::size_t begin = std::max<std::size_t>(range.begin, kReach);
  return begin < end ? RowRange{begin, end} : RowRange{};
}

// Whether the rows, and the kReach ones on either side, suit the vector forms.
bool FitsVectorForms(const FrameRows& rows, RowRange range) noexcept {
  if (range.begin == range.end || range.end - range.begin > ground::kMaxRows) return false;
  const std::size_t columns = rows[range.begin].size();
  if (columns < 1 || columns > ground::kMaxColumns) return false;
  return std::all_of(rows.begin() + static_cast<std::ptrdiff_t>(range.begin - kReach),
                     rows.begin() + static_cast<std::ptrdiff_t>(range.end + kReach),
                     [&](const std::vector<LidarPoint>& line) { return line.size() == columns; });
}

// A pixel that is known to pass all tests.
void LabelFound(FrameRows& rows, std::size_t row, std::size_t col,
                const Context& context) noexcept {
  if (context.settings.vert_seed_enable || context.settings.smooth_enable) {
    const NoTeller nobody;
    LabelPixel(rows, row, col, context, nobody);
    return;
  }
  LidarEcho& echo = rows[row][col].echoes[0];
  CorrectReflectivity(echo);
  echo.ground = true;
}

void LabelRowsByLanes(FrameRows& rows, RowRange range, const Context& context,
                      VectorForm find_ground) noexcept {
  ground::RowRun run;
  run.row_count = static_cast<int>(range.end - range.begin);
  run.columns = static_cast<int>(rows[range.begin].size());
  run.min_dist = context.min_dist;
  for (std::size_t i = 0; i < range.end - range.begin + 2 * kReach; ++i) {
    run.lines[i] = rows[range.begin - kReach + i].data();
  }
  ground::GroundBits bits;
  find_ground(run, context.settings, bits);
  for (std::size_t row = range.begin; row < range.end; ++row) {
    const auto& row_bits = bits.rows[row - range.begin];
    for (std::size_t word = 0; word < std::size(row_bits); ++word) {
      for (std::uint64_t left = row_bits[word]; left != 0; left &= left - 1) {
        const auto bit = static_cast<std::size_t>(std::countr_zero(left));
        LabelFound(rows, row, 64 * word + bit, context);
      }
    }
  }
}

}  // namespace

void LabelGroundByRise(FrameRows& rows, int m_row, int mrow_height, const GroundSettings& settings,
                       const AngleCalibGrid& grid) noexcept {
  const Context context{settings, grid, MinGroundDist(settings.min_dist, m_row)};
  const RowRange range = ClipRows(rows, std::int64_t{m_row} * mrow_height, mrow_height);
  const RowRange ground_rows = CutToGroundRows(rows, range);
  const VectorForm form = kForms.Chosen();
  if (form == nullptr || !FitsVectorForms(rows, ground_rows)) {
    const NoTeller nobody;
    LabelRowsScalar(rows, range, context, nobody);
    return;
  }
  for (std::size_t row = range.begin; row < range.end; ++row) {
    for (LidarPoint& pixel : rows[row]) pixel.echoes[0].ground = false;
  }
  LabelRowsByLanes(rows, ground_rows, context, form);
}

}  // namespace kerul::lidar
