#include "MIPI_reader/node/frame_end/echo_merge.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <random>
#include <vector>

#include "support/point_compare.h"

namespace kerul::lidar {
namespace {

using testing::PointDifference;

using Samples = std::array<std::uint16_t, kWindowSamples>;

struct PlacedWindow {
  Samples samples;
  int address;
};

Samples Flat(std::uint16_t value) {
  Samples samples;
  samples.fill(value);
  return samples;
}

// Sets LidarPoint::echo_num for one test.
class EchoSlots {
 public:
  explicit EchoSlots(int echo_num) : before_(LidarPoint::echo_num) {
    LidarPoint::echo_num = echo_num;
  }
  ~EchoSlots() { LidarPoint::echo_num = before_; }
  EchoSlots(const EchoSlots&) = delete;
  EchoSlots& operator=(const EchoSlots&) = delete;

 private:
  int before_;
};

// Windows with a pulse, ties, zeros, full scale and bits above the twelve.
Samples RandomSamples(std::mt19937& random) {
  Samples samples{};
  const auto kind = random() % 5;
  for (std::uint16_t& sample : samples) {
    switch (kind) {
      case 0:
        sample = static_cast<std::uint16_t>(random() % 4);
        break;
      case 1:
        sample = static_cast<std::uint16_t>(random());
        break;
      case 2:
        sample = static_cast<std::uint16_t>(4090 + random() % 6);
        break;
      case 3:
        sample = static_cast<std::uint16_t>(300 + random() % 900);
        break;
      default:
        break;
    }
  }
  return samples;
}

LidarPoint RandomPoint(std::mt19937& random, int base, int reach) {
  LidarPoint point;
  point.row = static_cast<int>(random() % 216);
  point.col = static_cast<int>(random() % 288);
  const auto value = [&] { return static_cast<float>(random() % 1000000) / 977.0F; };
  point.pixel_word22 = value();
  point.pixel_word11 = value();
  for (LidarEcho& echo : point.echoes) {
    echo.bins = RandomSamples(random);
    echo.peak_addr = base + static_cast<int>(random() % static_cast<unsigned>(reach));
    if (random() % 20 == 0) echo.peak_addr = static_cast<int>(random());
    echo.echosum = value();
    echo.totsum = value();
    echo.noise = value();
    echo.dist_raw = random() % 2 == 0 ? 0.0F : value();
    echo.dist_proc = value();
    echo.power = value();
  }
  return point;
}

std::vector<const LidarPoint*> Pointers(const std::vector<LidarPoint>& points) {
  std::vector<const LidarPoint*> pointers;
  for (const LidarPoint& point : points) pointers.push_back(&point);
  return pointers;
}

// ---- MergeWindowsOnAxis ----

struct Merged {
  Samples samples{};
  int center = 0;
};

Merged MergeOnAxis(const std::vector<PlacedWindow>& windows) {
  std::vector<const std::uint16_t*> pointers;
  std::vector<int> addresses;
  for (const PlacedWindow& window : windows) {
    pointers.push_back(window.samples.data());
    addresses.push_back(window.address);
  }
  Merged merged;
  merged.samples = Flat(0xBEEF);
  merged.center = MergeWindowsOnAxis(pointers.data(), addresses.data(),
                                     static_cast<int>(windows.size()), merged.samples.data());
  return merged;
}

TEST(MergeWindowsOnAxis, FewerThanTwoWindowsGiveZeros) {
  for (const std::vector<PlacedWindow>& windows :
       {std::vector<PlacedWindow>{}, std::vector<PlacedWindow>{{Flat(9), 100}}}) {
    const Merged merged = MergeOnAxis(windows);
    EXPECT_EQ(merged.samples, Flat(0));
    EXPECT_EQ(merged.center, 0);
  }
}

TEST(MergeWindowsOnAxis, AddressesSixteenApartShareOnePosition) {
  Samples a{};
  Samples b{};
  a[16] = 100;  // position 108
  a[0] = 7;     // position 92, outside of the window around 108
  b[0] = 50;    // position 108
  b[8] = 30;    // position 116
  b[16] = 20;   // position 124
  const Merged merged = MergeOnAxis({{a, 100}, {b, 116}});
  EXPECT_EQ(merged.center, 108);
  Samples expected{};
  expected[8] = 150;
  expected[16] = 30;
  EXPECT_EQ(merged.samples, expected);
}

TEST(MergeWindowsOnAxis, AddressesSeventeenApartDoNotMerge) {
  const Merged merged = MergeOnAxis({{Flat(5), 100}, {Flat(5), 117}});
  EXPECT_EQ(merged.samples, Flat(0));
  EXPECT_EQ(merged.center, 0);
}

TEST(MergeWindowsOnAxis, ThreeWindowsAreNotTestedForTheirDistance) {
  Samples peak{};
  peak[8] = 11;
  const Merged merged = MergeOnAxis({{Flat(0), 0}, {peak, 4095}, {Flat(0), 2000}});
  EXPECT_EQ(merged.center, 4095);
  EXPECT_EQ(merged.samples, peak);
}

TEST(MergeWindowsOnAxis, IdenticalWindowsAreRecentredOnTheirLargestSample) {
  Samples window{};
  for (std::size_t j = 0; j < window.size(); ++j) window[j] = static_cast<std::uint16_t>(10 + j);
  const Merged merged = MergeOnAxis({{window, 500}, {window, 500}});
  EXPECT_EQ(merged.center, 508);
  for (std::size_t j = 0; j < 9; ++j) EXPECT_EQ(merged.samples[j], 2 * (10 + j + 8)) << j;
  for (std::size_t j = 9; j < 17; ++j) EXPECT_EQ(merged.samples[j], 0) << j;
}

TEST(MergeWindowsOnAxis, TheLowestPositionWinsATie) {
  EXPECT_EQ(MergeOnAxis({{Flat(3), 100}, {Flat(3), 100}}).center, 92);
  EXPECT_EQ(MergeOnAxis({{Flat(0), 100}, {Flat(0), 104}}).center, 92);
}

TEST(MergeWindowsOnAxis, TheCentreMayBeNegative) {
  const Merged merged = MergeOnAxis({{Flat(3), 2}, {Flat(3), 2}});
  EXPECT_EQ(merged.center, -6);
  for (std::size_t j = 0; j < 17; ++j) EXPECT_EQ(merged.samples[j], j < 8 ? 0 : 6) << j;
}

TEST(MergeWindowsOnAxis, SumsAreLimitedTo4095) {
  EXPECT_EQ(MergeOnAxis({{Flat(2047), 9}, {Flat(2048), 9}}).samples[8], 4095);
  EXPECT_EQ(MergeOnAxis({{Flat(2048), 9}, {Flat(2048), 9}}).samples[8], 4095);
  EXPECT_EQ(MergeOnAxis({{Flat(2047), 9}, {Flat(2047), 9}}).samples[8], 4094);
}

TEST(MergeWindowsOnAxis, OnlyTheLowTwelveBitsCount) {
  const Merged plain = MergeOnAxis({{Flat(5), 100}, {Flat(6), 101}});
  const Merged masked = MergeOnAxis({{Flat(0x7005), 0x3000 + 100}, {Flat(0xF006), -4096 + 101}});
  EXPECT_EQ(masked.center, plain.center);
  EXPECT_EQ(masked.samples, plain.samples);
}

// ---- PickAndMergeFour ----

struct Picked {
  Samples samples{};
  int center = 0;
  std::uint32_t mask = 0;
};

Picked Pick(const std::vector<LidarPoint>& points, int echo) {
  Picked picked;
  picked.samples = Flat(0xBEEF);
  const std::uint64_t packed =
      PickAndMergeFour(Pointers(points).data(), echo, picked.samples.data());
  picked.center = static_cast<std::int32_t>(static_cast<std::uint32_t>(packed));
  picked.mask = static_cast<std::uint32_t>(packed >> 32);
  return picked;
}

// Four points whose windows of slot 0 hold one sample each, of 1, 2, 4 and 8.
std::vector<LidarPoint> FourAt(const std::array<int, 4>& addresses) {
  std::vector<LidarPoint> points(4);
  for (std::size_t i = 0; i < 4; ++i) {
    points[i].echoes[0].peak_addr = addresses[i];
    points[i].echoes[0].bins[8] = static_cast<std::uint16_t>(1 << i);
  }
  return points;
}

TEST(PickAndMergeFour, ATripleWhoseFourthIsTooFarIsMergedAlone) {
  const Picked picked = Pick(FourAt({0, 16, 32, 1000}), 0);
  EXPECT_EQ(picked.mask, 0b0111U);
  EXPECT_EQ(picked.center, 32);  // the largest sample of the three
}

TEST(PickAndMergeFour, AFourthThatReachesOneOfTheTripleJoinsIt) {
  const Picked picked = Pick(FourAt({0, 16, 32, 40}), 0);
  EXPECT_EQ(picked.mask, 0b1111U);
  EXPECT_EQ(picked.center, 40);
  Samples expected{};
  expected[0] = 4;
  expected[8] = 8;
  EXPECT_EQ(picked.samples, expected);
}

TEST(PickAndMergeFour, AddressesFarApartGiveNothing) {
  const Picked picked = Pick(FourAt({0, 17, 34, 51}), 0);
  EXPECT_EQ(picked.mask, 0U);
  EXPECT_EQ(picked.center, 0);
  EXPECT_EQ(picked.samples, Flat(0));
}

TEST(PickAndMergeFour, EveryTripleCanBeTheOneThatIsMerged) {
  EXPECT_EQ(Pick(FourAt({1000, 1001, 1002, 0}), 0).mask, 0b0111U);
  EXPECT_EQ(Pick(FourAt({1000, 1001, 0, 1002}), 0).mask, 0b1011U);
  EXPECT_EQ(Pick(FourAt({1000, 0, 1001, 1002}), 0).mask, 0b1101U);
  EXPECT_EQ(Pick(FourAt({0, 1000, 1001, 1002}), 0).mask, 0b1110U);
}

TEST(PickAndMergeFour, AFourthSixteenAwayJoinsAndSeventeenAwayDoesNot) {
  EXPECT_EQ(Pick(FourAt({100, 100, 100, 116}), 0).mask, 0b1111U);
  EXPECT_EQ(Pick(FourAt({100, 100, 100, 117}), 0).mask, 0b0111U);
}

TEST(PickAndMergeFour, ANegativeCentreIsPackedAsItsBitPattern) {
  std::vector<LidarPoint> points(4);
  for (LidarPoint& point : points) {
    point.echoes[0].peak_addr = 2;
    point.echoes[0].bins[0] = 9;
  }
  Samples out{};
  const std::uint64_t packed = PickAndMergeFour(Pointers(points).data(), 0, out.data());
  EXPECT_EQ(packed, 0xF'FFFF'FFFAULL);  // -6 below the mask
}

// ---- MergePoints ----

TEST(MergePoints, AnyOtherCountGivesADefaultPoint) {
  std::mt19937 random(3);
  std::vector<LidarPoint> points;
  for (int i = 0; i < 5; ++i) points.push_back(RandomPoint(random, 100, 1));
  for (const int count : {-1, 0, 1, 3, 5}) {
    EXPECT_EQ(PointDifference(MergePoints(Pointers(points).data(), count), LidarPoint{}), "");
  }
}

TEST(MergePoints, ASaturatedSumOfTwoIsHalvedTo2047) {
  const EchoSlots slots(1);
  std::vector<LidarPoint> points(2);
  for (LidarPoint& point : points) {
    point.echoes[0].peak_addr = 100;
    point.echoes[0].bins = Flat(4000);
  }
  const LidarPoint merged = MergePoints(Pointers(points).data(), 2);
  EXPECT_EQ(merged.echoes[0].peak_addr, 92);
  EXPECT_EQ(merged.echoes[0].bins[8], 2047);
  EXPECT_EQ(merged.echoes[0].totsum, 9.0F * 2047.0F);
}

TEST(MergePoints, TwoSourcesGiveTheirMeansAndTheSumOfTheHalvedSamples) {
  const EchoSlots slots(1);
  std::vector<LidarPoint> points(2);
  for (std::size_t i = 0; i < 2; ++i) {
    points[i].row = 5;
    points[i].pixel_word22 = i == 0 ? 10.0F : 13.0F;
    points[i].pixel_word11 = i == 0 ? 1.0F : 2.0F;
    points[i].echoes[0].peak_addr = 100;
    points[i].echoes[0].bins[8] = i == 0 ? 8 : 9;
    points[i].echoes[0].echosum = i == 0 ? 3.0F : 4.0F;
    points[i].echoes[0].totsum = 1000.0F;
    points[i].echoes[0].noise = i == 0 ? 20.0F : 22.0F;
    points[i].echoes[0].dist_raw = 7.0F;
    points[i].echoes[0].dist_proc = 7.0F;
  }
  LidarPoint expected;
  expected.pixel_word22 = 11.5F;
  expected.pixel_word11 = 1.5F;
  expected.echoes[0].peak_addr = 100;
  expected.echoes[0].bins[8] = 8;  // 17 halved
  expected.echoes[0].echosum = 3.5F;
  expected.echoes[0].totsum = 8.0F;
  expected.echoes[0].noise = 21.0F;
  EXPECT_EQ(PointDifference(MergePoints(Pointers(points).data(), 2), expected), "");
}

TEST(MergePoints, TwoSourcesTooFarApartGiveADefaultPoint) {
  const EchoSlots slots(1);
  std::vector<LidarPoint> points(2);
  points[0].echoes[0].peak_addr = 100;
  points[1].echoes[0].peak_addr = 117;
  points[0].pixel_word22 = points[1].pixel_word22 = 5.0F;
  // Slot 1 would merge, but is not in use.
  points[0].echoes[1].bins = points[1].echoes[1].bins = Flat(9);
  EXPECT_EQ(PointDifference(MergePoints(Pointers(points).data(), 2), LidarPoint{}), "");
}

TEST(MergePoints, ASecondEchoAloneCarriesTheMeansOfTheFirst) {
  const EchoSlots slots(2);
  std::vector<LidarPoint> points(2);
  points[0].echoes[0].peak_addr = 100;
  points[1].echoes[0].peak_addr = 200;
  points[0].echoes[0].totsum = 10.0F;
  points[1].echoes[0].totsum = 30.0F;
  points[0].echoes[1].peak_addr = points[1].echoes[1].peak_addr = 300;
  points[0].echoes[1].bins[8] = points[1].echoes[1].bins[8] = 6;
  LidarPoint expected;
  expected.echoes[0].totsum = 20.0F;
  expected.echoes[1].peak_addr = 300;
  expected.echoes[1].bins[8] = 6;
  expected.echoes[1].totsum = 6.0F;
  EXPECT_EQ(PointDifference(MergePoints(Pointers(points).data(), 2), expected), "");
}

TEST(MergePoints, FourSourcesFarApartGiveADefaultPoint) {
  std::vector<LidarPoint> points = FourAt({0, 500, 1000, 1500});
  for (std::size_t i = 0; i < 4; ++i) {
    points[i].pixel_word22 = 4.0F;
    points[i].echoes[1].peak_addr = static_cast<int>(i) * 500;
  }
  for (const int echo_num : {1, 2}) {
    const EchoSlots slots(echo_num);
    EXPECT_EQ(PointDifference(MergePoints(Pointers(points).data(), 4), LidarPoint{}), "");
  }
}

TEST(MergePoints, ThreeSourcesDivideByThreeAndFourByFour) {
  const EchoSlots slots(1);
  std::vector<LidarPoint> points = FourAt({100, 100, 100, 1000});
  for (LidarPoint& point : points) point.echoes[0].bins[8] = 7;
  points[1].echoes[0].bins[8] = 6;
  points[3].pixel_word22 = 1000.0F;  // left out of the means too
  const LidarPoint three = MergePoints(Pointers(points).data(), 4);
  EXPECT_EQ(three.echoes[0].bins[8], 6);  // 20 / 3
  EXPECT_EQ(three.echoes[0].totsum, 6.0F);
  EXPECT_EQ(three.pixel_word22, 0.0F);
  points[3].echoes[0].peak_addr = 100;
  const LidarPoint four = MergePoints(Pointers(points).data(), 4);
  EXPECT_EQ(four.echoes[0].bins[8], 6);  // 27 / 4
  EXPECT_EQ(four.pixel_word22, 250.0F);
}

TEST(MergePoints, ASecondEchoOfFourThatMergesAloneLeavesTheFirstAtAddressZero) {
  const EchoSlots slots(2);
  std::vector<LidarPoint> points = FourAt({0, 500, 1000, 1500});
  for (LidarPoint& point : points) {
    point.echoes[1].peak_addr = 700;
    point.echoes[1].bins[8] = 12;
    point.echoes[0].totsum = 40.0F;
  }
  const LidarPoint merged = MergePoints(Pointers(points).data(), 4);
  EXPECT_EQ(merged.echoes[0].peak_addr, 0);
  EXPECT_EQ(merged.echoes[0].bins, Flat(0));
  EXPECT_EQ(merged.echoes[0].totsum, 40.0F);
  EXPECT_EQ(merged.echoes[1].peak_addr, 700);
  EXPECT_EQ(merged.echoes[1].bins[8], 12);
  EXPECT_EQ(merged.echoes[1].totsum, 0.0F) << "stays at its default with two slots";
}

TEST(MergePoints, WithTwoSlotsOnlySourcesWithAReturnMakeTheMeans) {
  const EchoSlots slots(2);
  std::vector<LidarPoint> points = FourAt({100, 100, 100, 100});
  for (std::size_t i = 0; i < 4; ++i) {
    // Squares: the mean of some is not that of all.
    points[i].pixel_word22 = static_cast<float>(i * i);
    points[i].echoes[0].totsum = static_cast<float>(10 * i * i);
  }
  EXPECT_EQ(MergePoints(Pointers(points).data(), 4).pixel_word22, 3.5F) << "none has one: all";
  points[1].echoes[0].dist_raw = 5.0F;
  points[2].echoes[0].dist_raw = -5.0F;
  points[3].echoes[0].dist_raw = 5.0F;
  const LidarPoint merged = MergePoints(Pointers(points).data(), 4);
  EXPECT_EQ(merged.pixel_word22, 5.0F);
  EXPECT_EQ(merged.echoes[0].totsum, 50.0F);
}

TEST(MergePoints, ANegativeCentreWrapsToTwelveBits) {
  std::vector<LidarPoint> points(4);
  for (LidarPoint& point : points) {
    point.echoes[0].peak_addr = 2;
    point.echoes[0].bins[0] = 9;
  }
  const EchoSlots slots(1);
  EXPECT_EQ(MergePoints(Pointers(points).data(), 2).echoes[0].peak_addr, 0xFFA);
  EXPECT_EQ(MergePoints(Pointers(points).data(), 4).echoes[0].peak_addr, 0xFFA);
}

TEST(MergePoints, SourcesStayAsTheyWere) {
  const EchoSlots slots(2);
  std::mt19937 random(4);
  std::vector<LidarPoint> points;
  for (int i = 0; i < 4; ++i) points.push_back(RandomPoint(random, 100, 5));
  const std::vector<LidarPoint> before = points;
  MergePoints(Pointers(points).data(), 4);
  for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(PointDifference(points[i], before[i]), "");
}

}  // namespace
}  // namespace kerul::lidar
