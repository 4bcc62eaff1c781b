// One frame of the sensor: rays into the scene, light into counts, counts into the windows that
// the sensor sends, with the truth beside them.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "sensor_simulator/background.h"
#include "sensor_simulator/camera_model.h"
#include "sensor_simulator/pixel_layout.h"
#include "sensor_simulator/pulse_model.h"
#include "sensor_simulator/scene.h"
#include "sensor_simulator/sensor_tables.h"
#include "sensor_simulator/sensor_traits.h"
#include "sensor_simulator/window_decoder.h"

namespace kerul::lidar::simulator {

inline constexpr int kEchoes = 2;
inline constexpr std::uint16_t kNoPeak = 0xFFF;  // peak address of an empty echo; above 1000 is

// What the sensor sends for one pixel.
struct PixelReadout {
  std::uint16_t noise = 0;         // background counts per shot and bin, times 2048
  std::uint32_t total_counts = 0;  // 22 bits
  std::array<std::uint16_t, kEchoes> peak_addr = {kNoPeak, kNoPeak};  // the window's first bin
  std::array<std::array<std::uint16_t, kWindow>, kEchoes> samples{};  // 12 bits
};

// The truth of one echo. A surface whose pulse was too weak to be sent has one too, with `sent` 0.
struct EchoTruth {
  float range_m = 0.0F;        // of the surface; of a false return, where it seems to be
  float reflectivity = 0.0F;   // apparent: 100 is white and head-on; not capped
  float cos_incidence = 0.0F;  // 0 for false returns
  float strength = 0.0F;       // expected detections per 160 shots
  ReturnKind kind = ReturnKind::kNone;
  std::uint8_t body = 0xFF;  // index into the scene's bodies, 0xFF none
  std::uint8_t sent = 0;     // 1: the window was sent
};

using PixelTruth = std::array<EchoTruth, kEchoes>;

struct SimulatedFrame {
  std::uint32_t number = 0;
  double time_s = 0.0;
  std::vector<PixelReadout> pixels;  // kPixels, row-major
  std::vector<PixelTruth> truth;     // kPixels, row-major, by echo slot as sent
};

struct SimulatorOptions {
  std::uint64_t seed = 1;    // of the photon noise
  std::uint64_t serial = 1;  // of the sensor: its pixels' gains and delays
  double frame_period_s = 0.1;
  CameraModel camera;
  PulseModel pulse;
};

// Frames of one scene. A frame depends on scene, options and its number alone, not on the frames
// made before.
class FrameSimulator {
 public:
  explicit FrameSimulator(Scene scene, const SimulatorOptions& options = {});

  SimulatedFrame Simulate(std::uint32_t frame_number);

  const std::vector<PixelTraits>& traits() const noexcept { return traits_; }
  const std::vector<Vec3>& directions() const noexcept { return directions_; }
  const SimulatorOptions& options() const noexcept { return options_; }
  const Scene& scene() const noexcept { return scene_; }

 private:
  Scene scene_;
  SimulatorOptions options_;
  PulseResponse response_;
  std::vector<Vec3> directions_;
  std::vector<PixelTraits> traits_;
  BackgroundTables backgrounds_;
};

}  // namespace kerul::lidar::simulator
