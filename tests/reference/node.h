// The whole node as a function of a live stream: datagrams in, published packets out.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "config/default_config.h"
#include "reference/encoder.h"
#include "reference/ground.h"
#include "reference/ordering.h"
#include "reference/packet_calibration.h"
#include "reference/parser.h"
#include "reference/records.h"

namespace reference {

// What differs from sensor to sensor.
struct SensorCalibration {
  std::vector<float> dist_curve;       // 512
  std::vector<float> dist_curve_high;  // 512 or none
  std::vector<float> dist_offset;      // 82944
  std::vector<float> retro_curve;      // 512
  std::vector<float> retro_scale;      // 82944
  kerul::lidar::AngleCalibGrid angle_grid;
};

// From the places in the configuration's own tables.
SensorCalibration CalibrationFromTables(const kerul::lidar::DefaultTables& tables);

// From the sensor's blobs: a head of at least 98 bytes and a main blob.
SensorCalibration CalibrationFromPara2(const std::vector<std::uint8_t>& head,
                                       const std::vector<std::uint8_t>& main,
                                       const kerul::lidar::DefaultConfig& config);

// A published packet with its clock (bytes 216 to 223) as zero.
using PublishedPacket = std::array<std::uint8_t, 249>;

// One closed frame: the id that it was closed with, and how many packets it had taken.
struct FrameClosed {
  int frame_id = 0;
  int received_count = 0;
};

struct ExportedFile {
  std::string path;
  std::vector<std::uint8_t> bytes;
};

class Node {
 public:
  // Throws std::runtime_error for tables of a wrong size. Sets LidarPoint::echo_num; only one Node
  // may be fed at a time when their echo_num differ. The output is taken to be open.
  Node(const kerul::lidar::DefaultConfig& config, const SensorCalibration& calibration);

  // One datagram from a live socket, cut at 1500 bytes. An empty one is not taken. Without effect
  // once the run_once setting has stopped the node.
  void Feed(const std::uint8_t* data, std::size_t length);

  // What has come out so far.
  std::vector<PublishedPacket> published;
  std::vector<FrameClosed> closed_frames;
  std::vector<ExportedFile> exported_files;
  bool running = true;

  // State, open for the tests to look at.
  LidarFrame frame;
  LidarFrame upsampled_frame;
  int current_frame_id = -1;
  int next_mrow = 0;
  std::vector<float> cur_dist_map;
  std::vector<float> prev_dist_map;

 private:
  void TakeCommonTables();
  void TakeCalibration(const SensorCalibration& calibration);
  void TakeGroundSettings();

  void RunPacket();
  void CloseFrame(int id);
  void ResetMrowProgress();
  void ExportFrame(int closing_id);

  void CalibratePacket();
  void UpdateFrames(int packet_index);
  void AdvanceRows(int target);
  void ProcessMiniflashRow(int m_row);
  void ForwardRow(int m_row);
  void SendBlock(int packet_index, int slot, int marker);

  kerul::lidar::DefaultConfig config_;
  Parser parser_;
  EchoOutputPlan echo_plan_;
  GroundSettings ground_settings_;
  kerul::lidar::AngleCalibGrid angle_grid_;
  kerul::lidar::BloomSuppressCalib bloom_calib_;
  EnvironmentTables environment_;
  RangeTables range_;
  HeightMapTables height_map_;
  ReflectivityTables reflectivity_;
  bool has_environment_ = false;
  bool has_range_ = false;
  bool has_height_map_ = false;
  bool has_high_refl_check_ = false;
  bool has_reflectivity_ = false;

  std::vector<std::vector<bool>> mrow_packet_seen_;
  std::vector<int> mrow_packet_count_;
  std::uint64_t export_file_seq_ = 0;

  UdpPacket in_packet_{};   // bytes after a short datagram keep what the buffer held
  UdpPacket out_packet_{};  // bytes that are never written stay zero
  std::vector<LidarPoint> points_;
  int frame_id_ = 0;  // of the packet in hand
};

}  // namespace reference
