#include "kerul_lidar/kerul_lidar.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cmath>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "c_interface/failing_new.h"
#include "client/loopback_sender.h"
#include "client/plain_angle_record.h"
#include "client/point_packet_by_hand.h"
#include "output/shm_test_name.h"
#include "output/shm_udp_writer.h"
#include "support/temp_dir.h"

namespace kerul::lidar::testing {
namespace {

constexpr std::size_t kAhead = 108 * 288 + 144;  // the plain record's axis; point 0 of its block
constexpr int kLong = 60'000;

// A ring that the test writes, and a stream that reads it from its beginning.
class CInterface : public ::testing::Test {
 protected:
  CInterface() : writer_(name_.c_str(), 20 + 8192 * 1508) {
    EXPECT_TRUE(writer_.Open());
    EXPECT_EQ(kerul_lidar_open_ring(name_.c_str(), KERUL_LIDAR_OLDEST, &stream_), KERUL_LIDAR_OK);
  }
  ~CInterface() override { EXPECT_EQ(kerul_lidar_close(stream_), KERUL_LIDAR_OK); }

  // A frame of one echo, all points from `distance` units on, in mode 12 with these flags.
  void Write(int id, int distance = 250, std::uint16_t flags = 0, int blocks = 1728) {
    PacketFields fields;
    fields.frame_id = id;
    fields.mode = 12;
    fields.sequence_base = static_cast<std::uint32_t>(1728 * id);
    fields.distance = distance;
    fields.payload = {80, static_cast<std::uint8_t>(flags & 0xFF),
                      static_cast<std::uint8_t>(flags >> 8)};
    for (fields.block = 0; fields.block < blocks; ++fields.block) {
      writer_.WriteOne(MakePacket(fields).data(), 249);
    }
  }
  const kerul_lidar_frame* Next() {
    const kerul_lidar_frame* frame = nullptr;
    EXPECT_EQ(kerul_lidar_next(stream_, 0, &frame), KERUL_LIDAR_OK) << kerul_lidar_last_error();
    return frame;
  }

