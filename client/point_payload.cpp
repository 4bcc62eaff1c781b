#include "kerul_lidar/point_payload.h"

#include "kerul_lidar/point_packet_layout.h"

namespace kerul::lidar {
namespace {

using namespace payload_field;

// A 12-bit value of which byte 0 holds the upper eight bits and byte 1's high nibble the rest.
int FrontTwelve(const std::uint8_t* bytes) noexcept { return (bytes[0] << 4) | (bytes[1] >> 4); }

// A 12-bit value of which byte 2 holds the upper eight bits and byte 1's low nibble the rest.
int BackTwelve(const std::uint8_t* bytes) noexcept { return (bytes[2] << 4) | (bytes[1] & 0xF); }

constexpr float kCogwSteps = 128.0F;

void SetNoise(const std::uint8_t* bytes, PointPayload& payload) noexcept {
  payload.carries |= kNoise;
  payload.noise = static_cast<float>(FrontTwelve(bytes));
}

void SetPeak(const std::uint8_t* bytes, PointPayload& payload) noexcept {
  payload.carries |= kPeak;
  payload.peak = static_cast<float>(BackTwelve(bytes));
}

void SetCogw(int steps, PointPayload& payload) noexcept {
  payload.carries |= kCogw;
  payload.cogw = static_cast<float>(steps) / kCogwSteps;
}

void SetReflectivity(const std::uint8_t* bytes, PointPayload& payload) noexcept {
  payload.carries |= kReflectivity;
  payload.reflectivity = bytes[0];
}

bool GroundBit(const std::uint8_t* bytes) noexcept { return (bytes[2] & 0x80) != 0; }

// Two bits of cogh in byte 1 and the rest in byte 2, whose top bit the ground flag takes.
void SetCoghAndGround(const std::uint8_t* bytes, PointPayload& payload) noexcept {
  payload.carries |= kCogh | kGround;
  payload.cogh = static_cast<float>((bytes[1] & 3) | ((bytes[2] & 0x7F) << 2));
  payload.ground = GroundBit(bytes);
}

void SetWordAndCogh(const std::uint8_t* bytes, PointPayload& payload) noexcept {
  payload.carries |= kPixelWord | kCogh;
  payload.pixel_word = static_cast<std::uint16_t>((bytes[0] << 4) | (bytes[1] & 0xF));
  payload.cogh = static_cast<float>((bytes[2] << 1) | (bytes[1] >> 7));
}

void SetDirection(const std::uint8_t* bytes, PointPayload& payload) noexcept {
  payload.carries |= kDirection;
  for (int i = 0; i < 3; ++i) {
    payload.direction[i] = static_cast<float>(bytes[i]) / 127.5F - 1.0F;
  }
}

int FlagBytes(const std::uint8_t* bytes) noexcept { return bytes[1] | (bytes[2] << 8); }

void SetFlags(const std::uint8_t* bytes, PointPayload& payload) noexcept {
  payload.carries |= kFlags | kGround;
  const int flags = FlagBytes(bytes);
  const auto is_set = [flags](int bit) { return ((flags >> bit) & 1) != 0; };
  payload.cogw_flag = static_cast<std::uint8_t>(flags & point_flag::kCogwFlagMask);
  payload.high_refl = is_set(point_flag::kHighRefl);
  payload.bloom = is_set(point_flag::kBloom);
  payload.after_pulse = is_set(point_flag::kAfterPulse);
  payload.ground = is_set(point_flag::kGround);
  payload.filled = is_set(point_flag::kFilled);
  payload.shot_noise = is_set(point_flag::kShotNoise);
  payload.debug = is_set(point_flag::kDebug);
  payload.echo_flag = is_set(point_flag::kEchoFlag);
  payload.detect_failed = is_set(point_flag::kDetectFailed);
  payload.shot_noise_group = is_set(point_flag::kShotNoiseGroup);
}

}  // namespace

PointPayload DecodePointPayload(int output_mode, const std::uint8_t* bytes) noexcept {
  PointPayload payload;
  switch (OutputMode{output_mode}) {
    case OutputMode::kReflectivity:
      SetReflectivity(bytes, payload);
      SetCoghAndGround(bytes, payload);
      payload.carries |= kShotRatio;
      payload.shot_ratio = static_cast<float>(bytes[1] >> 2) / 10.0F;
      break;
    case OutputMode::kPixelWord:
      payload.carries |= kPixelWord;
      payload.pixel_word = static_cast<std::uint16_t>((bytes[0] << 8) | bytes[1]);
      break;
    case OutputMode::kNoiseAndWidth:
      SetNoise(bytes, payload);
      SetCogw(BackTwelve(bytes), payload);
      break;
    case OutputMode::kNoiseAndPeak:
      SetNoise(bytes, payload);
      SetPeak(bytes, payload);
      break;
    case OutputMode::kNoiseAndHeight:
      SetNoise(bytes, payload);
      payload.carries |= kCogh;
      payload.cogh = static_cast<float>(BackTwelve(bytes));
      break;
    case OutputMode::kWidthAndPeak:
      SetCogw(FrontTwelve(bytes), payload);
      SetPeak(bytes, payload);
      break;
    case OutputMode::kPixelWordAndHeight:
      SetWordAndCogh(bytes, payload);
      break;
    case OutputMode::kDirection:
      SetDirection(bytes, payload);
      break;
    case OutputMode::kWaveformRms:
      SetCoghAndGround(bytes, payload);
      payload.carries |= kWaveformRms | kShotTimes;
      payload.waveform_rms_ratio = static_cast<float>(bytes[0]) / 256.0F;
      payload.shot_times = static_cast<float>(bytes[1] >> 2) * 64.0F;
      break;
    case OutputMode::kFlags:
      SetReflectivity(bytes, payload);
      SetFlags(bytes, payload);
      break;
    default:
      payload.carries |= kPeakAddr;
      payload.peak_addr = bytes[0];
      break;
  }
  return payload;
}

std::uint32_t CarriedFields(int output_mode) noexcept {
  const std::uint8_t any[point_packet::kPayloadBytes] = {};
  return DecodePointPayload(output_mode, any).carries;
}

std::uint16_t PointFlags(int output_mode, const std::uint8_t* bytes) noexcept {
  switch (OutputMode{output_mode}) {
    case OutputMode::kFlags:
      return static_cast<std::uint16_t>(FlagBytes(bytes) & point_flag::kAll);
    case OutputMode::kReflectivity:
    case OutputMode::kWaveformRms:
      return static_cast<std::uint16_t>(GroundBit(bytes) ? 1 << point_flag::kGround : 0);
    default:
      return 0;
  }
}

std::uint16_t KnownFlags(int output_mode) noexcept {
  const std::uint8_t all[point_packet::kPayloadBytes] = {0xFF, 0xFF, 0xFF};
  return PointFlags(output_mode, all);
}

std::uint8_t PointIntensity(int output_mode, const std::uint8_t* bytes) noexcept {
  switch (OutputMode{output_mode}) {
    case OutputMode::kNoiseAndPeak:
    case OutputMode::kNoiseAndHeight:
    case OutputMode::kWidthAndPeak:
      return bytes[2];  // upper eight of twelve bits
    default:
      return bytes[0];
  }
}

}  // namespace kerul::lidar
