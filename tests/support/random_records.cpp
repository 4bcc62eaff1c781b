#include "support/random_records.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <iterator>
#include <limits>

namespace kerul::lidar::testing {
namespace {

constexpr int kRows = 216;
constexpr int kCols = 288;

}  // namespace

// SplitMix64: the library's engines are templates, which test programs compile without optimising.
std::uint64_t RandomRecords::Bits() {
  state_ += 0x9E3779B97F4A7C15U;
  std::uint64_t bits = state_;
  bits = (bits ^ (bits >> 30)) * 0xBF58476D1CE4E5B9U;
  bits = (bits ^ (bits >> 27)) * 0x94D049BB133111EBU;
  return bits ^ (bits >> 31);
}

int RandomRecords::Below(int limit) {
  return static_cast<int>((Bits() >> 32) * static_cast<std::uint64_t>(limit) >> 32);
}

int RandomRecords::Between(int lowest, int highest) { return lowest + Below(highest - lowest + 1); }

bool RandomRecords::Chance(double probability) {
  return static_cast<double>(Bits() >> 11) * 0x1p-53 < probability;
}

float RandomRecords::Uniform(float lowest, float highest) {
  const float share = static_cast<float>(Bits() >> 40) * 0x1p-24F;
  const float value = lowest + (highest - lowest) * share;
  if (!coarse_ || !(highest > lowest)) return value;
  // A sixteenth to a thirty-second of the span, a power of two.
  const float step = std::ldexp(1.0F, std::ilogb(highest - lowest) - 4);
  return std::round(value / step) * step;
}

float RandomRecords::EdgeValue() {
  using Limits = std::numeric_limits<float>;
  static constexpr float kValues[] = {
      Limits::quiet_NaN(), Limits::infinity(), -Limits::infinity(), 0.0F, -0.0F, Limits::min(),
      Limits::denorm_min(), Limits::max(), -Limits::max(), 1e-20F, 1e20F, 2147483648.0F,
      -2147483648.0F, 4294967296.0F, -1.0F, -5.0F, 1024.0F, 1023.0F, 512.0F, 511.0F, 256.0F, 255.0F,
      // At these the algorithms decide.
      0.05F, 0.1F, 0.3F, 0.5F, 0.6F, 0.7F, 0.8F, 0.9F, 1.0F, 1.4F, 2.0F, 3.0F, 9.900001F, 15.0F,
      30.0F, 40.0F, 80.0F, 100.0F, 235.0F, 550.0F};
  return kValues[Below(static_cast<int>(std::size(kValues)))];
}

float RandomRecords::AnyFloat() {
  return std::bit_cast<float>(static_cast<std::uint32_t>(Bits() >> 32));
}

float RandomRecords::Salted(float lowest, float highest, double share) {
  return Chance(share) ? EdgeValue() : Uniform(lowest, highest);
}

std::vector<float> RandomRecords::Table(std::size_t entries, float lowest, float highest,
                                        double share) {
  std::vector<float> table(entries);
  for (float& value : table) value = Salted(lowest, highest, share);
  return table;
}

LidarEcho RandomRecords::Echo(double share) {
  LidarEcho echo;
  const bool empty = Chance(0.2);
  echo.dist_raw = empty ? 0.0F : Salted(0.0F, 50.0F, share);
  echo.refl_raw = empty ? 0.0F : Salted(0.0F, 300.0F, share);
  echo.dist_proc = empty ? 0.0F : Salted(0.0F, 50.0F, share);
  echo.refl_proc = empty ? 0.0F : Salted(0.0F, 300.0F, share);
  echo.cogh = Salted(0.0F, 600.0F, share);
  echo.cogw = Salted(0.0F, 10.0F, share);
  echo.cogw_high = Salted(0.0F, 10.0F, share);
  echo.waveform_rms_ratio = Salted(0.0F, 1.2F, share);
  echo.conf = Salted(0.0F, 1.0F, share);
  echo.echosum = Salted(0.0F, 10000.0F, share);
  echo.totsum = Salted(0.0F, 70000.0F, share);
  echo.echo_flags = Byte();
  echo.cogw_flag = Chance(0.9) ? Below(8) : static_cast<std::int32_t>(Bits());
  echo.peak = Salted(0.0F, 600.0F, share);
  echo.peak_ratio = Salted(-1.0F, 5.0F, share);
  echo.peak_addr = Below(1001);
  echo.power = Salted(0.0F, 500.0F, share);
  echo.noise = Salted(0.0F, Chance(0.5) ? 600.0F : 3000.0F, share);
  echo.baseline = Salted(0.0F, 200.0F, share);
  echo.change_noise_noise_append = Salted(0.0F, 100.0F, share);
  echo.timming_th = Salted(0.0F, 10.0F, share);
  echo.highRefl = Chance(0.1);
  echo.highReflBlooming = Chance(0.1);
  echo.afterPulse = Chance(0.1);
  echo.debug_flag = Chance(0.1);
  echo.ground = Chance(0.3);
  echo.fill_point = Chance(0.1);
  echo.shot_noise_point = Chance(0.1);
  echo.ground_refl_scale = Salted(0.3F, 1.0F, share);
  echo.shot_noise_group_point = Chance(0.1);
  echo.detect_pass = Chance(0.8);
  if (Chance(0.05)) Window(echo.bins.data());
  return echo;
}

LidarPoint RandomRecords::Point(double share) {
  LidarPoint point;
  point.row = Below(kRows);
  point.col = Below(kCols);
  point.pixel_word22 = static_cast<float>(Below(1 << 22));
  point.pixel_word11 = static_cast<float>(Below(1 << 11));
  point.shot_times = Salted(16.0F, 432.0F, share);
  point.shot_ratio = point.shot_times / 160.0F;
  point.detect_threshold = Salted(0.0F, 300.0F, share);
  for (LidarEcho& echo : point.echoes) echo = Echo(share);
  return point;
}

LidarPoint RandomRecords::WildPoint() {
  LidarPoint point = Point(0.5);
  for (LidarEcho& echo : point.echoes) {
    for (float* value : {&echo.dist_raw, &echo.refl_raw, &echo.dist_proc, &echo.refl_proc,
                         &echo.cogh, &echo.cogw, &echo.peak, &echo.noise, &echo.power}) {
      if (Chance(0.5)) *value = AnyFloat();
    }
  }
  return point;
}

void RandomRecords::PutEcho(LidarEcho& echo, float range, float height) {
  echo.dist_raw = range;
  echo.dist_proc = range;
  echo.refl_raw = std::min(height * 0.4F, 255.0F);
  echo.refl_proc = echo.refl_raw;
  echo.cogh = height;
  echo.peak = height;
  echo.power = height * 0.3F;
}

// A plane that comes nearer or goes away row by row, steep at times as the ground is.
void RandomRecords::FillSurface(LidarFrame& frame, double share) {
  const float start = Uniform(1.0F, 30.0F);
  const float row_step = Uniform(-0.2F, 0.6F);
  const float col_step = Uniform(-0.02F, 0.02F);
  const float noise = Chance(0.5) ? 0.02F : 0.3F;
  const double filled = Chance(0.7) ? 0.97 : 0.6;
  for (int row = 0; row < frame.height; ++row) {
    for (int col = 0; col < frame.width; ++col) {
      LidarPoint& point =
          frame.points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)];
      const float range = start + row_step * static_cast<float>(row) +
                          col_step * static_cast<float>(col) + Uniform(-noise, noise);
      PutEcho(point.echoes[0], Chance(filled) ? range : 0.0F, Uniform(5.0F, 300.0F));
      PutEcho(point.echoes[1], Chance(0.2) ? range + Uniform(-1.0F, 8.0F) : 0.0F,
              Uniform(5.0F, 100.0F));
      for (LidarEcho& echo : point.echoes) {
        if (!Chance(share)) continue;
        float* const values[] = {&echo.dist_proc, &echo.refl_proc, &echo.cogh, &echo.peak,
                                 &echo.power,     &echo.dist_raw,  &echo.noise};
        *values[Below(7)] = EdgeValue();
      }
    }
  }
}

