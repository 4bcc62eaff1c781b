// The server in the test's process, on a ring of the test's own, with a page of two files.
#pragma once

#include <atomic>
#include <chrono>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>

#include "client/point_packet_by_hand.h"
#include "lidar_web/web_app.h"
#include "output/shm_test_name.h"
#include "output/shm_udp_writer.h"
#include "support/temp_dir.h"

namespace kerul::lidar::web {

// A stream that two threads write to and look at.
class SharedText : public std::ostream {
 public:
  SharedText() : std::ostream(&buffer_) {}
  std::string Text() { return buffer_.Text(); }

 private:
  class Buffer : public std::stringbuf {
   public:
    std::string Text() {
      const std::lock_guard lock(mutex_);
      return text_;
    }

   protected:
    int sync() override {
      const std::lock_guard lock(mutex_);
      text_ = str();
      return 0;
    }

   private:
    std::mutex mutex_;
    std::string text_;
  };
  Buffer buffer_;
};

class ServedRing {
 public:
  explicit ServedRing(WebOptions options = {})
      : writer_(name_.c_str(), 20 + 20000 * 1508), opened_(writer_.Open()) {
    page_.Write("index.html", std::string("<!doctype html>"));
    page_.Write("page.js", std::string("let plain;"));
    page_.Write("page.js.gz", std::string("packed"));
    options.source.shm_name = name_.c_str();
    options.port = 0;
    if (options.page.empty()) options.page = page_.path().string();
    thread_ =
        std::thread([this, options] { status_ = RunWebServer(options, "", stop_, out_, err_); });
    for (int i = 0; i < 60'000 && port_ == 0; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      const std::string text = out_.Text();
      const std::size_t at = text.find("127.0.0.1:");
      if (at != std::string::npos) port_ = std::stoi(text.substr(at + 10));
    }
  }
  ~ServedRing() { Stop(); }
  ServedRing(const ServedRing&) = delete;
  ServedRing& operator=(const ServedRing&) = delete;

  int Port() const noexcept { return port_; }
  std::string RingName() const { return name_.c_str(); }
  std::string Errors() { return err_.Text(); }
  int Status() const noexcept { return status_; }
  void Stop() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
  }

  // Publishes one frame: every point `distance` units away, plus its index in the block.
  void PublishFrame(int distance = 250, int skipped_block = -1) {
    fields_.distance = distance;
    for (fields_.block = 0; fields_.block < 1728; ++fields_.block) {
      if (fields_.block == skipped_block) continue;
      const PacketBytes bytes = MakePacket(fields_);
      writer_.WriteOne(bytes.data(), 249);
    }
    fields_.frame_id = (fields_.frame_id + 1) % 256;
    fields_.sequence_base += 1728;
  }

 private:
  ShmTestName name_;
  ShmUdpWriter writer_;
  bool opened_;
  testing::TempDir page_;
  PacketFields fields_;
  std::atomic<bool> stop_{false};
  std::atomic<int> status_{-1};
  SharedText out_;
  SharedText err_;
  int port_ = 0;
  std::thread thread_;
};

}  // namespace kerul::lidar::web
