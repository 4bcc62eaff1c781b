// The decoder against the encoder: what the node publishes is what a consumer reads.

#include <gtest/gtest.h>

#include <chrono>
#include <vector>

#include "MIPI_reader/parser/lidar_parser.h"
#include "kerul_lidar/frame_collector.h"
#include "kerul_lidar/point_packet_view.h"
#include "kerul_lidar/point_payload.h"

namespace kerul::lidar {
namespace {

// Values that every mode's bits can hold.
void FillPoint(int row, int col, LidarPoint& point) {
  point.row = row;
  point.col = col;
  point.pixel_word22 = static_cast<float>((row * 288 + col) % 4096);
  point.shot_times = 192.0F;
  point.shot_ratio = 1.25F;
  for (int slot = 0; slot < 2; ++slot) {
    LidarEcho& echo = point.echoes[slot];
    echo.dist_proc = 1.0F + 0.1F * static_cast<float>((row + col + slot) % 300);
    echo.refl_proc = static_cast<float>((row * 3 + col + slot) % 256);
    echo.cogh = static_cast<float>((row + col) % 512);
    echo.cogw = 0.5F + static_cast<float>(col % 16);
    echo.waveform_rms_ratio = static_cast<float>(row % 200) / 256.0F;
    echo.cogw_flag = col % 8;
    echo.peak = static_cast<float>((row * 7 + col) % 4096);
    echo.peak_addr = (row + col) % 256;
    echo.noise = static_cast<float>((row + col * 5) % 4096);
    echo.highRefl = row % 2 == 0;
    echo.highReflBlooming = row % 3 == 0;
    echo.afterPulse = row % 5 == 0;
    echo.ground = col % 2 == 0;
    echo.fill_point = col % 3 == 0;
    echo.shot_noise_point = col % 5 == 0;
    echo.echo_flags = static_cast<std::uint8_t>(row % 2);
    echo.detect_pass = col % 7 == 0;
    echo.shot_noise_group_point = row % 7 == 0;
  }
}

class PublishedPacket : public testing::Test {
 protected:
  PublishedPacket() : frame_(216, 288, 2) {
    for (int row = 0; row < 216; ++row) {
      for (int col = 0; col < 288; ++col) {
        FillPoint(row, col,
                  frame_.points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)]);
      }
    }
  }
  const LidarPoint& PointAt(int row, int col) const {
    return frame_.points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)];
  }
  // Encodes one packet and parses it.
  PointPacketView Encode(int block, int slot, int mode, int code, std::uint8_t marker) {
    const int frame_id = 77;
    const int length = parser_.GetPacket_7_10_FromFrame(frame_.points, slot, packet_, block,
                                                        frame_id, mode, code, marker);
    PointPacketView view;
    EXPECT_EQ(view.Parse(packet_.buffer, static_cast<std::size_t>(length)),
              PointPacketError::kNone);
    return view;
  }

  LidarFrame frame_;
  LidarParserQDV11 parser_;
  UdpPacket packet_{};
};

// Holds a decoded payload against the point that was published. Gives the fields compared.
int CheckPayload(const PointPayload& payload, const LidarPoint& point, const LidarEcho& echo) {
  using namespace payload_field;
  int compared = 0;
  const auto same = [&](std::uint32_t field, float decoded, float published) {
    if ((payload.carries & field) == 0) return;
    EXPECT_EQ(decoded, published) << "field bit " << field;
    ++compared;
  };
  same(kReflectivity, payload.reflectivity, echo.refl_proc);
  same(kCogh, payload.cogh, echo.cogh);
  same(kShotRatio, payload.shot_ratio, 1.2F);  // truncated to tenths
  same(kShotTimes, payload.shot_times, 192.0F);
  same(kGround, payload.ground ? 1.0F : 0.0F, echo.ground ? 1.0F : 0.0F);
  same(kPixelWord, payload.pixel_word, point.pixel_word22);
  same(kNoise, payload.noise, echo.noise);
  same(kCogw, payload.cogw, echo.cogw);
  same(kPeak, payload.peak, echo.peak);
  same(kWaveformRms, payload.waveform_rms_ratio, echo.waveform_rms_ratio);
  same(kPeakAddr, payload.peak_addr, static_cast<float>(echo.peak_addr));
  if ((payload.carries & kFlags) != 0) {
    EXPECT_EQ(payload.cogw_flag, echo.cogw_flag);
    EXPECT_EQ(payload.high_refl, echo.highRefl);
    EXPECT_EQ(payload.bloom, echo.highReflBlooming);
    EXPECT_EQ(payload.after_pulse, echo.afterPulse);
    EXPECT_EQ(payload.filled, echo.fill_point);
    EXPECT_EQ(payload.shot_noise, echo.shot_noise_point);
    EXPECT_EQ(payload.echo_flag, echo.echo_flags == 1);
    EXPECT_EQ(payload.detect_failed, !echo.detect_pass);
    EXPECT_EQ(payload.shot_noise_group, echo.shot_noise_group_point);
  }
  EXPECT_GT(compared, 0);
  return compared;
}

