#include "lidar_web/live_session.h"

#include <optional>

#include "lidar_web/frame_message.h"
#include "lidar_web/system_clock.h"

namespace kerul::lidar::web {
namespace {

// What a client has had and what it waits for. Nothing is queued: a message is made when the
// connection can take it.
struct Client {
  bool has_hello = false;
  bool has_directions = false;
  std::uint64_t figures_number = 0;
  std::uint32_t serial = 0;  // of its last frame
  std::optional<Pull> pull;
};

ServerState& StateOf(lws* wsi) {
  return *static_cast<ServerState*>(lws_context_user(lws_get_context(wsi)));
}

// `room` has LWS_PRE bytes before the message; what the connection does not take at once the
// library copies, one message at most.
int Send(ServerState& state, lws* wsi, char* room, std::size_t size, lws_write_protocol protocol) {
  auto* message = reinterpret_cast<unsigned char*>(room) + LWS_PRE;
  if (lws_write(wsi, message, size, protocol) < static_cast<int>(size)) return -1;
  state.figures_of_host.bytes_sent += size;
  lws_callback_on_writable(wsi);
  return 0;
}

int Send(ServerState& state, lws* wsi, std::vector<char>& room, lws_write_protocol protocol) {
  return Send(state, wsi, room.data(), room.size() - LWS_PRE, protocol);
}

int SendFrame(ServerState& state, lws* wsi, Client& client, FrameMessage& frame) {
  const std::size_t size = AddressFrame(frame, *client.pull, static_cast<double>(SystemClockUs()));
  client.pull.reset();
  client.serial = frame.header.serial;
  ++state.figures_of_host.frames_sent;
  return Send(state, wsi, frame.bytes.data(), size, LWS_WRITE_BINARY);
}

int SendNext(ServerState& state, lws* wsi, Client& client) {
  if (state.closing) {
    lws_close_reason(wsi, LWS_CLOSE_STATUS_GOINGAWAY, nullptr, 0);
    return -1;
  }
  if (!client.has_hello) {
    client.has_hello = true;
    return Send(state, wsi, state.hello, LWS_WRITE_TEXT);
  }
  if (!client.has_directions) {
    client.has_directions = true;
    return Send(state, wsi, state.directions, LWS_WRITE_BINARY);
  }
  if (client.figures_number != state.figures_number) {
    client.figures_number = state.figures_number;
    return Send(state, wsi, state.figures, LWS_WRITE_TEXT);
  }
  if (!client.pull) return 0;
  const std::shared_ptr<FrameMessage> frame = state.reader->Newest().any;
  if (!frame || frame->header.serial == client.serial) return 0;
  return SendFrame(state, wsi, client, *frame);
}

int TakePull(lws* wsi, Client& client, std::span<const std::uint8_t> bytes) {
  const bool whole = lws_is_first_fragment(wsi) != 0 && lws_is_final_fragment(wsi) != 0;
  std::optional<Pull> pull;
  if (whole && lws_frame_is_binary(wsi) != 0) pull = ReadPull(bytes);
  if (!pull) {
    lws_close_reason(wsi, LWS_CLOSE_STATUS_POLICY_VIOLATION, nullptr, 0);
    return -1;
  }
  pull->pulled_us = static_cast<double>(SystemClockUs());
  client.pull = pull;
  lws_callback_on_writable(wsi);
  return 0;
}

}  // namespace

int LiveCallback(lws* wsi, lws_callback_reasons reason, void* session, void* in, std::size_t size) {
  auto* client = static_cast<Client**>(session);
  switch (reason) {
    case LWS_CALLBACK_ESTABLISHED:
      *client = new Client;
      ++StateOf(wsi).figures_of_host.clients;
      lws_callback_on_writable(wsi);
      return 0;
    case LWS_CALLBACK_SERVER_WRITEABLE:
      return SendNext(StateOf(wsi), wsi, **client);
    case LWS_CALLBACK_RECEIVE:
      return TakePull(wsi, **client, {static_cast<const std::uint8_t*>(in), size});
    case LWS_CALLBACK_CLOSED:
      if (*client != nullptr) --StateOf(wsi).figures_of_host.clients;
      delete *client;
      *client = nullptr;
      return 0;
    default:
      return 0;
  }
}

}  // namespace kerul::lidar::web
