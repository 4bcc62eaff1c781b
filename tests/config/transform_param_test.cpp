#include "config/transform_param.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <type_traits>

namespace kerul::lidar {
namespace {

struct Matrix {
  double at[3][3];
};

Matrix Times(const Matrix& a, const Matrix& b) {
  Matrix product{};
  for (int row = 0; row < 3; ++row) {
    for (int col = 0; col < 3; ++col) {
      for (int k = 0; k < 3; ++k) product.at[row][col] += a.at[row][k] * b.at[k][col];
    }
  }
  return product;
}

// About z by yaw, about y by pitch, about x by roll: the elementary rotations, all in double.
Matrix Rotation(double roll, double pitch, double yaw) {
  const Matrix x{
      {{1, 0, 0}, {0, std::cos(roll), -std::sin(roll)}, {0, std::sin(roll), std::cos(roll)}}};
  const Matrix y{
      {{std::cos(pitch), 0, std::sin(pitch)}, {0, 1, 0}, {-std::sin(pitch), 0, std::cos(pitch)}}};
  const Matrix z{
      {{std::cos(yaw), -std::sin(yaw), 0}, {std::sin(yaw), std::cos(yaw), 0}, {0, 0, 1}}};
  return Times(Times(z, y), x);
}

TEST(TransformParam, IsABlockOfFifteenDoublesInOrder) {
  EXPECT_TRUE(std::is_trivially_copyable_v<TransformParam>);
  EXPECT_EQ(sizeof(TransformParam), 15 * sizeof(double));
  EXPECT_EQ(offsetof(TransformParam, roll), 3 * sizeof(double));
  EXPECT_EQ(offsetof(TransformParam, pitch), 4 * sizeof(double));
  EXPECT_EQ(offsetof(TransformParam, yaw), 5 * sizeof(double));
  EXPECT_EQ(offsetof(TransformParam, rotation), 6 * sizeof(double));
}

TEST(ComputeRotation, NoAnglesGiveTheIdentityWithANegativeZero) {
  TransformParam transform;
  for (double& entry : transform.rotation) entry = 9.0;
  ComputeRotation(transform);
  for (int i = 0; i < 9; ++i) {
    EXPECT_EQ(transform.rotation[i], i % 4 == 0 ? 1.0 : 0.0) << i;
    EXPECT_EQ(std::signbit(transform.rotation[i]), i == 6) << i;
  }
}

TEST(ComputeRotation, IsYawAfterPitchAfterRoll) {
  int compared = 0;
  for (const double roll : {-2.5, -0.3, 0.0, 0.4, 1.7}) {
    for (const double pitch : {-1.2, 0.0, 0.8}) {
      for (const double yaw : {-3.0, 0.0, 0.6, 2.2}) {
        TransformParam transform;
        transform.roll = roll;
        transform.pitch = pitch;
        transform.yaw = yaw;
        ComputeRotation(transform);
        const Matrix expected = Rotation(roll, pitch, yaw);
        for (int i = 0; i < 9; ++i) {
          // Single precision: at most three roundings of 6e-8 on values of at most 1, twice.
          EXPECT_NEAR(transform.rotation[i], expected.at[i / 3][i % 3], 5e-7);
          ++compared;
        }
      }
    }
  }
  EXPECT_EQ(compared, 5 * 3 * 4 * 9);
}

TEST(ComputeRotation, RoundsSinesToFloatAndMultipliesInFloat) {
  TransformParam transform;
  transform.roll = 0.1;
  transform.pitch = 0.2;
  transform.yaw = 0.3;
  ComputeRotation(transform);
  const auto c2 = static_cast<float>(std::cos(0.2));
  const auto c3 = static_cast<float>(std::cos(0.3));
  const volatile float product = c2 * c3;
  EXPECT_EQ(transform.rotation[0], static_cast<double>(product));
  EXPECT_NE(transform.rotation[0], std::cos(0.2) * std::cos(0.3));
  EXPECT_EQ(transform.rotation[6], static_cast<double>(-static_cast<float>(std::sin(0.2))));
}

TEST(ComputeRotation, LeavesOffsetAndAnglesAlone) {
  TransformParam transform;
  transform.x = 1.0;
  transform.y = 2.0;
  transform.z = 3.0;
  transform.roll = 0.5;
  ComputeRotation(transform);
  EXPECT_EQ(transform.x, 1.0);
  EXPECT_EQ(transform.y, 2.0);
  EXPECT_EQ(transform.z, 3.0);
  EXPECT_EQ(transform.roll, 0.5);
  EXPECT_EQ(transform.pitch, 0.0);
  EXPECT_EQ(transform.yaw, 0.0);
}

}  // namespace
}  // namespace kerul::lidar
