#include "lidar_record/record_options.h"

#include <CLI/CLI.hpp>
#include <map>

#include "support/number_options.h"

namespace kerul::lidar::record {
namespace {

constexpr std::uint64_t kMib = std::uint64_t{1} << 20;

void AddFileOptions(CLI::App& app, RecordOptions& options) {
  app.add_option("--out", options.out,
                 "File to write; a name that is taken gets a number, as further files do");
  const std::map<std::string, mcap::Compression> names{{"zstd", mcap::Compression::kZstd},
                                                       {"lz4", mcap::Compression::kLz4},
                                                       {"none", mcap::Compression::kNone}};
  app.add_option_function<std::string>(
         "--compression",
         [&options, names](const std::string& name) { options.compression = names.at(name); },
         "zstd (default), lz4 or none")
      ->check(CLI::IsMember({"zstd", "lz4", "none"}));
  app.add_option_function<std::uint64_t>(
         "--split-size", [&options](std::uint64_t mib) { options.split_bytes = mib * kMib; },
         "Begin a new file before this one has more than so many MiB")
      ->check(WholeNumber(1, std::uint64_t{1} << 40));
  app.add_option("--split-time", options.split_seconds,
                 "Begin a new file when this one spans so many seconds")
      ->check(PositiveNumber());
  app.add_option("--raw", options.raw_capture,
                 "At the end add the sensor's datagrams of this capture file");
}

void AddModeOptions(CLI::App& app, RecordOptions& options) {
  app.add_option("--topic", options.topic, "Topic of the clouds (default lidar/points)");
  auto* frames = app.add_option("--frames", options.frames, "Stop after this many frames")
                     ->check(WholeNumberOf(options.frames, 1));
  auto* seconds =
      app.add_option("--seconds", options.seconds, "Stop after this time")->check(PositiveNumber());
  auto* last = app.add_flag_callback(
      "--last", [&options] { options.mode = Mode::kLast; },
      "Write what the ring still holds, then end");
  auto* on_signal = app.add_option_function<double>(
                           "--on-signal",
                           [&options](double kept) {
                             options.mode = Mode::kOnSignal;
                             options.kept_seconds = kept;
                           },
                           "Keep the last so many seconds in memory and write them at each SIGUSR1")
                        ->check(PositiveNumber());
  app.add_option("--memory", options.memory_mib,
                 "Most that --on-signal keeps, MiB after compression (default 1024)")
      ->check(WholeNumber(1, std::uint64_t{1} << 20))
      ->needs(on_signal);
  last->excludes(on_signal)->excludes(frames)->excludes(seconds)->excludes(app.get_option("--udp"));
  on_signal->excludes(frames)->excludes(app.get_option("--raw"));
}

void AddExtract(CLI::App& app, ExtractOptions& options) {
  CLI::App* extract = app.add_subcommand("extract", "Write one recorded cloud as other files");
  extract->add_option("file", options.file, "MCAP file")->required();
  extract->add_option("--frame", options.frame, "Number of the cloud, from 0 (default 0)")
      ->check(WholeNumberOf(options.frame));
  extract->add_option("--topic", options.topic, "Of this topic (default: the first with clouds)");
  extract->add_option("--pcd", options.pcd, "Write its points as binary PCD");
  extract->add_option("--ply", options.ply, "Write its points as binary PLY");
  extract->add_option("--las", options.las, "Write its points as LAS 1.2");
  extract->add_option("--png", options.png, "Write it as a picture");
  extract->require_option(2, 0);  // the file, and something to write
}

}  // namespace

bool ParseCommandLine(int argc, const char* const* argv, CommandLine& line, int& exit_status) {
  CLI::App app("Records the points of the LiDAR node as MCAP files, and reads them.");
  app.require_subcommand(0, 1);
  ros::AddStreamOptions(app, line.record.stream);
  ros::AddMessageOptions(app, line.record.messages);
  AddFileOptions(app, line.record);
  AddModeOptions(app, line.record);
  CLI::App* info = app.add_subcommand("info", "Tell what is in a file and what is damaged");
  info->add_option("file", line.info_file, "MCAP file")->required();
  AddExtract(app, line.extract);
  try {
    app.parse(argc, argv);
    if (app.get_subcommands().empty() && line.record.out.empty()) {
      throw CLI::RequiredError("--out");
    }
  } catch (const CLI::ParseError& error) {
    exit_status = app.exit(error) == 0 ? 0 : 1;
    return false;
  }
  if (info->parsed()) line.command = Command::kInfo;
  if (app.got_subcommand("extract")) line.command = Command::kExtract;
  return true;
}

}  // namespace kerul::lidar::record
