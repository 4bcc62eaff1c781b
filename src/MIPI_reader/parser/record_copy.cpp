#include "MIPI_reader/parser/record_copy.h"

#include "lanes/instruction_set.h"

namespace kerul::lidar {
namespace {

void CopyPointsPlain(const LidarPoint* from, LidarPoint* const* to, int count) noexcept {
  for (int i = 0; i < count; ++i) CopyRecord<16>(*to[i], from[i]);
}

// Steps wider than 32 bytes are no faster.
using VectorForm = void (*)(const LidarPoint*, LidarPoint* const*, int) noexcept;
constexpr VectorForms<VectorForm> kForms{CopyPointsPlain, CopyPointsAvx2, CopyPointsAvx2};

}  // namespace

void CopyPoints(const LidarPoint* from, LidarPoint* const* to, int count) noexcept {
  const VectorForm form = kForms.Chosen();
  (form != nullptr ? form : CopyPointsPlain)(from, to, count);
}

}  // namespace kerul::lidar
