// What kind of capture a file is, for those who wonder why nothing of it is read.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace kerul::lidar {

// What stands against reading a capture that begins with `header`, as half a sentence: the format
// of its file or the link type of its frames. Empty for a little-endian classic capture of Ethernet
// frames with microseconds, and for a file that is no capture at all. Shorter than 24 bytes, a
// header tells no link type.
std::string CaptureFormatNote(std::span<const std::uint8_t> header);

}  // namespace kerul::lidar
