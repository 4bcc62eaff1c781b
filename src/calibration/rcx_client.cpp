#include "calibration/rcx_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>

namespace kerul::lidar {
namespace {

using rcx_client_detail::kRcxHeaderBytes;

constexpr std::uint8_t kMagic0 = 0x47;
constexpr std::uint8_t kMagic1 = 0x74;
constexpr int kPassThroughCommand = 255;
constexpr int kMaxReceiveCalls = 5;
constexpr int kMaxReadBytes = 1024;
constexpr int kMaxShortLength = 32;  // longer reads take the three-byte length field

// Most that one call of recv may ask for. A response is at most a few kilobytes, so this never
// splits one; it only keeps a false length from claiming memory before the bytes have come.
constexpr std::uint64_t kMaxReceivePiece = std::uint64_t{1} << 20U;

std::uint32_t PayloadLength(const std::vector<std::uint8_t>& frame) {
  return (std::uint32_t{frame[4]} << 24U) | (std::uint32_t{frame[5]} << 16U) |
         (std::uint32_t{frame[6]} << 8U) | std::uint32_t{frame[7]};
}

// Appends `wanted` bytes to `frame`, growing it with what arrives. The limit counts calls, not
// bytes: a call without a result is one of the five, and so is one that brings a single byte.
bool ReceiveInto(int sock, std::vector<std::uint8_t>& frame, std::uint64_t wanted) {
  std::uint64_t received = 0;
  for (int call = 0; call < kMaxReceiveCalls && received < wanted; ++call) {
    const std::size_t held = frame.size();
    const auto asked = static_cast<std::size_t>(std::min(wanted - received, kMaxReceivePiece));
    frame.resize(held + asked);
    const ssize_t got = recv(sock, frame.data() + held, asked, 0);
    const std::size_t kept = got > 0 ? static_cast<std::size_t>(got) : 0;
    frame.resize(held + kept);
    received += kept;
  }
  return received == wanted;
}

void SendAll(int sock, const std::vector<std::uint8_t>& request) {
  std::size_t sent = 0;
  while (sent < request.size()) {
    const ssize_t result = send(sock, request.data() + sent, request.size() - sent, MSG_NOSIGNAL);
    if (result <= 0) throw std::runtime_error("RCX send failed");
    sent += static_cast<std::size_t>(result);
  }
}

int HexDigit(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  throw std::invalid_argument("invalid hex character");
}

}  // namespace

RcxClient::RcxClient(const std::string& host, int port, double timeout_s)
    : sock_(socket(AF_INET, SOCK_STREAM, 0)) {
  if (sock_ < 0) throw std::runtime_error("RCX: socket() failed");

  timeval timeout{};
  timeout.tv_sec = static_cast<time_t>(timeout_s);
  timeout.tv_usec =
      static_cast<suseconds_t>((timeout_s - static_cast<double>(timeout.tv_sec)) * 1e6);
  setsockopt(sock_, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout));
  setsockopt(sock_, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof(timeout));

  // The destructor does not run for a constructor that throws.
  const auto fail = [this](const std::string& text) {
    close(sock_);
    sock_ = -1;
    throw std::runtime_error(text);
  };
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  if (inet_pton(AF_INET, host.c_str(), &address.sin_addr) != 1) fail("RCX: invalid IP " + host);
  if (connect(sock_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    fail("RCX: connect to " + host + ":" + std::to_string(port) + " failed");
  }
}

RcxClient::~RcxClient() {
  if (sock_ >= 0) close(sock_);
}

std::string RcxClient::HexU8(unsigned v) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  return {kDigits[(v >> 4U) & 0xFU], kDigits[v & 0xFU]};
}

std::vector<std::uint8_t> RcxClient::BuildPayload(int cmd, const std::string& hex) {
  std::string digits = hex;
  std::erase_if(digits, [](char c) { return c == ' ' || c == '\t'; });
  if (digits.size() % 2 != 0) {
    throw std::invalid_argument("RCX payload hex length must be even");
  }
  std::vector<std::uint8_t> frame{kMagic0, kMagic1, static_cast<std::uint8_t>(cmd)};
  frame.reserve(frame.size() + digits.size() / 2);
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    const int high = HexDigit(digits[i]);
    frame.push_back(static_cast<std::uint8_t>(high * 16 + HexDigit(digits[i + 1])));
  }
  return frame;
}

std::vector<std::uint8_t> RcxClient::SendAndReceive(const std::vector<std::uint8_t>& request) {
  SendAll(sock_, request);

  std::vector<std::uint8_t> frame;
  if (!ReceiveInto(sock_, frame, kRcxHeaderBytes) || frame[0] != kMagic0 || frame[1] != kMagic1) {
    throw std::runtime_error("RCX read header failed");
  }
  if (!ReceiveInto(sock_, frame, PayloadLength(frame))) {
    throw std::runtime_error("RCX read body failed");
  }
  // Checked after the body, so that the stream stays in step.
  const unsigned return_code = frame[3];
  if (return_code != 0) {
    throw std::runtime_error("RCX return error code=0x" + HexU8(return_code));
  }
  return frame;
}

std::vector<std::uint8_t> RcxClient::ReadIicRegMulti(std::uint8_t dev, std::uint16_t reg, int len) {
  if (len < 1 || len > kMaxReadBytes) {
    throw std::invalid_argument("RCX IIC data_len must be 1..1024");
  }
  const std::string text = rcx_client_detail::IicReadText(dev, reg, len);
  return rcx_client_detail::TailOfPayload(SendAndReceive(BuildPayload(kPassThroughCommand, text)),
                                          len);
}

namespace rcx_client_detail {

std::string IicReadText(std::uint8_t dev, std::uint16_t reg, int len) {
  constexpr std::uint64_t kFixedPayloadBytes = 9;  // selector, device, two fixed bytes, register
  const auto length = static_cast<unsigned>(len);
  char length_text[16];
  std::snprintf(length_text, sizeof(length_text), len <= kMaxShortLength ? "%02X" : "FF%04X",
                length);
  const std::uint64_t payload_bytes = std::string(length_text).size() / 2 + kFixedPayloadBytes;
  CheckPrefixLength(payload_bytes);

  // Ten digits for return code and length, then the selector of the pass-through.
  char text[64];
  std::snprintf(text, sizeof(text), "%010llX00000123%02X02%04X%02X%s",
                static_cast<unsigned long long>(payload_bytes), unsigned{dev}, unsigned{reg}, 1U,
                length_text);
  return text;
}

void CheckPrefixLength(std::uint64_t payload_bytes) {
  if (payload_bytes < 1 || payload_bytes > 0xFFFFFFFFFFULL) {
    throw std::invalid_argument("RCX IIC prefix length out of range");
  }
}

std::vector<std::uint8_t> TailOfPayload(const std::vector<std::uint8_t>& response, int len) {
  if (response.size() < kRcxHeaderBytes) throw std::runtime_error("RCX response too short");
  const std::uint64_t held = PayloadLength(response);
  if (response.size() - kRcxHeaderBytes < held) {
    throw std::runtime_error("RCX response payload truncated");
  }
  const auto need = static_cast<std::uint64_t>(len);
  if (held < need) {
    throw std::runtime_error("RCX read payload too short: need=" + std::to_string(need) +
                             " bytes, got=" + std::to_string(held));
  }
  const auto end = response.begin() + static_cast<std::ptrdiff_t>(kRcxHeaderBytes + held);
  return {end - len, end};
}

}  // namespace rcx_client_detail
}  // namespace kerul::lidar
