// Calibration assembly: from the sensor's own data or the compiled-in tables to the objects of the
// per-packet steps and the row passes.
#include <cstdint>
#include <sstream>
#include <stdexcept>

#include "MIPI_reader/node/bring_up.h"
#include "MIPI_reader/node/lidar_node.h"
#include "calibration/para2_lidar_calib.h"
#include "calibration/para2_loading.h"

using kerul::lidar::AngleCalibGrid;
using kerul::lidar::DefaultTables;
using kerul::lidar::OptionalTable;
using kerul::lidar::Para2CalibSource;
using kerul::lidar::Para2LidarCalib;
using kerul::lidar::Para2LoadOptions;
using kerul::lidar::SensorTables;

namespace {

constexpr std::string_view kGreen = "\033[32m";
constexpr std::string_view kYellow = "\033[33m";
constexpr std::string_view kRed = "\033[31m";

constexpr std::string_view kFromTables = "default_tables";
constexpr std::string_view kFromTablesBesideSensor = "para2/default_tables";

std::string GridShape(const AngleCalibGrid& grid) {
  return "shape=3x" + std::to_string(grid.rows) + "x" + std::to_string(grid.cols) + ")";
}

Para2LoadOptions MakeLoadOptions(const kerul::lidar::DefaultConfig& config,
                                 const std::string& cali_path) {
  Para2LoadOptions options;
  options.host = config.lidar_ip;
  options.port = config.rcx_port;
  options.iic_device = static_cast<std::uint8_t>(config.iic_device);
  options.tile_pixels = config.tile_pixels;
  options.tile_columns = config.tile_columns;
  options.force_read_from_lidar = config.force_read_from_lidar;
  options.cali_path = cali_path;
  return options;
}

}  // namespace

void LidarNode::AssembleCalibration(const std::string& cali_path) {
  if (config_->para2_enable) {
    LoadCalibFromSensor(cali_path);
  } else {
    LoadAnglesFromTables();
    if (config_->calib_enable) LoadCalibFromTables();
  }
  AssembleCommonTables();
  packet_calibrator_ = std::make_unique<kerul::lidar::PacketCalibrator>(
      kerul::lidar::CalibrationSteps{.env = env_calib_.get(),
                                     .dist = dist_calib_.get(),
                                     .high_threshold_map = high_threshold_map_.get(),
                                     .high_refl_check = high_refl_check_.get(),
                                     .retro = retro_calib_.get()});
}

void LidarNode::LoadAnglesFromTables() {
  const std::vector<std::uint8_t>& angle_dat = config_->tables.angle_dat;
  if (!angle_dat.empty()) {
    std::string error;
    if (load_angle_calib_from_dat_bytes(angle_dat.data(), angle_dat.size(), angle_grid_, &error)) {
      Log("] angle calib load succssed (default_tables, " + GridShape(angle_grid_), kGreen);
    } else {
      angle_grid_ = {};
      Log("] angle calib load failed (default_tables): " + error, kRed);
    }
  }
  parser_->angle_grid = angle_grid_;
}

void LidarNode::LoadCalibFromTables() {
  BuildSensorObjects(TablesOf(config_->tables), kFromTables, std::string(kFromTables));
}

void LidarNode::LoadCalibFromSensor(const std::string& cali_path) {
  std::string label;
  const Para2LidarCalib para2 = LoadPara2(cali_path, label);
  LoadAnglesFromSensor(para2, label);
  if (!config_->calib_enable) return;
  BuildSensorObjects(TablesOf(para2), kFromTablesBesideSensor, "lidar/bin, source=" + label);
}

// Some tables always come from the configuration; they stand beside the sensor's own data.
void LidarNode::BuildSensorObjects(const SensorTables& sensor, std::string_view tables_origin,
                                   const std::string& origin) {
  const DefaultTables& tables = config_->tables;
  LogOptionalTable(StateOfCoghEfficiant(tables), "cogh_efficiant", tables_origin);
  LogOptionalTable(StateOfRetroFilter(tables), "retro_filter", tables_origin);
  BuildHighReflCheck();
  BuildDistCalib(sensor, origin);
  BuildRetroCalib(sensor, origin);
}

Para2LidarCalib LidarNode::LoadPara2(const std::string& cali_path, std::string& label) {
  if (cali_path.empty()) {
    Log("] Loading para2 calibration (RCX head -> cache or full RCX)...", kYellow);
  } else {
    Log("] Loading para2 calibration from cali_path=" + cali_path + " (no RCX)...", kYellow);
  }
  Para2LoadOptions options = MakeLoadOptions(*config_, cali_path);
  if (options.force_read_from_lidar) {
    if (cali_path.empty()) {
      Log("] para2 force_read_from_lidar: must read head+main from lidar memory", kYellow);
    } else {
      Log("] cali_path overrides force_read_from_lidar", kYellow);
      options.force_read_from_lidar = false;
    }
  }

  Para2LidarCalib para2 = LoadPara2Calib(options);
  label = "bin";
  if (para2.source == Para2CalibSource::kOnline) {
    label = "online";
  } else if (para2.source == Para2CalibSource::kLocalCache) {
    Log("] para2 loaded from para_read cache (lidar_id=" + para2.lidar_id + ", skip main RCX)",
        kYellow);
    label = "local_cache";
  } else if (para2.source == Para2CalibSource::kFallback) {
    Log("] para2 online read failed; fallback to para_read (lidar_id=" + para2.lidar_id + ")",
        kYellow);
  }
  Log("] para2 load succeeded (source=" + label + ", lidar_id=" + para2.lidar_id + ", CRC PASS)",
      kGreen);
  if (para2.source == Para2CalibSource::kOnline) {
    Log("] para_read cache saved (" +
            kerul::lidar::para2_lidar_detail::ParaReadDir(para2.lidar_id) + ")",
        kGreen);
  }
  return para2;
}

