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
  Body curtain = UprightPanel(ReturnKind::kFence, {4.0, 0.0, 0.0}, 40.0, 40.0, 110.0);
  curtain.coverage = 0.5;
  scene.bodies = {curtain, UprightPanel(ReturnKind::kWall, {6.5, 0.0, 0.0}, 80.0, 80.0, 180.0)};
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

// Pixels that miss an echo take over the reading of the last pixel that has both.
void FillEmptyWindows(simulator::SimulatedFrame& frame) {
  const auto is_full = [](const simulator::PixelReadout& pixel) {
    return std::ranges::all_of(pixel.peak_addr, [](int addr) { return addr <= 1000; });
  };
  const auto first = std::ranges::find_if(frame.pixels, is_full);
  if (first == frame.pixels.end()) return;
  simulator::PixelReadout last = *first;
  for (simulator::PixelReadout& pixel : frame.pixels) {
    if (is_full(pixel)) {
      last = pixel;
    } else {
      pixel = last;
    }
  }
}

}  // namespace

std::vector<FramePackets> MakeFrames(const std::string& scene, int frames) {
  simulator::FrameSimulator simulator(MakeBenchScene(scene), simulator::SimulatorOptions{});
  std::vector<FramePackets> made;
  for (int i = 0; i < frames; ++i) {
    simulator::SimulatedFrame frame = simulator.Simulate(static_cast<std::uint32_t>(i));
    if (scene == "full") FillEmptyWindows(frame);
    made.push_back(simulator::EncodeFrame(frame));
  }
  return made;
}

simulator::CalibrationBlobs MakeCalibration() {
  return simulator::MakeBlobs(simulator::SimulatorOptions{});
}

}  // namespace kerul::lidar::bench
