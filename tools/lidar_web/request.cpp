#include "lidar_web/request.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <optional>

#include "kerul_lidar/point_packet_view.h"

namespace kerul::lidar::web {
namespace {

constexpr std::string_view kFramePath = "/frame";
constexpr std::string_view kToldPath = "/story/";
constexpr std::array kFormats{FileFormat::kPng, FileFormat::kPcd, FileFormat::kPly,
                              FileFormat::kLas, FileFormat::kJson};
constexpr std::size_t kLongestFileName = 100;

std::optional<FileFormat> FrameFormat(std::string_view path) {
  if (!path.starts_with(kFramePath)) return std::nullopt;
  const std::string_view ending = path.substr(kFramePath.size());
  for (const FileFormat format : kFormats) {
    if (ending == FormatEnding(format)) return format;
  }
  return std::nullopt;
}

bool IsFileName(std::string_view name) {
  return !name.empty() && name.size() <= kLongestFileName && name.front() != '.' &&
         std::all_of(name.begin(), name.end(), [](char c) {
           return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '.' || c == '_' ||
                  c == '-';
         });
}

bool HasParameter(std::string_view query, std::string_view parameter) {
  while (!query.empty()) {
    const std::size_t end = std::min(query.find('&'), query.size());
    if (query.substr(0, end) == parameter) return true;
    query.remove_prefix(std::min(end + 1, query.size()));
  }
  return false;
}

// The number after `name`, which ends with '='. Nothing for what is not one of 0 to `most`, or not
// there.
std::optional<int> NumberOf(std::string_view query, std::string_view name, int most) {
  while (!query.empty()) {
    const std::size_t end = std::min(query.find('&'), query.size());
    const std::string_view part = query.substr(0, end);
    query.remove_prefix(std::min(end + 1, query.size()));
    if (!part.starts_with(name)) continue;
    const std::string_view digits = part.substr(name.size());
    unsigned number = 0;
    const auto [last, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), number);
    const bool is_number = error == std::errc{} && last == digits.data() + digits.size();
    if (!is_number || number > static_cast<unsigned>(most)) return std::nullopt;
    return static_cast<int>(number);
  }
  return std::nullopt;
}

// The names are made by the server: 32 hexadecimal digits.
bool IsStoryName(std::string_view name) {
  return name.size() == kStoryNameLength &&
         name.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

bool IsAddress(std::string_view text) {
  // The system's reader stops at a zero, and would not see what follows.
  if (text.find('\0') != std::string_view::npos) return false;
  const std::string name(text);
  std::array<unsigned char, sizeof(in6_addr)> address;
  return inet_pton(AF_INET, name.c_str(), address.data()) == 1 ||
         inet_pton(AF_INET6, name.c_str(), address.data()) == 1;
}

// Without the port and without the brackets of an IPv6 address; empty for what is no host.
std::string_view HostName(std::string_view host) {
  std::string_view name = host;
  std::string_view rest;
  if (host.starts_with('[')) {
    const std::size_t end = host.find(']');
    if (end == std::string_view::npos) return {};
    name = host.substr(1, end - 1);
    rest = host.substr(end + 1);
  } else {
    const std::size_t end = std::min(host.find(':'), host.size());
    name = host.substr(0, end);
    rest = host.substr(end);
  }
  const bool is_port =
      rest.empty() || (rest.size() > 1 && rest.size() <= 6 && rest.front() == ':' &&
                       rest.find_first_not_of("0123456789", 1) == std::string_view::npos);
  return is_port ? name : std::string_view{};
}

bool EqualNames(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
    return std::tolower(static_cast<unsigned char>(x)) ==
           std::tolower(static_cast<unsigned char>(y));
  });
}

}  // namespace

Target ParseTarget(std::string_view path, std::string_view query) {
  const std::size_t mark = path.find('?');
  if (mark != std::string_view::npos) {
    query = path.substr(mark + 1);
    path = path.substr(0, mark);
  }
  Target target;
  if (path == "/stream") {
    target.wanted = Wanted::kStream;
  } else if (path == "/metrics") {
    target.wanted = Wanted::kMetrics;
  } else if (path == "/healthz") {
    target.wanted = Wanted::kHealth;
  } else if (path == "/story") {
    const std::optional<int> row = NumberOf(query, "row=", kFrameRows - 1);
    const std::optional<int> col = NumberOf(query, "col=", kFrameCols - 1);
    if (row && col) {
      target.wanted = Wanted::kStory;
      target.row = *row;
      target.col = *col;
    }
  } else if (path.starts_with(kToldPath) && IsStoryName(path.substr(kToldPath.size()))) {
    target.wanted = Wanted::kToldStory;
    target.file = path.substr(kToldPath.size());
  } else if (const std::optional<FileFormat> format = FrameFormat(path)) {
    target.wanted = Wanted::kFrame;
    target.format = *format;
    target.floats = HasParameter(query, "floats=1");
  } else if (path == "/") {
    target.wanted = Wanted::kPage;
    target.file = "index.html";
  } else if (path.starts_with('/') && IsFileName(path.substr(1))) {
    target.wanted = Wanted::kPage;
    target.file = path.substr(1);
  }
  return target;
}

bool IsOwnHost(std::string_view host, std::span<const std::string> names) {
  const std::string_view name = HostName(host);
  if (name.empty()) return false;
  if (EqualNames(name, "localhost") || IsAddress(name)) return true;
  return std::any_of(names.begin(), names.end(),
                     [&](const std::string& own) { return EqualNames(name, own); });
}

bool IsOwnOrigin(std::string_view origin, std::string_view host) {
  constexpr std::string_view kScheme = "http://";
  if (origin.empty()) return true;
  return origin.starts_with(kScheme) && EqualNames(origin.substr(kScheme.size()), host);
}

bool HasWord(std::string_view list, std::string_view word) {
  constexpr std::string_view kBetween = ", \t";
  while (!list.empty()) {
    const std::size_t end = std::min(list.find_first_of(kBetween), list.size());
    if (list.substr(0, end) == word) return true;
    list.remove_prefix(std::min(end + 1, list.size()));
  }
  return false;
}

const char* ContentType(std::string_view file) noexcept {
  struct Type {
    std::string_view ending;
    const char* name;
  };
  static constexpr Type kTypes[] = {{".html", "text/html; charset=utf-8"},
                                    {".js", "text/javascript; charset=utf-8"},
                                    {".css", "text/css; charset=utf-8"},
                                    {".json", "application/json"},
                                    {".map", "application/json"},
                                    {".txt", "text/plain; charset=utf-8"},
                                    {".svg", "image/svg+xml"},
                                    {".png", "image/png"},
                                    {".ico", "image/x-icon"},
                                    {".woff2", "font/woff2"}};
  for (const Type& type : kTypes) {
    if (file.ends_with(type.ending)) return type.name;
  }
  return "application/octet-stream";
}

const char* FormatEnding(FileFormat format) noexcept {
  switch (format) {
    case FileFormat::kPng:
      return ".png";
    case FileFormat::kPcd:
      return ".pcd";
    case FileFormat::kPly:
      return ".ply";
    case FileFormat::kLas:
      return ".las";
    case FileFormat::kJson:
      return ".json";
  }
  return "";
}

}  // namespace kerul::lidar::web