void LidarNode::LoadAnglesFromSensor(const Para2LidarCalib& para2, const std::string& label) {
  std::string error;
  const auto* record = reinterpret_cast<const std::uint8_t*>(&para2.angle_record);
  if (!load_angle_calib_from_dat_bytes(record, sizeof(para2.angle_record), angle_grid_, &error)) {
    Log("] angle calib from lidar memory failed: " + error, kRed);
    throw std::runtime_error("angle calib from para2 head failed: " + error);
  }
  Log("] angle calib load succssed (" + label + ", " + GridShape(angle_grid_), kGreen);
  parser_->angle_grid = angle_grid_;
}

// An empty table counts as absent and is not logged.
void LidarNode::LogOptionalTable(OptionalTable state, std::string_view table_name,
                                 std::string_view origin) const {
  if (state == OptionalTable::kAbsent) return;
  const bool taken = state == OptionalTable::kTaken;
  Log("] " + std::string(table_name) + (taken ? " load succssed (" : " load failed (") +
          std::string(origin) + ")",
      taken ? kGreen : kRed);
}

void LidarNode::BuildHighReflCheck() {
  high_refl_check_ = MakeHighReflCheck(*config_);
  if (high_refl_check_) Log("] highrefl check enabled", kGreen);
}

void LidarNode::BuildDistCalib(const SensorTables& sensor, const std::string& origin) {
  try {
    dist_calib_ = MakeDistCalib(sensor);
  } catch (const std::exception& error) {
    Log(std::string("] dist calib load failed: ") + error.what(), kRed);
    throw;
  }
  Log("] dist calib load succssed (" + origin + ")", kGreen);
  if (dist_calib_->has_curve_high) {
    Log("] dist curve high load succssed (embedded)", kGreen);
  } else {
    Log("] dist curve high not configured, high-threshold uses low curve", kYellow);
  }
}

void LidarNode::BuildRetroCalib(const SensorTables& sensor, const std::string& origin) {
  try {
    retro_calib_ = MakeRetroCalib(*config_, sensor);
  } catch (const std::exception& error) {
    Log(std::string("] retro calib load failed: ") + error.what(), kRed);
    throw;
  }
  Log("] retro calib load succssed (" + origin + ")", kGreen);
}

void LidarNode::AssembleCommonTables() {
  if (parser_->shot_times.empty()) {
    Log("] shot_times load failed (default_tables empty)", kRed);
  } else {
    Log("] shot_times load succssed (default_tables, " +
            std::to_string(parser_->shot_times.size()) + " entries)",
        kGreen);
  }
  BuildEnvCalib();
  BuildBloomCalib();
  BuildCogwFilter();
  if (config_->shot_noise_enable) Log("] shot_noise enabled", kGreen);
  BuildHighThresholdMap();
  TakeDetectThreshold();
}

void LidarNode::BuildEnvCalib() {
  env_calib_ = MakeEnvCalib(*config_);
  if (!env_calib_) {
    Log("] env load failed (default_tables env_cogh empty)", kRed);
    return;
  }
  Log("] env normal load succssed (default_tables)", kGreen);
  Log("] env high load succssed (default_tables)", kGreen);
  if (env_calib_->has_cogt) {
    std::ostringstream text;
    text << "] env cogt load succssed (default_tables), bias=" << env_calib_->bias;
    Log(text.str(), kGreen);
  } else {
    Log("] env cogt load failed (default_tables empty), cogt compensation disabled", kRed);
  }
}

void LidarNode::BuildBloomCalib() {
  bloom_calib_ = MakeBloomCalib(*config_);
  if (!config_->high_ref_blooming) {
    Log("] bloom load failed (high_ref_blooming=false)", kRed);
    return;
  }
  Log("] bloom load succssed (default_tables)", kGreen);
  Log(std::string("] bloom filter ") + (config_->blooming_filter_enable ? "enabled" : "disabled"),
      kGreen);
}

void LidarNode::BuildCogwFilter() {
  cogw_filter_ = MakeCogwFilter(config_->tables);
  parser_->cogw_filter = cogw_filter_;
  if (!cogw_filter_) {
    Log("] cogw filter load failed (default_tables cogw empty)", kRed);
    return;
  }
  Log("] cogw filter load succssed (default_tables)", kGreen);
}

void LidarNode::BuildHighThresholdMap() {
  high_threshold_map_ = MakeHighThresholdMap(config_->tables);
  if (!high_threshold_map_) {
    Log("] high-threshold map load failed (default_tables empty)", kRed);
    return;
  }
  Log("] high-threshold map load succssed (default_tables)", kGreen);
}

void LidarNode::TakeDetectThreshold() {
  detect_threshold_bins_ = config_->tables.detect_threshold;
  detect_threshold_valid_ = !detect_threshold_bins_.empty();
  if (detect_threshold_valid_) {
    Log("] detect threshold load succssed (default_tables, bins=" +
            std::to_string(detect_threshold_bins_.size()) + ")",
        kGreen);
  } else {
    Log("] detect threshold load failed (default_tables empty)", kRed);
  }
}
