#include "sensor_simulator/command_service.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <span>
#include <stdexcept>
#include <utility>

namespace kerul::lidar::simulator {
namespace {

constexpr std::size_t kHeaderBytes = 8;
constexpr std::size_t kMaxRequestPayload = 64;
constexpr std::uint8_t kPassThrough = 0xFF;
constexpr std::uint8_t kUnknownCommand = 1;
constexpr std::uint8_t kUnknownRegister = 2;

std::uint32_t LoadBig(const std::uint8_t* bytes, int count) {
  std::uint32_t value = 0;
  for (int i = 0; i < count; ++i) value = (value << 8U) | bytes[i];
  return value;
}

// One register read as the sensor understands it.
struct ReadRequest {
  std::uint8_t command = 0;
  bool understood = false;
  std::uint16_t reg = 0;
  std::size_t length = 0;
};

// Payload of a read: selector 00 00 01 23, device, 02, register, 01, then the length as one byte or
// as FF and two bytes.
ReadRequest ParseRead(std::uint8_t command, const std::vector<std::uint8_t>& payload) {
  ReadRequest request{.command = command};
  const bool is_short = payload.size() == 10;
  const bool is_long = payload.size() == 12 && payload[9] == 0xFF;
  if (command != kPassThrough || (!is_short && !is_long)) return request;
  if (LoadBig(payload.data(), 4) != 0x123 || payload[5] != 2 || payload[8] != 1) return request;
  request.reg = static_cast<std::uint16_t>(LoadBig(&payload[6], 2));
  request.length = is_short ? payload[9] : LoadBig(&payload[10], 2);
  request.understood = true;
  return request;
}

// One peer, from its request to its leaving. Every wait ends when the stop event is set.
class Session {
 public:
  Session(int peer, int stop_event, const ServiceContent& content, const ServiceFaults& faults)
      : peer_(peer), stop_event_(stop_event), head_(content.head), faults_(faults) {
    stream_ = content.head;
    stream_.resize(kServicePageBytes, 0xFF);
    stream_.insert(stream_.end(), content.main.begin(), content.main.end());
  }

  // Answers reads until the peer leaves, a fault ends the connection or the service stops.
  void Run(std::atomic<int>& requests) {
    if (faults_.stall == StallPhase::kAfterAccept) return WaitUntilPeerLeaves();
    ReadRequest request;
    while (ReceiveRequest(request)) {
      ++requests;  // first, so that whoever holds the answer finds it counted
      if (!Answer(request)) return;
    }
  }

 private:
  // False when the service stops or the peer has gone.
  bool WaitFor(short event) {
    pollfd waits[2] = {{peer_, event, 0}, {stop_event_, POLLIN, 0}};
    if (poll(waits, 2, -1) < 0) return false;
    return waits[1].revents == 0 && (waits[0].revents & event) != 0;
  }

  void WaitUntilPeerLeaves() { WaitFor(POLLRDHUP); }

  bool Receive(std::uint8_t* bytes, std::size_t size) {
    for (std::size_t done = 0; done < size;) {
      if (!WaitFor(POLLIN)) return false;
      const ssize_t got = recv(peer_, bytes + done, size - done, 0);
      if (got <= 0) return false;
      done += static_cast<std::size_t>(got);
    }
    return true;
  }

  bool ReceiveRequest(ReadRequest& request) {
    std::uint8_t header[kHeaderBytes];
    if (!Receive(header, sizeof(header))) return false;
    const std::uint32_t length = LoadBig(header + 4, 4);
    if (header[0] != 'G' || header[1] != 't' || length > kMaxRequestPayload) return false;
    std::vector<std::uint8_t> payload(length);
    if (!Receive(payload.data(), payload.size())) return false;
    request = ParseRead(header[2], payload);
    return true;
  }

  bool Send(std::span<const std::uint8_t> bytes, std::size_t piece) {
    const bool in_pieces = piece != 0;
    if (!in_pieces) piece = std::max<std::size_t>(bytes.size(), 1);
    for (std::size_t done = 0; done < bytes.size();) {
      std::size_t wanted = std::min(piece, bytes.size() - done);
      if (faults_.close_after_bytes) {
        const std::uint64_t left = *faults_.close_after_bytes - sent_;
        if (left == 0) return false;
        wanted = static_cast<std::size_t>(std::min<std::uint64_t>(wanted, left));
      }
      if (!WaitFor(POLLOUT)) return false;
      const ssize_t went = send(peer_, bytes.data() + done, wanted, MSG_NOSIGNAL);
      if (went <= 0) return false;
      done += static_cast<std::size_t>(went);
      sent_ += static_cast<std::uint64_t>(went);
      if (in_pieces && faults_.piece_gap_ms > 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(faults_.piece_gap_ms));
      }
    }
    return !faults_.close_after_bytes || sent_ < *faults_.close_after_bytes;
  }

  std::vector<std::uint8_t> ReadMemory(const ReadRequest& request) {
    const bool is_main = request.reg == kServiceMainRegister;
    const std::vector<std::uint8_t>& memory = is_main ? stream_ : head_;
    std::size_t& position = is_main ? stream_position_ : head_position_;
    if (!is_main) position = 0;  // the head register begins anew at each read
    std::vector<std::uint8_t> data(request.length, 0xFF);
    if (position < memory.size()) {
      const std::size_t count = std::min(request.length, memory.size() - position);
      std::memcpy(data.data(), memory.data() + position, count);
    }
    position += request.length;
    if (faults_.blank) std::fill(data.begin(), data.end(), std::uint8_t{0xFF});
    return data;
  }

