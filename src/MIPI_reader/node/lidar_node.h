// The node: bring-up, packet loop, frame assembly, row pipeline, output.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "MIPI_reader/node/lidar_node_miniflash_processing.h"
#include "MIPI_reader/node/loss_watch.h"
#include "MIPI_reader/node/packet_clock.h"
#include "MIPI_reader/node/point_calibration/packet_calibration.h"
#include "MIPI_reader/node/point_calibration/packet_calibrator.h"
#include "MIPI_reader/node/rows/stale_pixels.h"
#include "MIPI_reader/parser/lidar_parser.h"
#include "MIPI_reader/parser/lidar_point.h"
#include "MIPI_reader/parser/raw_packet.h"
#include "calibration/angle_calib.h"
#include "config/color_map.h"
#include "config/default_config.h"
#include "output/shm_udp_writer.h"
#include "source/socket_source.h"
#include "source/source.h"

namespace kerul::lidar {
enum class OptionalTable;
enum class RowPass : std::uint8_t;
struct Para2LidarCalib;
struct RowPassSettings;
struct SensorTables;
}  // namespace kerul::lidar

// Defined only by tests and tools that check the node.
struct LidarNodeTestAccess;

// Owns source, output, parser, calibration and frames, and runs the packet loop on a thread of its
// own. A node that has been constructed is running; once stopped it is not started again.
//
// All packet, frame and output work happens on the worker thread, so nothing here is locked. Only
// the stop flag is written from elsewhere.
class LidarNode {
 public:
  using EchoOutputPlan = kerul::lidar::EchoOutputPlan;

  // Brings everything up and starts the worker. `cali_path`: directory that holds the sensor's
  // calibration, empty to ask the sensor itself. Throws std::runtime_error when the start fails;
  // what was built by then is released.
  LidarNode(const std::string& name, const kerul::lidar::DefaultConfig& config,
            const std::string& cali_path);
  // The worker must have been joined.
  ~LidarNode();
  LidarNode(const LidarNode&) = delete;
  LidarNode& operator=(const LidarNode&) = delete;

  // The worker's body. Returns when the stop flag is found clear.
  void Run();

  // Async-signal-safe. The worker ends at its next look at the flag.
  void RequestStop() noexcept { running_ = false; }
  // Waits for the worker to end and releases its thread; what it held back of losses is told.
  // Harmless without one.
  void JoinWorker();

 private:
  friend struct LidarNodeTestAccess;

  // Bring-up, in the order of the calls.
  void CheckConfig() const;
  void MakeParser();
  void OpenSource();
  void OpenOutput();
  void AssembleCalibration(const std::string& cali_path);
  void AllocateFrames();

  // Calibration assembly.
  void LoadAnglesFromTables();
  void LoadCalibFromTables();
  void LoadCalibFromSensor(const std::string& cali_path);
  kerul::lidar::Para2LidarCalib LoadPara2(const std::string& cali_path, std::string& label);
  void LoadAnglesFromSensor(const kerul::lidar::Para2LidarCalib& para2, const std::string& label);
  void BuildSensorObjects(const kerul::lidar::SensorTables& sensor, std::string_view tables_origin,
                          const std::string& origin);
  void LogOptionalTable(kerul::lidar::OptionalTable state, std::string_view table_name,
                        std::string_view origin) const;
  void BuildHighReflCheck();
  void BuildDistCalib(const kerul::lidar::SensorTables& sensor, const std::string& origin);
  void BuildRetroCalib(const kerul::lidar::SensorTables& sensor, const std::string& origin);
  void AssembleCommonTables();
  void BuildEnvCalib();
  void BuildBloomCalib();
  void BuildCogwFilter();
  void BuildHighThresholdMap();
  void TakeDetectThreshold();

  // Packet loop.
  int GetOnePacket(kerul::lidar::Source* source, kerul::lidar::UdpPacket& packet);
  void RewindForReplay();
  bool BelongsToAnotherFrame(int frame_id) const noexcept;
  void CloseFrame(int frame_id);
  void TellLoss(int skipped_ids);
  void Warn(const std::string& text) const;
  void TellSecondSender(std::uint32_t sender);
  void ResetFrame(int frame_id);
  void ResetMrowProgress();

  // Frame assembly.
  // The frame's record of each pixel of a packet, or outside_.
  using PixelRecords = std::array<kerul::lidar::LidarPoint*, kerul::lidar::raw_packet::kBlocks>;
  // Prefetches the records that a raw packet will be written to, so that they arrive while it is
  // decoded. Any bytes.
  PixelRecords PrefetchPixels(const kerul::lidar::UdpPacket& packet) noexcept;
  void UpdateFrames(int packet_index, std::vector<kerul::lidar::LidarPoint>& points);
  // The same for a packet that has stayed in planes; it becomes records here. Only where
  // StaysInPlanes.
  void UpdateFrames(int packet_index, kerul::lidar::PacketPlanes& planes,
                    const PixelRecords& records);
  bool StaysInPlanes() const noexcept;
  void CountPacket(int packet_index);
  void CalibratePoints(std::vector<kerul::lidar::LidarPoint>& points);
  void CopyIntoFrame(const std::vector<kerul::lidar::LidarPoint>& points) noexcept;
  void StoreIntoFrame(const kerul::lidar::PacketPlanes& planes,
                      const PixelRecords& records) noexcept;
  void AdvanceRows(int target_row);
  // Does the reset of the frame that was put off.
  void SettleFrame() noexcept;

