#include "MIPI_reader/node/row_passes.h"

namespace kerul::lidar {

std::string_view RowPassName(RowPass pass) noexcept {
  switch (pass) {
    case RowPass::kPrime:
      return "prime";
    case RowPass::kGround:
      return "ground";
    case RowPass::kNeighbours:
      return "neighbours";
    case RowPass::kShotNoise:
      return "shot_noise";
    case RowPass::kBloom:
      return "bloom";
    case RowPass::kOrder:
      return "order";
  }
  return "";
}

RowSwitches MakeRowSwitches(const DefaultConfig& config) noexcept {
  if (!config.calib_enable) return {};
  return {.ground = config.ground_enable || config.ground_plane_enable,
          .neighbours = config.neighbor_check_enable,
          .shot_noise = config.shot_noise_enable,
          .bloom = config.high_ref_blooming,
          .order = config.echo_num > 1};
}

BloomTrace MakeBloomTrace(const DefaultConfig::Debug& debug) noexcept {
  return {.armed = debug.if_debug && debug.row >= 0 && debug.col >= 0,
          .row = debug.row,
          .col = debug.col,
          .echo = debug.echo};
}

RowPassSettings MakeRowPassSettings(const DefaultConfig& config,
                                    const RowPassTables& tables) noexcept {
  return {.tables = tables,
          .on = MakeRowSwitches(config),
          .shot_noise_dist_gate = config.shot_noise_dist_gate,
          .blooming_filter = config.blooming_filter_enable,
          .bloom_trace = MakeBloomTrace(config.debug)};
}

bool IsOn(RowPass pass, const RowSwitches& on) noexcept {
  switch (pass) {
    case RowPass::kPrime:
      return true;
    case RowPass::kGround:
      return on.ground;
    case RowPass::kNeighbours:
      return on.neighbours;
    case RowPass::kShotNoise:
      return on.shot_noise;
    case RowPass::kBloom:
      return on.bloom;
    case RowPass::kOrder:
      return on.order && LidarPoint::echo_num >= 2;
  }
  return false;
}

void RunRowPass(RowPass pass, LidarFrame& frame, int m_row, const RowPassSettings& settings) {
  const RowPassTables& tables = settings.tables;
  const int rows = settings.row_height;
  const int first_row = m_row * rows;
  switch (pass) {
    case RowPass::kPrime:
      PrimeProcessedFields(frame.points, first_row, rows);
      break;
    case RowPass::kGround:
      LabelGround(frame, m_row, rows, tables.ground, tables.angle_grid);
      break;
    case RowPass::kNeighbours:
      ValidateNeighbours(frame.points, first_row, rows);
      break;
    case RowPass::kShotNoise:
      FilterShotNoise(frame.points, m_row, settings.block_columns, settings.shot_noise_dist_gate);
      break;
    case RowPass::kBloom:
      SuppressBlooming(frame, m_row, tables.bloom, settings.blooming_filter, settings.bloom_trace,
                       settings.possibly_bright_rows);
      break;
    case RowPass::kOrder:
      OrderEchoes(frame.points, first_row, rows, tables.echo_plan);
      break;
  }
}

bool CanPrimeLate(const RowPassSettings& settings) noexcept {
  return settings.on.neighbours && !(settings.on.ground && settings.tables.ground.plane_enable);
}

}  // namespace kerul::lidar
