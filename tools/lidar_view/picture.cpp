#include "lidar_view/picture.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string>

#include "config/color_map.h"

namespace kerul::lidar::view {

using namespace picture_layout;

namespace {

constexpr Rgb kBackground{16, 18, 22};
constexpr Rgb kNoReturn{0, 0, 0};
constexpr Rgb kText{210, 210, 210};
constexpr Rgb kGrid{60, 64, 72};
// The span of heights that the view from above tells apart, metres over the sensor.
constexpr float kLowest = -3.0F;
constexpr float kHighest = 5.0F;
constexpr float kRingStepM = 10.0F;

struct FlagColourName {
  Rgb colour;
  const char* name;
};

constexpr FlagColourName kBloom{{255, 0, 255}, "bloom"};
constexpr FlagColourName kAfterPulse{{255, 140, 0}, "after-pulse"};
constexpr FlagColourName kFilled{{0, 220, 255}, "filled"};
constexpr FlagColourName kHighRefl{{255, 255, 120}, "high refl"};
constexpr FlagColourName kGround{{110, 170, 70}, "ground"};
constexpr FlagColourName kPlain{{130, 130, 140}, "other"};
constexpr std::array<FlagColourName, 6> kFlagLegend{kBloom,    kAfterPulse, kFilled,
                                                    kHighRefl, kGround,     kPlain};

const ColorMap& Ramp() {
  static const ColorMap ramp;
  return ramp;
}

Rgb RampColour(float share) noexcept {
  const std::array<float, 3>& colour = Ramp().At(share);
  return {static_cast<std::uint8_t>(colour[0]), static_cast<std::uint8_t>(colour[1]),
          static_cast<std::uint8_t>(colour[2])};
}

PointPayload PayloadOf(const CollectedFrame& frame, const FramePoint& point) noexcept {
  return DecodePointPayload(frame.key.output_mode, point.payload.data());
}

std::string Metres(float value) {
  return std::to_string(static_cast<int>(std::lround(value))) + " m";
}

// Draws `colour_of(point)` for each return of the first echo.
template <typename ColourOf>
void DrawImage(Canvas& canvas, int left, const CollectedFrame& frame, ColourOf colour_of) {
  for (int row = 0; row < kFrameRows; ++row) {
    for (int col = 0; col < kFrameCols; ++col) {
      const FramePoint& point = frame.At(0, row, col);
      const Rgb colour = point.distance == 0 ? kNoReturn : colour_of(point);
      const int y = kImageTop + (kFrameRows - 1 - row) * kZoom;
      canvas.FillRect(left + col * kZoom, y, kZoom, kZoom, colour);
    }
  }
}

// The colour ramp from left to right with a label at either end and in the middle.
void DrawScale(Canvas& canvas, int left, int top, int width, const std::string& low,
               const std::string& middle, const std::string& high) {
  for (int x = 0; x < width; ++x) {
    canvas.FillRect(left + x, top, 1, 8,
                    RampColour(static_cast<float>(x) / static_cast<float>(width - 1)));
  }
  const auto text_width = [](const std::string& text) {
    return static_cast<int>(text.size()) * kGlyphAdvance;
  };
  canvas.Text(left, top + 11, low, kText);
  canvas.Text(left + (width - text_width(middle)) / 2, top + 11, middle, kText);
  canvas.Text(left + width - text_width(high), top + 11, high, kText);
}

void DrawFlagLegend(Canvas& canvas, int left, int top) {
  for (const FlagColourName& entry : kFlagLegend) {
    canvas.FillRect(left, top, 8, 8, entry.colour);
    canvas.Text(left + 12, top, entry.name, kText);
    left += 96;
  }
}

void DrawRangeImage(Canvas& canvas, const CollectedFrame& frame, const PictureOptions& options) {
  canvas.Text(kLeftImage, kMargin, "Range", kText);
  DrawImage(canvas, kLeftImage, frame, [&](const FramePoint& point) {
    return RampColour(frame.RangeM(point) / options.max_range_m);
  });
  DrawScale(canvas, kLeftImage, kImageTop + kImageHeight + 4, kImageWidth, "0 m",
            Metres(options.max_range_m / 2), Metres(options.max_range_m));
}

void DrawReflectivityImage(Canvas& canvas, const CollectedFrame& frame) {
  const int mode = frame.key.output_mode;
  const bool is_reflectivity =
      OutputMode{mode} == OutputMode::kReflectivity || OutputMode{mode} == OutputMode::kFlags;
  canvas.Text(kRightImage, kMargin, is_reflectivity ? "Reflectivity" : "Intensity", kText);
  DrawImage(canvas, kRightImage, frame, [&](const FramePoint& point) {
    return RampColour(static_cast<float>(PointIntensity(mode, point.payload.data())) / 255.0F);
  });
  DrawScale(canvas, kRightImage, kImageTop + kImageHeight + 4, kImageWidth, "0", "128", "255");
}

void DrawFlagImage(Canvas& canvas, const CollectedFrame& frame) {
  canvas.Text(kRightImage, kMargin, "Flags", kText);
  DrawImage(canvas, kRightImage, frame,
            [&](const FramePoint& point) { return FlagColour(PayloadOf(frame, point)); });
  DrawFlagLegend(canvas, kRightImage, kImageTop + kImageHeight + 6);
}

// Places of the view from above: the sensor below in the middle, x upward, y to the left.
struct TopView {
  int left = kMargin;
  int top = kTopViewTop;
  float pixels_per_m;

