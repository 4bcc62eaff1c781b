// What the system tells of the node from outside: its process, and what the kernel dropped from its
// socket's full buffer.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kerul::lidar::web {

struct ProcessFigures {
  pid_t pid = 0;
  std::uint64_t resident_bytes = 0;
  double cpu_seconds = 0.0;
};

// The sum of the last column of all lines of a text in the form of /proc/net/udp whose socket is
// bound to `port`. Nothing when there is no such line.
std::optional<std::uint64_t> UdpDrops(std::string_view text, std::uint16_t port);

// From a text in the form of /proc/PID/stat. The name may hold anything. False for another text.
bool ReadProcessStat(std::string_view text, ProcessFigures& figures);

// Whether a text in the form of /proc/PID/maps has a mapping of this object.
bool HasMapping(std::string_view text, unsigned device_major, unsigned device_minor,
                std::uint64_t inode);

class HostWatch {
 public:
  // `ring_object` tells several processes of the name apart, by who has it mapped: a path, or
  // empty.
  HostWatch(std::string process_name, std::string ring_object, std::uint16_t port)
      : process_name_(std::move(process_name)), ring_object_(std::move(ring_object)), port_(port) {}

  // The node's process; nothing when there is none or when it cannot be told which one it is. Looks
  // through all processes only once in a while.
  std::optional<ProcessFigures> Node();
  // Datagrams dropped since the node opened its socket; nothing while there is no socket.
  std::optional<std::uint64_t> KernelDrops() const;
  static std::optional<ProcessFigures> Figures(pid_t pid);

 private:
  std::optional<pid_t> FindNode() const;
  bool IsNamedSo(pid_t pid) const;
  bool HasRingMapped(pid_t pid) const;

  std::string process_name_;
  std::string ring_object_;
  std::uint16_t port_;
  std::optional<pid_t> node_;
  int looks_until_search_ = 0;
};

}  // namespace kerul::lidar::web
