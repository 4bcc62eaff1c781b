#include "lidar_view/viewer_app.h"

#include <memory>
#include <ostream>

#include "config/default_config.h"
#include "support/output_file.h"

namespace kerul::lidar::view {
namespace {

constexpr const char* kClearLine = "\r\033[K";

// Why there is no complete frame, as a message.
std::string NoFrameMessage(const PacketInput& input, const ViewCounts& counts) {
  const std::string text = "no complete frame came from " + input.Describe() + ": ";
  if (counts.packets == 0 && counts.invalid == 0) return text + "no packets";
  return text + std::to_string(counts.packets) + " packets, " + std::to_string(counts.incomplete) +
         " incomplete frames, " + std::to_string(counts.lost) + " packets lost, " +
         std::to_string(counts.invalid) + " not point packets";
}

// Everything that is to be written, and what is wrong, one line each.
std::string WriteResults(const ViewerOptions& options, const PacketInput& input,
                         const StreamViewer& viewer, const Directions& directions) {
  std::string failures;
  std::string reason;
  if (!options.summary.empty() &&
      !WriteOutputFile(options.summary, FormatSummary(viewer.Counts(), viewer.Seconds()), reason)) {
    failures += "cannot write " + options.summary + ": " + reason + "\n";
  }
  const CollectedFrame* frame = viewer.LatestComplete();
  if (frame == nullptr) return failures + NoFrameMessage(input, viewer.Counts()) + "\n";
  const TransformParam* mount = options.mount ? &default_config::kConfig.transform : nullptr;
  std::string unwritten;
  WriteFrameFiles(options.files, *frame, directions, mount, options.picture, unwritten);
  return failures + unwritten;
}

std::unique_ptr<PacketInput> OpenInput(const ViewerOptions& options, std::ostream& err) {
  if (options.udp_port == 0) return MakeRingInput(options.shm_name);
  std::string reason;
  auto input =
      MakeUdpInput(static_cast<std::uint16_t>(options.udp_port), options.multicast_group, reason);
  if (input == nullptr) {
    err << "lidar_view: cannot open UDP port " << options.udp_port << ": " << reason << std::endl;
  }
  return input;
}

}  // namespace

int RunViewer(const ViewerOptions& options, const std::atomic<bool>& stop, bool overwrite_status,
              std::ostream& out, std::ostream& err) {
  std::string reason;
  Directions directions;
  if (!LoadDirectionsOrDefault(options.calib_dir, directions, reason)) {
    err << "lidar_view: " << reason << std::endl;
    return 1;
  }
  const std::unique_ptr<PacketInput> input = OpenInput(options, err);
  if (input == nullptr) return 1;
  input->SurviveShortening();

  StreamViewer viewer(*input);
  viewer.Run(options.limits, stop, [&](const std::string& line) {
    out << (overwrite_status ? kClearLine : "") << line << (overwrite_status ? "" : "\n")
        << std::flush;
  });
  if (overwrite_status) out << std::endl;

  const std::string failures = WriteResults(options, *input, viewer, directions);
  std::size_t begin = 0;
  for (std::size_t end = failures.find('\n'); end != std::string::npos;
       end = failures.find('\n', begin)) {
    err << "lidar_view: " << failures.substr(begin, end - begin) << std::endl;
    begin = end + 1;
  }
  return failures.empty() ? 0 : 1;
}

}  // namespace kerul::lidar::view
