// What lidar_web takes from outside: request lines and headers, pulls, frame messages that are to
// become files, lines of the node's log, texts of the system. The first byte chooses.
#include <string>
#include <string_view>
#include <vector>

#include "byte_input.h"
#include "lidar_web/figures.h"
#include "lidar_web/frame_files.h"
#include "lidar_web/host_watch.h"
#include "lidar_web/node_log.h"
#include "lidar_web/request.h"

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

const ViewGeometry& Geometry() {
  static const ViewGeometry geometry = [] {
    ViewGeometry made;
    made.directions.unit.assign(kPixels, {1.0F, 0.0F, 0.0F});
    return made;
  }();
  return geometry;
}

// The input is the header and the first bytes of the planes, which are filled up with themselves.
void CheckFrameMessage(std::string_view text, std::uint8_t choice) {
  std::vector<char> message(text.begin(), text.end());
  if (!ReadFrameHeader(message) && message.size() > kFrameHeaderBytes) {
    const bool two = message[2] == 2;
    const bool flags = (message[1] & 1) != 0;
    const std::size_t size = kFrameHeaderBytes + kPixels * (two ? 2U : 1U) * (flags ? 5U : 3U);
    const std::size_t period = message.size() - kFrameHeaderBytes;
    if (message.size() > size) message.resize(size);
    while (message.size() < size) message.push_back(message[message.size() - period]);
  }
  const std::optional<FrameHeader> header = ReadFrameHeader(message);
  if (!header) return;
  Require(message.size() == header->MessageBytes(), "a message has the length of its header");
  constexpr FileFormat kQuick[] = {FileFormat::kPcd, FileFormat::kPly, FileFormat::kLas,
                                   FileFormat::kJson};
  std::vector<char> file;
  std::string error;
  Require(MakeFrameFile(*header, message, Geometry(), kQuick[choice % 4], (choice & 4) != 0, file,
                        error),
          "a message that was taken becomes a file");
  Require(!file.empty(), "a file has a header");
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
      CheckFrameMessage(text, data[0] / 6);
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
