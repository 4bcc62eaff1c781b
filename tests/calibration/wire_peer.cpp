#include "calibration/wire_peer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <utility>

namespace kerul::lidar {
namespace {

int Listen() {
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in place{};
  place.sin_family = AF_INET;
  place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  bind(listener, reinterpret_cast<const sockaddr*>(&place), sizeof(place));
  listen(listener, 1);
  return listener;
}

int PortOf(int listener) {
  sockaddr_in place{};
  socklen_t size = sizeof(place);
  getsockname(listener, reinterpret_cast<sockaddr*>(&place), &size);
  return ntohs(place.sin_port);
}

}  // namespace

WirePeer::WirePeer(std::size_t request_bytes, std::vector<std::uint8_t> answer, PeerEnd end)
    : listener_(Listen()), port_(PortOf(listener_)) {
  thread_ = std::thread([this, request_bytes, answer = std::move(answer), end] {
    Serve(request_bytes, answer, end);
  });
}

WirePeer::~WirePeer() {
  shutdown(listener_, SHUT_RDWR);  // wakes a thread that nobody connected to
  Received();
  close(listener_);
}

const std::vector<std::uint8_t>& WirePeer::Received() {
  if (thread_.joinable()) thread_.join();
  return received_;
}

void WirePeer::Serve(std::size_t request_bytes, const std::vector<std::uint8_t>& answer,
                     PeerEnd end) {
  const int peer = accept(listener_, nullptr, nullptr);
  if (peer < 0) return;
  std::uint8_t byte = 0;
  while (received_.size() < request_bytes && read(peer, &byte, 1) == 1) received_.push_back(byte);
  send(peer, answer.data(), answer.size(), MSG_NOSIGNAL);
  if (end == PeerEnd::kKeepOpen) {
    while (read(peer, &byte, 1) == 1) received_.push_back(byte);
  }
  close(peer);
}

int ClosedPort() {
  const int listener = Listen();
  const int port = PortOf(listener);
  close(listener);
  return port;
}

}  // namespace kerul::lidar
