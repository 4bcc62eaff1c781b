// One frame as a picture: range image and reflectivity image side by side, under them the points
// seen from above, as large as they fit, each with its scale.
#pragma once

#include <cstdint>
#include <span>

#include "kerul_lidar/frame_collector.h"
#include "kerul_lidar/point_payload.h"
#include "lidar_view/canvas.h"
#include "lidar_view/view_points.h"

namespace kerul::lidar::view {

enum class Colouring : std::uint8_t {
  kReflectivity,  // right image by reflectivity, points by height
  kFlags,         // right image and points by what the filters say of each return
};

struct PictureOptions {
  float max_range_m = 40.0F;  // end of the range scale; the view from above shows no more; above 0
  Colouring colouring = Colouring::kReflectivity;
};

// Places in the picture, pixels. The images are twice the pixel grid, the highest grid row on top.
namespace picture_layout {
inline constexpr int kMargin = 12;
inline constexpr int kZoom = 2;
inline constexpr int kImageWidth = kFrameCols * kZoom;
inline constexpr int kImageHeight = kFrameRows * kZoom;
inline constexpr int kTitleHeight = 12;
inline constexpr int kScaleHeight = 24;
inline constexpr int kWidth = 3 * kMargin + 2 * kImageWidth;
inline constexpr int kImageTop = kMargin + kTitleHeight;
inline constexpr int kLeftImage = kMargin;
inline constexpr int kRightImage = 2 * kMargin + kImageWidth;
inline constexpr int kTopViewTop = kImageTop + kImageHeight + kScaleHeight + kMargin + kTitleHeight;
inline constexpr int kTopViewWidth = kWidth - 2 * kMargin;
inline constexpr int kTopViewHeight = kTopViewWidth / 2;
inline constexpr int kTopViewEdge = 8;  // that no point reaches
inline constexpr int kHeight = kTopViewTop + kTopViewHeight + kScaleHeight + kMargin;
}  // namespace picture_layout

// The colour for what a payload says of its return: the most telling of its flags.
Rgb FlagColour(const PointPayload& payload) noexcept;

// `points` are those of `frame`, mounted or not. The images show the first echo.
Canvas DrawPicture(const CollectedFrame& frame, std::span<const CloudPoint> points,
                   const PictureOptions& options);

}  // namespace kerul::lidar::view
