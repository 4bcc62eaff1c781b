#include "sensor_simulator/scene.h"

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

#include "sensor_simulator/scenes.h"

namespace kerul::lidar::simulator {
namespace {

RayHits CastOne(const Body& body, const Vec3& direction, double time_s = 0.0) {
  Scene scene;
  scene.bodies = {body};
  return PlacedScene(scene, time_s).Cast(direction * (1.0 / Length(direction)));
}

TEST(Scene, TheGroundIsHitBelowTheHorizonOnly) {
  Body ground;
  ground.shape = Shape::kGround;
  ground.position = {0.0, 0.0, -1.5};
  ground.reflectivity = 20.0;
  const RayHits hits = CastOne(ground, {1.0, 0.0, -1.0});
  ASSERT_EQ(hits.count, 1);
  EXPECT_NEAR(hits.hits[0].range_m, 1.5 * std::sqrt(2.0), 1e-12);
  EXPECT_NEAR(hits.hits[0].cos_incidence, std::sqrt(0.5), 1e-12);
  EXPECT_NEAR(hits.hits[0].reflectivity, 20.0 * std::sqrt(0.5), 1e-12);
  EXPECT_EQ(CastOne(ground, {1.0, 0.0, 0.0}).count, 0);
  EXPECT_EQ(CastOne(ground, {1.0, 0.0, 0.5}).count, 0);
}

TEST(Scene, ABoxIsHitOnTheFaceThatTheRayMeetsFirst) {
  Body box;
  box.position = {10.0, 0.0, 0.0};
  box.extent = {1.0, 2.0, 1.0};
  const RayHits hits = CastOne(box, {1.0, 0.0, 0.0});
  ASSERT_EQ(hits.count, 1);
  EXPECT_NEAR(hits.hits[0].range_m, 9.0, 1e-12);
  EXPECT_NEAR(hits.hits[0].cos_incidence, 1.0, 1e-12);
  EXPECT_EQ(CastOne(box, {1.0, 0.3, 0.0}).count, 0);
  EXPECT_EQ(CastOne(box, {-1.0, 0.0, 0.0}).count, 0);
}

TEST(Scene, ATurnedBoxTurnsItsFaces) {
  Body box;
  box.position = {10.0, 0.0, 0.0};
  box.extent = {1.0, 1.0, 1.0};
  box.yaw_rad = std::acos(-1.0) / 4.0;
  const RayHits hits = CastOne(box, {1.0, 0.0, 0.0});
  ASSERT_EQ(hits.count, 1);
  // The edge points at the sensor.
  EXPECT_NEAR(hits.hits[0].range_m, 10.0 - std::sqrt(2.0), 1e-9);
  EXPECT_NEAR(hits.hits[0].cos_incidence, std::sqrt(0.5), 1e-9);
}

TEST(Scene, SphereAndCylinderAreHitHeadOnInTheMiddleAndSlantwiseAtTheEdge) {
  Body ball;
  ball.shape = Shape::kSphere;
  ball.position = {5.0, 0.0, 0.0};
  ball.extent = {1.0, 1.0, 1.0};
  EXPECT_NEAR(CastOne(ball, {1.0, 0.0, 0.0}).hits[0].range_m, 4.0, 1e-12);
  EXPECT_NEAR(CastOne(ball, {1.0, 0.0, 0.0}).hits[0].cos_incidence, 1.0, 1e-12);
  EXPECT_LT(CastOne(ball, {1.0, 0.2, 0.0}).hits[0].cos_incidence, 0.3);
  Body pole = ball;
  pole.shape = Shape::kCylinder;
  pole.extent = {0.5, 0.5, 1.0};
  EXPECT_NEAR(CastOne(pole, {1.0, 0.0, 0.0}).hits[0].range_m, 4.5, 1e-12);
  EXPECT_EQ(CastOne(pole, {1.0, 0.0, 0.3}).count, 0);
  // A ray that rises meets the side at a longer range and a smaller angle.
  const Hit slanted = CastOne(pole, {1.0, 0.0, 0.1}).hits[0];
  EXPECT_NEAR(slanted.range_m, 4.5 * std::sqrt(1.01), 1e-9);
  EXPECT_NEAR(slanted.cos_incidence, 1.0 / std::sqrt(1.01), 1e-9);
}

TEST(Scene, AFenceTakesItsShareOfTheLightAndLeavesTheRest) {
  Scene scene;
  Body fence;
  fence.shape = Shape::kPanel;
  fence.kind = ReturnKind::kFence;
  fence.position = {4.0, 0.0, 0.0};
  fence.extent = {0.0, 1.0, 1.0};
  fence.reflectivity = 60.0;
  fence.coverage = 0.25;
  Body wall;
  wall.kind = ReturnKind::kWall;
  wall.position = {9.0, 0.0, 0.0};
  wall.extent = {1.0, 5.0, 5.0};
  wall.reflectivity = 80.0;
  scene.bodies = {wall, fence};
  const RayHits hits = PlacedScene(scene, 0.0).Cast({1.0, 0.0, 0.0});
  ASSERT_EQ(hits.count, 2);
  EXPECT_EQ(hits.hits[0].kind, ReturnKind::kFence);
  EXPECT_NEAR(hits.hits[0].reflectivity, 15.0, 1e-12);
  EXPECT_EQ(hits.hits[1].kind, ReturnKind::kWall);
  EXPECT_NEAR(hits.hits[1].range_m, 8.0, 1e-12);
  EXPECT_NEAR(hits.hits[1].reflectivity, 60.0, 1e-12);
}

TEST(Scene, NothingIsSeenBehindASolidBody) {
  Scene scene;
  Body wall;
  wall.position = {5.0, 0.0, 0.0};
  wall.extent = {0.5, 5.0, 5.0};
  Body hidden = wall;
  hidden.position.x = 8.0;
  scene.bodies = {hidden, wall};
  const RayHits hits = PlacedScene(scene, 0.0).Cast({1.0, 0.0, 0.0});
  ASSERT_EQ(hits.count, 1);
  EXPECT_EQ(hits.hits[0].body, 1);
}

TEST(Scene, OfManyTransparentBodiesTheNearestStay) {
  Scene scene;
  for (int i = 6; i > 0; --i) {
    Body fence;
    fence.shape = Shape::kPanel;
    fence.position = {static_cast<double>(i), 0.0, 0.0};
    fence.extent = {0.0, 1.0, 1.0};
    fence.coverage = 0.5;
    scene.bodies.push_back(fence);
  }
  const RayHits hits = PlacedScene(scene, 0.0).Cast({1.0, 0.0, 0.0});
  ASSERT_EQ(hits.count, kMaxHits);
  for (int i = 0; i < kMaxHits; ++i) {
    EXPECT_NEAR(hits.hits[static_cast<std::size_t>(i)].range_m, i + 1.0, 1e-12);
  }
}

TEST(Scene, AMovingBodyGoesToAndFro) {
  Body box;
  box.position = {10.0, 0.0, 0.0};
  box.extent = {1.0, 1.0, 1.0};
  box.velocity = {2.0, 0.0, 0.0};
  box.turn_back_s = 3.0;
  EXPECT_NEAR(CastOne(box, {1.0, 0.0, 0.0}, 1.0).hits[0].range_m, 11.0, 1e-12);
  EXPECT_NEAR(CastOne(box, {1.0, 0.0, 0.0}, 5.0).hits[0].range_m, 11.0, 1e-12);
  EXPECT_NEAR(CastOne(box, {1.0, 0.0, 0.0}, 6.0).hits[0].range_m, 9.0, 1e-9);
}

TEST(Scene, StripesArePaintedOntoTheGround) {
  Body road;
  road.shape = Shape::kGround;
  road.position = {0.0, 0.0, -1.0};
  road.reflectivity = 20.0;
  road.stripe_period_m = 2.0;
  road.stripe_share = 0.5;
  road.stripe_half_width_m = 0.1;
  road.stripe_reflectivity = 80.0;
  EXPECT_EQ(CastOne(road, {2.5, 0.0, -1.0}).hits[0].albedo, 80.0);
  EXPECT_EQ(CastOne(road, {3.5, 0.0, -1.0}).hits[0].albedo, 20.0);
  EXPECT_EQ(CastOne(road, {2.5, 0.2, -1.0}).hits[0].albedo, 20.0);
}

TEST(Scenes, EveryNameMakesItsScene) {
  for (const std::string& name : SceneNames()) EXPECT_EQ(MakeScene(name).name, name);
  EXPECT_EQ(SceneNames().size(), 6U);
  EXPECT_THROW(MakeScene("garden"), std::invalid_argument);
}

TEST(Scenes, TargetsFaceTheSensorAndHideNothing) {
  const Scene scene = MakeScene("targets");
  const PlacedScene placed(scene, 0.0);
  ASSERT_EQ(scene.bodies.size(), 27U);
  for (std::size_t i = 0; i < scene.bodies.size(); ++i) {
    const Vec3& centre = scene.bodies[i].position;
    const double range = std::sqrt(Dot(centre, centre));
    const RayHits hits = placed.Cast(centre * (1.0 / range));
    ASSERT_EQ(hits.count, 1) << i;
    EXPECT_EQ(hits.hits[0].body, i);
    EXPECT_NEAR(hits.hits[0].range_m, range, 1e-9);
    // Upright boards at 18 degrees above or below are not quite face on.
    EXPECT_GT(hits.hits[0].cos_incidence, 0.95);
  }
}

}  // namespace
}  // namespace kerul::lidar::simulator
