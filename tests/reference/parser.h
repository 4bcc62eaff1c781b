// Raw sensor packets to point records.
#pragma once

#include <cstdint>
#include <vector>

#include "calibration/angle_calib.h"
#include "reference/records.h"

namespace reference {

// Three curves of 641 entries by the normalised peak; all empty: no filter.
struct WidthCurves {
  std::vector<float> low;
  std::vector<float> gate;
  std::vector<float> high;
};

// Settings and tables of the parser and of the encoder.
struct Parser {
  bool keep_bins = false;
  bool clip_side_peaks = false;
  int cogw_high_mode = 2;
  int baseline_samples = 1;
  float baseline_rise_gate = 0.0F;
  float baseline_rise_limit = 0.0F;
  std::vector<float> shot_times;                // by group_id
  std::vector<std::uint16_t> detect_threshold;  // by noise
  WidthCurves width_curves;
  kerul::lidar::AngleCalibGrid angle_grid;  // output mode 10
  std::uint32_t udp_seq_base = 0;           // moved by ParsePacket once, by the encoder per frame
};

// Decodes one raw packet into nine points. Gives the packet's place in the frame, or -1 (nothing
// changed) for a packet that is not taken. Throws std::logic_error when ch_num is not 9.
int ParsePacket(Parser& parser, const UdpPacket& packet, std::vector<LidarPoint>& points,
                int& frame_id, int echo_count);

// Range and pulse measures of the 17 samples of one window into echo slot `slot`. Needs shot_ratio
// and detect_threshold of the point, peak_addr, noise and baseline of the echo.
void ComputeEcho(const Parser& parser, const std::uint16_t* samples, LidarPoint& point, int slot);

}  // namespace reference
