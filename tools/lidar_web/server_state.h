// What the server's connections share. All of it belongs to the thread that serves them, but for
// what its parts do on threads of their own.
#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "lidar_web/figures.h"
#include "lidar_web/file_maker.h"
#include "lidar_web/frame_files.h"
#include "lidar_web/node_log.h"
#include "lidar_web/page_files.h"
#include "lidar_web/story_shelf.h"
#include "lidar_web/stream_reader.h"

struct lws;

namespace kerul::lidar::web {

// Bounds that keep a flood from taking memory or the node's share of the machine.
inline constexpr int kMostConnections = 256;
inline constexpr int kMostLiveClients = 32;
inline constexpr std::size_t kMostFileJobs = 8;
// A reader that takes nothing for so long is hung up on.
inline constexpr int kStalledReaderSeconds = 20;

struct ServerState {
  PageFiles page;
  std::vector<std::string> host_names;  // that a request may name, beside addresses and localhost

  ViewGeometry geometry;
  std::unique_ptr<StreamReader> reader;
  std::unique_ptr<FileMaker> files;
  std::unique_ptr<FileMaker> stories;  // null: none are told
  StoryShelf told_stories;
  std::unique_ptr<HostWatch> host;
  std::unique_ptr<NodeLog> node_log;  // null: nobody tells

  // Messages for all clients, with room before them for the library's header.
  std::vector<char> hello;
  std::vector<char> directions;
  std::vector<char> figures;
  std::uint64_t figures_number = 0;  // counts them

  HostFigures figures_of_host;
  int connections = 0;
  std::set<lws*> waiting_for_files;
  bool closing = false;

  // Looks at machine and stream, and makes the next figures message.
  void MakeFigures();
  std::string Metrics();

 private:
  void LookAround();
};

}  // namespace kerul::lidar::web
