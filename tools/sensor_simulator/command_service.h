// The simulated sensor's command service: register reads over TCP, with faults on request.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace kerul::lidar::simulator {

inline constexpr std::uint16_t kServiceHeadRegister = 0xA02C;
inline constexpr std::uint16_t kServiceMainRegister = 0xA01C;
inline constexpr std::size_t kServicePageBytes = 256;

// Where the service falls silent until the peer goes away.
enum class StallPhase {
  kNone,
  kAfterAccept,   // reads no request at all
  kBeforeHeader,  // has read the request, sends nothing
  kInBody,        // has sent the header and half of the payload
};

// What the service does wrong; a default-constructed record does nothing wrong. `on_connection`
// holds for all faults but `blank`; `on_register` and `on_exchange` for the faults of a response.
// Exchanges count from 0 per register and connection, so that at the main register the number is
// the page's, page 0 being the head page.
struct ServiceFaults {
  std::optional<int> on_connection;          // counted from 0 over the service's life; none: all
  std::optional<std::uint16_t> on_register;  // none: both
  std::optional<std::uint32_t> on_exchange;  // none: all

  // Faults of a connection.
  StallPhase stall = StallPhase::kNone;            // kAfterAccept stalls whatever the response
  std::optional<std::uint64_t> close_after_bytes;  // closes when it has sent that many

  // Faults of a response.
  bool close_before_answer = false;                  // reads the request and closes
  std::optional<std::array<std::uint8_t, 2>> magic;  // instead of "Gt"
  std::optional<std::uint8_t> command;               // instead of the request's
  std::uint8_t return_code = 0;                      // not 0: an error; the payload follows
  std::optional<std::uint32_t> announced_length;     // in the header, whatever follows
  std::size_t front_bytes = 0;                       // bytes of 0xEE in front of the data
  std::size_t missing_bytes = 0;                     // left out at the end, length to match
  std::optional<std::size_t> flip_at;                // byte of the data that is changed
  std::uint8_t flip_mask = 0x01;                     // its changed bits
  std::size_t header_piece_bytes = 0;                // 0: in one piece
  std::size_t body_piece_bytes = 0;                  // 0: in one piece
  int piece_gap_ms = 0;                              // pause after each piece

  // Fault of the sensor: its memory reads as 0xFF throughout.
  bool blank = false;
};

// The calibration to serve: head page and main blob as they are in sensor memory. Reads past
// their ends give 0xFF.
struct ServiceContent {
  std::vector<std::uint8_t> head;
  std::vector<std::uint8_t> main;
};

// Serves one connection after another on a thread of its own, from construction to destruction.
// Reads at the head register give the head page from its start. Reads at the main register take
// the next bytes of one stream, the head page (256 bytes) and then the main blob; each connection
// begins it anew. Another command is answered with return code 1, another register with 2.
class CommandService {
 public:
  // `port` 0 takes a free one. Throws std::runtime_error when it cannot listen.
  CommandService(ServiceContent content, const std::string& address = "127.0.0.1",
                 std::uint16_t port = 0, const ServiceFaults& faults = {});
  ~CommandService();
  CommandService(const CommandService&) = delete;
  CommandService& operator=(const CommandService&) = delete;

  std::uint16_t port() const { return port_; }
  // Both hold from the next connection on.
  void SetFaults(const ServiceFaults& faults);
  void SetContent(ServiceContent content);

  int accepted_connections() const { return accepted_; }
  int received_requests() const { return requests_; }

 private:
  void Serve();

  std::mutex mutex_;  // guards the two records below
  ServiceContent content_;
  ServiceFaults faults_;
  std::atomic<int> accepted_{0};
  std::atomic<int> requests_{0};
  int listener_ = -1;
  int stop_event_ = -1;
  std::uint16_t port_ = 0;
  std::thread thread_;
};

}  // namespace kerul::lidar::simulator