  // Row pipeline.
  void ProcessMiniflashRow(int m_row);
  kerul::lidar::RowPassSettings PassSettings(int m_row) const;
  void RunPass(kerul::lidar::RowPass pass, int m_row);  // whatever its switch says
  void Ground(int m_row);
  float ProcessGroundVertSeed(const float* distances, int count, int row, int col,
                              int first_offset) const;
  void NeighborMiniflashRow(int m_row);
  void ApplyShotNoiseMiniflashRowV2(int m_row);
  void SuppressHighReflBlooming(int m_row);
  float PatternMatchPower(
      int row, int col, int echo,
      const float (&power_template)[kerul::lidar::kTemplateSide][kerul::lidar::kTemplateSide],
      bool debug) const;
  void RecordDistances(int m_row);

  // Output.
  void ForwardUDP710Row(int m_row, const EchoOutputPlan& plan);
  void Deliver(int length, bool by_udp);
  void SendByUdp(std::uint16_t length);

  // Frame end, when the diagnostic export is switched on.
  void UpsampleAndExport(int frame_id);
  void ExportFrameFile(int frame_id);
  kerul::lidar::LidarPoint mergeLidarPointEchoConvolveImpl(
      const kerul::lidar::LidarPoint* const* points, int count) const;
  std::uint64_t PickAndMergeEchoFour_(const kerul::lidar::LidarPoint* const* points, int echo,
                                      std::uint16_t* out) const;
  int MergeEchoHistogramsAxisAccum_(const std::uint16_t* const* windows, const int* addresses,
                                    int count, std::uint16_t* out) const;

  // "[LidarNode][" name, then `text`, which begins with the closing bracket; whole line in `color`.
  void Log(std::string_view text, std::string_view color = {}) const;

  std::string name_;
  std::unique_ptr<std::thread> thread_;
  std::atomic<bool> running_{false};
  static_assert(std::atomic<bool>::is_always_lock_free);  // the interrupt handler writes it
  kerul::lidar::LossWatch loss_watch_;
  std::uint32_t sender_ = 0;  // of the first packet, IPv4 in network order; 0 before it
  bool second_sender_is_told_ = false;
  kerul::lidar::PacketClock packet_clock_;
  std::chrono::system_clock::time_point packet_start_time_ = packet_clock_.Now();
  std::int64_t frame_busy_ns_ = 0;  // time spent on packets of the frame in hand
  std::unique_ptr<kerul::lidar::Source> source_;
  std::unique_ptr<kerul::lidar::SocketSource> udp_output_;   // null for shared-memory output
  std::chrono::steady_clock::time_point next_udp_socket_{};  // no new one before, after a failure
  std::uint64_t unsent_packets_ = 0;                         // since the last that was sent
  std::unique_ptr<kerul::lidar::ShmUdpWriter> shm_writer_;   // null for UDP output
  std::shared_ptr<ColorMap> color_map_;
  std::shared_ptr<const kerul::lidar::DefaultConfig> config_;
  std::shared_ptr<kerul::lidar::TransformParam> transform_;
  std::shared_ptr<LidarParserQDV11> parser_;
  std::shared_ptr<kerul::lidar::LidarFrame> frame_;
  std::shared_ptr<kerul::lidar::LidarFrame> upsampled_frame_;
  // Calibration steps; a null pointer switches a step off.
  std::shared_ptr<kerul::lidar::DistCalib> dist_calib_;
  std::shared_ptr<kerul::lidar::EnvCalib> env_calib_;
  std::shared_ptr<kerul::lidar::HighThresholdMap> high_threshold_map_;
  std::shared_ptr<kerul::lidar::HighReflCheck> high_refl_check_;
  std::shared_ptr<kerul::lidar::RetroCalib> retro_calib_;
  std::unique_ptr<const kerul::lidar::PacketCalibrator> packet_calibrator_;  // of these steps
  std::shared_ptr<kerul::lidar::CogwFilter> cogw_filter_;
  kerul::lidar::UdpPacket out_packet_{};  // every published packet is built here
  kerul::lidar::BloomSuppressCalib bloom_calib_;
  kerul::lidar::AngleCalibGrid angle_grid_;
  kerul::lidar::GroundSettings ground_settings_;
  int packets_per_mrow_ = 192;
  int miniflash_rows_ = 36;
  int next_mrow_ = 0;          // first row not yet run through the row pipeline
  int current_frame_id_ = -1;  // -1 until a packet has fixed it
  std::vector<std::vector<bool>> mrow_packet_seen_;  // [miniflash row][packet of the row]
  std::vector<int> mrow_packet_count_;               // distinct packets seen, by miniflash row
  std::uint64_t export_file_seq_ = 0;
  std::vector<std::uint16_t> detect_threshold_bins_;
  bool detect_threshold_valid_ = false;
  std::vector<float> cur_dist_map_;  // echo 0's dist_proc, row-major, of this frame and the last
  std::vector<float> prev_dist_map_;
  bool prev_dist_map_valid_ = false;
  EchoOutputPlan echo_plan_;
  kerul::lidar::LidarPoint outside_;        // takes the points that lie outside the grid
  kerul::lidar::StalePixels stale_pixels_;  // of frame_
  bool upsampled_frame_written_ = false;    // since its last reset
};

// Every node of the process, for the interrupt handler. main adds one; exit destroys it.
extern std::vector<std::shared_ptr<LidarNode>> nodes;