void RandomRecords::FillPatches(LidarFrame& frame) {
  const int side = Chance(0.7) ? 6 : Between(2, 9);
  const bool bright_frame = Chance(0.7);
  std::vector<float> ranges;
  const float common = Uniform(2.0F, 25.0F);
  for (int i = 0; i < (frame.height / side + 1) * (frame.width / side + 1); ++i) {
    ranges.push_back(Chance(0.4) ? common : Uniform(0.3F, 45.0F));
  }
  for (int row = 0; row < frame.height; ++row) {
    for (int col = 0; col < frame.width; ++col) {
      LidarPoint& point =
          frame.points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)];
      const int patch = row / side * (frame.width / side + 1) + col / side;
      const float range = ranges[static_cast<std::size_t>(patch)] + Uniform(-0.15F, 0.15F);
      const bool bright = bright_frame && Chance(0.02);
      const float height = bright ? Uniform(200.0F, 400.0F) : Uniform(3.0F, 60.0F);
      PutEcho(point.echoes[0], Chance(0.9) ? range : 0.0F, height);
      PutEcho(point.echoes[1], Chance(0.3) ? common + Uniform(-0.3F, 0.3F) : 0.0F,
              Uniform(5.0F, 60.0F));
      point.echoes[0].highRefl = bright;
      point.echoes[1].highRefl = Chance(0.005);
      if (bright) point.echoes[0].power = Uniform(100.0F, 5000.0F);
    }
  }
}

