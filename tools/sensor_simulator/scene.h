// What the sensor looks at: simple bodies, some of them moving, and rays cast among them.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "sensor_simulator/vec3.h"

namespace kerul::lidar::simulator {

// What a return comes from. The values are those of the ground truth file.
enum class ReturnKind : std::uint8_t {
  kNone = 0,
  kGround = 1,
  kWall = 2,
  kObject = 3,      // boxes, poles, spheres
  kRetro = 4,       // retro-reflective sheeting
  kFence = 5,       // half-transparent: part of the light goes on
  kBloom = 6,       // false: light of a retro-reflector scattered in the lens
  kAfterPulse = 7,  // false: a detector that fires again after a strong pulse
  kGhost = 8,       // false: light that went twice between sensor and target
  kNoise = 9,       // false: a peak of the background
  kCrosstalk = 10,  // false: the flash of another sensor
};

enum class Shape : std::uint8_t {
  kGround,    // horizontal plane through `position`, without limits
  kBox,       // extent = half sizes along x, y, z, turned by yaw about z
  kCylinder,  // upright, extent.x = radius, extent.z = half height
  kSphere,    // extent.x = radius
  kPanel,     // upright rectangle, extent.y = half width, extent.z = half height; at yaw 0 its
              // normal is the x axis
};

struct Body {
  Shape shape = Shape::kBox;
  ReturnKind kind = ReturnKind::kObject;
  Vec3 position;  // centre, metres, sensor frame, at time 0
  Vec3 extent;
  double yaw_rad = 0.0;
  // Reflectivity seen head-on: 100 is a white surface that scatters evenly; retro-reflective
  // sheeting has some ten thousands.
  double reflectivity = 50.0;
  double coverage = 1.0;     // share of the light that is stopped; below 1 the rest goes on
  Vec3 velocity;             // metres per second
  double turn_back_s = 0.0;  // above 0: the body goes to and fro, turning after this time
  // Painted stripes across the ground: every stripe_period_m along x, stripe_share of it bright.
  double stripe_period_m = 0.0;
  double stripe_share = 0.0;
  double stripe_half_width_m = 0.0;
  double stripe_reflectivity = 0.0;
};

struct Scene {
  std::string name;
  std::vector<Body> bodies;
  double sky_background = 60.0;      // noise word of a pixel that looks into the sky
  double surface_background = 40.0;  // noise word of a pixel that looks at a white surface
  double dark_background = 6.0;      // noise word without any light
  // Another sensor of the same kind runs in step: during an exposure (a column slot of a miniflash
  // row) all its flashes fall into one bin, scattered evenly over the pixels.
  double crosstalk_share = 0.0;     // of the exposures that are hit
  double crosstalk_strength = 0.0;  // expected detections per 160 shots
};

struct Hit {
  double range_m = 0.0;
  double cos_incidence = 0.0;
  double reflectivity = 0.0;  // apparent: head-on reflectivity, incidence and share of the light
  double albedo = 0.0;        // head-on reflectivity, for the background light
  ReturnKind kind = ReturnKind::kNone;
  std::uint8_t body = 0;  // index into Scene::bodies
};

inline constexpr int kMaxHits = 4;

// Surfaces along one ray, nearest first; ends at the first that lets no light through.
struct RayHits {
  std::array<Hit, kMaxHits> hits;
  int count = 0;
};

// The bodies at one moment, ready for many rays from the sensor's origin.
class PlacedScene {
 public:
  PlacedScene(const Scene& scene, double time_s);
  // direction: unit vector.
  RayHits Cast(const Vec3& direction) const noexcept;

 private:
  struct Placed {
    Body body;
    double cos_yaw;
    double sin_yaw;
  };
  std::vector<Placed> placed_;
};

}  // namespace kerul::lidar::simulator
