#include "support/bench_input.h"

#include <algorithm>

#include "sensor_simulator/frame_simulator.h"
#include "sensor_simulator/scene.h"
#include "sensor_simulator/scenes.h"

namespace kerul::lidar::bench {
namespace {

using simulator::Body;
using simulator::ReturnKind;
using simulator::Scene;
using simulator::Shape;
using simulator::Vec3;

Body UprightPanel(ReturnKind kind, const Vec3& centre, double half_width, double half_height,
                  double reflectivity) {
  Body body;
  body.shape = Shape::kPanel;
  body.kind = kind;
  body.position = centre;
  body.extent = {0.0, half_width, half_height};
  body.reflectivity = reflectivity;
  return body;
}

Body Sign(const Vec3& centre, double half_width, double half_height) {
  return UprightPanel(ReturnKind::kRetro, centre, half_width, half_height, 90000.0);
}

Scene StreetWith(const std::vector<Body>& more) {
  Scene scene = simulator::MakeScene("street");
  scene.bodies.insert(scene.bodies.end(), more.begin(), more.end());
  return scene;
}

Scene PlainStreet() {
  Scene scene = simulator::MakeScene("street");
  std::erase_if(scene.bodies, [](const Body& body) { return body.kind == ReturnKind::kRetro; });
  return scene;
}

Scene CurtainBeforeWall() {
  Scene scene;
  scene.name = "full";
  Body curtain = UprightPanel(ReturnKind::kFence, {4.0, 0.0, 0.0}, 40.0, 40.0, 20.0);
  curtain.coverage = 0.5;
  scene.bodies = {curtain, UprightPanel(ReturnKind::kWall, {7.2, 0.0, 0.0}, 80.0, 80.0, 60.0)};
  return scene;
}

Scene MakeBenchScene(const std::string& name) {
  if (name == "street") {
    return StreetWith({Sign({10.0, 2.2, 1.2}, 0.3, 0.3), Sign({15.0, -1.5, 2.0}, 0.5, 0.4),
                       Sign({7.0, -1.0, 1.5}, 0.2, 0.2)});
  }
  if (name == "bright") {
    return StreetWith({Sign({9.0, 1.6, 1.5}, 1.2, 0.95), Sign({9.0, -1.6, 1.5}, 1.2, 0.95)});
  }
  if (name == "plain") return PlainStreet();
  if (name == "full") return CurtainBeforeWall();
  return simulator::MakeScene(name);
}

// The middle quarter of the picture over all of it: the corners see the curtain at a slant, and
// some of their pulses are too weak.
void SpreadMiddle(simulator::SimulatedFrame& frame) {
  const std::vector<simulator::PixelReadout> pixels = frame.pixels;
  for (int row = 0; row < simulator::kRows; ++row) {
    for (int col = 0; col < simulator::kCols; ++col) {
      const int from =
          simulator::PixelIndex(simulator::kRows / 4 + row / 2, simulator::kCols / 4 + col / 2);
      frame.pixels[static_cast<std::size_t>(simulator::PixelIndex(row, col))] =
          pixels[static_cast<std::size_t>(from)];
    }
  }
}

}  // namespace

std::vector<FramePackets> MakeFrames(const std::string& scene, int frames) {
  simulator::FrameSimulator simulator(MakeBenchScene(scene), simulator::SimulatorOptions{});
  std::vector<FramePackets> made;
  for (int i = 0; i < frames; ++i) {
    simulator::SimulatedFrame frame = simulator.Simulate(static_cast<std::uint32_t>(i));
    if (scene == "full") SpreadMiddle(frame);
    made.push_back(simulator::EncodeFrame(frame));
  }
  return made;
}

simulator::CalibrationBlobs MakeCalibration() {
  return simulator::MakeBlobs(simulator::SimulatorOptions{});
}

}  // namespace kerul::lidar::bench
