// A small frame as the node computes it, in every vector form this processor runs, and as the
// reference does: parser, calibration, assembly, row passes, encoder.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "MIPI_reader/node/bring_up.h"
#include "MIPI_reader/parser/lidar_parser.h"
#include "config/default_config.h"
#include "lanes/instruction_set.h"
#include "reference/node.h"
#include "sensor_simulator/calibration_blobs.h"

namespace kerul::lidar::fuzz {

inline constexpr int kTwinMrows = 3;
inline constexpr int kTwinCols = 72;  // the columns of slot 0
inline constexpr int kTwinBlockCols = kTwinCols / 6;

// What an input chooses.
struct TwinSettings {
  int echo_num = 2;
  int output_mode = 0;
  int echo_output_code = 12;
  int cogw_high_mode = 2;
  bool keep_bins = false;
  bool clip_side_peaks = false;
  bool calibrate = true;
  bool ground = true;
  bool ground_plane = false;
  bool blooming_filter = true;
};

// The tables and objects of both sides, from the simulated sensor's blobs; made once.
struct TwinTables {
  TwinTables(const DefaultConfig& product, const simulator::CalibrationBlobs& blobs);

  DefaultConfig config;
  reference::SensorCalibration sensor;
  CalibrationObjects objects;
  PacketCalibrator calibrator;
  std::shared_ptr<CogwFilter> cogw_filter;
  GroundSettings ground;
  BloomSuppressCalib bloom;
  reference::EnvironmentTables reference_env;
  reference::RangeTables reference_range;
  reference::HeightMapTables reference_heights;
  reference::ReflectivityTables reference_reflectivity;
};

class TwinRows {
 public:
  TwinRows(const DefaultConfig& config, const simulator::CalibrationBlobs& blobs);

  // An empty frame under these settings.
  void Begin(const TwinSettings& settings);
  // One datagram through parser, calibration and assembly on all sides. Ends the program at the
  // first difference, as do the others.
  void TakeDatagram(const std::vector<std::uint8_t>& datagram);
  // A miniflash row through the passes and out.
  void FinishRow(int m_row);

 private:
  struct NodeSide {
    InstructionSet set = InstructionSet::kScalar;
    LidarParserQDV11 parser;
    std::vector<LidarPoint> points;
    LidarFrame frame;
    UdpPacket out{};
  };

  void RunReferencePacket();
  void RunReferenceRow(int m_row);
  void RunNodeRow(NodeSide& side, int m_row);
  void CompareBlock(NodeSide& side, const reference::PacketRequest& request);

  TwinTables tables_;
  TwinSettings settings_;
  std::vector<NodeSide> sides_;
  LidarFrame empty_;
  UdpPacket in_{};
  reference::Parser reference_parser_;
  std::vector<LidarPoint> reference_points_;
  LidarFrame reference_frame_;
  UdpPacket reference_out_{};
  int reference_frame_id_ = 0;
};

}  // namespace kerul::lidar::fuzz
