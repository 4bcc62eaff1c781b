#include "source/capture_format.h"

#include <cstring>

namespace kerul::lidar {
namespace {

constexpr std::size_t kHeaderBytes = 24;
constexpr std::size_t kLinkTypeAt = 20;
constexpr std::uint32_t kLinkTypeMask = 0x0FFFFFFF;  // above: length of a check sequence
constexpr std::uint32_t kEthernet = 1;

std::uint32_t WordAt(std::span<const std::uint8_t> bytes, std::size_t at) {
  std::uint32_t word = 0;
  std::memcpy(&word, bytes.data() + at, sizeof word);
  return word;
}

const char* LinkTypeName(std::uint32_t type) {
  switch (type) {
    case 0:
      return "BSD loopback";
    case 12:
    case 101:
      return "raw IP";
    case 105:
      return "IEEE 802.11";
    case 108:
      return "OpenBSD loopback";
    case 113:
      return "Linux cooked";
    case 127:
      return "IEEE 802.11 with radiotap";
    case 228:
      return "raw IPv4";
    case 229:
      return "raw IPv6";
    case 276:
      return "Linux cooked, version 2";
    default:
      return "unknown here";
  }
}

std::string LinkTypeNote(std::span<const std::uint8_t> header) {
  if (header.size() < kHeaderBytes) return "";
  const std::uint32_t type = WordAt(header, kLinkTypeAt) & kLinkTypeMask;
  if (type == kEthernet) return "";
  return "the frames' link type is " + std::to_string(type) + " (" + LinkTypeName(type) +
         "), but all are read as Ethernet (1)";
}

}  // namespace

std::string CaptureFormatNote(std::span<const std::uint8_t> header) {
  constexpr std::size_t kMagicBytes = 4;
  if (header.size() < kMagicBytes) return "";
  switch (WordAt(header, 0)) {
    case 0xA1B2C3D4:
      return LinkTypeNote(header);
    case 0xD4C3B2A1:
      return "it is a capture in the other byte order";
    case 0xA1B23C4D:
    case 0x4D3CB2A1:
      return "it is a capture with nanoseconds";
    case 0x0A0D0D0A:
      return "it is a capture of the next generation's format (pcapng)";
    default:
      return "";
  }
}

}  // namespace kerul::lidar
