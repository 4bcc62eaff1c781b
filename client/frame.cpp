#include "kerul_lidar/frame.h"

#include <algorithm>
#include <cmath>

#include "kerul_lidar/mounting.h"
#include "kerul_lidar/point_payload.h"

namespace kerul::lidar {
namespace {

constexpr std::size_t kPlaces = std::size_t{kMaxEchoes} * kFrameRows * kFrameCols;

void FillPlanes(const CollectedFrame& collected, std::size_t places, Frame& frame) {
  const bool has_reflectivity = (frame.carries & payload_field::kReflectivity) != 0;
  for (std::size_t i = 0; i < places; ++i) {
    const FramePoint& point = collected.points[i];
    frame.range_m[i] = collected.RangeM(point);
    frame.reflectivity[i] = has_reflectivity ? point.payload[0] : std::uint8_t{0};
    frame.flags[i] = PointFlags(frame.output_mode, point.payload.data());
    std::copy(point.payload.begin(), point.payload.end(),
              frame.payload.begin() + static_cast<std::ptrdiff_t>(i * point.payload.size()));
  }
}

void FillPoints(const Directions& directions, const TransformParam* mount, std::size_t places,
                Frame& frame) {
  for (auto* plane : {&frame.x_m, &frame.y_m, &frame.z_m}) plane->resize(kPlaces, NAN);
  for (std::size_t i = 0; i < places; ++i) {
    const Point3& direction = directions.unit[i % directions.unit.size()];
    const Point3 point = PointAt(frame.range_m[i], direction, mount);
    frame.x_m[i] = point[0];
    frame.y_m[i] = point[1];
    frame.z_m[i] = point[2];
  }
}

}  // namespace

Frame::Frame()
    : range_m(kPlaces),
      reflectivity(kPlaces),
      flags(kPlaces),
      payload(kPlaces * point_packet::kPayloadBytes) {}

void FillFrame(const CollectedFrame& collected, const Directions* directions,
               const TransformParam* mount, Frame& frame) {
  frame.id = collected.key.frame_id;
  // An echo that the frame before had is cleared: the collected frame has no return there.
  const std::size_t places_before = frame.PointCount();
  frame.echoes = collected.key.echoes;
  const std::size_t places = std::max(places_before, frame.PointCount());
  frame.return_code = collected.return_code;
  frame.output_mode = collected.key.output_mode;
  frame.carries = CarriedFields(frame.output_mode);
  frame.known_flags = KnownFlags(frame.output_mode);
  frame.first_timestamp_us = collected.first_timestamp_us;
  frame.last_timestamp_us = collected.last_timestamp_us;
  frame.row_timestamp_us = collected.row_timestamp_us;
  frame.missing_blocks = collected.MissingBlocks();
  frame.missing_frames = collected.missing_ids_before;
  FillPlanes(collected, places, frame);
  if (directions != nullptr) {
    FillPoints(*directions, mount, places, frame);
  } else {
    frame.x_m.clear();
    frame.y_m.clear();
    frame.z_m.clear();
  }
}

}  // namespace kerul::lidar
