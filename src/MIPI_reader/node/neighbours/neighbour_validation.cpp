#include "MIPI_reader/node/neighbours/neighbour_validation.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

#include "MIPI_reader/node/neighbours/neighbour_rules.h"
#include "MIPI_reader/node/neighbours/neighbour_validation_scalar.h"
#include "MIPI_reader/node/rows/echo_ordering.h"
#include "MIPI_reader/node/rows/row_range.h"
#include "lanes/instruction_set.h"

namespace kerul::lidar {
namespace {

using namespace neighbour;

using VectorForm = void (*)(const RowRun&) noexcept;
constexpr VectorForms<VectorForm> kForms{ValidateRunPlain, ValidateRunAvx2, ValidateRunAvx512};

// Whether the rows and the ones beside them suit the vector forms.
bool FitsVectorForms(const FrameRows& rows, RowRange range, int echo_count) noexcept {
  if (range.begin == range.end || echo_count < 1 || echo_count > kEchoSlots) return false;
  const std::size_t columns = rows[range.begin].size();
  if (columns < 1 || columns > static_cast<std::size_t>(kMaxColumns)) return false;
  const std::size_t begin = range.begin > 0 ? range.begin - 1 : 0;
  const std::size_t end = std::min(range.end + 1, rows.size());
  for (std::size_t row = begin; row < end; ++row) {
    if (rows[row].size() != columns) return false;
  }
  return true;
}

void ValidateRowsByLanes(FrameRows& rows, RowRange range, int echo_count, bool prime,
                         VectorForm form) noexcept {
  for (std::size_t begin = range.begin; begin < range.end; begin += kMaxRows) {
    RowRun run;
    run.row_count = static_cast<int>(std::min<std::size_t>(kMaxRows, range.end - begin));
    run.columns = static_cast<int>(rows[begin].size());
    run.echo_count = echo_count;
    run.prime = prime;
    if (begin > 0) run.lines[0] = rows[begin - 1].data();
    for (std::size_t i = 1; i < std::size(run.lines) && begin + i - 1 < rows.size(); ++i) {
      run.lines[i] = rows[begin + i - 1].data();
    }
    form(run);
  }
}

void Validate(FrameRows& rows, int first_row, int row_count, bool prime) noexcept {
  const int echo_count = LidarPoint::echo_num;
  const RowRange range = ClipRows(rows, first_row, row_count);
  const VectorForm form = kForms.Chosen();
  if (form != nullptr && FitsVectorForms(rows, range, echo_count)) {
    ValidateRowsByLanes(rows, range, echo_count, prime, form);
    return;
  }
  if (prime) PrimeProcessedFields(rows, first_row, row_count);
  const NoTeller nobody;
  ValidateRowsScalar(rows, range, echo_count, nobody);
}

}  // namespace

void ValidateNeighbours(FrameRows& rows, int first_row, int row_count) noexcept {
  Validate(rows, first_row, row_count, false);
}

void PrimeAndValidateNeighbours(FrameRows& rows, int first_row, int row_count) noexcept {
  Validate(rows, first_row, row_count, true);
}

}  // namespace kerul::lidar
