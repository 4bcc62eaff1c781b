// Lets calls of the operating system fail on request. This test program's definitions stand before
// the library's; without a request they pass every call on.
#pragma once

#include <netinet/in.h>

#include <optional>

namespace kerul::lidar {

// An errno for each call that is to fail, 0 to pass it on.
struct FailingCalls {
  int socket = 0;
  int bind = 0;
  int fcntl = 0;
  int set_reuse_address = 0;
  int set_receive_timeout = 0;
  int set_broadcast = 0;
  int get_receive_buffer = 0;
  // Joining a group succeeds without being passed on: not every machine has a route for it.
  bool join_succeeds = false;
  std::optional<ip_mreq> joined;      // out: the last request to join
  std::optional<int> receive_buffer;  // out: the last size asked for, in bytes
  std::optional<int> send_flags;      // out: of the last sendto

  static FailingCalls& Get();
};

}  // namespace kerul::lidar
