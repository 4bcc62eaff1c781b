// Plain HTTP on a connection of the server.
#pragma once

#include <libwebsockets.h>

#include "lidar_web/server_state.h"

namespace kerul::lidar::web {

// The library's callback for HTTP requests and for connections as such. The memory of a session is
// one pointer, zeroed by the library; the context's user pointer is the ServerState.
int HttpCallback(lws* wsi, lws_callback_reasons reason, void* session, void* in, std::size_t size);

inline constexpr std::size_t kHttpSessionBytes = sizeof(void*);

}  // namespace kerul::lidar::web
