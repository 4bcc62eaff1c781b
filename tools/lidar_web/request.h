// What an HTTP request asks for, and whether it may: text from outside, looked at without touching
// anything.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace kerul::lidar::web {

enum class Method : std::uint8_t { kGet, kHead, kPost, kOther };

enum class FileFormat : std::uint8_t { kPng, kPcd, kPly, kLas, kJson };

inline constexpr std::size_t kStoryNameLength = 32;

enum class Wanted : std::uint8_t {
  kNothing,  // no such path
  kPage,     // a file of the page: Target::file
  kStream,
  kMetrics,
  kHealth,
  kFrame,      // Target::format
  kStory,      // of Target::row and Target::col, 0,0 to 215,287
  kToldStory,  // Target::file is its name
};

struct Target {
  Wanted wanted = Wanted::kNothing;
  std::string_view file;  // into the path, or "index.html"
  FileFormat format = FileFormat::kPng;
  bool floats = false;  // ?floats=1
  int row = 0;
  int col = 0;
};

// `path` begins with a slash and is decoded; what stands after a question mark is taken as part of
// `query`, which has the form a=1&b=2.
Target ParseTarget(std::string_view path, std::string_view query);

// Whether a request for this Host comes from somebody who knows whom he asks: an IP address,
// localhost, or one of `names`, with or without a port. Other names may be somebody else's, led
// here by a name server of his (DNS rebinding). An empty one is not.
bool IsOwnHost(std::string_view host, std::span<const std::string> names);

// Whether a page of this Origin was served under this Host. No Origin at all is none of a page.
bool IsOwnOrigin(std::string_view origin, std::string_view host);

// Whether a header's list of words, separated by commas and spaces, holds this one.
bool HasWord(std::string_view list, std::string_view word);

// Name of a file's type for Content-Type, by the name's ending.
const char* ContentType(std::string_view file) noexcept;

// ".png", ".pcd", ...
const char* FormatEnding(FileFormat format) noexcept;

}  // namespace kerul::lidar::web
