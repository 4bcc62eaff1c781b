// What the three payload bytes of a published point carry, by output mode.
#pragma once

#include <cstdint>

namespace kerul::lidar {

// Bits of PointPayload::carries.
namespace payload_field {
inline constexpr std::uint32_t kReflectivity = 1U << 0;
inline constexpr std::uint32_t kCogh = 1U << 1;
inline constexpr std::uint32_t kShotRatio = 1U << 2;
inline constexpr std::uint32_t kGround = 1U << 3;
inline constexpr std::uint32_t kPixelWord = 1U << 4;
inline constexpr std::uint32_t kNoise = 1U << 5;
inline constexpr std::uint32_t kCogw = 1U << 6;
inline constexpr std::uint32_t kPeak = 1U << 7;
inline constexpr std::uint32_t kDirection = 1U << 8;
inline constexpr std::uint32_t kWaveformRms = 1U << 9;
inline constexpr std::uint32_t kShotTimes = 1U << 10;
inline constexpr std::uint32_t kFlags = 1U << 11;
inline constexpr std::uint32_t kPeakAddr = 1U << 12;
}  // namespace payload_field

// Fields that the mode does not carry are zero. All values were truncated when they were packed;
// values too large for their bits have lost their upper bits.
struct PointPayload {
  std::uint32_t carries = 0;        // payload_field bits
  std::uint8_t reflectivity = 0;    // 0..255
  std::uint8_t peak_addr = 0;       // low 8 bits of the window's first bin
  bool ground = false;              // kFlags; others: only right for cogh below 512
  std::uint16_t pixel_word = 0;     // low 16 bits, or 12 beside the height
  float cogh = 0.0F;                // level units
  float shot_ratio = 0.0F;          // steps of 0.1
  float shot_times = 0.0F;          // steps of 64
  float noise = 0.0F;               // raw units, 12 bits
  float cogw = 0.0F;                // bins, steps of 1/128
  float peak = 0.0F;                // level units, 12 bits
  float waveform_rms_ratio = 0.0F;  // steps of 1/256; 255/256 also for all above
  float direction[3] = {0, 0, 0};   // components, -1..1, steps of 1/127.5
  std::uint8_t cogw_flag = 0;       // 3 bits
  bool high_refl = false;           // high-reflectivity target
  bool bloom = false;               // false return around a bright target
  bool after_pulse = false;         // after-pulse of a strong echo
  bool filled = false;              // synthetic return that filled a hole
  bool shot_noise = false;          // no pass of the node sets it
  bool debug = false;
  bool echo_flag = false;
  bool detect_failed = false;     // peak below the detection level
  bool shot_noise_group = false;  // erased by the shot-noise filter's block rule
};

// `bytes`: 3 payload bytes of a point. Modes without a name carry peak_addr, as they are published.
PointPayload DecodePointPayload(int output_mode, const std::uint8_t* bytes) noexcept;

// The payload_field bits that the mode carries.
std::uint32_t CarriedFields(int output_mode) noexcept;

// The flags of a point, by the bit numbers of point_flag; 0 for those that the mode does not carry.
std::uint16_t PointFlags(int output_mode, const std::uint8_t* bytes) noexcept;
// The flags that the mode carries.
std::uint16_t KnownFlags(int output_mode) noexcept;

// One 0..255 brightness for pictures and point files: the reflectivity, or else the peak's or the
// cogh's 12-bit value divided by 16, or else the first payload byte.
std::uint8_t PointIntensity(int output_mode, const std::uint8_t* bytes) noexcept;

}  // namespace kerul::lidar
