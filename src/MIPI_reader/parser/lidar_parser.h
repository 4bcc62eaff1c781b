// Raw sensor packets in, point records out; point records in, published packets out.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "MIPI_reader/parser/cogw_filter.h"
#include "MIPI_reader/parser/lidar_point.h"
#include "MIPI_reader/parser/packet_planes.h"
#include "calibration/angle_calib.h"

// Frame geometry and the base class's answers. The order of the virtual operations is part of the
// interface.
class LidarParser {
 public:
  std::int32_t n_packet_per_frame = 360;
  std::int32_t n_power = 1;
  // First udp_sequence_num seen, then the start of the published packets' sequence numbers.
  std::uint32_t udp_seq_base = 0;
  std::string name = "NONE";

  virtual std::string GetName();
  virtual int GetNPacketPerFrame();
  virtual int GetNPower();
  virtual int Height();  // pixel rows of a frame
  virtual int Width();   // pixel columns of a frame
  virtual int GetNTOFs(const int& power);
  virtual void SetMiniflashRows(int rows);
  // Not implemented for any sensor: prints a warning and gives -1.
  virtual int GetPacketFromUsbFrame(const char* frame, kerul::lidar::UdpPacket& packet, int index,
                                    int power);
  virtual ~LidarParser() = default;
};

// The parser of raw packets of version 7.11 and the encoder of point packets of version 7.10.
// Settings and tables are filled in at bring-up; afterwards only udp_seq_base changes.
class LidarParserQDV11 : public LidarParser {
 public:
  std::int32_t miniflash_rows = 36;  // miniflash rows in a frame
  std::int32_t col_groups = 48;      // column groups in a frame
  std::int32_t mrow_height = 6;      // pixel rows in a miniflash row
  std::int32_t group_width = 6;      // pixel columns in a group
  std::int32_t power_count = 1;
  std::int32_t packet_count = 6912;  // raw packets in a frame
  std::string type_name = "QNDR-UDP7.11";
  bool packet_debug = false;        // a line for each packet
  bool echo_metrics_debug = false;  // a line for the traced pixel
  std::int32_t debug_row = -1;
  std::int32_t debug_col = -1;
  std::int32_t debug_echo = 0;
  std::uint16_t cogw_high_mode = 2;  // 1 always, 2 above the gate curve
  std::shared_ptr<kerul::lidar::CogwFilter> cogw_filter;
  kerul::lidar::AngleCalibGrid angle_grid;  // for output mode 10
  bool clip_side_peaks = false;
  std::vector<float> shot_times;  // laser shots by group_id
  std::int32_t baseline_samples = 1;
  float baseline_rise_gate = 0.0F;
  float baseline_rise_limit = 0.0F;
  std::vector<std::uint16_t> detect_threshold_bins;  // detection level by noise
  bool keep_bins = false;                            // keep the raw samples in `bins`

  std::string GetName() override;
  int GetNPacketPerFrame() override;
  int GetNPower() override;
  int Height() override;
  int Width() override;
  int GetNTOFs(const int& power) override;
  void SetMiniflashRows(int rows) override;

  // Decodes one datagram into exactly nine points. Gives the packet's place in the frame
  // (0..6911 for a sound packet), or -1 for a packet that is not taken, with `points` and
  // `frame_id` as they were. echo_count: windows to decode per pixel, 0..2. A packet of this
  // version whose ch_num is not 9 ends the process. Bytes after packet.length are read as they
  // stand in the buffer.
  int ParsePacket(const kerul::lidar::UdpPacket& packet,
                  std::vector<kerul::lidar::LidarPoint>& points, int& frame_id, int echo_count);

  // The same into planes, from which StorePacket makes the records. Only where CanParseIntoPlanes:
  // the forms for lanes do it, and planes hold no bins.
  int ParsePacket(const kerul::lidar::UdpPacket& packet, kerul::lidar::PacketPlanes& planes,
                  int& frame_id, int echo_count);
  bool CanParseIntoPlanes(int echo_count) const noexcept;

  // Range and pulse measures of one 17-sample window; writes the echo record of slot `echo` only.
  // Needs shot_ratio and detect_threshold of the point, peak_addr, noise and baseline of the echo.
  void ComputeEchoData(const std::uint16_t* samples, kerul::lidar::LidarPoint& point,
                       int echo) const noexcept;

  // Encodes the block `packet_index` (0..1727) of echo slot `echo` (0 or 1) into packet.buffer.
  // marker: 0 the only packet of its block, 1 first of two, 2 second of two. Gives the length,
  // 249, or -1 when LidarPoint::echo_num has no such slot (the header is then written).
  int GetPacket_7_10_FromFrame(const kerul::lidar::FrameRows& rows, int echo,
                               kerul::lidar::UdpPacket& packet, const int& packet_index,
                               const int& frame_id, const int& output_mode,
                               const int& echo_output_code, std::uint8_t marker);
};
