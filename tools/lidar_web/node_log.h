// What the node itself tells of lost raw packets, from the lines of its standard output:
//   raw packets lost in N frames: S of them closed without M packets (...), K frame ids never came,
//   D datagrams dropped by the kernel
// Nothing else tells how many packets did not reach the host: published packets do not.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kerul::lidar::web {

struct RawLoss {
  std::uint64_t missing_packets = 0;  // of frames that came in part
  std::uint64_t missing_frames = 0;   // frame ids that never came
  std::uint64_t kernel_dropped = 0;   // datagrams
};

// Nothing for a line that tells of no loss.
std::optional<RawLoss> ReadLossLine(std::string_view line);

// Adds up lines that come in pieces. Lines longer than any of the node's are passed over.
class LossTotals {
 public:
  void Take(std::string_view piece);
  // Raw packets that did not reach the host. Never falls.
  std::uint64_t BeforeHost() const noexcept { return before_host_; }
  // Another node's log begins.
  void Restart();

 private:
  void TakeLine(std::string_view line);

  std::string line_;
  bool too_long_ = false;
  std::uint64_t lost_ = 0;
  std::uint64_t dropped_ = 0;
  std::uint64_t before_host_ = 0;
  std::uint64_t of_nodes_before_ = 0;
};

// Follows a file that the node's output goes into, from its beginning; "-" is standard input. A
// file that is not there yet is waited for; one that was replaced or cut is read anew.
class NodeLog {
 public:
  explicit NodeLog(std::string path) : path_(std::move(path)) {}
  ~NodeLog();
  NodeLog(const NodeLog&) = delete;
  NodeLog& operator=(const NodeLog&) = delete;

  // Reads what has come, without waiting; a megabyte at most.
  void Look();
  // Nothing while there is no file.
  std::optional<std::uint64_t> BeforeHost() const;

 private:
  bool Open();
  bool IsStillTheFile() const;

  std::string path_;
  int fd_ = -1;
  bool seen_ = false;
  LossTotals totals_;
};

}  // namespace kerul::lidar::web
