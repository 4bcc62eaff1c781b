#include "lidar_web/web_app.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <ostream>

#include "config/default_config.h"
#include "kerul_lidar/shm_region.h"
#include "lidar_view/directions.h"
#include "lidar_web/story_maker.h"
#include "lidar_web/system_clock.h"
#include "lidar_web/web_server.h"

namespace kerul::lidar::web {
namespace {

constexpr const char* kNodeProcess = "lidar_node";

// The names that a request may have for this machine.
std::vector<std::string> HostNames(const WebOptions& options) {
  std::vector<std::string> names = options.allowed_hosts;
  std::array<char, 256> name{};
  if (gethostname(name.data(), name.size() - 1) == 0 && name[0] != '\0') {
    names.emplace_back(name.data());
    names.push_back(names.back() + ".local");
  }
  return names;
}

std::vector<char> WithRoom(const std::string& text) {
  std::vector<char> room(WebServer::kRoomBefore, '\0');
  room.insert(room.end(), text.begin(), text.end());
  return room;
}

// An address of a page for whoever reads it on this machine.
std::string Url(const std::string& bind, int port) {
  const bool any = bind == "0.0.0.0" || bind == "::";
  const std::string host = any ? "127.0.0.1" : bind;
  const bool is_v6 = host.find(':') != std::string::npos;
  std::string url = "http://";
  url.append(is_v6 ? "[" : "").append(host).append(is_v6 ? "]" : "");
  return url.append(":").append(std::to_string(port)).append("/");
}

bool LoadGeometry(const WebOptions& options, ViewGeometry& geometry, std::string& error) {
  if (!view::LoadDirectionsOrDefault(options.calib_dir, geometry.directions, error)) return false;
  if (options.mount) geometry.mount = default_config::kConfig.transform;
  return true;
}

void MakeGreeting(const WebOptions& options, ServerState& state) {
  state.hello = WithRoom(FormatHello({.source = state.reader->Figures().source,
                                      .directions = state.geometry.directions.origin,
                                      .default_directions = options.calib_dir.empty(),
                                      .mounted = options.mount,
                                      .stories = !options.story_captures.empty()}));
  state.directions =
      EncodeDirections(state.geometry.directions, state.geometry.Mount(), WebServer::kRoomBefore);
}

void MakeWatches(const WebOptions& options, ServerState& state) {
  const bool by_ring = options.source.udp_port == 0;
  const std::string ring =
      by_ring ? ShmRegion::ObjectFile(ShmRegion::NormalizeName(options.source.shm_name.c_str()))
              : "";
  state.host = std::make_unique<HostWatch>(kNodeProcess, ring,
                                           static_cast<std::uint16_t>(options.node_port));
  if (!options.node_log.empty()) state.node_log = std::make_unique<NodeLog>(options.node_log);
  state.figures_of_host.started = std::chrono::steady_clock::now();
  state.figures_of_host.started_unix_s = static_cast<double>(SystemClockUs()) / 1e6;
}

// pixel_story is installed with this program.
bool FindStorySource(const WebOptions& options, const std::string& program, StorySource& source,
                     std::string& error) {
  source = {.program = options.story_program,
            .captures = options.story_captures,
            .calib_dir = options.story_calib.empty() ? options.calib_dir : options.story_calib};
  if (source.program.empty()) {
    source.program = (std::filesystem::path(program).parent_path() / "pixel_story").string();
  }
  if (source.calib_dir.empty()) {
    error = "--story needs the node's calibration: --calib or --story-calib";
  } else if (access(source.program.c_str(), X_OK) != 0) {
    error = "--story needs " + source.program + ": " + std::strerror(errno);
  }
  return error.empty();
}

// The two that make what takes long.
void StartMakers(ServerState& state, const StorySource* stories, const std::function<void()>& wake,
                 std::ostream& err) {
  state.files = std::make_unique<FileMaker>(
      "files", kMostFileJobs,
      [&state](FileJob& job, const std::function<bool()>&) { MakeFile(job, state.geometry); },
      wake);
  if (stories == nullptr) return;
  state.stories = std::make_unique<FileMaker>(
      "stories", kMostStoryJobs,
      [source = *stories, &err](FileJob& job, const std::function<bool()>& wanted) {
        MakeStory(source, job, wanted,
                  [&err](const std::string& line) { err << line << std::endl; });
      },
      wake);
}

}  // namespace

int RunWebServer(const WebOptions& options, const std::string& program,
                 const std::atomic<bool>& stop, std::ostream& out, std::ostream& err) {
  const auto fail = [&](const std::string& reason) {
    err << "lidar_web: " << reason << std::endl;
    return 1;
  };
  std::string reason;
  ServerState state;
  WebServer server;
  const auto wake = [&server] { server.Wake(); };
  if (!LoadGeometry(options, state.geometry, reason)) return fail(reason);
  StorySource story_source;
  const bool tells_stories = !options.story_captures.empty();
  if (tells_stories && !FindStorySource(options, program, story_source, reason)) {
    return fail(reason);
  }
  const std::string page = options.page.empty() ? FindPageFolder(program) : options.page;
  if (!page.empty() && !state.page.Load(page, reason)) return fail(reason);
  if (page.empty()) err << "lidar_web: the page is not there: only figures and files" << std::endl;
  state.host_names = HostNames(options);
  state.reader = std::make_unique<StreamReader>(WebServer::kRoomBefore, wake);
  if (!state.reader->Open(options.source, reason)) return fail(reason);
  MakeWatches(options, state);
  MakeGreeting(options, state);
  if (!server.Open(state, options.bind, options.port, reason)) {
    return fail("cannot listen on " + options.bind + " port " + std::to_string(options.port) +
                ": " + reason);
  }
  StartMakers(state, tells_stories ? &story_source : nullptr, wake, err);
  state.reader->Start();
  out << "lidar_web: " << Url(options.bind, server.Port()) << " shows "
      << state.reader->Figures().source << std::endl;
  server.Run(stop);
  // The threads end before what they wake does.
  state.reader.reset();
  state.files.reset();
  state.stories.reset();
  return 0;
}

}  // namespace kerul::lidar::web
