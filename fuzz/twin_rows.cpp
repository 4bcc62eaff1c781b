#include "twin_rows.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <string>

#include "MIPI_reader/node/row_passes.h"
#include "byte_input.h"
#include "reference/bloom.h"
#include "reference/encoder.h"
#include "reference/ground.h"
#include "reference/ordering.h"
#include "reference/row_filters.h"
#include "support/point_compare.h"

namespace kerul::lidar::fuzz {
namespace {

constexpr int kRowHeight = 6;
constexpr std::size_t kPublishedBytes = 249;
constexpr std::size_t kClockFirst = 216;
constexpr std::size_t kClockEnd = 224;

void RequireSame(const std::string& difference, InstructionSet set, const char* where) {
  if (difference.empty()) return;
  Require(false, (std::string(where) + ", " + InstructionSetName(set) + ": " + difference).c_str());
}

std::vector<InstructionSet> SupportedSets() {
  std::vector<InstructionSet> sets;
  for (const InstructionSet set : {InstructionSet::kScalar, InstructionSet::kPlain,
                                   InstructionSet::kAvx2, InstructionSet::kAvx512}) {
    if (IsSupported(set)) sets.push_back(set);
  }
  return sets;
}

// All steps on, and a plane from as few points as a small frame has.
DefaultConfig WithAllSteps(DefaultConfig config) {
  config.calib_enable = true;
  config.ground_enable = true;
  config.neighbor_check_enable = true;
  config.shot_noise_enable = true;
  config.high_refl_check.enable = true;
  config.high_ref_blooming = true;
  config.bloom_suppress_calib.enable = true;
  config.ground_plane_min_points = 8;
  return config;
}

SensorTables TablesOf(const reference::SensorCalibration& sensor) {
  return {.dist_curve = sensor.dist_curve,
          .dist_offset = sensor.dist_offset,
          .dist_curve_high = sensor.dist_curve_high,
          .retro_curve = sensor.retro_curve,
          .retro_scale = sensor.retro_scale};
}

}  // namespace

TwinTables::TwinTables(const DefaultConfig& product, const simulator::CalibrationBlobs& blobs)
    : config(WithAllSteps(product)),
      sensor(reference::CalibrationFromPara2(blobs.head, blobs.main, config)),
      objects(MakeCalibration(config, TablesOf(sensor))),
      calibrator(StepsOf(objects)),
      cogw_filter(MakeCogwFilter(config.tables)),
      ground(MakeGroundSettings(config)),
      bloom(MakeBloomCalib(config)),
      reference_env{config.tables.env_cogh, config.tables.env_cogh_high, config.tables.env_cogt,
                    config.env_bias},
      reference_range{sensor.dist_curve, sensor.dist_offset, sensor.dist_curve_high},
      reference_heights{config.tables.high_threshold_cogh_in,
                        config.tables.high_threshold_cogh_out},
      reference_reflectivity{sensor.retro_curve, sensor.retro_scale, config.high_refl_check,
                             config.tables.cogh_efficiant, config.tables.retro_filter} {}

TwinRows::TwinRows(const DefaultConfig& config, const simulator::CalibrationBlobs& blobs)
    : tables_(config, blobs), empty_(kTwinMrows * kRowHeight, kTwinCols, kEchoSlots) {
  const DefaultTables& tables = config.tables;
  for (const InstructionSet set : SupportedSets()) {
    NodeSide& side = sides_.emplace_back();
    side.set = set;
    ConfigureParser(config, side.parser);
    side.parser.cogw_filter = tables_.cogw_filter;
    side.parser.angle_grid = tables_.sensor.angle_grid;
  }
  reference_parser_.shot_times = tables.shot_times;
  reference_parser_.detect_threshold = tables.detect_threshold;
  reference_parser_.width_curves = {tables.cogw_a, tables.cogw_b, tables.cogw_c};
  reference_parser_.angle_grid = tables_.sensor.angle_grid;
  reference_parser_.baseline_samples = config.baseline_samples;
  reference_parser_.baseline_rise_gate = config.baseline_rise_gate;
  reference_parser_.baseline_rise_limit = config.baseline_rise_limit;
}

void TwinRows::Begin(const TwinSettings& settings) {
  settings_ = settings;
  LidarPoint::echo_num = settings.echo_num;
  empty_.echo_num = settings.echo_num;
  tables_.ground.plane_enable = settings.ground_plane;
  in_ = {};
  for (NodeSide& side : sides_) {
    side.parser.cogw_high_mode = static_cast<std::uint16_t>(settings.cogw_high_mode);
    side.parser.keep_bins = settings.keep_bins;
    side.parser.clip_side_peaks = settings.clip_side_peaks;
    side.parser.udp_seq_base = 0;
    side.points.clear();
    side.frame = empty_;
    side.out = {};
  }
  reference_parser_.cogw_high_mode = settings.cogw_high_mode;
  reference_parser_.keep_bins = settings.keep_bins;
  reference_parser_.clip_side_peaks = settings.clip_side_peaks;
  reference_parser_.udp_seq_base = 0;
  reference_frame_ = empty_;
  reference_out_ = {};
}

void TwinRows::TakeDatagram(const std::vector<std::uint8_t>& datagram) {
  std::copy(datagram.begin(), datagram.end(), in_.buffer);
  in_.length = static_cast<std::uint16_t>(datagram.size());
  reference_points_.clear();
  const int index = reference::ParsePacket(reference_parser_, in_, reference_points_,
                                           reference_frame_id_, settings_.echo_num);
  if (index != -1) RunReferencePacket();
  for (NodeSide& side : sides_) {
    ForceInstructionSet(side.set);
    // As in the node, the points are those of the last datagram; the reference's are new.
    int frame_id = 0;
    Require(side.parser.ParsePacket(in_, side.points, frame_id, settings_.echo_num) == index,
            "the reference's place in the frame");
    Require(side.parser.udp_seq_base == reference_parser_.udp_seq_base, "sequence base");
    if (index == -1) continue;
    Require(frame_id == reference_frame_id_, "frame id");
    if (settings_.calibrate) tables_.calibrator.Calibrate(side.points);
    Require(side.points.size() == reference_points_.size(), "nine points");
    for (std::size_t i = 0; i < side.points.size(); ++i) {
      const LidarPoint& point = side.points[i];
      RequireSame(testing::PointDifference(point, reference_points_[i]), side.set, "point");
      if (point.row < 0 || point.row >= side.frame.height) continue;
      if (point.col < 0 || point.col >= side.frame.width) continue;
      side.frame.points[static_cast<std::size_t>(point.row)][static_cast<std::size_t>(point.col)] =
          point;
    }
  }
}

void TwinRows::RunReferencePacket() {
  if (settings_.calibrate) {
    reference::CompensateForEnvironment(tables_.reference_env, reference_points_);
    reference::CorrectRange(tables_.reference_range, reference_points_);
    reference::MapHeights(tables_.reference_heights, reference_points_);
    reference::CheckHighRefl(tables_.config.high_refl_check, reference_points_);
    reference::CalibrateReflectivity(tables_.reference_reflectivity, reference_points_);
  }
  for (const LidarPoint& point : reference_points_) {
    if (point.row < 0 || point.row >= reference_frame_.height) continue;
    if (point.col < 0 || point.col >= reference_frame_.width) continue;
    reference_frame_
        .points[static_cast<std::size_t>(point.row)][static_cast<std::size_t>(point.col)] = point;
  }
}

void TwinRows::RunReferenceRow(int m_row) {
  LidarFrame& frame = reference_frame_;
  reference::Prime(frame, m_row);
  if (settings_.ground) {
    reference::Ground(frame, m_row, tables_.ground, tables_.sensor.angle_grid);
  }
  reference::NeighborMiniflashRow(frame, m_row);
  reference::ApplyShotNoiseMiniflashRow(frame, m_row, kTwinBlockCols,
                                        default_config::kConfig.shot_noise_dist_gate);
  reference::SuppressHighReflBlooming(frame, m_row, tables_.bloom, settings_.blooming_filter);
  if (settings_.echo_num < 2) return;
  reference::OrderRowEchoes(frame, m_row,
                            reference::MakePlan(settings_.echo_num, settings_.echo_output_code));
}

void TwinRows::RunNodeRow(NodeSide& side, int m_row) {
  RowPassSettings settings = MakeRowPassSettings(
      tables_.config,
      {.ground = tables_.ground,
       .angle_grid = side.parser.angle_grid,
       .bloom = tables_.bloom,
       .echo_plan = MakeEchoOutputPlan(settings_.echo_num, settings_.echo_output_code)});
  settings.on.ground = settings_.ground;
  settings.blooming_filter = settings_.blooming_filter;
  settings.block_columns = kTwinBlockCols;
  RunRowPasses(side.frame, m_row, settings, NoRowHook{});
}

void TwinRows::FinishRow(int m_row) {
  RunReferenceRow(m_row);
  reference::Parser& parser = reference_parser_;
  const std::uint32_t sequence_base = parser.udp_seq_base;
  std::uint32_t base_after = sequence_base;
  for (NodeSide& side : sides_) {
    ForceInstructionSet(side.set);
    RunNodeRow(side, m_row);
    RequireSame(testing::FrameDifference(side.frame, reference_frame_), side.set, "frame");
    parser.udp_seq_base = sequence_base;
    for (int block = 0; block < kTwinBlockCols; ++block) {
      reference::PacketRequest request{.packet_index = m_row * 48 + block,
                                       .frame_id = reference_frame_id_,
                                       .output_mode = settings_.output_mode,
                                       .echo_output_code = settings_.echo_output_code};
      for (int echo = 0; echo < settings_.echo_num; ++echo) {
        request.echo = echo;
        request.marker = settings_.echo_num < 2 ? 0 : echo + 1;
        CompareBlock(side, request);
      }
    }
    base_after = parser.udp_seq_base;
  }
  parser.udp_seq_base = base_after;
}

void TwinRows::CompareBlock(NodeSide& side, const reference::PacketRequest& request) {
  const int expected = reference::EncodePacket(reference_parser_, reference_frame_.points,
                                               reference_out_, request, {});
  const int length = side.parser.GetPacket_7_10_FromFrame(
      side.frame.points, request.echo, side.out, request.packet_index, request.frame_id,
      request.output_mode, request.echo_output_code, static_cast<std::uint8_t>(request.marker));
  Require(length == expected, "length of the published packet");
  Require(side.parser.udp_seq_base == reference_parser_.udp_seq_base, "published sequence base");
  for (std::size_t i = 0; i < kPublishedBytes; ++i) {
    if (i >= kClockFirst && i < kClockEnd) continue;
    if (side.out.buffer[i] == reference_out_.buffer[i]) continue;
    RequireSame("byte " + std::to_string(i) + " of block " + std::to_string(request.packet_index),
                side.set, "published packet");
  }
}

}  // namespace kerul::lidar::fuzz
