// What lidar_web takes from outside: request lines and headers, pulls, headers of frame
// messages, lines of the node's log, texts of the system. The first byte chooses.
#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "byte_input.h"
#include "lidar_web/figures.h"
#include "lidar_web/frame_message.h"
#include "lidar_web/host_watch.h"
#include "lidar_web/node_log.h"
#include "lidar_web/request.h"
#include "support/json_text.h"

using namespace kerul::lidar;
using namespace kerul::lidar::web;
using fuzz::Require;

namespace {

void CheckTarget(std::string_view text) {
  const std::size_t end = std::min(text.find('\n'), text.size());
  const std::string_view path = text.substr(0, end);
  const Target target = ParseTarget(path, text.substr(std::min(end + 1, text.size())));
  if (target.wanted != Wanted::kPage) return;
  Require(target.file.find('/') == std::string_view::npos && target.file.front() != '.' &&
              target.file.find('\0') == std::string_view::npos,
          "a page's file is a name and no path");
  Require(ContentType(target.file) != nullptr, "a type for every file");
}

void CheckHeaders(std::string_view text) {
  const std::vector<std::string> names{"lidar"};
  const std::size_t end = std::min(text.find('\n'), text.size());
  const std::string_view host = text.substr(0, end);
  const std::string_view origin = text.substr(std::min(end + 1, text.size()));
  if (IsOwnHost(host, names)) {
    Require(host.find_first_of("@/\\ ") == std::string_view::npos, "an own host is a plain name");
  }
  if (IsOwnOrigin(origin, host) && !origin.empty()) {
    Require(origin.size() == host.size() + 7, "an own origin is the scheme and the host");
  }
  HasWord(origin, host);
}

// The input is the header; zeros follow up to each length that a message can have. What becomes of
// the planes is no fuzzer's work: 62,208 pixels take it most of its time.
void CheckFrameMessage(std::string_view text) {
  static std::vector<char> room(kLargestFrameBytes);
  const std::size_t head = std::min(text.size(), kFrameHeaderBytes);
  std::fill_n(room.begin(), kFrameHeaderBytes, '\0');
  std::copy_n(text.begin(), head, room.begin());
  for (const std::size_t bytes_of_point : {3U, 5U, 6U, 10U}) {
    const std::size_t size = kFrameHeaderBytes + kPixels * bytes_of_point;
    const std::optional<FrameHeader> header = ReadFrameHeader(std::span(room).first(size));
    Require(!header || header->MessageBytes() == size, "a message has the length of its header");
  }
  Require(text.size() > kLargestFrameBytes || !ReadFrameHeader(text) ||
              text.size() >= kFrameHeaderBytes + 3 * kPixels,
          "a message that was taken has its planes");
}

void CheckLog(std::string_view text) {
  LossTotals whole;
  whole.Take(text);
  LossTotals pieces;
  std::uint64_t before = 0;
  for (const char c : text) {
    pieces.Take({&c, 1});
    Require(pieces.BeforeHost() >= before, "loss never falls");
    before = pieces.BeforeHost();
  }
  Require(whole.BeforeHost() == pieces.BeforeHost(), "pieces give what the whole gives");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
  switch (data[0] % 6) {
    case 0:
      CheckTarget(text);
      break;
    case 1:
      CheckHeaders(text);
      break;
    case 2:
      ReadPull({data + 1, size - 1});
      break;
    case 3:
      CheckFrameMessage(text);
      break;
    case 4:
      CheckLog(text);
      break;
    default: {
      UdpDrops(text, 2368);
      HasMapping(text, 0, 26, 12345);
      ProcessFigures figures;
      ReadProcessStat(text, figures);
      Require(JsonText(std::string(text)).size() >= text.size() + 2, "text in quotation marks");
      break;
    }
  }
  return 0;
}
