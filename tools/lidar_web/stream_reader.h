// Reads the node's stream on a thread of its own and keeps the newest frame, encoded once.
#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "kerul_lidar/frame_stream.h"
#include "lidar_web/figures.h"
#include "lidar_web/frame_message.h"
#include "lidar_web/rate_window.h"

namespace kerul::lidar::web {

struct StreamSource {
  std::string shm_name;  // empty: the default ring
  int udp_port = 0;      // 0: the ring
  std::string multicast_group;
};

// The newest frame, complete or not, and the newest complete one; null while there is none. The
// frames are shared with the reader of this record only: the stream's thread has let go of them.
struct NewestFrames {
  std::shared_ptr<FrameMessage> any;
  std::shared_ptr<FrameMessage> complete;
};

class StreamReader {
 public:
  // `room_before` as for EncodeFrame. `on_frame` is called on the reader's thread.
  StreamReader(std::size_t room_before, std::function<void()> on_frame)
      : room_before_(room_before), on_frame_(std::move(on_frame)) {}
  ~StreamReader();

  // Opens the source. False with the reason in `error`.
  bool Open(const StreamSource& source, std::string& error);
  void Start();

  NewestFrames Newest() const;
  StreamFigures Figures() const;

 private:
  void Run();
  void Take(const Frame& frame);
  void UpdateFigures();
  bool RingIsThere() const;

  std::size_t room_before_;
  std::function<void()> on_frame_;
  std::string ring_path_;  // of the object; empty by UDP
  std::unique_ptr<FrameStream> stream_;
  std::thread thread_;
  std::atomic<bool> stop_{false};

  // The thread's own.
  struct RecentLatency {
    RateWindow::TimePoint time;
    double seconds;
  };
  std::uint32_t serial_ = 0;
  StreamFigures figures_;
  RateWindow frame_rate_;
  RateWindow packet_rate_;
  std::deque<RecentLatency> latencies_;

  mutable std::mutex mutex_;
  NewestFrames newest_;
  StreamFigures shown_;
};

}  // namespace kerul::lidar::web
