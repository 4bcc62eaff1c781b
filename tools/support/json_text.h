// Text inside JSON.
#pragma once

#include <string>
#include <string_view>

namespace kerul::lidar {

// The text as a JSON string, with its quotation marks. Bytes that are no ASCII are kept.
std::string JsonText(std::string_view text);

}  // namespace kerul::lidar