  // Counts the exchanges of the register on the way.
  bool IsFaulty(std::uint16_t reg) {
    std::uint32_t& exchanges = reg == kServiceMainRegister ? main_exchanges_ : head_exchanges_;
    const std::uint32_t exchange = exchanges++;
    return faults_.on_register.value_or(reg) == reg &&
           faults_.on_exchange.value_or(exchange) == exchange;
  }

  bool Answer(const ReadRequest& request) {
    if (!request.understood) return Respond(request, kUnknownCommand, {}, {});
    if (request.reg != kServiceHeadRegister && request.reg != kServiceMainRegister) {
      return Respond(request, kUnknownRegister, {}, {});
    }
    std::vector<std::uint8_t> data = ReadMemory(request);
    if (!IsFaulty(request.reg)) return Respond(request, 0, data, {});
    if (faults_.close_before_answer) return false;
    if (faults_.flip_at && *faults_.flip_at < data.size()) {
      data[*faults_.flip_at] ^= faults_.flip_mask;
    }
    data.resize(data.size() - std::min(data.size(), faults_.missing_bytes));
    data.insert(data.begin(), faults_.front_bytes, 0xEE);
    return Respond(request, faults_.return_code, data, faults_);
  }

  bool Respond(const ReadRequest& request, std::uint8_t return_code,
               const std::vector<std::uint8_t>& payload, const ServiceFaults& faults) {
    if (faults.stall == StallPhase::kBeforeHeader) return WaitUntilPeerLeaves(), false;
    const auto true_length = static_cast<std::uint32_t>(payload.size());
    const std::uint32_t length = faults.announced_length.value_or(true_length);
    std::vector<std::uint8_t> frame(kHeaderBytes + payload.size());
    frame[0] = faults.magic ? (*faults.magic)[0] : std::uint8_t{'G'};
    frame[1] = faults.magic ? (*faults.magic)[1] : std::uint8_t{'t'};
    frame[2] = faults.command.value_or(request.command);
    frame[3] = return_code;
    for (std::size_t i = 0; i < 4; ++i) {
      frame[4 + i] = static_cast<std::uint8_t>(length >> (24 - 8 * i));
    }
    std::copy(payload.begin(), payload.end(), frame.begin() + kHeaderBytes);

    const std::span<const std::uint8_t> all(frame);
    if (faults.stall == StallPhase::kInBody) {
      Send(all.first(kHeaderBytes + payload.size() / 2), 0);
      return WaitUntilPeerLeaves(), false;
    }
    if (faults.header_piece_bytes == 0 && faults.body_piece_bytes == 0) return Send(all, 0);
    return Send(all.first(kHeaderBytes), faults.header_piece_bytes) &&
           Send(all.subspan(kHeaderBytes), faults.body_piece_bytes);
  }

  int peer_;
  int stop_event_;
  std::vector<std::uint8_t> head_;
  std::vector<std::uint8_t> stream_;
  ServiceFaults faults_;
  std::size_t head_position_ = 0;
  std::size_t stream_position_ = 0;
  std::uint32_t head_exchanges_ = 0;
  std::uint32_t main_exchanges_ = 0;
  std::uint64_t sent_ = 0;
};

// The faults that hold for connection `number`.
ServiceFaults FaultsOf(const ServiceFaults& faults, int number) {
  if (faults.on_connection.value_or(number) == number) return faults;
  ServiceFaults none;
  none.blank = faults.blank;
  return none;
}

int Listen(const std::string& address, std::uint16_t port) {
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  if (listener < 0) throw std::runtime_error("command service: no socket");
  const int on = 1;
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  sockaddr_in place{};
  place.sin_family = AF_INET;
  place.sin_port = htons(port);
  if (inet_pton(AF_INET, address.c_str(), &place.sin_addr) != 1 ||
      bind(listener, reinterpret_cast<const sockaddr*>(&place), sizeof(place)) != 0 ||
      listen(listener, 8) != 0) {
    close(listener);
    throw std::runtime_error("command service: cannot listen on " + address + ":" +
                             std::to_string(port));
  }
  return listener;
}

std::uint16_t PortOf(int listener) {
  sockaddr_in place{};
  socklen_t size = sizeof(place);
  getsockname(listener, reinterpret_cast<sockaddr*>(&place), &size);
  return ntohs(place.sin_port);
}

}  // namespace

CommandService::CommandService(ServiceContent content, const std::string& address,
                               std::uint16_t port, const ServiceFaults& faults)
    : content_(std::move(content)),
      faults_(faults),
      listener_(Listen(address, port)),
      stop_event_(eventfd(0, 0)),
      port_(PortOf(listener_)),
      thread_(&CommandService::Serve, this) {}

CommandService::~CommandService() {
  eventfd_write(stop_event_, 1);
  thread_.join();
  close(listener_);
  close(stop_event_);
}

void CommandService::SetFaults(const ServiceFaults& faults) {
  const std::lock_guard lock(mutex_);
  faults_ = faults;
}

void CommandService::SetContent(ServiceContent content) {
  const std::lock_guard lock(mutex_);
  content_ = std::move(content);
}

void CommandService::Serve() {
  for (;;) {
    pollfd waits[2] = {{listener_, POLLIN, 0}, {stop_event_, POLLIN, 0}};
    if (poll(waits, 2, -1) < 0 || waits[1].revents != 0) return;
    const int peer = accept(listener_, nullptr, nullptr);
    if (peer < 0) continue;
    const int on = 1;
    setsockopt(peer, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    ServiceContent content;
    ServiceFaults faults;
    {
      const std::lock_guard lock(mutex_);
      content = content_;
      faults = FaultsOf(faults_, accepted_);
    }
    ++accepted_;
    Session(peer, stop_event_, content, faults).Run(requests_);
    close(peer);
  }
}

}  // namespace kerul::lidar::simulator
