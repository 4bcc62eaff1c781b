// The live stream on a connection of the server.
#pragma once

#include <libwebsockets.h>

#include "lidar_web/server_state.h"

namespace kerul::lidar::web {

// The library's callback for the stream's protocol; session memory and user pointer as for
// HttpCallback.
int LiveCallback(lws* wsi, lws_callback_reasons reason, void* session, void* in, std::size_t size);

inline constexpr std::size_t kLiveSessionBytes = sizeof(void*);
inline constexpr const char* kLiveProtocol = "kerul-lidar-1";

}  // namespace kerul::lidar::web
