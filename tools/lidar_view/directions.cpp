#include "lidar_view/directions.h"

#include <cstdint>

#include "lidar_view/default_angle_record.h"

namespace kerul::lidar::view {

bool LoadDirectionsOrDefault(const std::string& calib_dir, Directions& directions,
                             std::string& error) {
  if (!calib_dir.empty()) return LoadDirections(calib_dir, directions, error);
  const QndrAngleDatRecord standard = DefaultAngleRecord();
  directions.origin = "default camera model";
  return MakeDirections(reinterpret_cast<const std::uint8_t*>(&standard), kAngleRecordBytes,
                        directions, error);
}

}  // namespace kerul::lidar::view
