// Small hand-built frames for the tests of the row passes.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "MIPI_reader/parser/lidar_point.h"
#include "support/point_compare.h"

namespace kerul::lidar::frame_builder {

// An empty grid with the pixels' places filled in. Sets LidarPoint::echo_num.
inline FrameRows MakeRows(int height, int width, int echo_num = 2) {
  LidarFrame frame(height, width, echo_num);
  for (int row = 0; row < height; ++row) {
    for (int col = 0; col < width; ++col) {
      LidarPoint& point =
          frame.points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)];
      point.row = row;
      point.col = col;
    }
  }
  return frame.points;
}

// A return as the row passes find it: the processed fields primed with the raw ones.
inline void SetEcho(LidarEcho& echo, float dist, float refl = 10.0F, float peak_ratio = 1.5F) {
  echo.dist_raw = dist;
  echo.refl_raw = refl;
  echo.dist_proc = dist;
  echo.refl_proc = refl;
  echo.peak_ratio = peak_ratio;
}

// All pixels hold this return in slot 0.
inline void FillSlot0(FrameRows& rows, float dist, float refl = 10.0F, float peak_ratio = 1.5F) {
  for (std::vector<LidarPoint>& line : rows) {
    for (LidarPoint& point : line) SetEcho(point.echoes[0], dist, refl, peak_ratio);
  }
}

inline bool IsErased(const LidarEcho& echo) {
  return echo.dist_raw == 0.0F && echo.refl_raw == 0.0F && echo.dist_proc == 0.0F &&
         echo.refl_proc == 0.0F;
}

// Equal to the last bit, NaN included. Copies of a point keep its padding too.
inline bool SameBytes(const LidarPoint& a, const LidarPoint& b) {
  return std::memcmp(&a, &b, sizeof(LidarPoint)) == 0;
}

// Compares all pixels of rows begin .. end - 1.
inline void ExpectSameRows(const FrameRows& a, const FrameRows& b, std::size_t begin,
                           std::size_t end) {
  std::size_t compared = 0;
  for (std::size_t row = begin; row < end; ++row) {
    ASSERT_EQ(a[row].size(), b[row].size());
    for (std::size_t col = 0; col < a[row].size(); ++col) {
      EXPECT_TRUE(SameBytes(a[row][col], b[row][col])) << "row " << row << " col " << col;
      ++compared;
    }
  }
  EXPECT_GT(compared, 0U);
}

// Compares all fields of all pixels; any NaN equals any other.
inline void ExpectSameRecords(const FrameRows& expected, const FrameRows& got) {
  ASSERT_EQ(got.size(), expected.size());
  std::size_t compared = 0;
  for (std::size_t row = 0; row < expected.size(); ++row) {
    ASSERT_EQ(got[row].size(), expected[row].size());
    for (std::size_t col = 0; col < expected[row].size(); ++col) {
      ASSERT_EQ(testing::PointDifference(got[row][col], expected[row][col]), "")
          << "row " << row << " col " << col;
      ++compared;
    }
  }
  EXPECT_GT(compared, 0U);
}

// Fills every field that a row pass reads with anything: near and far returns, empty ones, NaN,
// infinities, negative values, places outside the frame, flags at random.
class WildContent {
 public:
  explicit WildContent(std::uint32_t seed) : random_(seed) {}

  void Fill(FrameRows& rows) {
    for (std::vector<LidarPoint>& line : rows) {
      for (LidarPoint& point : line) {
        point.row = static_cast<std::int32_t>(random_()) % 400 - 100;
        point.col = static_cast<std::int32_t>(random_());
        for (LidarEcho& echo : point.echoes) FillEcho(echo);
      }
    }
  }

  float Value() {
    constexpr float kInf = std::numeric_limits<float>::infinity();
    constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
    constexpr std::array<float, 12> kOdd = {0.0F,   -0.0F, kNan, kInf,  -kInf, -1.0F,
                                            1e-38F, 3e38F, 1.0F, 15.0F, 30.0F, 1e-44F};
    if (random_() % 4 == 0) return kOdd[random_() % kOdd.size()];
    // Mostly one surface, so that neighbours agree now and then.
    return 10.0F + static_cast<float>(random_() % 64) / 64.0F;
  }

 private:
  void FillEcho(LidarEcho& echo) {
    echo.dist_raw = Value();
    echo.refl_raw = Value();
    echo.dist_proc = Value();
    echo.refl_proc = Value();
    echo.peak = Value() * 2.0F;
    echo.peak_ratio = random_() % 2 == 0 ? 1.5F : Value();
    echo.change_noise_noise_append = Value();
    echo.ground_refl_scale = Value();
    echo.cogw_flag = static_cast<std::int32_t>(random_());
    echo.afterPulse = random_() % 16 == 0;
    echo.ground = random_() % 2 == 0;
    echo.highReflBlooming = random_() % 2 == 0;
  }

  std::mt19937 random_;
};

}  // namespace kerul::lidar::frame_builder
