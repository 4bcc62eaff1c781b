#include "kerul_lidar/kerul_lidar.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "kerul_lidar/directions.h"
#include "kerul_lidar/frame_stream.h"
#include "kerul_lidar/mounting.h"

using namespace kerul::lidar;

static_assert(KERUL_LIDAR_ECHOES == kMaxEchoes && KERUL_LIDAR_ROWS == kFrameRows &&
              KERUL_LIDAR_COLS == kFrameCols);
static_assert(KERUL_LIDAR_FLAG_GROUND == 1 << point_flag::kGround &&
              KERUL_LIDAR_FLAG_SHOT_NOISE_GROUP == 1 << point_flag::kShotNoiseGroup);

struct kerul_lidar_stream {
  explicit kerul_lidar_stream(const char* ring = "", RingStart start = RingStart::kNewest)
      : stream(ring, start) {}

  FrameStream stream;
  std::string stopped;  // what was being read, once it was let go of
  kerul_lidar_frame frame{};
  std::vector<std::uint8_t> ground = std::vector<std::uint8_t>(KERUL_LIDAR_PLACES);
  std::vector<std::uint8_t> valid = std::vector<std::uint8_t>(KERUL_LIDAR_PLACES);
  std::atomic_flag busy;
};

struct kerul_lidar_calibration {
  Directions directions;
  std::optional<TransformParam> mount;
};

namespace {

// A fixed place, so that telling of a failure cannot fail.
thread_local char last_error[512] = "";

void CopyText(const char* from, char* to, std::size_t size) noexcept {
  const std::size_t length = std::min(std::strlen(from), size - 1);
  std::memcpy(to, from, length);
  to[length] = '\0';
}

int Fail(int result, const char* text) noexcept {
  CopyText(text, last_error, sizeof last_error);
  return result;
}

int Invalid(const char* text) noexcept { return Fail(KERUL_LIDAR_INVALID_ARGUMENT, text); }

// Runs `body` and lets no exception out.
template <typename Body>
int Guarded(const Body& body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return Fail(KERUL_LIDAR_OUT_OF_MEMORY, "out of memory");
  } catch (const std::exception& error) {
    return Fail(KERUL_LIDAR_INTERNAL_ERROR, error.what());
  } catch (...) {
    return Fail(KERUL_LIDAR_INTERNAL_ERROR, "unknown exception");
  }
}

// The same for a stream, which no other thread may be using.
template <typename Body>
int GuardedBy(kerul_lidar_stream* stream, const Body& body) noexcept {
  if (stream == nullptr) return Invalid("stream is null");
  if (stream->busy.test_and_set(std::memory_order_acquire)) {
    return Fail(KERUL_LIDAR_BUSY, "another thread is using this stream");
  }
  const int result = Guarded(body);
  stream->busy.clear(std::memory_order_release);
  return result;
}

void SetGroundAndValid(const Frame& frame, kerul_lidar_stream& to) {
  for (std::size_t i = 0; i < KERUL_LIDAR_PLACES; ++i) {
    to.ground[i] = static_cast<std::uint8_t>((frame.flags[i] >> point_flag::kGround) & 1);
    to.valid[i] = static_cast<std::uint8_t>(frame.range_m[i] > 0.0F);
  }
}

void ShowFrame(const Frame& frame, kerul_lidar_stream& to) {
  SetGroundAndValid(frame, to);
  to.frame = {.id = frame.id,
              .echoes = frame.echoes,
              .return_code = frame.return_code,
              .output_mode = frame.output_mode,
              .known_flags = frame.known_flags,
              .missing_blocks = frame.missing_blocks,
              .missing_frames = frame.missing_frames,
              .after_restart = frame.after_restart ? 1 : 0,
              .lost_packets = frame.lost_packets,
              .first_timestamp_us = frame.first_timestamp_us,
              .last_timestamp_us = frame.last_timestamp_us,
              .range_m = frame.range_m.data(),
              .reflectivity = frame.reflectivity.data(),
              .flags = frame.flags.data(),
              .ground = to.ground.data(),
              .valid = to.valid.data(),
              .payload = frame.payload.data(),
              .row_timestamp_us = frame.row_timestamp_us.data()};
}

}  // namespace

const char* kerul_lidar_version(void) { return KERUL_LIDAR_VERSION; }

const char* kerul_lidar_result_text(int result) {
  static const char* const kTexts[] = {"ok",
                                       "no frame",
                                       "no more frames",
                                       "invalid argument",
                                       "cannot open",
                                       "cannot use the calibration",
                                       "in use by another thread",
                                       "out of memory",
                                       "internal error"};
  if (result < 0 || result > KERUL_LIDAR_INTERNAL_ERROR) return "unknown result";
  return kTexts[result];
}

const char* kerul_lidar_last_error(void) { return last_error; }

int kerul_lidar_open_ring(const char* name, int start, kerul_lidar_stream** stream) {
  if (stream == nullptr) return Invalid("stream is null");
  if (start != KERUL_LIDAR_NEWEST && start != KERUL_LIDAR_OLDEST) {
    return Invalid("start is neither KERUL_LIDAR_NEWEST nor KERUL_LIDAR_OLDEST");
  }
  return Guarded([&] {
    const RingStart begin = start == KERUL_LIDAR_OLDEST ? RingStart::kOldest : RingStart::kNewest;
    *stream = new kerul_lidar_stream(name == nullptr ? "" : name, begin);
    return KERUL_LIDAR_OK;
  });
}

