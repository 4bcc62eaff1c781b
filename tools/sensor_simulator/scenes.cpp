#include "sensor_simulator/scenes.h"

#include <cmath>
#include <stdexcept>

namespace kerul::lidar::simulator {
namespace {

constexpr double kMountHeight = 1.5;  // metres above the ground

Body Ground(double reflectivity) {
  Body body;
  body.shape = Shape::kGround;
  body.kind = ReturnKind::kGround;
  body.position = {0.0, 0.0, -kMountHeight};
  body.reflectivity = reflectivity;
  return body;
}

Body Box(ReturnKind kind, const Vec3& centre, const Vec3& half_sizes, double reflectivity) {
  Body body;
  body.shape = Shape::kBox;
  body.kind = kind;
  body.position = centre;
  body.extent = half_sizes;
  body.reflectivity = reflectivity;
  return body;
}

// A box that stands on the ground.
Body Standing(ReturnKind kind, double x, double y, const Vec3& sizes, double reflectivity) {
  return Box(kind, {x, y, sizes.z / 2.0 - kMountHeight}, sizes * 0.5, reflectivity);
}

Body Pole(double x, double y, double radius, double height, double reflectivity) {
  Body body;
  body.shape = Shape::kCylinder;
  body.position = {x, y, height / 2.0 - kMountHeight};
  body.extent = {radius, radius, height / 2.0};
  body.reflectivity = reflectivity;
  return body;
}

Body Ball(const Vec3& centre, double radius, double reflectivity) {
  Body body;
  body.shape = Shape::kSphere;
  body.position = centre;
  body.extent = {radius, radius, radius};
  body.reflectivity = reflectivity;
  return body;
}

Body Panel(ReturnKind kind, const Vec3& centre, double half_width, double half_height, double yaw,
           double reflectivity) {
  Body body;
  body.shape = Shape::kPanel;
  body.kind = kind;
  body.position = centre;
  body.extent = {0.0, half_width, half_height};
  body.yaw_rad = yaw;
  body.reflectivity = reflectivity;
  return body;
}

Body Fence(const Vec3& centre, double half_width, double half_height, double yaw, double coverage) {
  Body body = Panel(ReturnKind::kFence, centre, half_width, half_height, yaw, 60.0);
  body.coverage = coverage;
  return body;
}

Body Moving(Body body, const Vec3& velocity, double turn_back_s) {
  body.velocity = velocity;
  body.turn_back_s = turn_back_s;
  return body;
}

constexpr double kAlongRoad = 1.5707963267948966;  // yaw of a panel that runs along x

// A street between houses: fences on both sides, parked and moving cars, walkers, lamp posts, a
// tree, one small road sign.
Scene Street() {
  Scene scene;
  scene.name = "street";
  Body road = Ground(20.0);
  road.stripe_period_m = 3.0;
  road.stripe_share = 0.5;
  road.stripe_half_width_m = 0.1;
  road.stripe_reflectivity = 75.0;
  scene.bodies = {
      road,
      Standing(ReturnKind::kWall, 12.0, 7.5, {22.0, 1.0, 5.6}, 70.0),
      Standing(ReturnKind::kWall, 11.0, -7.0, {24.0, 1.0, 4.6}, 62.0),
      Standing(ReturnKind::kWall, 27.0, 1.0, {1.0, 9.0, 8.0}, 78.0),
      Fence({6.5, 5.2, -0.35}, 4.0, 1.15, kAlongRoad, 0.45),
      Fence({8.0, -4.6, -0.25}, 4.5, 1.25, kAlongRoad, 0.4),
      Standing(ReturnKind::kObject, 7.5, 3.2, {4.2, 1.8, 1.5}, 45.0),
      Moving(Standing(ReturnKind::kObject, 5.5, -2.4, {4.4, 1.8, 1.45}, 35.0), {6.0, 0.0, 0.0},
             1.4),
      Moving(Pole(4.5, 1.6, 0.25, 1.75, 40.0), {0.0, -1.3, 0.0}, 2.5),
      Moving(Pole(8.0, -3.6, 0.25, 1.8, 30.0), {0.4, 1.1, 0.0}, 3.0),
      Pole(4.0, 3.9, 0.09, 6.0, 50.0),
      Pole(9.0, 3.9, 0.09, 6.0, 50.0),
      Pole(6.0, -3.9, 0.09, 6.0, 50.0),
      Pole(5.2, -5.4, 0.16, 2.6, 22.0),
      Ball({5.2, -5.4, 2.1}, 1.3, 35.0),
      Panel(ReturnKind::kRetro, {11.9, -3.2, 0.9}, 0.45, 0.45, 0.1, 90000.0),
  };
  scene.bodies[14].coverage = 0.55;  // the crown of the tree
  return scene;
}

// Signs with retro-reflective sheeting before dark surroundings, at ranges from 4 to 30 metres.
Scene Retro() {
  Scene scene;
  scene.name = "retro";
  scene.sky_background = 40.0;
  scene.surface_background = 30.0;
  scene.bodies = {
      Ground(15.0),
      Standing(ReturnKind::kWall, 33.0, 0.0, {1.0, 50.0, 9.0}, 60.0),
      Panel(ReturnKind::kRetro, {8.0, 3.0, 0.6}, 0.35, 0.35, 0.3, 90000.0),
      Pole(8.1, 3.0, 0.05, 2.2, 30.0),
      Panel(ReturnKind::kRetro, {12.0, -2.5, 0.8}, 0.45, 0.45, -0.2, 110000.0),
      Pole(12.1, -2.5, 0.05, 2.4, 30.0),
      Panel(ReturnKind::kRetro, {16.0, 6.0, 1.5}, 0.9, 0.6, 0.3, 100000.0),
      Panel(ReturnKind::kRetro, {22.0, -1.0, 4.5}, 2.0, 0.8, 0.0, 80000.0),
      Panel(ReturnKind::kRetro, {30.0, 9.0, 0.5}, 1.0, 1.0, 0.2, 120000.0),
      Panel(ReturnKind::kRetro, {4.0, -2.8, -0.2}, 0.15, 0.15, -0.6, 60000.0),
      // A plain board at the range of a sign and beside it: real returns among the bloom.
      Panel(ReturnKind::kWall, {12.0, -4.0, 0.5}, 0.8, 0.9, -0.2, 55.0),
      Panel(ReturnKind::kWall, {15.8, 8.2, 0.6}, 0.9, 1.2, 0.45, 40.0),
      Moving(Standing(ReturnKind::kObject, 9.0, 0.5, {4.2, 1.8, 1.5}, 35.0), {4.0, 0.0, 0.0}, 2.0),
      // Its number plate.
      Moving(Panel(ReturnKind::kRetro, {6.88, 0.5, -0.9}, 0.26, 0.06, 0.0, 50000.0),
             {4.0, 0.0, 0.0}, 2.0),
  };
  return scene;
}

// Bright background light over a few bodies: most of what is reported is not there.
Scene Noise() {
  Scene scene;
  scene.name = "noise";
  scene.sky_background = 230.0;
  scene.surface_background = 170.0;
  scene.dark_background = 20.0;
  scene.bodies = {
      Ground(30.0),
      Standing(ReturnKind::kWall, 9.0, 6.0, {8.0, 1.0, 3.5}, 70.0),
      Standing(ReturnKind::kObject, 6.0, -2.0, {1.5, 1.5, 1.6}, 60.0),
      Pole(4.0, 1.0, 0.15, 2.5, 70.0),
      Ball({8.0, -5.0, 1.5}, 1.0, 80.0),
  };
  return scene;
}

// Another sensor flashes into this one at night: whole blocks see weak returns that agree with each
// other, but not with the next block's.
Scene Crosstalk() {
  Scene scene;
  scene.name = "crosstalk";
  scene.sky_background = 4.0;
  scene.surface_background = 4.0;
  scene.crosstalk_share = 0.6;
  scene.crosstalk_strength = 14.0;
  scene.bodies = {
      Ground(30.0),
      Standing(ReturnKind::kWall, 14.0, 7.0, {8.0, 1.0, 3.5}, 70.0),
      Standing(ReturnKind::kObject, 6.0, -2.0, {1.5, 1.5, 1.6}, 60.0),
      Pole(4.0, 1.0, 0.15, 3.5, 70.0),
      Panel(ReturnKind::kWall, {30.0, -6.0, 1.0}, 4.0, 3.0, 0.0, 60.0),
  };
  return scene;
}

// Upright boards that face the sensor, three rows of nine, at every range from 1 to 39 metres: for
// measuring errors. The far ones are bright, and stand where the sensor fires most.
Scene Targets() {
  constexpr double kDegree = 0.017453292519943295;
  constexpr double kSpacing = 13.0 * kDegree;
  constexpr int kBoards = 9;
  struct BoardRow {
    double elevation;
    double range_m[kBoards];
    double reflectivity[kBoards];
  };
  static constexpr BoardRow kBoardRows[] = {
      {-18.0 * kDegree,
       {1.0, 1.4, 1.8, 2.5, 3.2, 4.0, 5.5, 7.0, 9.0},
       {10.0, 40.0, 80.0, 20.0, 60.0, 10.0, 80.0, 30.0, 60.0}},
      {0.0,
       {11.0, 14.0, 16.0, 19.0, 22.0, 26.0, 31.0, 35.0, 39.0},
       {20.0, 60.0, 30.0, 80.0, 40.0, 80.0, 90.0, 80.0, 90.0}},
      {18.0 * kDegree,
       {1.2, 2.2, 6.0, 8.0, 12.0, 13.0, 17.0, 3.0, 4.5},
       {20.0, 50.0, 10.0, 80.0, 30.0, 60.0, 80.0, 15.0, 35.0}},
  };
  Scene scene;
  scene.name = "targets";
  scene.sky_background = 25.0;
  for (const BoardRow& row : kBoardRows) {
    for (int i = 0; i < kBoards; ++i) {
      const double range = row.range_m[i];
      const double azimuth = (i - kBoards / 2) * kSpacing;
      const double flat = range * std::cos(row.elevation);
      const Vec3 centre = {flat * std::cos(azimuth), flat * std::sin(azimuth),
                           range * std::sin(row.elevation)};
      // 8 degrees wide, 10 high.
      scene.bodies.push_back(Panel(ReturnKind::kWall, centre, range * 4.0 * kDegree,
                                   range * 5.0 * kDegree, azimuth, row.reflectivity[i]));
    }
  }
  return scene;
}

Scene Empty() {
  Scene scene;
  scene.name = "empty";
  return scene;
}

}  // namespace

std::vector<std::string> SceneNames() {
  return {"street", "retro", "noise", "crosstalk", "targets", "empty"};
}

Scene MakeScene(const std::string& name) {
  if (name == "street") return Street();
  if (name == "retro") return Retro();
  if (name == "noise") return Noise();
  if (name == "crosstalk") return Crosstalk();
  if (name == "targets") return Targets();
  if (name == "empty") return Empty();
  throw std::invalid_argument("unknown scene: " + name);
}

}  // namespace kerul::lidar::simulator
