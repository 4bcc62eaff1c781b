// What kind of capture a file is, to explain why nothing of it is read.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace kerul::lidar {

// Why a capture that begins with `header` cannot be read, as half a sentence: the format of its
// file or the link type of its frames. Empty for a little-endian classic capture of Ethernet frames
// with microseconds, and for a file that is no capture at all. A header shorter than 24 bytes holds
// no link type.
std::string CaptureFormatNote(std::span<const std::uint8_t> header);

}  // namespace kerul::lidar
