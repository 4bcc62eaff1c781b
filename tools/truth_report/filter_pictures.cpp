#include "truth_report/filter_pictures.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "kerul_lidar/point_payload.h"
#include "lidar_view/canvas.h"
#include "sensor_simulator/scenes.h"
#include "support/png_file.h"
#include "truth_report/filter_report.h"
#include "truth_report/return_kinds.h"

namespace kerul::lidar::report {
namespace {

using simulator::EchoTruth;
using simulator::ReturnKind;
using simulator::SimulatedFrame;
using view::Canvas;
using view::Rgb;

constexpr std::uint32_t kPicturedFrame = 2;
constexpr int kMargin = 8;
constexpr int kTitle = 14;
constexpr int kLegend = 16;

constexpr Rgb kBackground{16, 18, 22};
constexpr Rgb kText{210, 210, 210};
constexpr Rgb kNothing{0, 0, 0};
constexpr Rgb kSurface{110, 114, 122};
constexpr Rgb kFalse{255, 60, 40};
constexpr Rgb kBloom{255, 0, 255};
constexpr Rgb kRetro{255, 255, 120};
constexpr Rgb kFilled{0, 220, 255};
constexpr Rgb kRight{90, 200, 70};
constexpr Rgb kMissed{235, 150, 40};

struct LegendEntry {
  Rgb colour;
  std::string_view name;
};

// The part of the frame that is shown.
struct Window {
  int first_row = 0;
  int rows = kFrameRows;
  int first_col = 0;
  int cols = kFrameCols;
  int zoom = 2;
};

struct Shown {
  const EchoTruth& truth;
  const FramePoint& point;
  PointPayload payload;
};

using ColourOf = Rgb (*)(const Shown&);

struct Panel {
  std::string_view title;
  Passes passes;
};

Rgb Scaled(Rgb colour, int share, int whole) {
  for (std::uint8_t& channel : colour) channel = static_cast<std::uint8_t>(channel * share / whole);
  return colour;
}

Rgb ByKind(const Shown& shown) {
  if (shown.payload.filled) return kFilled;
  return IsSurface(shown.truth.kind) ? kSurface : kFalse;
}

// Bloom as bright as its reflectivity, up to 30; all above is equally bright.
Rgb ByBloom(const Shown& shown) {
  if (shown.payload.filled) return kFilled;
  if (shown.truth.kind == ReturnKind::kRetro) return kRetro;
  if (shown.truth.kind == ReturnKind::kBloom) {
    return Scaled(kBloom, 90 + std::min<int>(shown.payload.reflectivity, 30) * 5, 240);
  }
  return IsSurface(shown.truth.kind) ? kSurface : kFalse;
}

Rgb ByGroundLabel(const Shown& shown) {
  const bool ground = shown.truth.kind == ReturnKind::kGround;
  if (ground) return shown.payload.ground ? kRight : kMissed;
  return shown.payload.ground ? kFalse : kSurface;
}

void DrawPanel(Canvas& canvas, int left, const Window& window, const SimulatedFrame& truth,
               const CollectedFrame& published, ColourOf colour_of) {
  for (int r = 0; r < window.rows; ++r) {
    for (int c = 0; c < window.cols; ++c) {
      const int row = window.first_row + r;
      const int col = window.first_col + c;
      const FramePoint& point = published.At(0, row, col);
      Rgb colour = kNothing;
      if (point.distance != 0) {
        colour = colour_of({truth.truth[static_cast<std::size_t>(row * kFrameCols + col)][0], point,
                            DecodePointPayload(published.key.output_mode, point.payload.data())});
      }
      canvas.FillRect(left + c * window.zoom,
                      kMargin + kTitle + (window.rows - 1 - r) * window.zoom, window.zoom,
                      window.zoom, colour);
    }
  }
}

void DrawLegend(Canvas& canvas, int top, const std::vector<LegendEntry>& legend) {
  int left = kMargin;
  for (const LegendEntry& entry : legend) {
    canvas.FillRect(left, top, 8, 8, entry.colour);
    canvas.Text(left + 12, top, entry.name, kText);
    left += 24 + static_cast<int>(entry.name.size()) * view::kGlyphAdvance;
  }
}

struct Picture {
  std::string file;
  std::string scene;
  Window window;
  std::vector<Panel> panels;
  ColourOf colour_of;
  std::vector<LegendEntry> legend;
};

void WritePicture(const std::string& directory, const Picture& picture) {
  simulator::FrameSimulator sensor(simulator::MakeScene(picture.scene));
  const simulator::CalibrationBlobs calibration = simulator::MakeBlobs(sensor.options());
  const SimulatedFrame truth = sensor.Simulate(kPicturedFrame);
  const Window& window = picture.window;
  const int panel_width = window.cols * window.zoom;
  const int panels = static_cast<int>(picture.panels.size());
  const int height = window.rows * window.zoom;
  Canvas canvas(kMargin + panels * (panel_width + kMargin),
                kMargin + kTitle + height + kLegend + kMargin, kBackground);
  int left = kMargin;
  for (const Panel& panel : picture.panels) {
    NodeRun node(panel.passes, calibration);
    canvas.Text(left, kMargin, panel.title, kText);
    DrawPanel(canvas, left, window, truth, node.Publish(truth), picture.colour_of);
    left += panel_width + kMargin;
  }
  DrawLegend(canvas, kMargin + kTitle + height + kMargin, picture.legend);
  std::string error;
  const std::string path = directory + "/" + picture.file;
  if (!WritePng(path, canvas.width, canvas.height, canvas.rgb, error)) {
    throw std::runtime_error(path + ": " + error);
  }
}

}  // namespace

void WriteFilterPictures(const std::string& directory) {
  const std::vector<LegendEntry> by_kind = {
      {kSurface, "surface"}, {kFalse, "false return"}, {kFilled, "filled"}};
  WritePicture(directory, {"filter_neighbours.png",
                           "noise",
                           {},
                           {{"without neighbour validation", DefaultWithoutNeighbours()},
                            {"with all passes", kDefaultPasses}},
                           ByKind,
                           by_kind});
  WritePicture(directory, {"filter_shot_noise.png",
                           "crosstalk",
                           {},
                           {{"without the shot-noise filter", DefaultWithoutShotNoise()},
                            {"with all passes", kDefaultPasses}},
                           ByKind,
                           by_kind});
  WritePicture(directory, {"filter_bloom.png",
                           "retro",
                           {.first_row = 82, .rows = 72, .first_col = 60, .cols = 200, .zoom = 3},
                           {{"without bloom suppression", DefaultWithoutBloom()},
                            {"with all passes", kDefaultPasses}},
                           ByBloom,
                           {{kSurface, "surface"},
                            {kRetro, "retro-reflector"},
                            {kBloom, "bloom, as bright as its reflectivity"},
                            {kFilled, "filled"},
                            {kFalse, "other false return"}}});
  Passes no_labels = kDefaultPasses;
  no_labels.ground = false;
  WritePicture(directory, {"filter_ground.png",
                           "street",
                           {.rows = 120},
                           {{"no labels", no_labels},
                            {"first stage", kDefaultPasses},
                            {"with the plane stage", DefaultWithPlane()}},
                           ByGroundLabel,
                           {{kRight, "ground, labelled"},
                            {kMissed, "ground, not labelled"},
                            {kFalse, "labelled, no ground"},
                            {kSurface, "other return"}}});
}

}  // namespace kerul::lidar::report
