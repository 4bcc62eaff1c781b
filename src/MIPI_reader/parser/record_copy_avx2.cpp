#include "MIPI_reader/parser/lanes.h"
#include "MIPI_reader/parser/record_copy.h"

namespace kerul::lidar {

void CopyPointsAvx2(const LidarPoint* from, LidarPoint* const* to, int count) noexcept {
  for (int i = 0; i < count; ++i) CopyRecord<32>(*to[i], from[i]);
  LeaveWideVectors();
}

}  // namespace kerul::lidar
