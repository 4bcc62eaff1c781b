#include "lidar_view/default_angle_record.h"

namespace kerul::lidar::view {

QndrAngleDatRecord DefaultAngleRecord() {
  QndrAngleDatRecord record{};
  record.binning = 0x22;
  record.rows = 216;
  record.cols = 288;
  record.f = 276.4F;
  record.cx = 288.7F;
  record.cy = 287.2F;
  record.k[0] = -0.0214F;
  record.k[1] = 0.0037F;
  record.k[2] = -0.00021F;
  record.k[3] = 0.0000071F;
  record.tilt_tan = 0.0021F;
  record.tilt_azimuth = 0.71F;
  return record;
}

}  // namespace kerul::lidar::view
