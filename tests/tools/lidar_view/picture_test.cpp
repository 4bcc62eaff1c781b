#include "lidar_view/picture.h"

#include <gtest/gtest.h>

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

TEST(Picture, PointsStandInTheViewFromAbove) {
  CollectedFrame frame = UniformFrame(0, 0, {});
  // 20 m ahead and 10 m to the left, at the top of the height scale.
  const CloudPoint point{20.0F, 10.0F, 5.0F, 0, 0, 0, 0, 0};
  const CloudPoint beyond{41.0F, 0.0F, 0.0F, 0, 0, 0, 0, 0};
  const CloudPoint behind{-5.0F, 0.0F, 5.0F, 0, 0, 0, 0, 0};
  const CloudPoint points[] = {point, beyond, behind};
  const Canvas with = DrawPicture(frame, points, {});
  const Canvas without = DrawPicture(frame, {}, {});
  const double pixels_per_m = kTopViewWidth / 80.0;
  const int x = kMargin + static_cast<int>(kTopViewWidth / 2.0 - 10 * pixels_per_m);
  const int y = kTopViewTop + kTopViewHeight - 1 - static_cast<int>(20 * pixels_per_m);
  EXPECT_EQ(with.Get(x, y), (Rgb{255, 0, 0}));
  int different = 0;
  for (std::size_t i = 0; i < with.rgb.size(); i += 3) {
    different += with.rgb[i] != without.rgb[i] || with.rgb[i + 1] != without.rgb[i + 1] ||
                 with.rgb[i + 2] != without.rgb[i + 2];
  }
  EXPECT_EQ(different, 1) << "points outside the view are not drawn";
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
