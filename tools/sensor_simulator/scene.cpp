#include "sensor_simulator/scene.h"

#include <algorithm>
#include <cmath>

namespace kerul::lidar::simulator {
namespace {

constexpr double kNearest = 0.05;  // metres; nothing is seen inside the housing

// Where a ray enters a body: range 0 for a miss.
struct Entry {
  double range = 0.0;
  double cos_incidence = 0.0;
};

Vec3 TurnBack(const Vec3& v, double cos_yaw, double sin_yaw) noexcept {
  return {v.x * cos_yaw + v.y * sin_yaw, v.y * cos_yaw - v.x * sin_yaw, v.z};
}

Entry EnterGround(const Body& body, const Vec3& ray) noexcept {
  if (!(ray.z < 0.0) || !(body.position.z < 0.0)) return {};
  return {body.position.z / ray.z, -ray.z};
}

Entry EnterSphere(const Body& body, const Vec3& ray) noexcept {
  const double along = Dot(ray, body.position);
  const double radius = body.extent.x;
  const double inside = along * along - Dot(body.position, body.position) + radius * radius;
  if (inside <= 0.0) return {};
  const double half_chord = std::sqrt(inside);
  return {along - half_chord, half_chord / radius};
}

Entry EnterCylinder(const Body& body, const Vec3& ray) noexcept {
  const double flat = ray.x * ray.x + ray.y * ray.y;
  if (flat <= 0.0) return {};
  const double along = ray.x * body.position.x + ray.y * body.position.y;
  const double off = body.position.x * body.position.x + body.position.y * body.position.y;
  const double radius = body.extent.x;
  const double inside = along * along - flat * (off - radius * radius);
  if (inside <= 0.0) return {};
  const double range = (along - std::sqrt(inside)) / flat;
  const double height = ray.z * range - body.position.z;
  if (std::abs(height) > body.extent.z) return {};
  return {range, std::sqrt(inside) / radius};
}

// ray and centre in the panel's own frame, in which it stands across the x axis.
Entry EnterPanel(const Vec3& extent, const Vec3& ray, const Vec3& centre) noexcept {
  if (ray.x == 0.0) return {};
  const double range = centre.x / ray.x;
  if (std::abs(ray.y * range - centre.y) > extent.y) return {};
  if (std::abs(ray.z * range - centre.z) > extent.z) return {};
  return {range, std::abs(ray.x)};
}

Entry EnterBox(const Vec3& extent, const Vec3& ray, const Vec3& centre) noexcept {
  const double directions[3] = {ray.x, ray.y, ray.z};
  const double centres[3] = {centre.x, centre.y, centre.z};
  const double extents[3] = {extent.x, extent.y, extent.z};
  double enter = 0.0;
  double leave = 1e9;
  double cosine = 0.0;
  for (int axis = 0; axis < 3; ++axis) {
    if (directions[axis] == 0.0) {
      if (std::abs(centres[axis]) > extents[axis]) return {};
      continue;
    }
    const double middle = centres[axis] / directions[axis];
    const double half = extents[axis] / std::abs(directions[axis]);
    if (middle - half > enter) {
      enter = middle - half;
      cosine = std::abs(directions[axis]);
    }
    leave = std::min(leave, middle + half);
  }
  return enter < leave ? Entry{enter, cosine} : Entry{};
}

double ReflectivityAt(const Body& body, const Vec3& point) noexcept {
  if (body.stripe_period_m <= 0.0) return body.reflectivity;
  const double phase = point.x / body.stripe_period_m;
  const bool in_dash = phase - std::floor(phase) < body.stripe_share;
  const bool in_line = std::abs(point.y) < body.stripe_half_width_m;
  return in_dash && in_line ? body.stripe_reflectivity : body.reflectivity;
}

// Time on the outward way of a body that goes to and fro.
double OutwardTime(double time_s, double turn_back_s) noexcept {
  if (turn_back_s <= 0.0) return time_s;
  const double round = time_s / (2.0 * turn_back_s);
  const double phase = (round - std::floor(round)) * 2.0 * turn_back_s;
  return phase < turn_back_s ? phase : 2.0 * turn_back_s - phase;
}

void InsertByRange(RayHits& hits, const Hit& hit) noexcept {
  if (hits.count == kMaxHits) {
    if (hit.range_m >= hits.hits[kMaxHits - 1].range_m) return;
    --hits.count;
  }
  int place = hits.count;
  while (place > 0 && hits.hits[static_cast<std::size_t>(place - 1)].range_m > hit.range_m) {
    hits.hits[static_cast<std::size_t>(place)] = hits.hits[static_cast<std::size_t>(place - 1)];
    --place;
  }
  hits.hits[static_cast<std::size_t>(place)] = hit;
  ++hits.count;
}

}  // namespace

PlacedScene::PlacedScene(const Scene& scene, double time_s) {
  for (const Body& body : scene.bodies) {
    Placed placed{body, std::cos(body.yaw_rad), std::sin(body.yaw_rad)};
    placed.body.position = body.position + body.velocity * OutwardTime(time_s, body.turn_back_s);
    placed_.push_back(placed);
  }
}

RayHits PlacedScene::Cast(const Vec3& direction) const noexcept {
  RayHits found;
  for (std::size_t i = 0; i < placed_.size(); ++i) {
    const Placed& placed = placed_[i];
    const Body& body = placed.body;
    Entry entry;
    switch (body.shape) {
      case Shape::kGround:
        entry = EnterGround(body, direction);
        break;
      case Shape::kSphere:
        entry = EnterSphere(body, direction);
        break;
      case Shape::kCylinder:
        entry = EnterCylinder(body, direction);
        break;
      case Shape::kPanel:
      case Shape::kBox: {
        const Vec3 ray = TurnBack(direction, placed.cos_yaw, placed.sin_yaw);
        const Vec3 centre = TurnBack(body.position, placed.cos_yaw, placed.sin_yaw);
        entry = body.shape == Shape::kBox ? EnterBox(body.extent, ray, centre)
                                          : EnterPanel(body.extent, ray, centre);
        break;
      }
    }
    if (entry.range < kNearest) continue;
    const double albedo = ReflectivityAt(body, direction * entry.range);
    InsertByRange(found, {entry.range, entry.cos_incidence, albedo * entry.cos_incidence, albedo,
                          body.kind, static_cast<std::uint8_t>(i)});
  }
  // Each surface gets what those before it let through.
  double light = 1.0;
  for (int i = 0; i < found.count; ++i) {
    Hit& hit = found.hits[static_cast<std::size_t>(i)];
    const double coverage = placed_[hit.body].body.coverage;
    hit.reflectivity *= light * coverage;
    light *= 1.0 - coverage;
    if (coverage >= 1.0) found.count = i + 1;
  }
  return found;
}

}  // namespace kerul::lidar::simulator
