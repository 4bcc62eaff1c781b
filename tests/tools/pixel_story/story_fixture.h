// Streams of the simulated sensor and its calibration, for stories.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "pixel_story/story_run.h"
#include "sensor_simulator/calibration_blobs.h"
#include "sensor_simulator/frame_packets.h"
#include "sensor_simulator/frame_simulator.h"
#include "support/temp_dir.h"

namespace kerul::lidar::story {

// The calibration of the simulated sensor, on disk for as long as the process lives.
inline const std::string& CalibrationDir() {
  static const testing::TempDir directory;
  static const std::string place =
      simulator::WriteBlobs(simulator::MakeBlobs(simulator::SimulatorOptions{}), directory.path())
          .string();
  return place;
}

using Stream = std::vector<UdpPacket>;

// `frames` frames of the scene, numbered from `first` on.
inline Stream SimulatedFrames(const std::string& scene, int frames, std::uint32_t first = 5) {
  Stream stream;
  for (int i = 0; i < frames; ++i) {
    const auto number = first + static_cast<std::uint32_t>(i);
    const Stream frame = simulator::ToUdpPackets(simulator::SimulateFrame(scene, number));
    stream.insert(stream.end(), frame.begin(), frame.end());
  }
  return stream;
}

inline DatagramFeed FeedOf(Stream stream) {
  const auto rest = std::make_shared<std::pair<Stream, std::size_t>>(std::move(stream), 0);
  return [rest](UdpPacket& packet) {
    if (rest->second == rest->first.size()) return false;
    packet = rest->first[rest->second++];
    return true;
  };
}

inline StorySource SourceOf(Stream stream, int frame) {
  return {.feed = FeedOf(std::move(stream)),
          .cali_path = CalibrationDir(),
          .config = default_config::kConfig,
          .frame = frame};
}

}  // namespace kerul::lidar::story
