#include "lidar_web/web_server.h"

#include <arpa/inet.h>
#include <libwebsockets.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "lidar_web/http_session.h"
#include "lidar_web/live_session.h"

namespace kerul::lidar::web {
namespace {

constexpr lws_usec_t kFiguresPeriodUs = 500'000;
// A whole message goes into one write: in pieces of the library's own size a frame costs 30 times
// as much.
constexpr std::size_t kLargestWrite = 2U << 20;
constexpr std::size_t kReceiveRoom = 128;  // a pull has 16 bytes
constexpr unsigned kHandshakeSeconds = 10;
constexpr int kKeepAliveSeconds = 15;
constexpr int kWatchedFiles = kMostConnections + 64;
constexpr std::chrono::milliseconds kFarewell{300};

// What wakes the loop and what ticks in it. The library's timer has no pointer of ours, so it
// stands first in a record that has.
struct Ticker {
  lws_sorted_usec_list_t timer;
  ServerState* state;
  lws_context* context;
};

int ServerCallback(lws* wsi, lws_callback_reasons reason, void* session, void* in,
                   std::size_t size);

const lws_protocols* Protocols() {
  static const lws_protocols protocols[] = {
      {"http", ServerCallback, kHttpSessionBytes, 0, 0, nullptr, kLargestWrite},
      {kLiveProtocol, LiveCallback, kLiveSessionBytes, kReceiveRoom, 0, nullptr, kLargestWrite},
      {nullptr, nullptr, 0, 0, 0, nullptr, 0}};
  return protocols;
}

void WakeLiveClients(lws_context* context) {
  lws_callback_on_writable_all_protocol(context, Protocols() + 1);
}

void Tick(lws_sorted_usec_list_t* timer) {
  auto* ticker = reinterpret_cast<Ticker*>(timer);
  ticker->state->MakeFigures();
  WakeLiveClients(ticker->context);
  lws_sul_schedule(ticker->context, 0, timer, Tick, kFiguresPeriodUs);
}

// After a wake from another thread: new frames, files that are made.
int ServerCallback(lws* wsi, lws_callback_reasons reason, void* session, void* in,
                   std::size_t size) {
  if (reason == LWS_CALLBACK_EVENT_WAIT_CANCELLED) {
    lws_context* context = lws_get_context(wsi);
    auto* state = static_cast<ServerState*>(lws_context_user(context));
    WakeLiveClients(context);
    for (lws* waiting : state->waiting_for_files) lws_callback_on_writable(waiting);
    return 0;
  }
  return HttpCallback(wsi, reason, session, in, size);
}

// Why nothing can listen there; the library does not tell. 0 when something could.
int ListenError(const std::string& bind_address, int port) {
  sockaddr_in v4{};
  sockaddr_in6 v6{};
  const bool is_v4 = inet_pton(AF_INET, bind_address.c_str(), &v4.sin_addr) == 1;
  if (!is_v4 && inet_pton(AF_INET6, bind_address.c_str(), &v6.sin6_addr) != 1) return EINVAL;
  v4.sin_family = AF_INET;
  v6.sin6_family = AF_INET6;
  v4.sin_port = v6.sin6_port = htons(static_cast<std::uint16_t>(port));
  const int fd = socket(is_v4 ? AF_INET : AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return errno;
  const int on = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  const auto* address =
      is_v4 ? reinterpret_cast<const sockaddr*>(&v4) : reinterpret_cast<const sockaddr*>(&v6);
  const socklen_t size = is_v4 ? sizeof v4 : sizeof v6;
  const int error = bind(fd, address, size) == 0 && listen(fd, 1) == 0 ? 0 : errno;
  close(fd);
  return error;
}

}  // namespace

const std::size_t WebServer::kRoomBefore = LWS_PRE;

WebServer::~WebServer() {
  if (context_ != nullptr) lws_context_destroy(context_);
}

bool WebServer::Open(ServerState& state, const std::string& bind, int port, std::string& error) {
  const int listen_error = ListenError(bind, port);
  if (listen_error != 0) {
    error = listen_error == EINVAL ? "not an address of this machine" : std::strerror(listen_error);
    return false;
  }
  state_ = &state;
  lws_set_log_level(0, nullptr);  // its lines are for whoever sends broken requests
  // Pings find clients that are gone without a word.
  static const lws_retry_bo_t idle_policy{
      nullptr, 0, 0, kStalledReaderSeconds, kStalledReaderSeconds + 10, 0};
  lws_context_creation_info info{};
  info.port = port;
  info.iface = bind.c_str();
  info.protocols = Protocols();
  info.user = &state;
  info.options = LWS_SERVER_OPTION_FAIL_UPON_UNABLE_TO_BIND;
  if (bind.find(':') == std::string::npos) info.options |= LWS_SERVER_OPTION_DISABLE_IPV6;
  info.max_http_header_pool = kMostConnections;
  info.timeout_secs = kHandshakeSeconds;
  info.timeout_secs_ah_idle = kHandshakeSeconds;
  info.keepalive_timeout = kKeepAliveSeconds;
  info.fd_limit_per_thread = kWatchedFiles;
  info.retry_and_idle_policy = &idle_policy;
  info.server_string = "lidar_web";
  context_ = lws_create_context(&info);
  if (context_ == nullptr) {
    error = "cannot listen";
    return false;
  }
  vhost_ = lws_get_vhost_by_name(context_, "default");
  return true;
}

int WebServer::Port() const { return lws_get_vhost_listen_port(vhost_); }

void WebServer::Wake() noexcept {
  if (context_ != nullptr) lws_cancel_service(context_);
}

void WebServer::Run(const std::atomic<bool>& stop) {
  Ticker ticker{{}, state_, context_};
  Tick(&ticker.timer);
  while (!stop && lws_service(context_, 0) >= 0) {
  }
  lws_sul_cancel(&ticker.timer);
  state_->closing = true;
  WakeLiveClients(context_);
  const auto end = std::chrono::steady_clock::now() + kFarewell;
  while (state_->figures_of_host.clients > 0 && std::chrono::steady_clock::now() < end) {
    WakeLiveClients(context_);
    if (lws_service(context_, 0) < 0) return;
  }
}

}  // namespace kerul::lidar::web
