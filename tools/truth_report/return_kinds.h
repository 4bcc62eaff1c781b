// What kinds of returns the truth tells apart.
#pragma once

#include "sensor_simulator/scene.h"

namespace kerul::lidar::report {

// A return of something that is there.
constexpr bool IsSurface(simulator::ReturnKind kind) noexcept {
  using simulator::ReturnKind;
  return kind == ReturnKind::kGround || kind == ReturnKind::kWall || kind == ReturnKind::kObject ||
         kind == ReturnKind::kRetro || kind == ReturnKind::kFence;
}

}  // namespace kerul::lidar::report
