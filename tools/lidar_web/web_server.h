// The server: its socket, its clock, its loop.
#pragma once

#include <atomic>
#include <string>

#include "lidar_web/server_state.h"

struct lws_context;
struct lws_vhost;

namespace kerul::lidar::web {

class WebServer {
 public:
  // Bytes that the library needs before a message.
  static const std::size_t kRoomBefore;

  WebServer() = default;
  ~WebServer();
  WebServer(const WebServer&) = delete;
  WebServer& operator=(const WebServer&) = delete;

  // Listens on an address of this machine; port 0 takes a free one. False with the reason in
  // `error`. The state must outlive the server; its parts may still be missing.
  bool Open(ServerState& state, const std::string& bind, int port, std::string& error);
  int Port() const;
  // Lets all connections look for what is new. May be called from any thread.
  void Wake() noexcept;
  // Serves until `stop`; then tells the live clients that it goes.
  void Run(const std::atomic<bool>& stop);

 private:
  ServerState* state_ = nullptr;
  lws_context* context_ = nullptr;
  lws_vhost* vhost_ = nullptr;
};

}  // namespace kerul::lidar::web
