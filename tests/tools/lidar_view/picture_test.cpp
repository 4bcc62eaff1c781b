#include "lidar_view/picture.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <vector>

#include "tools/lidar_view/sample_frame.h"

namespace kerul::lidar::view {
namespace {

using namespace picture_layout;

// The middle of a pixel's square in an image.
Rgb AtPixel(const Canvas& canvas, int image_left, int row, int col) {
  return canvas.Get(image_left + col * 2, kImageTop + (215 - row) * 2);
}

constexpr Rgb kBlack{0, 0, 0};

TEST(Picture, RangesAreColouredFromBlueToRed) {
  CollectedFrame frame = UniformFrame(0, 0, {});
  SetPoint(frame, 0, 0, 0, 10000, {});    // 40 m, the end of the scale
  SetPoint(frame, 0, 215, 287, 1, {});    // 4 mm
  SetPoint(frame, 0, 100, 50, 6000, {});  // 24 m: 0.6 of the scale is yellow
  SetPoint(frame, 0, 10, 10, 60000, {});  // beyond the scale
  const Canvas canvas = DrawPicture(frame, {}, {});
  EXPECT_EQ(AtPixel(canvas, kLeftImage, 0, 0), (Rgb{255, 0, 0}));
  EXPECT_EQ(AtPixel(canvas, kLeftImage, 215, 287), (Rgb{0, 0, 255}));
  EXPECT_EQ(AtPixel(canvas, kLeftImage, 10, 10), (Rgb{255, 0, 0}));
  EXPECT_EQ(AtPixel(canvas, kLeftImage, 50, 50), kBlack) << "no return";
  const Rgb yellow = AtPixel(canvas, kLeftImage, 100, 50);
  EXPECT_GT(yellow[0], 250);
  EXPECT_GT(yellow[1], 250);
  EXPECT_EQ(yellow[2], 0);
}

TEST(Picture, TheHighestRowIsOnTopAndAPixelIsASquareOfTwo) {
  CollectedFrame frame = UniformFrame(0, 0, {});
  SetPoint(frame, 0, 215, 0, 10000, {});
  const Canvas canvas = DrawPicture(frame, {}, {});
  for (int y = 0; y < 2; ++y) {
    for (int x = 0; x < 2; ++x) {
      EXPECT_EQ(canvas.Get(kLeftImage + x, kImageTop + y), (Rgb{255, 0, 0}));
    }
  }
  EXPECT_EQ(canvas.Get(kLeftImage + 2, kImageTop), kBlack);
  EXPECT_EQ(canvas.Get(kLeftImage, kImageTop + 2), kBlack);
}

TEST(Picture, ReflectivityStandsInTheRightImage) {
  CollectedFrame frame = UniformFrame(0, 100, {0, 0, 0});
  SetPoint(frame, 0, 3, 4, 100, {255, 0, 0});
  const Canvas canvas = DrawPicture(frame, {}, {});
  EXPECT_EQ(AtPixel(canvas, kRightImage, 3, 4), (Rgb{255, 0, 0}));
  EXPECT_EQ(AtPixel(canvas, kRightImage, 3, 5), (Rgb{0, 0, 255}));
}

TEST(Picture, FlagsTakeTheRightImageOnRequest) {
  CollectedFrame frame = UniformFrame(12, 100, {0, 0, 0});
  SetPoint(frame, 0, 0, 0, 100, {0, 0x40, 0});
  SetPoint(frame, 0, 0, 1, 100, {0, 0x50, 0});
  const Canvas canvas = DrawPicture(frame, {}, {40.0F, Colouring::kFlags});
  PointPayload ground;
  ground.ground = true;
  PointPayload bloom;
  bloom.bloom = true;
  EXPECT_EQ(AtPixel(canvas, kRightImage, 0, 0), FlagColour(ground));
  EXPECT_EQ(AtPixel(canvas, kRightImage, 0, 1), FlagColour(bloom)) << "bloom tells more";
  EXPECT_EQ(AtPixel(canvas, kRightImage, 0, 2), FlagColour({}));
}

TEST(Picture, EveryFlagHasItsColour) {
  PointPayload payload;
  Rgb last = FlagColour(payload);
  int changes = 0;
  // Each flag outranks those before it.
  for (bool PointPayload::*flag :
       {&PointPayload::ground, &PointPayload::high_refl, &PointPayload::filled,
        &PointPayload::after_pulse, &PointPayload::bloom}) {
    payload.*flag = true;
    changes += FlagColour(payload) != last;
    last = FlagColour(payload);
  }
  EXPECT_EQ(changes, 5);
}

// Places of this colour in the view from above.
std::vector<std::array<int, 2>> Dots(const Canvas& canvas, Rgb colour) {
  std::vector<std::array<int, 2>> places;
  for (int y = 0; y < kTopViewHeight; ++y) {
    for (int x = 0; x < kTopViewWidth; ++x) {
      if (canvas.Get(kMargin + x, kTopViewTop + y) == colour) places.push_back({x, y});
    }
  }
  return places;
}

TEST(Picture, PointsStandInTheViewFromAbove) {
  const CollectedFrame frame = UniformFrame(0, 0, {});
  // At the top of the height scale, 20 m ahead, 10 m to the left and to the right: 20 m in both
  // directions, so that the height of the view, 582 pixels less 8 at either edge, gives the scale.
  const CloudPoint left{20.0F, 10.0F, 5.0F, 0, 0, 0, 0, 0};
  const CloudPoint right{20.0F, -10.0F, 5.0F, 0, 0, 0, 0, 0};
  const CloudPoint beyond{41.0F, 0.0F, 5.0F, 0, 0, 0, 0, 0};
  const CloudPoint points[] = {left, right, beyond};
  const Canvas canvas = DrawPicture(frame, points, {});
  const double pixels_per_m = 566 / 20.0;
  const double edge = (kTopViewWidth - 566) / 2.0;
  const auto dots = Dots(canvas, Rgb{255, 0, 0});
  ASSERT_EQ(dots.size(), 8U) << "two squares of two pixels; what lies beyond the range is left out";
  EXPECT_NEAR(dots.front()[0], edge + 20 * pixels_per_m, 1.0);
  EXPECT_NEAR(dots.front()[1], 8, 1.0);
  EXPECT_NEAR(dots.back()[0], edge + 20 * pixels_per_m, 2.0);
  EXPECT_NEAR(dots.back()[1], 8 + 566, 2.0);
}

TEST(Picture, TheViewFromAboveIsAsLargeAsItsPointsAllow) {
  const CollectedFrame frame = UniformFrame(0, 0, {});
  for (const float scale : {0.5F, 1.0F, 4.0F}) {
    // Twice as long as wide, as the view is, beginning at the sensor.
    const std::vector<CloudPoint> points{{2 * scale, scale, 5.0F, 0, 0, 0, 0, 0},
                                         {8 * scale, -3 * scale, 5.0F, 0, 0, 0, 0, 0}};
    const auto dots = Dots(DrawPicture(frame, points, {}), Rgb{255, 0, 0});
    ASSERT_EQ(dots.size(), 8U);
    EXPECT_NEAR(dots.front()[1], 8, 2) << scale;
    EXPECT_NEAR(dots.back()[1], kTopViewHeight - 8, 2) << scale;
    EXPECT_GT(dots.back()[0], kTopViewWidth - 30) << scale;
  }
}

TEST(Picture, PointsBesideAndBehindTheSensorAreInTheViewToo) {
  const CollectedFrame frame = UniformFrame(0, 0, {});
  const std::vector<CloudPoint> points{{-5.0F, 1.0F, 5.0F, 0, 0, 0, 0, 0},
                                       {0.0F, -30.0F, 5.0F, 0, 0, 0, 0, 0}};
  EXPECT_EQ(Dots(DrawPicture(frame, points, {}), Rgb{255, 0, 0}).size(), 8U);
}

TEST(Picture, PointsOfBrokenPlacesAreLeftOut) {
  const CollectedFrame frame = UniformFrame(0, 0, {});
  const CloudPoint nan{std::numeric_limits<float>::quiet_NaN(), 0.0F, 0.0F, 0, 0, 0, 0, 0};
  const CloudPoint far{0.0F, std::numeric_limits<float>::infinity(), 0.0F, 0, 0, 0, 0, 0};
  const CloudPoint points[] = {nan, far};
  EXPECT_EQ(DrawPicture(frame, points, {}).rgb, DrawPicture(frame, {}, {}).rgb);
}

}  // namespace
}  // namespace kerul::lidar::view
