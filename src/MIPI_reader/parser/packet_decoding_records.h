// Point records written from a packet's planes: every byte once, zeros included, so that no reset
// is needed.
#pragma once

#include <cstddef>
#include <cstdint>

#include "MIPI_reader/parser/lidar_point.h"
#include "MIPI_reader/parser/packet_planes.h"
#include "MIPI_reader/parser/raw_packet.h"
#include "lanes/lanes.h"

namespace kerul::lidar {

// kWhole: the record is written as a new one. Otherwise as after LidarPoint::ResetEchoes, which
// leaves debug_flag, ground_refl_scale and slots that are not in use alone.
template <int W, bool kWhole>
struct PacketRecords {
  using V = Lanes<W>;
  using Float = typename V::Float;
  using Int = typename V::Int;

  // Pixel i of the packet to *places[i]. Lanes become words of records in a small buffer first. So
  // the records are written one after the other, each from front to back.
  static void Store(const PacketPlanes& planes, LidarPoint* const* places) noexcept {
    Buffer buffer;
    for (int first = 0; first < kPixels; first += W) TakePixels(planes, first, buffer);
    for (int first = 0; first < planes.window_count; first += W) {
      TakeWindows(planes, first, buffer);
    }
    for (int pixel = 0; pixel < kPixels; ++pixel) {
      auto* record = reinterpret_cast<std::uint8_t*>(places[pixel]);
      StoreBytes<28>(record, buffer.pixels[pixel].bytes);
      StoreEcho(record + kFirstEcho, buffer.echoes[pixel]);
      if (!kWhole && LidarPoint::echo_num < kEchoSlots) continue;
      StoreEcho(record + kSecondEcho, buffer.echoes[PacketPlanes::kPixels + pixel]);
    }
  }

 private:
  static constexpr int kPixels = raw_packet::kBlocks;
  static constexpr std::ptrdiff_t kFirstEcho = offsetof(LidarPoint, echoes);
  static constexpr std::ptrdiff_t kSecondEcho = kFirstEcho + sizeof(LidarEcho);
  using Quad = typename Lanes<4>::Int;  // 16 bytes of a record

  static_assert(offsetof(LidarPoint, row) == 0 && offsetof(LidarPoint, col) == 4 &&
                offsetof(LidarPoint, pixel_word22) == 8 &&
                offsetof(LidarPoint, pixel_word11) == 12 &&
                offsetof(LidarPoint, shot_times) == 16 && offsetof(LidarPoint, shot_ratio) == 20 &&
                offsetof(LidarPoint, detect_threshold) == 24 && kFirstEcho == 28);
  static_assert(offsetof(LidarEcho, dist_raw) == 0 && offsetof(LidarEcho, refl_raw) == 4 &&
                offsetof(LidarEcho, cogh) == 16 && offsetof(LidarEcho, cogw) == 20 &&
                offsetof(LidarEcho, cogw_high) == 24 &&
                offsetof(LidarEcho, waveform_rms_ratio) == 28 &&
                offsetof(LidarEcho, cogw_flag) == 48 && offsetof(LidarEcho, peak) == 52 &&
                offsetof(LidarEcho, peak_ratio) == 56 && offsetof(LidarEcho, peak_addr) == 60 &&
                offsetof(LidarEcho, power) == 64 && offsetof(LidarEcho, noise) == 68 &&
                offsetof(LidarEcho, baseline) == 72 &&
                offsetof(LidarEcho, change_noise_noise_append) == 76 &&
                offsetof(LidarEcho, timming_th) == 80 && offsetof(LidarEcho, highRefl) == 84 &&
                offsetof(LidarEcho, afterPulse) == 86 && offsetof(LidarEcho, debug_flag) == 87 &&
                offsetof(LidarEcho, ground_refl_scale) == 92 &&
                offsetof(LidarEcho, shot_noise_group_point) == 96 &&
                offsetof(LidarEcho, detect_pass) == 97 && offsetof(LidarEcho, bins) == 98);

  // The words of a record that are not always zero.
  struct alignas(32) PixelBytes {
    std::uint8_t bytes[32];  // up to the echoes
  };
  struct alignas(32) EchoBytes {
    std::uint8_t range[32];  // bytes 0..31 of the echo
    std::uint8_t level[32];  // 48..79
    std::uint8_t flags[16];  // 80..95
    std::int32_t detection;  // 96..99
  };
  struct Buffer {
    PixelBytes pixels[PacketPlanes::kPixels];
    EchoBytes echoes[PacketPlanes::kWindows + 1];  // by window; the last is for idle lanes
  };

