#include "web_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace kerul::lidar::web {
namespace {

constexpr timeval kPatience{.tv_sec = 60, .tv_usec = 0};

std::string HostLine(int port) { return "Host: 127.0.0.1:" + std::to_string(port) + "\r\n"; }

}  // namespace

Connection::Connection(int port) : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &kPatience, sizeof kPatience);
  setsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &kPatience, sizeof kPatience);
  if (connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    close(fd_);
    fd_ = -1;
  }
}

Connection::~Connection() {
  if (fd_ >= 0) close(fd_);
}

void Connection::ShrinkBuffer() const {
  const int bytes = 4096;
  setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
}

void Connection::Send(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return;  // closed: seen by what is received
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
}

std::string Connection::Receive() {
  if (!buffer_.empty()) return std::exchange(buffer_, {});
  std::string piece(1 << 16, '\0');
  const ssize_t size = recv(fd_, piece.data(), piece.size(), 0);
  piece.resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
  return piece;
}

std::string Connection::ReceiveExactly(std::size_t size) {
  std::string bytes = std::exchange(buffer_, {});
  while (bytes.size() < size) {
    const std::string piece = Receive();
    if (piece.empty()) return {};
    bytes += piece;
  }
  buffer_ = bytes.substr(size);
  bytes.resize(size);
  return bytes;
}

std::string Connection::ReceiveUntil(std::string_view end) {
  std::string bytes;
  for (;;) {
    const std::size_t at = bytes.find(end);
    if (at != std::string::npos) {
      buffer_ = bytes.substr(at + end.size());
      bytes.resize(at + end.size());
      return bytes;
    }
    const std::string piece = Receive();
    if (piece.empty()) return {};
    bytes += piece;
  }
}

bool Answer::HasHeader(std::string_view line) const {
  return head.find("\r\n" + std::string(line) + "\r\n") != std::string::npos;
}

Answer ReadAnswer(Connection& connection, bool has_body) {
  Answer answer;
  answer.head = connection.ReceiveUntil("\r\n\r\n");
  if (answer.head.size() < 12) return answer;
  answer.status = std::stoi(answer.head.substr(9, 3));
  const std::size_t at = answer.head.find("content-length: ");
  if (!has_body || at == std::string::npos) return answer;
  answer.body = connection.ReceiveExactly(std::stoul(answer.head.substr(at + 16)));
  return answer;
}

Answer Request(int port, const std::string& line, const std::string& headers,
               std::string_view body) {
  Connection connection(port);
  const bool has_host = headers.find("Host:") != std::string::npos;
  connection.Send(line + " HTTP/1.1\r\n" + (has_host ? "" : HostLine(port)) + headers + "\r\n");
  connection.Send(body);
  return ReadAnswer(connection, !line.starts_with("HEAD"));
}

Answer Get(int port, const std::string& path, const std::string& headers) {
  return Request(port, "GET " + path, headers);
}

std::uint32_t Message::Serial() const {
  std::uint32_t serial = 0;
  if (IsFrame() && payload.size() >= 8) std::memcpy(&serial, payload.data() + 4, sizeof serial);
  return serial;
}

int Message::CloseStatus() const {
  if (opcode != 8 || payload.size() < 2) return 0;
  return static_cast<unsigned char>(payload[0]) << 8 | static_cast<unsigned char>(payload[1]);
}

LiveClient::LiveClient(int port, const std::string& origin) : connection_(port) {
  connection_.Send("GET /stream HTTP/1.1\r\n" + HostLine(port) +
                   "Upgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
                   "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"
                   "Sec-WebSocket-Protocol: kerul-lidar-1\r\n" +
                   (origin.empty() ? "" : "Origin: " + origin + "\r\n") + "\r\n");
  head_ = connection_.ReceiveUntil("\r\n\r\n");
  up_ = head_.starts_with("HTTP/1.1 101");
}

void LiveClient::Send(int opcode, std::string_view payload) {
  // Masked by zeros, which changes nothing.
  std::string frame{static_cast<char>(0x80 | opcode), static_cast<char>(0x80 | payload.size())};
  connection_.Send(frame + std::string(4, '\0') + std::string(payload));
}

void LiveClient::Pull(std::uint8_t planes, double asked_ms) {
  std::string bytes(16, '\0');
  bytes[0] = 1;
  bytes[1] = static_cast<char>(planes);
  std::memcpy(bytes.data() + 8, &asked_ms, sizeof asked_ms);
  Send(2, bytes);
}

Message LiveClient::Next() {
  for (;;) {
    const std::string head = connection_.ReceiveExactly(2);
    if (head.empty()) return {};
    Message message{.opcode = head[0] & 0xF, .payload = {}};
    std::size_t size = static_cast<unsigned char>(head[1]) & 0x7F;
    const std::size_t more = size == 126 ? 2 : size == 127 ? 8 : 0;
    if (more > 0) {
      size = 0;
      for (const char c : connection_.ReceiveExactly(more)) {
        size = size << 8 | static_cast<unsigned char>(c);
      }
    }
    if (size > 0) message.payload = connection_.ReceiveExactly(size);
    if (message.opcode != 9) return message;
    Send(10, message.payload);
  }
}

Message LiveClient::NextFrame() {
  for (;;) {
    Message message = Next();
    if (message.IsFrame() || message.opcode == 0 || message.opcode == 8) return message;
  }
}

Message LiveClient::NextText(std::string_view type) {
  const std::string begin = "{\"type\":\"" + std::string(type) + "\"";
  for (;;) {
    Message message = Next();
    if (message.opcode == 0 || message.opcode == 8) return message;
    if (message.opcode == 1 && message.payload.starts_with(begin)) return message;
  }
}

Message LiveClient::NextClose() {
  for (;;) {
    Message message = Next();
    if (message.opcode == 0 || message.opcode == 8) return message;
  }
}

}  // namespace kerul::lidar::web
