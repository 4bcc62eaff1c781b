// The published point packet, version 7.10: where everything stands, for those who write it and
// those who read it. 249 bytes, 36 points of 5 bytes, no checksum. Integers are little-endian
// except the seconds, which are big-endian. Bytes without a name are zero.
#pragma once

#include <cstdint>

namespace kerul::lidar {

namespace point_packet {

inline constexpr int kBytes = 249;
inline constexpr std::uint8_t kMagic[2] = {0xEE, 0xFF};
inline constexpr std::uint8_t kTail[3] = {0xDD, 0xEE, 0xFF};
inline constexpr std::uint8_t kMark = 0x42;
inline constexpr int kFixedWord = 100;
inline constexpr int kVersionMajor = 7;
inline constexpr int kVersionMinor = 10;
inline constexpr int kUnitMillimetres = 4;  // distance unit
// In single precision, deliberately: slightly above 0.004, so that 1.0 m gives 249.
inline constexpr float kUnitMetres = static_cast<float>(kUnitMillimetres) / 1000.0F;
inline constexpr int kPoints = 36;
inline constexpr int kPointBytes = 5;     // distance 2, payload 3
inline constexpr int kPayloadOffset = 2;  // in a point
inline constexpr int kPayloadBytes = 3;
inline constexpr int kBlockSide = 6;  // a packet covers 6 x 6 pixels, column by column
inline constexpr int kBlocksPerRow = 48;
inline constexpr int kBlocksPerColumn = 36;
inline constexpr int kMaxEchoes = 2;

// What the marker says of the packet.
inline constexpr int kMarkerOnly = 0;    // the only packet of its block
inline constexpr int kMarkerFirst = 1;   // the first of two
inline constexpr int kMarkerSecond = 2;  // the second of two

inline constexpr int kMagicOffset = 0;
inline constexpr int kVersionOffset = 2;  // major, minor
inline constexpr int kHeightOffset = 6;   // u16, pixels
inline constexpr int kWidthOffset = 8;    // u16, pixels
inline constexpr int kBlocksPerColumnOffset = 10;
inline constexpr int kBlocksPerRowOffset = 11;
inline constexpr int kMarkerOffset = 12;
inline constexpr int kUnitOffset = 13;        // millimetres
inline constexpr int kPointCountOffset = 14;  // u16
inline constexpr int kPointsOffset = 20;
inline constexpr int kOutputModeOffset = 203;
inline constexpr int kTailOffset = 204;
inline constexpr int kBlockRowOffset = 207;
inline constexpr int kBlockColOffset = 208;
inline constexpr int kFrameIdOffset = 209;
inline constexpr int kZeroOffset = 210;
// Up to 9 the number itself, above that two decimal digits, tens in the high nibble.
inline constexpr int kReturnCodeOffset = 211;
inline constexpr int kFixedWordOffset = 212;     // u16
inline constexpr int kZeroWordOffset = 214;      // u16
inline constexpr int kSecondsOffset = 216;       // u32, big-endian, since the epoch
inline constexpr int kMicrosecondsOffset = 220;  // u32
inline constexpr int kMarkOffset = 224;
inline constexpr int kSequenceOffset = 225;  // u32

static_assert(kPointsOffset + kPoints * kPointBytes <= kOutputModeOffset);
static_assert(kPoints == kBlockSide * kBlockSide);
static_assert(kSequenceOffset + 4 <= kBytes);

}  // namespace point_packet

// What the payload bytes carry. Every number is a mode: those without a name here carry the first
// bin of the window (peak_addr). Only kReflectivity limits the published range.
enum class OutputMode : int {
  kReflectivity = 0,  // reflectivity, cogh, shot_ratio, ground
  kPixelWord = 1,
  kNoiseAndWidth = 3,   // noise, cogw
  kNoiseAndPeak = 4,    // noise, peak
  kNoiseAndHeight = 5,  // noise, cogh
  kWidthAndPeak = 6,    // cogw, peak
  kPixelWordAndHeight = 9,
  kDirection = 10,    // of the pixel, from the angle grid
  kWaveformRms = 11,  // waveform_rms_ratio, cogh, shot_times, ground
  kFlags = 12,        // reflectivity, the bits of point_flag
};

// Bit numbers of the flags of kFlags: the second payload byte holds bits 0 to 7, the third the
// rest. Bits 0 to 2 are the lower bits of cogw_flag.
namespace point_flag {
inline constexpr int kCogwFlagMask = 7;
inline constexpr int kHighRefl = 3;    // high-reflectivity target
inline constexpr int kBloom = 4;       // false return around a bright target
inline constexpr int kAfterPulse = 5;  // after-pulse of a strong echo
inline constexpr int kGround = 6;      // lies on the ground
inline constexpr int kFilled = 7;      // synthetic return that filled a hole
inline constexpr int kShotNoise = 8;
inline constexpr int kDebug = 9;
inline constexpr int kEchoFlag = 10;        // bit 0 of echo_flags
inline constexpr int kDetectFailed = 11;    // peak below the detection level
inline constexpr int kShotNoiseGroup = 12;  // erased by the shot-noise filter's block rule
inline constexpr int kAll = (2 << kShotNoiseGroup) - 1;  // all bits that mean something
}  // namespace point_flag

}  // namespace kerul::lidar
