// Echo records written from lanes: every byte once, zeros included, so that no reset is needed.
// debug_flag and ground_refl_scale stay as they were, as in LidarPoint::ResetEchoes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "MIPI_reader/parser/echo_computation_lanes.h"
#include "MIPI_reader/parser/lidar_point.h"
#include "lanes/lanes.h"

namespace kerul::lidar {

template <int W>
struct EchoRecords {
  using V = Lanes<W>;
  using Float = typename V::Float;
  using Int = typename V::Int;
  using Quad = typename Lanes<4>::Int;  // 16 bytes of a record

  static_assert(offsetof(LidarEcho, dist_raw) == 0 && offsetof(LidarEcho, cogh) == 16 &&
                offsetof(LidarEcho, cogw) == 20 && offsetof(LidarEcho, cogw_high) == 24 &&
                offsetof(LidarEcho, waveform_rms_ratio) == 28 &&
                offsetof(LidarEcho, cogw_flag) == 48 && offsetof(LidarEcho, peak) == 52 &&
                offsetof(LidarEcho, peak_ratio) == 56 && offsetof(LidarEcho, peak_addr) == 60 &&
                offsetof(LidarEcho, power) == 64 && offsetof(LidarEcho, noise) == 68 &&
                offsetof(LidarEcho, baseline) == 72 &&
                offsetof(LidarEcho, change_noise_noise_append) == 76 &&
                offsetof(LidarEcho, timming_th) == 80 && offsetof(LidarEcho, highRefl) == 84 &&
                offsetof(LidarEcho, debug_flag) == 87 &&
                offsetof(LidarEcho, ground_refl_scale) == 92 &&
                offsetof(LidarEcho, shot_noise_group_point) == 96 &&
                offsetof(LidarEcho, detect_pass) == 97 && offsetof(LidarEcho, bins) == 98);

  // The reset state, in which all is zero but detect_pass.
  static void Reset(LidarEcho& echo) noexcept {
    auto* record = reinterpret_cast<std::uint8_t*>(&echo);
    for (int offset = 0; offset < kTail; offset += 16) StoreQuad(record + offset, Quad{});
    WriteTail(record, true, false);
  }

  // The echoes of the first `lanes` lanes; the other records are written too, incompletely.
  static void Write(const echo_computation::EchoLanes<W>& echo, Int peak_addr,
                    std::uint8_t* const* records, int lanes) noexcept {
    const Int zero{};
    StoreWords<W>(echo.dist_raw, zero, zero, zero, records, 0);
    StoreWords<W>(echo.cogh, echo.cogw, echo.cogw_high, echo.waveform_rms_ratio, records, 16);
    StoreWords<W>(echo.cogw_flag, echo.peak, echo.peak_ratio, peak_addr, records, 48);
    StoreWords<W>(zero, echo.noise, echo.baseline, echo.change_noise_noise_append, records, 64);
    const std::uint32_t detect_pass = V::Bits(echo.detect_pass);
    const std::uint32_t high_refl = V::Bits(echo.highRefl);
    for (int lane = 0; lane < lanes; ++lane) {
      StoreQuad(records[lane] + 32, Quad{});
      WriteTail(records[lane], (detect_pass >> lane & 1U) != 0, (high_refl >> lane & 1U) != 0);
    }
  }

  // Echoes that did not pass the peak ratio, and the reset state in the lanes that the mask leaves
  // out. `lanes` as above.
  static void WriteWithoutPulse(Int mask, const echo_computation::EchoLanes<W>& echo, Int peak_addr,
                                std::uint8_t* const* records, int lanes) noexcept {
    const Int zero{};
    StoreWords<W>(zero, Masked(mask, echo.peak), Masked(mask, echo.peak_ratio), mask & peak_addr,
                  records, 48);
    StoreWords<W>(zero, Masked(mask, echo.noise), Masked(mask, echo.baseline), zero, records, 64);
    const std::uint32_t no_pulse = V::Bits(mask);
    for (int lane = 0; lane < lanes; ++lane) {
      for (int offset = 0; offset < 48; offset += 16) StoreQuad(records[lane] + offset, Quad{});
      WriteTail(records[lane], (no_pulse >> lane & 1U) == 0, false);
    }
  }

 private:
  static constexpr int kTail = offsetof(LidarEcho, timming_th);

  static Int Masked(Int mask, Float value) noexcept {
    return mask & __builtin_bit_cast(Int, value);
  }

  static void StoreQuad(std::uint8_t* to, Quad quad) noexcept {
    __builtin_memcpy(to, &quad, sizeof(quad));
  }

  // Everything after the words that are zeros or results.
  static void WriteTail(std::uint8_t* record, bool detect_pass, bool high_refl) noexcept {
    constexpr auto kDebugFlag = static_cast<std::int32_t>(0xFF000000U);
    Quad kept;
    __builtin_memcpy(&kept, record + kTail, sizeof(kept));
    StoreQuad(record + kTail,
              (kept & Quad{0, kDebugFlag, 0, -1}) | Quad{0, high_refl ? 1 : 0, 0, 0});
    const std::int32_t word = detect_pass ? 0x100 : 0;
    __builtin_memcpy(record + offsetof(LidarEcho, shot_noise_group_point), &word, sizeof(word));
    StoreQuad(record + 100, Quad{});
    StoreQuad(record + 116, Quad{});
  }
};

}  // namespace kerul::lidar