  int X(float y_m) const noexcept {
    return left + static_cast<int>(std::floor(kTopViewWidth / 2.0F - y_m * pixels_per_m));
  }
  int Y(float x_m) const noexcept {
    return top + kTopViewHeight - 1 - static_cast<int>(std::floor(x_m * pixels_per_m));
  }
  bool Holds(int x, int y) const noexcept {
    return x >= left && x < left + kTopViewWidth && y >= top && y < top + kTopViewHeight;
  }
};

void DrawRings(Canvas& canvas, const TopView& view, float max_range_m) {
  constexpr int kSteps = 2000;
  constexpr float kPi = 3.14159265F;
  // Ten rings at most, whatever the range.
  const float step = std::max(kRingStepM, max_range_m / 10.0F);
  for (float radius = step; radius <= max_range_m; radius += step) {
    for (int i = 0; i <= kSteps; ++i) {
      const float angle = kPi * static_cast<float>(i) / kSteps - kPi / 2.0F;
      const int x = view.X(radius * std::sin(angle));
      const int y = view.Y(radius * std::cos(angle));
      if (view.Holds(x, y)) canvas.Set(x, y, kGrid);
    }
    canvas.Text(view.X(0.0F) + 4, view.Y(radius) + 3, Metres(radius), kText);
  }
}

void DrawTopView(Canvas& canvas, const CollectedFrame& frame, std::span<const CloudPoint> points,
                 const PictureOptions& options) {
  const bool by_flags = options.colouring == Colouring::kFlags;
  TopView view{};
  view.pixels_per_m = kTopViewWidth / (2.0F * options.max_range_m);
  canvas.Text(kMargin, kTopViewTop - kTitleHeight,
              by_flags ? "From above, by flags" : "From above, by height", kText);
  canvas.FillRect(view.left, view.top, kTopViewWidth, kTopViewHeight, kNoReturn);
  DrawRings(canvas, view, options.max_range_m);
  for (const CloudPoint& point : points) {
    if (!(std::fabs(point.x) <= options.max_range_m && std::fabs(point.y) <= options.max_range_m)) {
      continue;
    }
    const int x = view.X(point.y);
    const int y = view.Y(point.x);
    if (!view.Holds(x, y)) continue;
    canvas.Set(x, y,
               by_flags ? FlagColour(PayloadOf(frame, frame.At(point.echo, point.row, point.col)))
                        : RampColour((point.z - kLowest) / (kHighest - kLowest)));
  }
  const int scale_top = kTopViewTop + kTopViewHeight + 4;
  if (by_flags) {
    DrawFlagLegend(canvas, kMargin, scale_top + 2);
  } else {
    DrawScale(canvas, kMargin, scale_top, kTopViewWidth, Metres(kLowest),
              Metres((kLowest + kHighest) / 2), Metres(kHighest));
  }
}

}  // namespace

Rgb FlagColour(const PointPayload& payload) noexcept {
  if (payload.bloom) return kBloom.colour;
  if (payload.after_pulse) return kAfterPulse.colour;
  if (payload.filled) return kFilled.colour;
  if (payload.high_refl) return kHighRefl.colour;
  if (payload.ground) return kGround.colour;
  return kPlain.colour;
}

Canvas DrawPicture(const CollectedFrame& frame, std::span<const CloudPoint> points,
                   const PictureOptions& options) {
  Canvas canvas(kWidth, kHeight, kBackground);
  DrawRangeImage(canvas, frame, options);
  if (options.colouring == Colouring::kFlags) {
    DrawFlagImage(canvas, frame);
  } else {
    DrawReflectivityImage(canvas, frame);
  }
  DrawTopView(canvas, frame, points, options);
  return canvas;
}

}  // namespace kerul::lidar::view