void RandomRecords::FillIsolated(LidarFrame& frame) {
  const double share = Chance(0.5) ? 0.02 : 0.2;
  for (std::vector<LidarPoint>& row : frame.points) {
    for (LidarPoint& point : row) {
      for (LidarEcho& echo : point.echoes) {
        PutEcho(echo, Chance(share) ? Uniform(0.1F, 45.0F) : 0.0F, Uniform(1.0F, 100.0F));
      }
    }
  }
}

LidarFrame RandomRecords::Frame(int height, int width, int echo_num, FrameStyle style) {
  LidarFrame frame(height, width, echo_num);
  if (style == FrameStyle::kEmpty) return frame;
  for (int row = 0; row < height; ++row) {
    for (int col = 0; col < width; ++col) {
      LidarPoint& point =
          frame.points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)];
      point = style == FrameStyle::kWild && Chance(0.5) ? WildPoint() : Point(0.0);
      point.row = row;
      point.col = col;
      if (style == FrameStyle::kWild) continue;
      for (LidarEcho& echo : point.echoes) {
        echo.highRefl = false;
        echo.highReflBlooming = false;
      }
    }
  }
  if (style == FrameStyle::kSurface) FillSurface(frame, 0.0);
  if (style == FrameStyle::kSalted) FillSurface(frame, 0.03);
  if (style == FrameStyle::kPatches) FillPatches(frame);
  if (style == FrameStyle::kIsolated) FillIsolated(frame);
  return frame;
}

void RandomRecords::Window(std::uint16_t* samples) {
  const int style = Below(6);
  const int floor = style == 0 ? 0 : Below(Chance(0.8) ? 40 : 1000);
  const int jitter = Chance(0.5) ? 1 : 6;
  for (int i = 0; i < kWindowSamples; ++i) {
    samples[i] = static_cast<std::uint16_t>(style == 5 ? Below(4096) : floor + Below(jitter));
  }
  if (style < 2 || style == 5) return;
  const int pulses = style == 3 ? 2 : 1;
  for (int pulse = 0; pulse < pulses; ++pulse) {
    const float centre = pulse == 0 ? Uniform(6.5F, 9.5F) : Uniform(0.0F, 16.0F);
    const float width = Uniform(0.4F, 4.0F);
    const float height = Uniform(1.0F, Chance(0.5) ? 100.0F : 1500.0F);
    for (int i = 0; i < kWindowSamples; ++i) {
      const float away = (static_cast<float>(i) - centre) / width;
      const auto light = static_cast<int>(height * std::exp(-away * away));
      samples[i] = static_cast<std::uint16_t>(std::min(samples[i] + light, 4095));
    }
  }
  if (style != 4) return;
  for (int i = Between(4, 8); i < Between(8, 14); ++i) samples[i] = 4095;
}

