// Datagrams as a neighbour on the network may send them to the node's port.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kerul::lidar::testing {

inline constexpr std::uint16_t kNodePort = 2368;

// Sends to the node's port on the loopback interface. Throws std::runtime_error when it cannot.
class DatagramSender {
 public:
  // `from`: the sender's address, which has to be the machine's own.
  explicit DatagramSender(const std::string& from = "127.0.0.1");
  ~DatagramSender();
  DatagramSender(const DatagramSender&) = delete;
  DatagramSender& operator=(const DatagramSender&) = delete;

  void Send(const std::vector<std::uint8_t>& payload) const;
  // A datagram whose checksum is wrong. Takes the right to make raw packets.
  void SendDamaged() const;

 private:
  int socket_;
  int raw_socket_;
};

}  // namespace kerul::lidar::testing
