#include "MIPI_reader/parser/record_copy.h"

#include "MIPI_reader/parser/instruction_set.h"

namespace kerul::lidar {

void CopyPoints(const LidarPoint* from, LidarPoint* const* to, int count) noexcept {
  switch (ChosenInstructionSet()) {
    case InstructionSet::kScalar:
    case InstructionSet::kPlain:
      for (int i = 0; i < count; ++i) CopyRecord<16>(*to[i], from[i]);
      break;
    case InstructionSet::kAvx2:
    case InstructionSet::kAvx512:  // longer steps are no faster
      CopyPointsAvx2(from, to, count);
      break;
  }
}

}  // namespace kerul::lidar
