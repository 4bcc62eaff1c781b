// The DDS side: a participant with a writer for each kind of message, as ROS 2 subscribes to them.
#pragma once

#include <memory>
#include <string>

#include "lidar_dds/message_sink.h"

namespace kerul::lidar::dds {

struct TopicOptions {
  std::string topic = "lidar/points";  // a ROS 2 name: no "rt/", no slash in front
  bool images = false;                 // also <topic>/range and <topic>/reflectivity
  int domain = 0;                      // 0..232
};

// Whether ROS 2 takes it as a topic's name: parts of letters, digits and underscores, none
// beginning with a digit, between single slashes.
bool IsTopicName(const std::string& name);

// Joins the domain. Null with the reason in `error`. The configuration of CYCLONEDDS_URI, where it
// is set, comes after that for large messages which is compiled in.
//
// Writers are reliable and keep the last five messages. A subscriber that no longer answers makes
// nobody wait: what is older than five messages is lost to it alone.
std::unique_ptr<MessageSink> OpenTopics(const TopicOptions& options, std::string& error);

}  // namespace kerul::lidar::dds
