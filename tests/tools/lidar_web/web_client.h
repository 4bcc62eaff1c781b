// A plain client of the server, by sockets: what it sends is what the test says.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kerul::lidar::web {

// A connection to 127.0.0.1. Waits up to a minute for what must come.
class Connection {
 public:
  explicit Connection(int port);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  bool IsConnected() const noexcept { return fd_ >= 0; }
  void Send(std::string_view bytes);
  // As much as has come, at least a byte; empty when the other side has closed.
  std::string Receive();
  // Exactly so many bytes; empty when the other side closes before.
  std::string ReceiveExactly(std::size_t size);
  // Up to and with `end`.
  std::string ReceiveUntil(std::string_view end);
  // Whether the other side closes without another byte.
  bool IsClosedByPeer() { return buffer_.empty() && Receive().empty(); }
  // Makes the receive buffer small, so that the server soon cannot write; before anything is sent.
  void ShrinkBuffer() const;

 private:
  int fd_ = -1;
  std::string buffer_;
};

struct Answer {
  int status = 0;  // 0: the connection was closed instead
  std::string head;
  std::string body;

  bool HasHeader(std::string_view line) const;  // in small letters, "name: value"
};

// One request on a connection of its own. `head` is everything between the request line and the
// empty line, without Host when it has one.
Answer Request(int port, const std::string& line, const std::string& headers = "",
               std::string_view body = "");
Answer Get(int port, const std::string& path, const std::string& headers = "");
// What comes back on this connection.
Answer ReadAnswer(Connection& connection, bool has_body = true);

struct Message {
  int opcode = 0;  // 1 text, 2 binary, 8 close
  std::string payload;

  bool IsFrame() const { return opcode == 2 && !payload.empty() && payload[0] == 2; }
  std::uint32_t Serial() const;
  // Of a close message; 0 for none.
  int CloseStatus() const;
};

class LiveClient {
 public:
  // Shakes hands; `origin` may be empty.
  explicit LiveClient(int port, const std::string& origin = "");

  bool IsUp() const noexcept { return up_; }
  const std::string& Head() const noexcept { return head_; }
  Connection& Raw() noexcept { return connection_; }

  void Pull(std::uint8_t planes = 0, double asked_ms = 0.0);
  void Send(int opcode, std::string_view payload);
  // The next message; opcode 0 when the connection has ended. Answers pings by itself.
  Message Next();
  // Passes others over until one of this kind comes.
  Message NextFrame();
  Message NextText(std::string_view type);
  Message NextClose();

 private:
  Connection connection_;
  bool up_ = false;
  std::string head_;
};

}  // namespace kerul::lidar::web
