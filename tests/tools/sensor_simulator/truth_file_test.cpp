#include "sensor_simulator/truth_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>

#include "support/temp_dir.h"

namespace kerul::lidar::simulator {
namespace {

SimulatedFrame Frame(std::uint32_t number) {
  SimulatedFrame frame;
  frame.number = number;
  frame.time_s = 0.1 * number;
  frame.truth.resize(static_cast<std::size_t>(kPixels));
  for (std::size_t i = 0; i < frame.truth.size(); ++i) {
    for (std::size_t echo = 0; echo < kEchoes; ++echo) {
      EchoTruth& truth = frame.truth[i][echo];
      truth.range_m = static_cast<float>(i) * 0.25F + static_cast<float>(number);
      truth.reflectivity = static_cast<float>(echo);
      truth.cos_incidence = 0.5F;
      truth.strength = static_cast<float>(i % 100);
      truth.kind = static_cast<ReturnKind>(i % 10);
      truth.body = static_cast<std::uint8_t>(i % 256);
      truth.sent = static_cast<std::uint8_t>(echo);
    }
  }
  return frame;
}

bool Same(const EchoTruth& a, const EchoTruth& b) {
  return a.range_m == b.range_m && a.reflectivity == b.reflectivity &&
         a.cos_incidence == b.cos_incidence && a.strength == b.strength && a.kind == b.kind &&
         a.body == b.body && a.sent == b.sent;
}

TEST(TruthFile, WhatIsWrittenIsReadBack) {
  const testing::TempDir directory;
  const std::string path = directory.File("truth");
  {
    TruthWriter writer(path);
    writer.Write(Frame(3));
    writer.Write(Frame(300));
  }
  EXPECT_EQ(std::filesystem::file_size(path), 32U + 2U * (16U + 62208U * 2U * 20U));
  const std::vector<SimulatedFrame> frames = ReadTruthFile(path);
  ASSERT_EQ(frames.size(), 2U);
  EXPECT_EQ(frames[1].number, 300U);
  EXPECT_DOUBLE_EQ(frames[1].time_s, 30.0);
  const SimulatedFrame expected = Frame(300);
  for (std::size_t i = 0; i < expected.truth.size(); ++i) {
    ASSERT_TRUE(Same(frames[1].truth[i][0], expected.truth[i][0]));
    ASSERT_TRUE(Same(frames[1].truth[i][1], expected.truth[i][1]));
  }
}

TEST(TruthFile, ACutLastFrameIsLeftOut) {
  const testing::TempDir directory;
  const std::string path = directory.File("truth");
  {
    TruthWriter writer(path);
    writer.Write(Frame(1));
    writer.Write(Frame(2));
  }
  std::filesystem::resize_file(path, std::filesystem::file_size(path) - 1);
  EXPECT_EQ(ReadTruthFile(path).size(), 1U);
}

TEST(TruthFile, OtherFilesAreRefused) {
  const testing::TempDir directory;
  EXPECT_THROW(ReadTruthFile(directory.File("none")), std::runtime_error);
  const std::string path = directory.File("truth");
  { TruthWriter writer(path); }
  EXPECT_TRUE(ReadTruthFile(path).empty());
  std::filesystem::resize_file(path, 31);
  EXPECT_THROW(ReadTruthFile(path), std::runtime_error);
  std::filesystem::resize_file(path, 32);
  EXPECT_THROW(ReadTruthFile("/proc/self/exe"), std::runtime_error);
  EXPECT_THROW(TruthWriter("/nowhere/truth"), std::runtime_error);
}

}  // namespace
}  // namespace kerul::lidar::simulator
