#include "point_payload.h"

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

// Two bits of cogh in byte 1 and the rest in byte 2, whose top bit the ground flag takes.
void SetCoghAndGround(const std::uint8_t* bytes, PointPayload& payload) noexcept {
  payload.carries |= kCogh | kGround;
  payload.cogh = static_cast<float>((bytes[1] & 3) | ((bytes[2] & 0x7F) << 2));
  payload.ground = (bytes[2] & 0x80) != 0;
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

void SetFlags(const std::uint8_t* bytes, PointPayload& payload) noexcept {
  payload.carries |= kFlags | kGround;
  const int a = bytes[1];
  payload.cogw_flag = static_cast<std::uint8_t>(a & 7);
  payload.high_refl = (a & 0x08) != 0;
  payload.bloom = (a & 0x10) != 0;
  payload.after_pulse = (a & 0x20) != 0;
  payload.ground = (a & 0x40) != 0;
  payload.filled = (a & 0x80) != 0;
  const int b = bytes[2];
  payload.shot_noise = (b & 0x01) != 0;
  payload.debug = (b & 0x02) != 0;
  payload.echo_flag = (b & 0x04) != 0;
  payload.detect_failed = (b & 0x08) != 0;
  payload.shot_noise_group = (b & 0x10) != 0;
}

}  // namespace

PointPayload DecodePointPayload(int output_mode, const std::uint8_t* bytes) noexcept {
  PointPayload payload;
  switch (output_mode) {
    case 0:
      SetReflectivity(bytes, payload);
      SetCoghAndGround(bytes, payload);
      payload.carries |= kShotRatio;
      payload.shot_ratio = static_cast<float>(bytes[1] >> 2) / 10.0F;
      break;
    case 1:
      payload.carries |= kPixelWord;
      payload.pixel_word = static_cast<std::uint16_t>((bytes[0] << 8) | bytes[1]);
      break;
    case 3:
      SetNoise(bytes, payload);
      SetCogw(BackTwelve(bytes), payload);
      break;
    case 4:
      SetNoise(bytes, payload);
      SetPeak(bytes, payload);
      break;
    case 5:
      SetNoise(bytes, payload);
      payload.carries |= kCogh;
      payload.cogh = static_cast<float>(BackTwelve(bytes));
      break;
    case 6:
      SetCogw(FrontTwelve(bytes), payload);
      SetPeak(bytes, payload);
      break;
    case 9:
      SetWordAndCogh(bytes, payload);
      break;
    case 10:
      SetDirection(bytes, payload);
      break;
    case 11:
      SetCoghAndGround(bytes, payload);
      payload.carries |= kWaveformRms | kShotTimes;
      payload.waveform_rms_ratio = static_cast<float>(bytes[0]) / 256.0F;
      payload.shot_times = static_cast<float>(bytes[1] >> 2) * 64.0F;
      break;
    case 12:
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

std::uint8_t PointIntensity(int output_mode, const std::uint8_t* bytes) noexcept {
  switch (output_mode) {
    case 4:
    case 5:
    case 6:
      return bytes[2];  // upper eight of twelve bits
    default:
      return bytes[0];
  }
}

}  // namespace kerul::lidar
