// The frame's end: when a frame is doubled and exported, and which file it becomes.
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "support/node_fixture.h"
#include "support/temp_dir.h"

namespace kerul::lidar::testing {
namespace {

namespace fs = std::filesystem;

constexpr int kLastPacket = kPacketsPerFrame - 1;
constexpr int kInLastRow = kLastPacket - 100;

RawPixel Lit() {
  RawPixel lit;
  lit.SetNoise(40);
  lit.SetPulse(0, 100, 2000, 20);
  return lit;
}

class FrameEnd : public NodeFixture {
 protected:
  FrameEnd() {
    config_.calib_enable = false;
    config_.frame_output_enable = true;
    config_.export_dir = (directory_.path() / "out").string();
    config_.export_mode = "raw";
  }

  // What the loop printed to standard error, but for the packets that these short frames lack.
  std::string PlayAndTakeErrors(const std::vector<UdpPacket>& packets) {
    ::testing::internal::CaptureStderr();
    Play(packets);
    static const std::regex losses(
        "\\[WARN\\] \\[LidarNode\\]\\[A_node\\] raw packets lost in .*\n");
    return std::regex_replace(::testing::internal::GetCapturedStderr(), losses, "");
  }

  using Names = std::set<std::string>;
  Names Files() const {
    Names names;
    std::error_code ignored;
    for (const auto& file : fs::recursive_directory_iterator(directory_.path(), ignored)) {
      if (!file.is_directory()) names.insert(file.path().filename().string());
    }
    return names;
  }
  std::vector<std::uint8_t> Content(const std::string& name) const {
    std::ifstream file(config_.export_dir + "/" + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  // Height, width and number of points in a file's header.
  static std::vector<std::uint32_t> Shape(const std::vector<std::uint8_t>& file) {
    if (file.size() < 36) return {};
    return {std::uint32_t{file[12]} | std::uint32_t{file[13]} << 8U,
            std::uint32_t{file[14]} | std::uint32_t{file[15]} << 8U,
            file[32] | std::uint32_t{file[33]} << 8U | std::uint32_t{file[34]} << 16U};
  }

  TempDir directory_;
  DefaultConfig config_ = TestConfig();
};

TEST_F(FrameEnd, EveryFrameThatItsLastPacketClosesIsOneFile) {
  StartNode(config_);
  EXPECT_EQ(PlayAndTakeErrors({MakeRawPacket(9, kLastPacket), MakeRawPacket(10, kLastPacket),
                               MakeRawPacket(11, kLastPacket)}),
            "");
  EXPECT_EQ(Files(), (Names{"A_node_raw_f009_n000000.bin", "A_node_raw_f010_n000001.bin",
                            "A_node_raw_f011_n000002.bin"}));
}

TEST_F(FrameEnd, SwitchedOffNothingIsDoubledAndNothingWritten) {
  config_.frame_output_enable = false;
  StartNode(config_);
  EXPECT_EQ(PlayAndTakeErrors({MakeRawPacket(9, kLastPacket, Lit())}), "");
  EXPECT_EQ(Files(), Names{});
  EXPECT_FALSE(fs::exists(config_.export_dir));
  EXPECT_EQ(Access().export_file_seq(), 0U);
}

TEST_F(FrameEnd, WithoutADirectoryNothingIsWrittenAndNoNumberUsed) {
  config_.export_dir = "";
  // Too long a name: a node that exports all the same tells so and writes nothing into the root.
  config_.export_mode = std::string(1024, 'm');
  StartNode(config_);
  EXPECT_EQ(PlayAndTakeErrors({MakeRawPacket(9, kLastPacket, Lit())}), "");
  EXPECT_EQ(Access().export_file_seq(), 0U);
}

// Only the last packet has a frame exported: one that another frame's packet closes is lost.
TEST_F(FrameEnd, AFrameThatAnotherOneClosesIsNotWritten) {
  StartNode(config_);
  EXPECT_EQ(PlayAndTakeErrors(
                {MakeRawPacket(9, 0, Lit()), MakeRawPacket(10, 0), MakeRawPacket(11, kLastPacket)}),
            "");
  EXPECT_EQ(Files(), Names{"A_node_raw_f011_n000000.bin"});
  EXPECT_EQ(Access().export_file_seq(), 1U);
}

TEST_F(FrameEnd, WithADoubledFrameOfAnotherSizeTheExportStillRuns) {
  for (const auto& [height, width] : {std::pair{432, 574}, std::pair{430, 576}}) {
    config_.shm_name = UniqueShmName("node");
    config_.export_mode = "raw";
    StartNode(config_);
    Access().upsampled_frame() = std::make_shared<LidarFrame>(height, width, 2);
    EXPECT_EQ(PlayAndTakeErrors({MakeRawPacket(9, kLastPacket, Lit())}), "");
    EXPECT_EQ(Shape(Content("A_node_raw_f009_n000000.bin")),
              (std::vector<std::uint32_t>{216, 288, 9}));

    // The doubled frame is written in its reset state, without a point.
    config_.shm_name = UniqueShmName("node");
    config_.export_mode = "interp";
    StartNode(config_);
    Access().upsampled_frame() = std::make_shared<LidarFrame>(height, width, 2);
    EXPECT_EQ(PlayAndTakeErrors({MakeRawPacket(9, kLastPacket, Lit())}), "");
    EXPECT_EQ(Shape(Content("A_node_interp_f009_n000000.bin")),
              (std::vector<std::uint32_t>{static_cast<std::uint32_t>(height),
                                          static_cast<std::uint32_t>(width), 0}));
  }
}

TEST_F(FrameEnd, WithoutADoubledFrameItsExportIsLeftOutAndNoNumberUsed) {
  config_.export_mode = "interp";
  StartNode(config_);
  Access().upsampled_frame().reset();
  EXPECT_EQ(PlayAndTakeErrors({MakeRawPacket(9, kLastPacket)}), "");
  EXPECT_EQ(Files(), Names{});
  EXPECT_EQ(Access().export_file_seq(), 0U);
}

TEST_F(FrameEnd, ANameThatIsTooLongUsesUpItsNumber) {
  config_.export_dir = directory_.path().string() + "/" + std::string(1024, 'd');
  StartNode(config_);
  EXPECT_EQ(PlayAndTakeErrors({MakeRawPacket(9, kLastPacket), MakeRawPacket(10, kLastPacket)}),
            "[LidarNode][A_node] export BIN path too long\n"
            "[LidarNode][A_node] export BIN path too long\n");
  EXPECT_EQ(Access().export_file_seq(), 2U);
  EXPECT_EQ(Files(), Names{});
}

// A lost packet leaves its pixels as a reset does, not with the last frame's values. Of the last
// row only the frame's end can see to that: the rows before it have been run by then.
TEST_F(FrameEnd, OfPixelsThatWereLostTheFrameBeforeIsNotWritten) {
  StartNode(config_);
  const RawPixel lit = Lit();
  EXPECT_EQ(PlayAndTakeErrors({MakeRawPacket(9, 0, lit), MakeRawPacket(9, kInLastRow, lit),
                               MakeRawPacket(9, kLastPacket, lit), MakeRawPacket(10, 0, lit),
                               MakeRawPacket(10, kLastPacket, lit)}),
            "");
  EXPECT_EQ(Shape(Content("A_node_raw_f009_n000000.bin")),
            (std::vector<std::uint32_t>{216, 288, 27}));
  EXPECT_EQ(Shape(Content("A_node_raw_f010_n000001.bin")),
            (std::vector<std::uint32_t>{216, 288, 18}));
}

// In the doubled frame the pixels at even places are copies of the measured ones.
TEST_F(FrameEnd, OfPixelsThatWereLostTheFrameBeforeIsNotDoubled) {
  config_.export_mode = "interp";
  StartNode(config_);
  const RawPixel lit = Lit();
  std::vector<UdpPacket> packets;
  for (int i = 0; i < kPacketsPerMrow - 1; ++i) {
    packets.push_back(MakeRawPacket(9, 35 * kPacketsPerMrow + i, lit));
  }
  packets.push_back(MakeRawPacket(9, kLastPacket));
  packets.push_back(MakeRawPacket(10, kLastPacket));
  EXPECT_EQ(PlayAndTakeErrors(packets), "");
  // The last row was lit in the first frame and is lost in the second. What is doubled of it keeps
  // its place, but holds no echo.
  const auto lit_samples = [&](const std::string& name) {
    const std::vector<std::uint8_t> file = Content(name);
    int count = 0;
    for (std::size_t at = 36; at + 12 <= file.size(); at += 12) {
      float reflectivity = 0.0F;
      std::memcpy(&reflectivity, &file[at + 8], sizeof(reflectivity));
      count += reflectivity != 0.0F;
    }
    return count;
  };
  EXPECT_GT(lit_samples("A_node_interp_f009_n000000.bin"), 0);
  EXPECT_EQ(Files().size(), 2U);
  EXPECT_EQ(lit_samples("A_node_interp_f010_n000001.bin"), 0);
}

// The header fits the stream's buffer, and whether it can be stored shows only at the close.
TEST_F(FrameEnd, AnEmptyFrameOntoAFullDiskIsNotReported) {
  if (!fs::exists("/dev/full")) GTEST_SKIP() << "needs /dev/full";
  fs::create_directories(config_.export_dir);
  fs::create_symlink("/dev/full", config_.export_dir + "/A_node_raw_f009_n000000.bin");
  fs::create_symlink("/dev/full", config_.export_dir + "/A_node_raw_f010_n000001.bin");
  StartNode(config_);
  EXPECT_EQ(PlayAndTakeErrors({MakeRawPacket(9, kLastPacket)}), "");
  // What does not fit is.
  std::vector<UdpPacket> full;
  for (int i = 0; i < kPacketsPerFrame; ++i) full.push_back(MakeRawPacket(10, i, Lit()));
  EXPECT_EQ(PlayAndTakeErrors(full), "[LidarNode][A_node] export BIN failed: " +
                                         config_.export_dir + "/A_node_raw_f010_n000001.bin\n");
}

}  // namespace
}  // namespace kerul::lidar::testing
