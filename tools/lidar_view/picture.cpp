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
constexpr float kLeastTopViewM = 1.0F;  // a single point fills nothing

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

// Places of the view from above: x to the right, y upward, as large as its points allow.
struct TopView {
  float x_left_m = 0.0F;  // at the left edge
  float y_top_m = 0.0F;   // at the upper edge
  float pixels_per_m = 1.0F;

  int X(float x_m) const noexcept {
    return kMargin + static_cast<int>(std::floor((x_m - x_left_m) * pixels_per_m));
  }
  int Y(float y_m) const noexcept {
    return kTopViewTop + static_cast<int>(std::floor((y_top_m - y_m) * pixels_per_m));
  }
  float LengthM() const noexcept { return kTopViewWidth / pixels_per_m; }
};

bool InTopView(int x, int y) noexcept {
  return x >= kMargin && x < kMargin + kTopViewWidth && y >= kTopViewTop &&
         y < kTopViewTop + kTopViewHeight;
}

bool IsWithin(const CloudPoint& point, float max_range_m) noexcept {
  return std::fabs(point.x) <= max_range_m && std::fabs(point.y) <= max_range_m;
}

// Holds the sensor and all points within the range, in the middle; without points the range ahead.
TopView FitTopView(std::span<const CloudPoint> points, float max_range_m) {
  float x_low = 0.0F;
  float x_high = 0.0F;
  float y_low = 0.0F;
  float y_high = 0.0F;
  for (const CloudPoint& point : points) {
    if (!IsWithin(point, max_range_m)) continue;
    x_low = std::min(x_low, point.x);
    x_high = std::max(x_high, point.x);
    y_low = std::min(y_low, point.y);
    y_high = std::max(y_high, point.y);
  }
  if (x_high - x_low <= 0.0F && y_high - y_low <= 0.0F) x_high = max_range_m;
  constexpr float kUsedWidth = kTopViewWidth - 2 * kTopViewEdge;
  constexpr float kUsedHeight = kTopViewHeight - 2 * kTopViewEdge;
  TopView view;
  const float width_m = std::max(x_high - x_low, kLeastTopViewM);
  const float height_m = std::max(y_high - y_low, kLeastTopViewM);
  view.pixels_per_m = std::min(kUsedWidth / width_m, kUsedHeight / height_m);
  view.x_left_m = (x_low + x_high - kTopViewWidth / view.pixels_per_m) / 2.0F;
  view.y_top_m = (y_low + y_high + kTopViewHeight / view.pixels_per_m) / 2.0F;
  return view;
}

// Metres from ring to ring: 1, 2 or 5 times a power of ten, six rings at most along the view.
float RingStep(float length_m) noexcept {
  for (float step = 0.1F;; step *= 10.0F) {
    for (const float factor : {1.0F, 2.0F, 5.0F}) {
      if (length_m <= 6.0F * factor * step) return factor * step;
    }
  }
}

void DrawRings(Canvas& canvas, const TopView& view) {
  constexpr int kSteps = 8000;
  constexpr float kTurn = 6.2831853F;
  const float step = RingStep(view.LengthM());
  for (int ring = 1; ring <= 7; ++ring) {
    const float radius = step * static_cast<float>(ring);
    for (int i = 0; i < kSteps; ++i) {
      const float angle = kTurn * static_cast<float>(i) / kSteps;
      const int x = view.X(radius * std::cos(angle));
      const int y = view.Y(radius * std::sin(angle));
      if (InTopView(x, y)) canvas.Set(x, y, kGrid);
    }
    const int x = view.X(radius) + 4;
    if (!InTopView(x + 6 * kGlyphAdvance, view.Y(0.0F))) continue;
    canvas.Text(x, view.Y(0.0F) - kGlyphHeight - 2, step < 1.0F ? "" : Metres(radius), kText);
  }
}

void DrawTopView(Canvas& canvas, const CollectedFrame& frame, std::span<const CloudPoint> points,
                 const PictureOptions& options) {
  const bool by_flags = options.colouring == Colouring::kFlags;
  canvas.Text(kMargin, kTopViewTop - kTitleHeight,
              by_flags ? "From above, ahead to the right, by flags"
                       : "From above, ahead to the right, by height",
              kText);
  canvas.FillRect(kMargin, kTopViewTop, kTopViewWidth, kTopViewHeight, kNoReturn);
  const TopView view = FitTopView(points, options.max_range_m);
  DrawRings(canvas, view);
  for (const CloudPoint& point : points) {
    if (!IsWithin(point, options.max_range_m)) continue;
    const Rgb colour =
        by_flags ? FlagColour(PayloadOf(frame, frame.At(point.echo, point.row, point.col)))
                 : RampColour((point.z - kLowest) / (kHighest - kLowest));
    canvas.FillRect(view.X(point.x), view.Y(point.y), kZoom, kZoom, colour);
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
