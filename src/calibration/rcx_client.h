// Blocking client of the sensor's TCP command service.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kerul::lidar {

// One frame, the same in both directions, all fields big-endian:
//   0  magic 0x47 0x74    2  command    3  return code, 0 in a request and on success
//   4  payload length     8  payload
//
// One socket, one request and one response at a time; no exchange is retried. Every failure
// throws: std::runtime_error unless an operation says otherwise. After a throw the stream may be
// out of step: do not use the client again.
class RcxClient {
 public:
  // Connects to `host`, an IPv4 address in dotted form. `timeout_s` (seconds) bounds every single
  // wait for sending and receiving, the connecting included.
  RcxClient(const std::string& host, int port, double timeout_s);
  ~RcxClient();
  RcxClient(const RcxClient&) = delete;
  RcxClient& operator=(const RcxClient&) = delete;

  // The low byte of `v` as two upper-case hexadecimal digits.
  static std::string HexU8(unsigned v);

  // 'G', 't', the low byte of `cmd`, then the bytes that `hex` spells; blanks and tabs are dropped.
  // The text must hold everything after the command: return code, length and payload.
  // std::invalid_argument for an odd number of digits or another character.
  static std::vector<std::uint8_t> BuildPayload(int cmd, const std::string& hex);

  // One exchange. The result is the 8 header bytes followed by the payload. Header and payload may
  // each take at most five calls of recv. A peer that closes gives an exception, never a signal.
  std::vector<std::uint8_t> SendAndReceive(const std::vector<std::uint8_t>& request);

  // Reads `len` bytes (1..1024) at register `reg` of the IIC device `dev` behind the sensor.
  // std::invalid_argument for another `len`, before anything is sent.
  std::vector<std::uint8_t> ReadIicRegMulti(std::uint8_t dev, std::uint16_t reg, int len);

 private:
  int sock_ = -1;
};

namespace rcx_client_detail {

inline constexpr std::size_t kRcxHeaderBytes = 8;

// The request of one register read as text: everything after the command byte.
std::string IicReadText(std::uint8_t dev, std::uint16_t reg, int len);

// The length has ten digits in the text, the return code among them. std::invalid_argument for
// anything outside 1..0xFFFFFFFFFF.
void CheckPrefixLength(std::uint64_t payload_bytes);

// The last `len` bytes of a response's payload; `response` begins with its header. Bytes past the
// length that the header states are ignored.
std::vector<std::uint8_t> TailOfPayload(const std::vector<std::uint8_t>& response, int len);

}  // namespace rcx_client_detail
}  // namespace kerul::lidar
