#include "sensor_simulator/frame_simulator.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "sensor_simulator/bloom_light.h"
#include "sensor_simulator/pixel_simulator.h"

namespace kerul::lidar::simulator {
namespace {

constexpr double kNearRetro = 8.0;     // metres; nearer ones light up the housing
constexpr double kGhostShare = 1e-4;   // of the light that then goes twice
constexpr double kWeakestBloom = 1.0;  // detections per 160 shots

// Background light: the sky, or what the surface scatters of it; half of the lens's falloff.
int NoiseWord(const Scene& scene, const RayHits& hits, const PixelTraits& traits) noexcept {
  constexpr double kAxisGain = 7.3;
  double light = scene.sky_background;
  if (hits.count > 0) {
    light = scene.surface_background * std::min(hits.hits[0].albedo, 100.0) / 100.0;
  }
  const double vignette = std::exp2(0.5 * (traits.gain_log2 - kAxisGain));
  return static_cast<int>(scene.dark_background + light * std::min(vignette, 1.0) + 0.5);
}

EchoTruth TruthOf(const Hit& hit) noexcept {
  EchoTruth truth;
  truth.range_m = static_cast<float>(hit.range_m);
  truth.reflectivity = static_cast<float>(hit.reflectivity);
  truth.cos_incidence = static_cast<float>(hit.cos_incidence);
  truth.kind = hit.kind;
  truth.body = hit.body;
  return truth;
}

EchoTruth FalseTruth(ReturnKind kind, double range_m) noexcept {
  EchoTruth truth;
  truth.kind = kind;
  truth.range_m = static_cast<float>(range_m);
  return truth;
}

// What one pixel looks at, and how well it sees.
struct PixelView {
  RayHits hits;
  double delay_m = 0.0;
  double gain_log2 = 0.0;
  int noise = 0;  // background, noise word
  int lane = 0;
};

double StrengthOf(const PixelView& view, const Hit& hit, const SensorTables& tables) noexcept {
  return PulseStrength(view.gain_log2, hit.reflectivity, hit.range_m,
                       NearRangeLoss(tables, hit.range_m, view.lane));
}

void AddPulse(PixelLight& light, const PixelView& view, EchoTruth truth, double strength,
              const SensorTables& tables) {
  LightPulse pulse;
  pulse.strength = StrengthInBackground(tables, strength, view.noise);
  pulse.position_bins = (static_cast<double>(truth.range_m) + view.delay_m) / kBinMetres;
  truth.strength = static_cast<float>(pulse.strength);
  pulse.truth = truth;
  light.Add(pulse);
}

// When another sensor's flash arrives during each exposure, as the range that it pretends; 0 never.
std::vector<double> CrosstalkRanges(const Scene& scene, std::uint64_t seed) {
  if (scene.crosstalk_share <= 0.0) return {};
  constexpr std::uint64_t kPurpose = 0x63726f7373ULL;
  constexpr double kLongest = 140.0;  // metres
  Random random(MixSeed(seed, kPurpose));
  std::vector<double> ranges(static_cast<std::size_t>(kGroups * kSlots));
  for (double& range : ranges) {
    const bool hit = random.Chance(scene.crosstalk_share);
    const double when = random.Uniform();
    if (hit) range = 1.0 + (kLongest - 1.0) * when;
  }
  return ranges;
}

void AddCrosstalk(PixelLight& light, const PixelView& view, const Scene& scene, double range_m,
                  const SensorTables& tables) {
  if (range_m <= 0.0) return;
  AddPulse(light, view, FalseTruth(ReturnKind::kCrosstalk, range_m), scene.crosstalk_strength,
           tables);
}

PixelLight CollectLight(const PixelView& view, const BloomSpots* bloom,
                        const SensorTables& tables) {
  PixelLight light;
  for (int i = 0; i < view.hits.count; ++i) {
    const Hit& hit = view.hits.hits[static_cast<std::size_t>(i)];
    const double strength = StrengthOf(view, hit, tables);
    AddPulse(light, view, TruthOf(hit), strength, tables);
    if (hit.kind == ReturnKind::kRetro && hit.range_m < kNearRetro) {
      AddPulse(light, view, FalseTruth(ReturnKind::kGhost, 2.0 * hit.range_m),
               strength * kGhostShare, tables);
    }
  }
  if (bloom == nullptr) return light;
  for (const BloomSpot& spot : *bloom) {
    if (spot.strength < kWeakestBloom) continue;
    AddPulse(light, view, FalseTruth(ReturnKind::kBloom, spot.range_m), spot.strength, tables);
  }
  return light;
}

int Shots(const SensorTables& tables, int row) noexcept {
  return static_cast<int>(tables.shots[static_cast<std::size_t>(row / 6)]);
}

}  // namespace

FrameSimulator::FrameSimulator(Scene scene, const SimulatorOptions& options)
    : scene_(std::move(scene)),
      options_(options),
      response_(options.pulse),
      directions_(PixelDirections(options.camera)),
      traits_(MakePixelTraits(options.serial, directions_)) {}

SimulatedFrame FrameSimulator::Simulate(std::uint32_t frame_number) {
  const SensorTables& tables = DefaultSensorTables();
  SimulatedFrame frame;
  frame.number = frame_number;
  frame.time_s = frame_number * options_.frame_period_s;
  frame.pixels.resize(static_cast<std::size_t>(kPixels));
  frame.truth.resize(static_cast<std::size_t>(kPixels));

  // What every pixel looks at, and which of them look at a retro-reflector.
  const PlacedScene placed(scene_, frame.time_s);
  std::vector<PixelView> views(static_cast<std::size_t>(kPixels));
  std::vector<BloomSource> sources;
  for (int row = 0; row < kRows; ++row) {
    for (int col = 0; col < kCols; ++col) {
      const auto index = static_cast<std::size_t>(PixelIndex(row, col));
      PixelView& view = views[index];
      view.hits = placed.Cast(directions_[index]);
      view.delay_m = traits_[index].delay_units * kOffsetUnitMetres;
      view.gain_log2 = traits_[index].gain_log2;
      view.lane = row % 6;
      for (int i = 0; i < view.hits.count; ++i) {
        const Hit& hit = view.hits.hits[static_cast<std::size_t>(i)];
        if (hit.kind != ReturnKind::kRetro) continue;
        sources.push_back({row, col, StrengthOf(view, hit, tables), hit.range_m});
      }
    }
  }
  const std::vector<BloomSpots> bloom = SpreadBloom(sources);
  const std::vector<double> crosstalk =
      CrosstalkRanges(scene_, MixSeed(options_.seed, frame_number));

  // Light into counts. One stream of random numbers for each pixel row.
  for (int row = 0; row < kRows; ++row) {
    Random random(MixSeed(MixSeed(options_.seed, frame_number), static_cast<std::uint64_t>(row)));
    const int shots = Shots(tables, row);
    for (int col = 0; col < kCols; ++col) {
      const auto index = static_cast<std::size_t>(PixelIndex(row, col));
      if (traits_[index].dead) continue;
      PixelView& view = views[index];
      view.noise = NoiseWord(scene_, view.hits, traits_[index]);
      PixelLight light = CollectLight(view, bloom.empty() ? nullptr : &bloom[index], tables);
      if (!crosstalk.empty()) {
        const int exposure = row / 6 * kSlots + col / 6 % kSlots;
        AddCrosstalk(light, view, scene_, crosstalk[static_cast<std::size_t>(exposure)], tables);
      }
      ReadOutPixel(light, {view.noise, shots}, backgrounds_.Of(view.noise, shots), response_,
                   random, frame.pixels[index], frame.truth[index]);
    }
  }
  return frame;
}

}  // namespace kerul::lidar::simulator