  ShmTestName name_;
  ShmUdpWriter writer_;
  kerul_lidar_stream* stream_ = nullptr;
};

TEST_F(CInterface, AFrameShowsItsPlanesItsIdentityAndWhatIsMissing) {
  Write(7);
  Write(9, 0, 0x1FFF);
  const kerul_lidar_frame* frame = Next();
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(frame->id, 7);
  EXPECT_EQ(frame->echoes, 1);
  EXPECT_EQ(frame->return_code, 1);
  EXPECT_EQ(frame->output_mode, 12);
  EXPECT_EQ(frame->known_flags, 0x1FFFU);
  EXPECT_EQ(frame->first_timestamp_us, 1'700'000'000'250'000);
  EXPECT_EQ(frame->last_timestamp_us, 1'700'000'000'250'000);
  EXPECT_EQ(frame->missing_blocks + frame->missing_frames + frame->after_restart, 0);
  EXPECT_EQ(frame->lost_packets, 0U);
  // Row 1 of a block's first column is its point 1: 251 units of 4 mm.
  EXPECT_EQ(frame->range_m[288], 1.004F);
  EXPECT_EQ(frame->reflectivity[288], 80);
  EXPECT_EQ(frame->flags[288], 0);
  EXPECT_EQ(frame->ground[288], 0);
  EXPECT_EQ(frame->valid[288], 1);
  EXPECT_EQ(frame->payload[3 * 288], 80);
  EXPECT_EQ(frame->row_timestamp_us[0], 1'700'000'000'250'000);
  EXPECT_EQ(frame->row_timestamp_us[35], 1'700'000'000'250'000);
  EXPECT_EQ(frame->valid[216 * 288], 0) << "no second echo is published";

  frame = Next();
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(frame->id, 9);
  EXPECT_EQ(frame->missing_frames, 1);
  EXPECT_EQ(frame->flags[288], 0x1FFF);
  EXPECT_EQ(frame->ground[288], 1);
  EXPECT_EQ(frame->valid[0], 0) << "distance 0";
  EXPECT_EQ(frame->valid[288], 1);
}

TEST_F(CInterface, ThePlanesOfAStreamStayWhereTheyAre) {
  Write(7);
  Write(8, 500);
  const kerul_lidar_frame before = *Next();
  EXPECT_EQ(before.range_m[0], 1.0F);
  const kerul_lidar_frame* after = Next();
  EXPECT_EQ(after->range_m, before.range_m);
  EXPECT_EQ(after->ground, before.ground);
  EXPECT_EQ(before.range_m[0], 2.0F) << "the same memory with the next frame's values";
}

TEST_F(CInterface, NoFrameInTimeIsNoFailure) {
  const kerul_lidar_frame* frame = nullptr;
  EXPECT_EQ(kerul_lidar_next(stream_, 20, &frame), KERUL_LIDAR_NO_FRAME);
  EXPECT_EQ(frame, nullptr);
}

TEST_F(CInterface, AStoppedStreamKeepsItsFrameAndItsCounts) {
  Write(7);
  const kerul_lidar_frame* frame = Next();
  EXPECT_EQ(kerul_lidar_stop(stream_), KERUL_LIDAR_OK);
  EXPECT_EQ(kerul_lidar_stop(stream_), KERUL_LIDAR_OK) << "twice is as good as once";
  const kerul_lidar_frame* none = nullptr;
  EXPECT_EQ(kerul_lidar_next(stream_, kLong, &none), KERUL_LIDAR_ENDED);
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(frame->range_m[0], 1.0F);
  kerul_lidar_counts counts{};
  EXPECT_EQ(kerul_lidar_get_counts(stream_, &counts, sizeof counts), KERUL_LIDAR_OK);
  EXPECT_EQ(counts.complete, 1U);
  char text[100];
  EXPECT_EQ(kerul_lidar_describe(stream_, text, sizeof text), KERUL_LIDAR_OK);
  EXPECT_EQ(text, "ring " + name_.str() + " (stopped)");
}

TEST_F(CInterface, CountsFillNoMoreThanTheCallersRecord) {
  Write(7);
  Write(10, 250, 0, 1727);
  Write(11);
  for (int i = 0; i < 3; ++i) Next();
  std::array<std::uint64_t, 8> words{};
  words.fill(99);
  EXPECT_EQ(kerul_lidar_get_counts(stream_, reinterpret_cast<kerul_lidar_counts*>(words.data()),
                                   3 * sizeof(std::uint64_t)),
            KERUL_LIDAR_OK);
  EXPECT_EQ(words, (std::array<std::uint64_t, 8>{2, 1, 2, 99, 99, 99, 99, 99}));
  EXPECT_EQ(kerul_lidar_get_counts(stream_, reinterpret_cast<kerul_lidar_counts*>(words.data()),
                                   sizeof words),
            KERUL_LIDAR_OK);
  EXPECT_EQ(words, (std::array<std::uint64_t, 8>{2, 1, 2, 5183, 0, 0, 0, 99}));
}

TEST_F(CInterface, ADescriptionIsCutToItsRoom) {
  char text[8];
  EXPECT_EQ(kerul_lidar_describe(stream_, text, sizeof text), KERUL_LIDAR_OK);
  EXPECT_STREQ(text, "ring /k");
}

TEST_F(CInterface, ASecondThreadIsRefusedWhileTheFirstWaits) {
  std::atomic<int> waited{-1};
  std::thread first([&] {
    const kerul_lidar_frame* frame = nullptr;
    for (int tries = 0; tries < 1000 && (waited == -1 || waited == KERUL_LIDAR_BUSY); ++tries) {
      waited = kerul_lidar_next(stream_, kLong, &frame);  // busy where it met the other's look
    }
  });
  char text[100];
  int looked = KERUL_LIDAR_OK;
  for (int tries = 0; tries < 10'000 && looked != KERUL_LIDAR_BUSY; ++tries) {
    usleep(1000);
    looked = kerul_lidar_describe(stream_, text, sizeof text);
  }
  EXPECT_EQ(looked, KERUL_LIDAR_BUSY);
  EXPECT_STREQ(kerul_lidar_last_error(), "another thread is using this stream");
  const kerul_lidar_frame* frame = nullptr;
  kerul_lidar_counts counts{};
  EXPECT_EQ(kerul_lidar_next(stream_, 0, &frame), KERUL_LIDAR_BUSY);
  EXPECT_EQ(kerul_lidar_get_counts(stream_, &counts, sizeof counts), KERUL_LIDAR_BUSY);
  EXPECT_EQ(kerul_lidar_stop(stream_), KERUL_LIDAR_BUSY);
  EXPECT_EQ(kerul_lidar_close(stream_), KERUL_LIDAR_BUSY);
  Write(7);
  first.join();
  EXPECT_EQ(waited, KERUL_LIDAR_OK);
  EXPECT_EQ(kerul_lidar_describe(stream_, text, sizeof text), KERUL_LIDAR_OK);
}

TEST_F(CInterface, ArgumentsThatMakeNoSenseAreRefusedWithAText) {
  kerul_lidar_stream* none = nullptr;
  const kerul_lidar_frame* frame = nullptr;
  kerul_lidar_counts counts{};
  char text[10];
  const auto refused = [](int result, const char* why) {
    EXPECT_EQ(result, KERUL_LIDAR_INVALID_ARGUMENT) << why;
    EXPECT_STREQ(kerul_lidar_last_error(), why);
  };
  refused(kerul_lidar_open_ring("a", KERUL_LIDAR_NEWEST, nullptr), "stream is null");
  refused(kerul_lidar_open_ring("a", 2, &none),
          "start is neither KERUL_LIDAR_NEWEST nor KERUL_LIDAR_OLDEST");
  refused(kerul_lidar_open_udp(1, nullptr, nullptr), "stream is null");
  refused(kerul_lidar_open_pipe(0, nullptr), "stream is null");
  refused(kerul_lidar_open_pipe(-1, &none), "the descriptor is negative");
  refused(kerul_lidar_survive_shortening(nullptr), "stream is null");
  refused(kerul_lidar_next(nullptr, 0, &frame), "stream is null");
  refused(kerul_lidar_next(stream_, -1, &frame), "the timeout is negative");
  refused(kerul_lidar_next(stream_, 0, nullptr), "frame is null");
  refused(kerul_lidar_get_counts(nullptr, &counts, sizeof counts), "stream is null");
  refused(kerul_lidar_get_counts(stream_, nullptr, sizeof counts), "counts is null");
  refused(kerul_lidar_describe(nullptr, text, sizeof text), "stream is null");
  refused(kerul_lidar_describe(stream_, nullptr, sizeof text), "no room for the text");
  refused(kerul_lidar_describe(stream_, text, 0), "no room for the text");
  refused(kerul_lidar_stop(nullptr), "stream is null");
  EXPECT_EQ(kerul_lidar_close(nullptr), KERUL_LIDAR_OK);
  EXPECT_EQ(kerul_lidar_free_calibration(nullptr), KERUL_LIDAR_OK);
  EXPECT_EQ(none, nullptr);
}

TEST_F(CInterface, MemoryThatRunsOutIsAResultAndNoException) {
  int failures = 0;
  for (int successes = 0;; ++successes) {
    kerul_lidar_stream* stream = nullptr;
    int result = KERUL_LIDAR_OK;
    bool struck = false;
    {
      const FailingNew failing(successes);
      result = kerul_lidar_open_ring(name_.c_str(), KERUL_LIDAR_OLDEST, &stream);
      struck = failing.Struck();
    }
    EXPECT_EQ(kerul_lidar_close(stream), KERUL_LIDAR_OK);
    if (!struck) break;
    ++failures;
    EXPECT_EQ(result, KERUL_LIDAR_OUT_OF_MEMORY);
    EXPECT_EQ(stream, nullptr);
    EXPECT_STREQ(kerul_lidar_last_error(), "out of memory");
  }
  EXPECT_GT(failures, 5);
}

TEST_F(CInterface, AStreamGoesOnWhenThereIsMemoryAgain) {
  Write(7);
  int failures = 0;
  for (bool struck = true; struck; ++failures) {
    kerul_lidar_stream* stream = nullptr;
    ASSERT_EQ(kerul_lidar_open_ring(name_.c_str(), KERUL_LIDAR_OLDEST, &stream), KERUL_LIDAR_OK);
    const kerul_lidar_frame* frame = nullptr;
    int result = KERUL_LIDAR_OK;
    {
      const FailingNew failing(failures);
      result = kerul_lidar_next(stream, 0, &frame);
      struck = failing.Struck();
    }
    EXPECT_EQ(result, struck ? KERUL_LIDAR_OUT_OF_MEMORY : KERUL_LIDAR_OK);
    if (struck) result = kerul_lidar_next(stream, kLong, &frame);
    ASSERT_EQ(result, KERUL_LIDAR_OK);
    EXPECT_EQ(frame->id, 7);
    EXPECT_EQ(kerul_lidar_close(stream), KERUL_LIDAR_OK);
  }
  EXPECT_GT(failures, 1);
}

TEST_F(CInterface, TextsAreThereForEveryResult) {
  for (int result = KERUL_LIDAR_OK; result <= KERUL_LIDAR_INTERNAL_ERROR; ++result) {
    EXPECT_STRNE(kerul_lidar_result_text(result), "unknown result") << result;
  }
  EXPECT_STREQ(kerul_lidar_result_text(KERUL_LIDAR_INTERNAL_ERROR), "internal error");
  EXPECT_STREQ(kerul_lidar_result_text(9), "unknown result");
  EXPECT_STREQ(kerul_lidar_result_text(-1), "unknown result");
  EXPECT_STREQ(kerul_lidar_version(), KERUL_TEST_VERSION);
}

TEST_F(CInterface, AFailureIsToldToItsOwnThread) {
  kerul_lidar_next(nullptr, 0, nullptr);
  const std::string mine = kerul_lidar_last_error();
  std::string others = "unset";
  std::thread([&] { others = kerul_lidar_last_error(); }).join();
  EXPECT_EQ(mine, "frame is null");
  EXPECT_EQ(others, "");
}

// --- other ways in ---

TEST(CInterfaceUdp, DatagramsAreTakenAndATakenPortIsRefused) {
  kerul_lidar_stream* stream = nullptr;
  ASSERT_EQ(kerul_lidar_open_udp(0, nullptr, &stream), KERUL_LIDAR_OK);
  char text[100];
  ASSERT_EQ(kerul_lidar_describe(stream, text, sizeof text), KERUL_LIDAR_OK);
  ASSERT_EQ(std::strncmp(text, "UDP port ", 9), 0) << text;
  const auto port = static_cast<std::uint16_t>(std::stoi(text + 9));
  const LoopbackSender sender(port);
  PacketFields fields;
  sender.Send(MakePacket(fields));
  fields.frame_id = 1;
  sender.Send(MakePacket(fields));
  const kerul_lidar_frame* frame = nullptr;
  ASSERT_EQ(kerul_lidar_next(stream, kLong, &frame), KERUL_LIDAR_OK);
  EXPECT_EQ(frame->missing_blocks, 1727);

  kerul_lidar_stream* second = nullptr;
  EXPECT_EQ(kerul_lidar_open_udp(port, nullptr, &second), KERUL_LIDAR_CANNOT_OPEN);
  EXPECT_STREQ(kerul_lidar_last_error(), "bind: Address already in use");
  EXPECT_EQ(kerul_lidar_open_udp(0, "nonsense", &second), KERUL_LIDAR_CANNOT_OPEN);
  EXPECT_STREQ(kerul_lidar_last_error(), "multicast group: Invalid argument");
  EXPECT_EQ(second, nullptr);
  EXPECT_EQ(kerul_lidar_stop(stream), KERUL_LIDAR_OK);
  EXPECT_EQ(kerul_lidar_open_udp(port, "", &second), KERUL_LIDAR_OK) << "stopped: the port is free";
  EXPECT_EQ(kerul_lidar_close(second), KERUL_LIDAR_OK);
  EXPECT_EQ(kerul_lidar_close(stream), KERUL_LIDAR_OK);
}

TEST(CInterfacePipe, ItsEndGivesTheLastFrameAndThenEnded) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  kerul_lidar_stream* stream = nullptr;
  ASSERT_EQ(kerul_lidar_open_pipe(ends[0], &stream), KERUL_LIDAR_OK);
  const PacketBytes bytes = MakePacket({});
  ASSERT_EQ(write(ends[1], bytes.data(), bytes.size()), 249);
  close(ends[1]);
  const kerul_lidar_frame* frame = nullptr;
  EXPECT_EQ(kerul_lidar_next(stream, kLong, &frame), KERUL_LIDAR_OK);
  EXPECT_EQ(kerul_lidar_next(stream, kLong, &frame), KERUL_LIDAR_ENDED);
  EXPECT_EQ(kerul_lidar_close(stream), KERUL_LIDAR_OK);
  EXPECT_EQ(close(ends[0]), 0) << "the descriptor is the caller's";
}

// --- points ---

class CCalibration : public ::testing::Test {
 protected:
  CCalibration() {
    std::ofstream file(directory_.path() / "Lidar-1_angle_calib.dat", std::ios::binary);
    const std::vector<std::uint8_t> bytes = BytesOf(PlainRecord());
    file.write(reinterpret_cast<const char*>(bytes.data()), 78);
  }
  ~CCalibration() override { kerul_lidar_free_calibration(calibration_); }
  void Load() {
    ASSERT_EQ(kerul_lidar_load_calibration(directory_.path().c_str(), &calibration_),
              KERUL_LIDAR_OK);
  }

  TempDir directory_;
  kerul_lidar_calibration* calibration_ = nullptr;
  std::vector<float> range_m_ = std::vector<float>(KERUL_LIDAR_PLACES);
  std::vector<float> xyz_m_ = std::vector<float>(3 * KERUL_LIDAR_PLACES, 99.0F);
};

TEST_F(CCalibration, ARangeBecomesAPointInBothEchoes) {
  Load();
  const std::size_t second = 216 * 288 + kAhead;
  range_m_[kAhead] = 2.0F;
  range_m_[second + 100] = 10.0F;
  ASSERT_EQ(kerul_lidar_points(calibration_, range_m_.data(), xyz_m_.data()), KERUL_LIDAR_OK);
  EXPECT_EQ(xyz_m_[3 * kAhead], 2.0F);
  EXPECT_EQ(xyz_m_[3 * kAhead + 1], 0.0F);
  EXPECT_EQ(xyz_m_[3 * kAhead + 2], 0.0F);
  // 100 columns to the right at 2 / 340 rad each.
  EXPECT_NEAR(xyz_m_[3 * (second + 100)], 10 * std::cos(200.0 / 340.0), 0.01);
  EXPECT_NEAR(xyz_m_[3 * (second + 100) + 1], -10 * std::sin(200.0 / 340.0), 0.01);
  EXPECT_TRUE(std::isnan(xyz_m_[0])) << "no return";
  EXPECT_TRUE(std::isnan(xyz_m_[3 * second + 2]));
}

TEST_F(CCalibration, TheMountingTurnsAndMovesThePoints) {
  Load();
  const std::array<double, 6> mount{0.5, 0.0, 2.0, 0.0, 0.0, std::acos(0.0)};
  ASSERT_EQ(kerul_lidar_set_mount(calibration_, mount.data()), KERUL_LIDAR_OK);
  range_m_[kAhead] = 2.0F;
  ASSERT_EQ(kerul_lidar_points(calibration_, range_m_.data(), xyz_m_.data()), KERUL_LIDAR_OK);
  EXPECT_NEAR(xyz_m_[3 * kAhead], 0.5F, 1e-6);
  EXPECT_NEAR(xyz_m_[3 * kAhead + 1], 2.0F, 1e-6);
  EXPECT_NEAR(xyz_m_[3 * kAhead + 2], 2.0F, 1e-6);
}

TEST_F(CCalibration, WhatIsNoneIsRefusedWithTheReason) {
  EXPECT_EQ(kerul_lidar_load_calibration("/nowhere", &calibration_), KERUL_LIDAR_CANNOT_CALIBRATE);
  EXPECT_STREQ(kerul_lidar_last_error(),
               "no Lidar-*_angle_calib.dat and no *_head.bin in /nowhere");
  EXPECT_EQ(calibration_, nullptr);
  EXPECT_EQ(kerul_lidar_load_calibration(nullptr, &calibration_), KERUL_LIDAR_INVALID_ARGUMENT);
  EXPECT_EQ(kerul_lidar_load_calibration("/nowhere", nullptr), KERUL_LIDAR_INVALID_ARGUMENT);
  Load();
  const std::array<double, 6> endless{0.0, 0.0, 0.0, 0.0, 0.0, INFINITY};
  EXPECT_EQ(kerul_lidar_set_mount(calibration_, endless.data()), KERUL_LIDAR_INVALID_ARGUMENT);
  EXPECT_STREQ(kerul_lidar_last_error(), "the mounting is not finite");
  EXPECT_EQ(kerul_lidar_set_mount(calibration_, nullptr), KERUL_LIDAR_INVALID_ARGUMENT);
  EXPECT_EQ(kerul_lidar_set_mount(nullptr, endless.data()), KERUL_LIDAR_INVALID_ARGUMENT);
  float* const xyz = xyz_m_.data();
  EXPECT_EQ(kerul_lidar_points(nullptr, range_m_.data(), xyz), KERUL_LIDAR_INVALID_ARGUMENT);
  EXPECT_EQ(kerul_lidar_points(calibration_, nullptr, xyz), KERUL_LIDAR_INVALID_ARGUMENT);
  EXPECT_EQ(kerul_lidar_points(calibration_, range_m_.data(), nullptr),
            KERUL_LIDAR_INVALID_ARGUMENT);
  EXPECT_EQ(xyz_m_[0], 99.0F);
}

}  // namespace
}  // namespace kerul::lidar::testing