namespace {

// Two samples share three bytes: the high eight bits of each, then both low nibbles.
void PackBlock(const std::uint16_t* samples, std::uint8_t* block) {
  for (int i = 0; i < 24; ++i) {
    const unsigned even = samples[2 * i];
    const unsigned odd = samples[2 * i + 1];
    block[3 * i] = static_cast<std::uint8_t>(even >> 4);
    block[3 * i + 1] = static_cast<std::uint8_t>(odd >> 4);
    block[3 * i + 2] = static_cast<std::uint8_t>((even & 0xF) | ((odd & 0xF) << 4));
  }
}

}  // namespace

UdpPacket RandomRecords::RawPacketBytes() {
  UdpPacket packet;
  for (std::uint8_t& byte : packet.buffer) byte = Byte();
  packet.length = 692;
  packet.timed_out = 0;
  static constexpr std::uint8_t kStart[] = {0xEE, 0xFF, 7, 11};
  std::copy(std::begin(kStart), std::end(kStart), packet.buffer);
  packet.buffer[12] = 9;
  return packet;
}

void RandomRecords::PutPixel(int pixel_id, int address, std::uint8_t* block) {
  std::uint16_t samples[48] = {};
  for (int i : {0, 9, 27, 28, 46, 47}) samples[i] = static_cast<std::uint16_t>(Below(4096));
  samples[1] = static_cast<std::uint16_t>(address + Below(3));
  if (Chance(0.2)) samples[1] = static_cast<std::uint16_t>(Chance(0.9) ? Below(1003) : Below(4096));
  samples[2] = static_cast<std::uint16_t>(Chance(0.6) ? Below(1003) : Below(4096));
  samples[3] = static_cast<std::uint16_t>(pixel_id);
  const int noise = Chance(0.1) ? Below(65536) : Below(700);
  samples[4] = static_cast<std::uint16_t>((noise >> 12) | (Chance(0.1) ? 0x70 : 0));
  samples[5] = static_cast<std::uint16_t>(noise & 0xFFF);
  for (int i = 6; i < 9; ++i) samples[i] = static_cast<std::uint16_t>(Below(4096));
  Window(samples + 10);
  Window(samples + 29);
  PackBlock(samples, block);
}

UdpPacket RandomRecords::RawPacket() {
  if (Chance(0.7)) return RawPacketAt(Below(6912), Below(256));
  UdpPacket packet = RawPacketBytes();
  for (int block = 0; block < 9; ++block) {
    if (!Chance(0.02)) PutPixel(Below(4096), Below(1003), packet.buffer + 20 + 72 * block);
  }
  return packet;
}

UdpPacket RandomRecords::RawPacketAt(int index, int frame_id) {
  UdpPacket packet = RawPacketBytes();
  packet.buffer[671] = static_cast<std::uint8_t>(index / 48 % 4);
  packet.buffer[673] = static_cast<std::uint8_t>(index / 192);
  packet.buffer[674] = static_cast<std::uint8_t>(index % 8);
  packet.buffer[675] = static_cast<std::uint8_t>(frame_id);
  for (int block = 0; block < 9; ++block) {
    PutPixel(index / 8 % 6 * 72 + index % 8 * 9 + block, 30 + index / 192 * 2,
             packet.buffer + 20 + 72 * block);
  }
  return packet;
}

AngleCalibGrid RandomRecords::AngleGrid(int rows, int cols, double share) {
  AngleCalibGrid grid;
  grid.rows = rows;
  grid.cols = cols;
  grid.valid = true;
  const auto plane = static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols);
  grid.xyz.resize(3 * plane);
  grid.unit_xyz.resize(3 * plane);
  for (int row = 0; row < rows; ++row) {
    for (int col = 0; col < cols; ++col) {
      const float y = (static_cast<float>(col) - static_cast<float>(cols) / 2.0F) * 0.006F;
      const float z = (static_cast<float>(row) - static_cast<float>(rows) / 2.0F) * 0.006F;
      const float length = std::sqrt(1.0F + y * y + z * z);
      const float direction[] = {1.0F / length, y / length, z / length};
      const auto at = static_cast<std::size_t>(row * cols + col);
      for (std::size_t axis = 0; axis < 3; ++axis) {
        const float value = Chance(share) ? EdgeValue() : direction[axis];
        grid.unit_xyz[axis * plane + at] = value;
        grid.xyz[axis * plane + at] = Chance(share) ? EdgeValue() : 1.5F * direction[axis];
      }
    }
  }
  return grid;
}

}  // namespace kerul::lidar::testing