  // The points' own fields, and the echoes as they are without a pulse.
  static void TakePixels(const PacketPlanes& planes, int first, Buffer& buffer) noexcept {
    const Int zero{};
    const int lanes = kPixels - first < W ? kPixels - first : W;
    std::uint8_t* records[W];
    for (int lane = 0; lane < W; ++lane) records[lane] = buffer.pixels[first + lane].bytes;
    StoreWords<W>(V::Load(planes.row + first), V::Load(planes.col + first),
                  V::Load(planes.pixel_word22 + first), V::Load(planes.pixel_word11 + first),
                  records, 0);
    StoreWords<W>(V::Splat(planes.shot_times), V::Splat(planes.shot_ratio),
                  V::Load(planes.detect_threshold + first), zero, records, 16);

    const Int mask = V::Load(planes.no_pulse + first);
    EchoBytes* second_echoes = buffer.echoes + PacketPlanes::kPixels + first;
    for (int lane = 0; lane < W; ++lane) records[lane] = second_echoes[lane].level;
    StoreWords<W>(zero, Masked(mask, V::Load(planes.no_pulse_peak + first)),
                  Masked(mask, V::Load(planes.no_pulse_peak_ratio + first)),
                  mask & V::Load(planes.no_pulse_peak_addr + first), records, 0);
    StoreWords<W>(zero, Masked(mask, V::Load(planes.noise + first)),
                  Masked(mask, V::Load(planes.baseline + first)), zero, records, 16);
    std::int32_t detection[W];
    V::Store(detection, ~mask & kDetected);
    for (int lane = 0; lane < lanes; ++lane) {
      // Most pixels have a window of slot 0, which is written whole below.
      if ((planes.windows_of_pixels[0] >> (first + lane) & 1U) == 0) {
        EchoBytes& empty = buffer.echoes[first + lane];
        __builtin_memset(&empty, 0, offsetof(EchoBytes, flags));
        StoreQuad(empty.flags, kNoFlags);
        empty.detection = kDetected;
      }
      EchoBytes& second = second_echoes[lane];
      __builtin_memset(second.range, 0, sizeof(second.range));
      StoreQuad(second.flags, kNoFlags);
      second.detection = detection[lane];
    }
  }

  static void TakeWindows(const PacketPlanes& planes, int first, Buffer& buffer) noexcept {
    const auto load = [first](const auto* plane) { return V::Load(plane + first); };
    const Int zero{};
    std::uint8_t* echoes[W];
    for (int lane = 0; lane < W; ++lane) {
      const bool idle = first + lane >= planes.window_count;
      const int window = idle ? PacketPlanes::kWindows : planes.window[first + lane];
      echoes[lane] = buffer.echoes[window].range;
    }
    StoreWords<W>(load(planes.dist_raw), load(planes.refl_raw), zero, zero, echoes, 0);
    StoreWords<W>(load(planes.cogh), load(planes.cogw), load(planes.cogw_high),
                  load(planes.waveform_rms_ratio), echoes, 16);
    StoreWords<W>(load(planes.cogw_flag), load(planes.peak), load(planes.peak_ratio),
                  load(planes.peak_addr), echoes, offsetof(EchoBytes, level));
    StoreWords<W>(load(planes.power), load(planes.window_noise), load(planes.window_baseline),
                  load(planes.change_noise_noise_append), echoes, offsetof(EchoBytes, level) + 16);
    StoreWords<W>(zero, (load(planes.highRefl) & 1) | (load(planes.afterPulse) & 0x10000), zero,
                  V::Splat(1.0F), echoes, offsetof(EchoBytes, flags));
    std::int32_t detection[W];
    V::Store(detection, load(planes.detect_pass) & kDetected);
    for (int lane = 0; lane < W; ++lane) {
      __builtin_memcpy(echoes[lane] + offsetof(EchoBytes, detection), &detection[lane],
                       sizeof(detection[lane]));
    }
  }

  static void StoreEcho(std::uint8_t* echo, const EchoBytes& bytes) noexcept {
    StoreBytes<32>(echo, bytes.range);
    StoreQuad(echo + 32, Quad{});
    StoreBytes<32>(echo + 48, bytes.level);
    Quad flags;
    __builtin_memcpy(&flags, bytes.flags, sizeof(flags));
    if (!kWhole) {
      Quad kept;
      __builtin_memcpy(&kept, echo + kTail, sizeof(kept));
      flags = (flags & ~kKept) | (kept & kKept);
    }
    StoreQuad(echo + kTail, flags);
    __builtin_memcpy(echo + offsetof(LidarEcho, shot_noise_group_point), &bytes.detection,
                     sizeof(bytes.detection));
    static constexpr std::uint8_t kNoBins[32] = {};
    StoreBytes<32>(echo + 100, kNoBins);
  }

  static constexpr int kTail = offsetof(LidarEcho, timming_th);
  static constexpr std::int32_t kDetected = 0x100;  // detect_pass in the word with it
  static constexpr Quad kNoFlags{0, 0, 0, __builtin_bit_cast(std::int32_t, 1.0F)};
  // debug_flag and ground_refl_scale.
  static constexpr Quad kKept{0, static_cast<std::int32_t>(0xFF000000U), 0, -1};

  static Int Masked(Int mask, Float value) noexcept {
    return mask & __builtin_bit_cast(Int, value);
  }

  static void StoreQuad(std::uint8_t* to, Quad quad) noexcept {
    __builtin_memcpy(to, &quad, sizeof(quad));
  }

  template <int kBytes>
  static void StoreBytes(std::uint8_t* to, const std::uint8_t* from) noexcept {
    __builtin_memcpy(to, from, kBytes);
  }
};

}  // namespace kerul::lidar