TEST_F(PublishedPacket, EveryModeIsReadBackFromBothEchoes) {
  int packets = 0;
  int fields = 0;
  for (const int mode : {0, 1, 3, 4, 5, 6, 9, 11, 12, 2}) {
    for (const int block : {0, 47, 48 * 17 + 5, 1727}) {
      for (const int slot : {0, 1}) {
        const PointPacketView view =
            Encode(block, slot, mode, 12, static_cast<std::uint8_t>(1 + slot));
        EXPECT_EQ(view.Block(), block);
        EXPECT_EQ(view.Echo(), slot);
        EXPECT_EQ(view.EchoCount(), 2);
        EXPECT_EQ(view.Mode(), mode);
        EXPECT_EQ(view.FrameId(), 77);
        EXPECT_EQ(view.ReturnCode(), 12);
        ++packets;
        for (int i = 0; i < 36; ++i) {
          const PacketPoint from = view.Point(i);
          const LidarPoint& point = PointAt(from.row, from.col);
          const LidarEcho& echo = point.echoes[slot];
          ASSERT_NEAR(from.distance * 0.004, echo.dist_proc, 0.0041);
          fields += CheckPayload(DecodePointPayload(mode, from.payload), point, echo);
        }
      }
    }
  }
  EXPECT_EQ(packets, 10 * 4 * 2);
  EXPECT_GT(fields, packets * 36);
}

TEST_F(PublishedPacket, DirectionsOfModeTenAreReadBackWithinAStep) {
  parser_.angle_grid.rows = 216;
  parser_.angle_grid.cols = 288;
  parser_.angle_grid.valid = true;
  parser_.angle_grid.xyz.resize(3 * 216 * 288);
  for (std::size_t i = 0; i < parser_.angle_grid.xyz.size(); ++i) {
    parser_.angle_grid.xyz[i] = static_cast<float>(i % 2001) / 1000.0F - 1.0F;
  }
  const PointPacketView view = Encode(100, 0, 10, 1, 0);
  int compared = 0;
  for (int i = 0; i < 36; ++i) {
    const PacketPoint from = view.Point(i);
    const PointPayload payload = DecodePointPayload(10, from.payload);
    for (int k = 0; k < 3; ++k) {
      ASSERT_NEAR(payload.direction[k], parser_.angle_grid.At(k, from.row, from.col),
                  0.5 / 127.5 + 1e-6);
      ++compared;
    }
  }
  EXPECT_EQ(compared, 108);
}

TEST_F(PublishedPacket, TheTimeStampIsThatOfTheEncoding) {
  const auto now_us = [] {
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
  };
  const std::int64_t before = now_us();
  const PointPacketView view = Encode(0, 0, 0, 1, 0);
  EXPECT_GE(view.TimestampUs(), before);
  EXPECT_LE(view.TimestampUs(), now_us());
}

TEST_F(PublishedPacket, WholeFramesOfBothPlansAreCollectedAcrossTheSequence) {
  FrameCollector collector;
  parser_.udp_seq_base = 0xFFFFFFFF - 2000;  // wraps in the course of the frames
  std::uint64_t complete = 0;
  for (const int echoes : {1, 1, 2, 2, 1}) {
    for (int block = 0; block < 1728; ++block) {
      for (int slot = 0; slot < echoes; ++slot) {
        const auto marker = static_cast<std::uint8_t>(echoes == 1 ? 0 : 1 + slot);
        const CollectedFrame* out = collector.Add(Encode(block, slot, 0, 1, marker));
        complete += out != nullptr && out->IsComplete();
      }
    }
  }
  // The same frame id all the time: the sequence base tells the frames apart.
  EXPECT_EQ(complete, 5U);
  EXPECT_EQ(collector.Statistics().complete, 5U);
  EXPECT_EQ(collector.Statistics().incomplete, 0U);
  EXPECT_EQ(collector.Statistics().duplicates + collector.Statistics().late, 0U);
}

}  // namespace
}  // namespace kerul::lidar
