// Packets and points in the states in which the kernels find them.
#pragma once

#include <string>
#include <vector>

#include "kernel_bench.h"
#include "reference/encoder.h"
#include "reference/ground.h"
#include "reference/packet_calibration.h"
#include "reference/parser.h"

namespace kerul::lidar::bench {

// The reference's settings and tables, from the same calibration as the node's.
struct ReferenceTables {
  reference::Parser parser;
  reference::EnvironmentTables environment;
  reference::RangeTables range;
  reference::HeightMapTables height_map;
  reference::ReflectivityTables reflectivity;
};
ReferenceTables MakeReferenceTables(LidarNodeTestAccess node);

using Points = std::vector<LidarPoint>;

UdpPacket MakeDatagram(const RawPacket& raw);

// Sixteen successive packets of the scene's frames: batch `i` modulo all there are.
std::vector<UdpPacket> BatchOfDatagrams(const std::string& scene, int i);

// The points of all batches of a scene as the parser gives them, made at the first call.
const std::vector<std::vector<Points>>& ParsedBatches(const std::string& scene, BenchNode& node);

// Rows of the scene's frames after calibration, as the frame holds them: [frame][pixel row].
const std::vector<std::vector<Points>>& CalibratedFrames(const std::string& scene, BenchNode& node);

}  // namespace kerul::lidar::bench
