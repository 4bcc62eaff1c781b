// The three plain records that carry all data of the node: one datagram, one pixel with its echo
// slots, one frame. No pointers, no ownership inside the point: it is copied as a block of bytes.
#pragma once

#include <array>
#include <cstdint>
#include <type_traits>
#include <vector>

namespace kerul::lidar {

// A datagram is never longer than this; the buffer of every packet has this size.
inline constexpr int kMaxDatagramBytes = 1500;
// Samples of one echo window of the range histogram.
inline constexpr int kWindowSamples = 17;
// Echo slots of a pixel record.
inline constexpr int kEchoSlots = 2;

// What the pulse's widths say against the curves of the pulse-width filter.
namespace cogw_flags {
inline constexpr std::int32_t kBelowLowCurve = 1;   // cogw below the low curve
inline constexpr std::int32_t kHighWidthValid = 2;  // cogw_high was computed
inline constexpr std::int32_t kAboveHighCurve = 4;  // cogw_high above the high curve
inline constexpr std::int32_t kAll = 7;
}  // namespace cogw_flags

// One datagram. `length` counts the valid bytes of `buffer`; the bytes after them hold what earlier
// datagrams left there.
struct UdpPacket {
  std::uint8_t buffer[kMaxDatagramBytes];
  std::uint16_t length;
  // Set by the socket source when its wait ended with nothing.
  std::uint8_t timed_out;
};

// One echo of one pixel. Ranges in metres, 0 means no return. Level units are three-bin sums of
// the 12-bit samples; the end of the echo computation divides them by `shot_ratio`.
struct LidarEcho {
  float dist_raw = 0.0F;            // range as decoded and calibrated
  float refl_raw = 0.0F;            // reflectivity, 0..255
  float dist_proc = 0.0F;           // range after the row passes
  float refl_proc = 0.0F;           // reflectivity after the row passes, 0..255
  float cogh = 0.0F;                // centre-of-gravity height of the pulse, level units
  float cogw = 0.0F;                // pulse width at the low threshold, bins
  float cogw_high = 0.0F;           // pulse width at the high threshold, bins; 0 when not computed
  float waveform_rms_ratio = 0.0F;  // root mean square of the pulse above baseline / peak
  float conf = 0.0F;                // reset and printed only
  float echosum = 0.0F;             // merged points only
  float totsum = 0.0F;              // merged points only: sum of the samples
  std::uint8_t echo_flags = 0;      // bit 0 is published in output mode 12
  std::int32_t cogw_flag = 0;       // bits of cogw_flags
  float peak = 0.0F;                // top of the pulse above zero, level units
  // (peak - baseline) / (detect_threshold - baseline); 1.0 and above is a sure detection.
  float peak_ratio = 0.0F;
  std::int32_t peak_addr = 0;  // first bin of the window in the range histogram, 0..1000
  float power = 0.0F;          // calibrated power of the return
  float noise = 0.0F;          // background noise, raw units
  float baseline = 0.0F;       // level of a three-bin sum without a pulse, level units
  float change_noise_noise_append = 0.0F;  // what the baseline adaptation added to noise
  float timming_th = 0.0F;                 // reset and printed only
  bool highRefl = false;                   // high-reflectivity target
  bool highReflBlooming = false;           // false return around a bright target
  bool afterPulse = false;                 // after-pulse of a strong echo, second slot only
  bool debug_flag = false;              // published in mode 12; no pass sets it, no reset clears it
  bool ground = false;                  // lies on the ground
  bool fill_point = false;              // synthetic return that filled a hole
  bool shot_noise_point = false;        // published in mode 12; no pass sets it
  float ground_refl_scale = 1.0F;       // incidence correction; survives the frame reset
  bool shot_noise_group_point = false;  // erased by the shot-noise filter's block rule
  bool detect_pass = true;              // peak reached the detection level
  std::array<std::uint16_t, kWindowSamples> bins{};  // raw samples, kept on request only
};

// One pixel of the sensor with its echo slots.
struct LidarPoint {
  std::int32_t row = 0;
  std::int32_t col = 0;
  float pixel_word22 = 0.0F;      // 22-bit word of the raw pixel block
  float pixel_word11 = 0.0F;      // 11-bit word of the raw pixel block
  float shot_times = 160.0F;      // laser shots accumulated for this pixel's row group
  float shot_ratio = 1.0F;        // shot_times / 160
  float detect_threshold = 0.0F;  // detection level at this pixel's noise, level units
  LidarEcho echoes[kEchoSlots];

  // Echo slots in use, 1 or 2. One value for the process: every loop over echoes reads it.
  // Assigned when a frame is built.
  static std::int32_t echo_num;

  // Puts the point back to its defaults for the next use. Leaves `row` and `col`, and in each echo
  // `debug_flag` and `ground_refl_scale`, alone; touches the echo slots in use only.
  void ResetEchoes() noexcept;
};

static_assert(std::is_trivially_copyable_v<LidarPoint>);
static_assert(sizeof(LidarEcho) == 132 && sizeof(LidarPoint) == 292);

using FrameRows = std::vector<std::vector<LidarPoint>>;

// The pixel grid of one frame, allocated once and never resized.
struct LidarFrame {
  std::int32_t height = 0;
  std::int32_t width = 0;
  std::int32_t echo_num = 1;
  FrameRows points;                 // [row][col]
  std::vector<bool> pixel_mask;     // (height / 6) * (width / 6) * 4 bits; no pass sets one
  std::int32_t received_count = 0;  // packets taken into the frame since the last reset
  std::uint8_t frame_id = 0;        // the sensor's frame counter, modulo 256

  LidarFrame() = default;
  // Allocates the grid and sets LidarPoint::echo_num to `echoes` (1 or 2).
  LidarFrame(std::int32_t rows, std::int32_t cols, std::int32_t echoes);

  // Echo reset of every point, all bits of pixel_mask clear, received_count 0. Leaves frame_id,
  // sizes and echo_num alone. Allocates nothing.
  void Reset() noexcept;
};

}  // namespace kerul::lidar