int kerul_lidar_open_udp(uint16_t port, const char* group, kerul_lidar_stream** stream) {
  if (stream == nullptr) return Invalid("stream is null");
  return Guarded([&] {
    auto opened = std::make_unique<kerul_lidar_stream>();
    if (!opened->stream.OpenUdp(port, group == nullptr ? "" : group)) {
      return Fail(KERUL_LIDAR_CANNOT_OPEN, opened->stream.Error().c_str());
    }
    *stream = opened.release();
    return int{KERUL_LIDAR_OK};
  });
}

int kerul_lidar_open_pipe(int fd, kerul_lidar_stream** stream) {
  if (stream == nullptr) return Invalid("stream is null");
  if (fd < 0) return Invalid("the descriptor is negative");
  return Guarded([&] {
    auto opened = std::make_unique<kerul_lidar_stream>();
    opened->stream.OpenPipe(fd);
    *stream = opened.release();
    return KERUL_LIDAR_OK;
  });
}

int kerul_lidar_survive_shortening(kerul_lidar_stream* stream) {
  return GuardedBy(stream, [&] {
    stream->stream.SurviveShortening();
    return KERUL_LIDAR_OK;
  });
}

int kerul_lidar_next(kerul_lidar_stream* stream, int32_t timeout_ms,
                     const kerul_lidar_frame** frame) {
  if (frame == nullptr) return Invalid("frame is null");
  if (timeout_ms < 0) return Invalid("the timeout is negative");
  return GuardedBy(stream, [&]() -> int {
    const Frame* next = stream->stream.Next(std::chrono::milliseconds(timeout_ms));
    if (next == nullptr) {
      return stream->stream.Ended() ? KERUL_LIDAR_ENDED : KERUL_LIDAR_NO_FRAME;
    }
    ShowFrame(*next, *stream);
    *frame = &stream->frame;
    return KERUL_LIDAR_OK;
  });
}

int kerul_lidar_get_counts(kerul_lidar_stream* stream, kerul_lidar_counts* counts, size_t size) {
  if (counts == nullptr) return Invalid("counts is null");
  return GuardedBy(stream, [&] {
    const FrameStreamCounts& now = stream->stream.Counts();
    const kerul_lidar_counts all{.complete = now.complete,
                                 .incomplete = now.incomplete,
                                 .missing_frames = now.missing_frames,
                                 .packets = now.packets,
                                 .invalid = now.invalid,
                                 .lost_packets = now.lost_packets,
                                 .restarts = now.restarts};
    std::memcpy(counts, &all, std::min(size, sizeof all));
    return KERUL_LIDAR_OK;
  });
}

int kerul_lidar_describe(kerul_lidar_stream* stream, char* text, size_t size) {
  if (text == nullptr || size == 0) return Invalid("no room for the text");
  return GuardedBy(stream, [&] {
    const std::string& stopped = stream->stopped;
    CopyText((stopped.empty() ? stream->stream.Describe() : stopped).c_str(), text, size);
    return KERUL_LIDAR_OK;
  });
}

int kerul_lidar_stop(kerul_lidar_stream* stream) {
  return GuardedBy(stream, [&] {
    if (stream->stopped.empty()) stream->stopped = stream->stream.Describe() + " (stopped)";
    stream->stream.Close();
    return KERUL_LIDAR_OK;
  });
}

int kerul_lidar_close(kerul_lidar_stream* stream) {
  if (stream == nullptr) return KERUL_LIDAR_OK;
  if (stream->busy.test_and_set(std::memory_order_acquire)) {
    return Fail(KERUL_LIDAR_BUSY, "another thread is using this stream");
  }
  delete stream;
  return KERUL_LIDAR_OK;
}

int kerul_lidar_load_calibration(const char* directory, kerul_lidar_calibration** calibration) {
  if (directory == nullptr) return Invalid("directory is null");
  if (calibration == nullptr) return Invalid("calibration is null");
  return Guarded([&] {
    auto loaded = std::make_unique<kerul_lidar_calibration>();
    std::string error;
    if (!LoadDirections(directory, loaded->directions, error)) {
      return Fail(KERUL_LIDAR_CANNOT_CALIBRATE, error.c_str());
    }
    *calibration = loaded.release();
    return int{KERUL_LIDAR_OK};
  });
}

int kerul_lidar_set_mount(kerul_lidar_calibration* calibration, const double mount[6]) {
  if (calibration == nullptr) return Invalid("calibration is null");
  if (mount == nullptr) return Invalid("mount is null");
  if (!std::all_of(mount, mount + 6, [](double value) { return std::isfinite(value); })) {
    return Invalid("the mounting is not finite");
  }
  calibration->mount = TransformParam{.x = mount[0],
                                      .y = mount[1],
                                      .z = mount[2],
                                      .roll = mount[3],
                                      .pitch = mount[4],
                                      .yaw = mount[5]};
  ComputeRotation(*calibration->mount);
  return KERUL_LIDAR_OK;
}

int kerul_lidar_points(const kerul_lidar_calibration* calibration, const float* range_m,
                       float* xyz_m) {
  if (calibration == nullptr) return Invalid("calibration is null");
  if (range_m == nullptr) return Invalid("range_m is null");
  if (xyz_m == nullptr) return Invalid("xyz_m is null");
  const std::vector<Point3>& unit = calibration->directions.unit;
  const TransformParam* mount = calibration->mount ? &*calibration->mount : nullptr;
  for (std::size_t i = 0; i < KERUL_LIDAR_PLACES; ++i) {
    const Point3 point = PointAt(range_m[i], unit[i % unit.size()], mount);
    std::copy(point.begin(), point.end(), xyz_m + 3 * i);
  }
  return KERUL_LIDAR_OK;
}

int kerul_lidar_free_calibration(kerul_lidar_calibration* calibration) {
  delete calibration;
  return KERUL_LIDAR_OK;
}
