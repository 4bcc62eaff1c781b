#include "MIPI_reader/node/bloom/power_pattern.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>

#include "bloom_frame.h"

namespace kerul::lidar {
namespace {

using bloom_test::EchoAt;
using bloom_test::PlainCalib;
using bloom_test::PointAt;
using bloom_test::PutEcho;
using testing::HasSubstr;

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

class PowerPattern : public testing::Test {
 protected:
  float Score(int row, int col, int echo = 0, bool debug = false) {
    return MatchPowerPattern(frame_, row, col, echo, calib_.power_template, calib_, debug);
  }
  std::string Lines(int row, int col, int echo = 0) {
    testing::internal::CaptureStdout();
    Score(row, col, echo, true);
    return testing::internal::GetCapturedStdout();
  }
  // Five samples on a line through (3, 3); the template beneath them is `expected`.
  void PutLine(const float (&powers)[5], const float (&expected)[5]) {
    for (int i = 0; i < 5; ++i) {
      PutEcho(frame_, 3, 1 + i, 10.0F, powers[i]);
      calib_.power_template[3][1 + i] = expected[i];
    }
  }

  LidarFrame frame_{12, 12, 2};
  BloomSuppressCalib calib_ = PlainCalib();
};

TEST_F(PowerPattern, PerfectCorrelationScoresOne) {
  PutLine({2.0F, 4.0F, 6.0F, 4.0F, 4.0F}, {1.0F, 2.0F, 3.0F, 2.0F, 2.0F});
  EXPECT_EQ(Score(3, 3), 1.0F);
}

TEST_F(PowerPattern, PerfectAntiCorrelationScoresNothing) {
  PutLine({6.0F, 4.0F, 2.0F, 4.0F, 4.0F}, {1.0F, 2.0F, 3.0F, 2.0F, 2.0F});
  EXPECT_EQ(Score(3, 3), 0.0F);
}

TEST_F(PowerPattern, NoCorrelationScoresAHalf) {
  PutLine({2.0F, 6.0F, 4.0F, 6.0F, 2.0F}, {1.0F, 2.0F, 2.0F, 2.0F, 3.0F});
  EXPECT_EQ(Score(3, 3), 0.5F);
}

TEST_F(PowerPattern, FiveSamplesOfTheSamePowerGiveNoScore) {
  for (const float power : {4.0F, 100.0F}) {
    PutLine({power, power, power, power, power}, {1.0F, 2.0F, 3.0F, 2.0F, 2.0F});
    EXPECT_EQ(Score(3, 3), -1.0F) << power;
  }
}

TEST_F(PowerPattern, AnEvenTemplateGivesNoScore) {
  PutLine({2.0F, 4.0F, 6.0F, 4.0F, 4.0F}, {4.0F, 4.0F, 4.0F, 4.0F, 4.0F});
  EXPECT_EQ(Score(3, 3), -1.0F);
}

TEST_F(PowerPattern, FewerSamplesThanNeededGiveNoScore) {
  PutLine({2.0F, 4.0F, 6.0F, 4.0F, 4.0F}, {1.0F, 2.0F, 3.0F, 2.0F, 2.0F});
  EchoAt(frame_, 3, 1).dist_raw = 0.0F;
  EXPECT_EQ(Score(3, 3), -1.0F);
  calib_.min_n = 4;
  EXPECT_EQ(Score(3, 3), 1.0F);
}

TEST_F(PowerPattern, ACornerCanStillBeScored) {
  for (int row = 0; row < 3; ++row) {
    for (int col = 0; col < 3; ++col) {
      const float power = static_cast<float>(row * 3 + col);
      PutEcho(frame_, row, col, 10.0F, power);
      calib_.power_template[row][col] = 2.0F * power;
    }
  }
  calib_.min_n = 9;
  EXPECT_EQ(Score(0, 0), 1.0F);
  calib_.min_n = 10;
  EXPECT_EQ(Score(0, 0), -1.0F);
}

TEST_F(PowerPattern, APlaceOutsideTheFrameIsClampedIntoIt) {
  for (int i = 0; i < 9; ++i) {
    PutEcho(frame_, 9 + i / 3, 9 + i % 3, 10.0F, static_cast<float>(i * i));
    calib_.power_template[3 + i / 3][3 + i % 3] = static_cast<float>(i);
  }
  const float at_corner = Score(11, 11);
  EXPECT_GT(at_corner, 0.9F);
  EXPECT_EQ(Score(1000, 11), at_corner);
  EXPECT_EQ(Score(11, 1000), at_corner);
  EXPECT_EQ(Score(-1, -1), -1.0F) << "nothing there";
}

TEST_F(PowerPattern, OnlySamplesAtTheRangeOfTheCentreCount) {
  PutLine({2.0F, 4.0F, 6.0F, 4.0F, 4.0F}, {1.0F, 2.0F, 3.0F, 2.0F, 2.0F});
  // None of these may count: the score would fall.
  PutEcho(frame_, 2, 1, 10.25F, 999.0F);  // the gate is strict
  PutEcho(frame_, 2, 2, kNan, 999.0F);
  PutEcho(frame_, 2, 3, 10.0F, kNan);
  PutEcho(frame_, 2, 4, 10.0F, kInf);
  PutEcho(frame_, 2, 5, 10.0F, 999.0F, 1);  // the other slot
  PutEcho(frame_, 0, 3, 10.0F, 999.0F);     // three rows away
  PutEcho(frame_, 3, 6, 10.0F, 999.0F);     // three columns away
  EXPECT_EQ(Score(3, 3), 1.0F);
  PutEcho(frame_, 2, 1, std::nextafter(10.25F, 0.0F), 999.0F);
  EXPECT_LT(Score(3, 3), 0.9F);
}

TEST_F(PowerPattern, TheTemplateWrapsAtTheBlocks) {
  for (int col = 4; col <= 8; ++col) {
    PutEcho(frame_, 6, col, 10.0F, static_cast<float>(col));
    calib_.power_template[0][col % 6] = static_cast<float>(col);
  }
  EXPECT_EQ(Score(6, 6), 1.0F);
}

TEST_F(PowerPattern, SumsAndProductsAreTakenInOneOrder) {
  std::mt19937 random(11);
  int compared = 0;
  for (int round = 0; round < 500; ++round) {
    frame_.Reset();
    for (int row = 0; row < 12; ++row) {
      for (int col = 0; col < 12; ++col) {
        PutEcho(frame_, row, col, 10.0F + static_cast<float>(random() % 3) * 0.125F,
                static_cast<float>(random() % 100000) / 331.0F);
        calib_.power_template[row % 6][col % 6] = static_cast<float>(random() % 9973) / 37.0F;
      }
    }
    const int row = static_cast<int>(random() % 12);
    const int col = static_cast<int>(random() % 12);
    float n = 0, sum_s = 0, sum_t = 0, sum_ss = 0, sum_tt = 0, sum_st = 0;
    for (int r = 0; r < 12; ++r) {
      for (int c = 0; c < 12; ++c) {
        if (std::abs(r - row) > 2 || std::abs(c - col) > 2) continue;
        const LidarEcho& at = EchoAt(frame_, r, c);
        if (std::fabs(at.dist_raw - EchoAt(frame_, row, col).dist_raw) >= 0.25F) continue;
        const float s = at.power;
        const float t = calib_.power_template[r % 6][c % 6];
        n += 1.0F;
        sum_s += s;
        sum_t += t;
        sum_ss += s * s;
        sum_tt += t * t;
        sum_st += s * t;
      }
    }
    float expected = -1.0F;
    if (n >= 5.0F) {
      const float mean_s = sum_s / n;
      const float mean_t = sum_t / n;
      const float square_s = mean_s * mean_s;
      const float square_t = mean_t * mean_t;
      const float denominator = std::sqrt(sum_ss - n * square_s) * std::sqrt(sum_tt - n * square_t);
      const float n_mean_s = n * mean_s;
      const float r = (sum_st - n_mean_s * mean_t) / denominator;
      expected = (r + 1.0F) * 0.5F;
    }
    ASSERT_EQ(Score(row, col), expected);
    compared += expected >= 0.0F ? 1 : 0;
  }
  EXPECT_GT(compared, 400);
}

TEST_F(PowerPattern, RoundingBeyondTheEndsIsCutOff) {
  // Proportional powers: without the limits rounding carries some of them past the ends.
  std::mt19937 random(5);
  int best = 0;
  for (int round = 0; round < 2000; ++round) {
    const float sign = round % 2 == 0 ? 1.0F : -1.0F;
    for (int i = 0; i < 5; ++i) {
      const float power = 100.0F + static_cast<float>(random() % 1000) / 97.0F;
      PutEcho(frame_, 3, 1 + i, 10.0F, power);
      calib_.power_template[3][1 + i] = sign * power * 0.3F;
    }
    const float score = Score(3, 3);
    if (score == -1.0F) continue;
    ASSERT_GE(score, 0.0F);
    ASSERT_LE(score, 1.0F);
    best += score == 1.0F || score == 0.0F ? 1 : 0;
  }
  EXPECT_GT(best, 10);
}

TEST_F(PowerPattern, PowersBeyondSinglePrecisionGiveNoScore) {
  PutLine({3e38F, -3e38F, 3e38F, 1e38F, 3e38F}, {1.0F, 2.0F, 3.0F, 2.0F, 2.0F});
  EXPECT_EQ(Score(3, 3), -1.0F);
}

TEST_F(PowerPattern, ABadFrameOrEchoSlotIsRefused) {
  PutLine({2.0F, 4.0F, 6.0F, 4.0F, 4.0F}, {1.0F, 2.0F, 3.0F, 2.0F, 2.0F});
  EXPECT_EQ(Score(3, 3, -1), -1.0F);
  EXPECT_EQ(Lines(3, 3, 2),
            "[BloomDebug][pattern] skip=invalid_frame_or_echo H=12 W=12 echo=2"
            " echo_slot_count=2\n");
  frame_.echo_num = 3;
  EXPECT_EQ(Score(3, 3, 2), -1.0F) << "a record has two slots, whatever the frame says";
  frame_ = LidarFrame(0, 12, 1);
  EXPECT_EQ(Lines(3, 3),
            "[BloomDebug][pattern] skip=invalid_frame_or_echo H=0 W=12 echo=0"
            " echo_slot_count=1\n");
  frame_ = LidarFrame(2, 0, 1);
  EXPECT_EQ(Score(0, 0), -1.0F);
}

TEST_F(PowerPattern, AnEmptyCentreIsToldWithThePlaceAsPassed) {
  EXPECT_EQ(Lines(-3, 99),
            "[BloomDebug][pattern] skip=invalid_center_dist row=-3 col=99 echo=0 d0=0\n");
  EchoAt(frame_, 4, 4, 1).dist_raw = kNan;
  EXPECT_EQ(Lines(4, 4, 1),
            "[BloomDebug][pattern] skip=invalid_center_dist row=4 col=4 echo=1 d0=nan\n");
  EchoAt(frame_, 4, 4).dist_raw = kInf;
  EXPECT_EQ(Score(4, 4), -1.0F);
}

TEST_F(PowerPattern, SamplesArePrintedInScanOrder) {
  PutEcho(frame_, 3, 3, 10.0F, 7.0F);
  PutEcho(frame_, 2, 5, 10.125F, 8.5F);
  calib_.power_template[2][5] = 0.25F;
  EXPECT_EQ(Lines(3, 3),
            "[BloomDebug][pattern] sample=(2,5) echo=0 dist=10.125 power=8.5 T=0.25\n"
            "[BloomDebug][pattern] sample=(3,3) echo=0 dist=10 power=7 T=0\n"
            "[BloomDebug][pattern] skip=sample_not_enough n=2 min_n=5\n");
}

TEST_F(PowerPattern, AZeroDenominatorIsTold) {
  PutLine({4.0F, 4.0F, 4.0F, 4.0F, 4.0F}, {1.0F, 2.0F, 3.0F, 2.0F, 2.0F});
  EXPECT_THAT(Lines(3, 3), HasSubstr("\n[BloomDebug][pattern] skip=zero_denom n=5 var_s=0"
                                     " var_t=2\n"));
}

TEST_F(PowerPattern, AFinishedScoreIsTold) {
  PutLine({2.0F, 4.0F, 6.0F, 4.0F, 4.0F}, {1.0F, 2.0F, 3.0F, 2.0F, 2.0F});
  EXPECT_THAT(Lines(3, 3), HasSubstr("\n[BloomDebug][pattern] n=5 mean_s=4 mean_t=2 cov=4 var_s=8"
                                     " var_t=2 r=1 score=1\n"));
}

}  // namespace
}  // namespace kerul::lidar
