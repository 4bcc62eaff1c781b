#include "lidar_dds/options.h"

#include <CLI/CLI.hpp>

#include "support/number_options.h"

namespace kerul::lidar::dds {
namespace {

std::string CheckTopicName(std::string& name) {
  if (name.rfind('/', 0) == 0) name.erase(0, 1);
  if (IsTopicName(name)) return "";
  return name + " is no topic name: letters, digits and underscores between single slashes";
}

}  // namespace

bool ParseOptions(int argc, const char* const* argv, Options& options, int& exit_status) {
  CLI::App app("Publishes the LiDAR node's frames as ROS 2 topics, without ROS 2.");
  ros::AddStreamOptions(app, options.stream);
  app.add_option("--topic", options.topics.topic,
                 "Topic of the point clouds (default lidar/points)")
      ->transform(CLI::Validator(CheckTopicName, "NAME"));
  app.add_option("--domain", options.topics.domain,
                 "DDS domain (default: that of ROS_DOMAIN_ID, else 0)")
      ->envname("ROS_DOMAIN_ID")
      ->check(WholeNumber(0, 232));
  app.add_flag("--images", options.topics.images,
               "Publish images of range and reflectivity too, below the topic");
  ros::AddMessageOptions(app, options.bridge.messages);
  app.add_option("--seconds", options.bridge.seconds, "Stop after this time")
      ->check(PositiveNumber());
  app.add_option("--frames", options.bridge.frames, "Stop after this many complete frames")
      ->check(WholeNumberOf(options.bridge.frames, 1));
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    exit_status = app.exit(error) == 0 ? 0 : 1;
    return false;
  }
  options.bridge.images = options.topics.images;
  return true;
}

}  // namespace kerul::lidar::dds
