// Four lanes: what every x86-64 processor can do. Gathers are single loads.
#pragma once

#include "lanes/lane_types.h"

namespace kerul::lidar {

template <>
struct LaneOperations<4> : LaneTypes<4> {
  static Int Truncate(Float value) noexcept {
    return reinterpret_cast<Int>(_mm_cvttps_epi32(value));
  }
  static Float ToFloat(Int value) noexcept {
    return _mm_cvtepi32_ps(reinterpret_cast<__m128i>(value));
  }
  static Int Max(Int a, Int b) noexcept { return a > b ? a : b; }
  static Float Max(Float a, Float b) noexcept { return _mm_max_ps(a, b); }
  static Float Sqrt(Float value) noexcept { return _mm_sqrt_ps(value); }
  static std::uint32_t Bits(Int mask) noexcept {
    return static_cast<std::uint32_t>(_mm_movemask_ps(reinterpret_cast<__m128>(mask)));
  }

  static Double Low(Float value) noexcept { return _mm_cvtps_pd(value); }
  static Double High(Float value) noexcept { return _mm_cvtps_pd(_mm_movehl_ps(value, value)); }
  static Float Join(Double low, Double high) noexcept {
    return _mm_movelh_ps(_mm_cvtpd_ps(low), _mm_cvtpd_ps(high));
  }
  static Int Truncate(Double low, Double high) noexcept {
    return reinterpret_cast<Int>(_mm_unpacklo_epi64(_mm_cvttpd_epi32(low), _mm_cvttpd_epi32(high)));
  }

  static Float Gather(const float* table, Int index) noexcept {
    return Float{table[index[0]], table[index[1]], table[index[2]], table[index[3]]};
  }
  static Int Gather(const std::int32_t* table, Int index) noexcept {
    return Int{table[index[0]], table[index[1]], table[index[2]], table[index[3]]};
  }
  template <typename Word>
  static auto Pick(const Word* sixteen, Int index) noexcept {
    return Gather(sixteen, index);
  }
  static Int GatherPairs(const std::uint16_t* table, Int index) noexcept {
    Int pairs;
    for (int i = 0; i < 4; ++i) {
      std::int32_t pair;
      std::memcpy(&pair, table + index[i], sizeof(pair));
      pairs[i] = pair;
    }
    return pairs;
  }

  static Int LoadBlocks(const std::uint8_t* base, const std::int32_t* offsets) noexcept {
    return reinterpret_cast<Int>(
        _mm_loadu_si128(reinterpret_cast<const __m128i*>(base + offsets[0])));
  }
  static void StoreBlocks(Int value, std::uint8_t* const* records, int offset) noexcept {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(records[0] + offset),
                     reinterpret_cast<__m128i>(value));
  }
  static Int UnpackLow32(Int a, Int b) noexcept {
    return reinterpret_cast<Int>(
        _mm_unpacklo_epi32(reinterpret_cast<__m128i>(a), reinterpret_cast<__m128i>(b)));
  }
  static Int UnpackHigh32(Int a, Int b) noexcept {
    return reinterpret_cast<Int>(
        _mm_unpackhi_epi32(reinterpret_cast<__m128i>(a), reinterpret_cast<__m128i>(b)));
  }
  static Int UnpackLow64(Int a, Int b) noexcept {
    return reinterpret_cast<Int>(
        _mm_unpacklo_epi64(reinterpret_cast<__m128i>(a), reinterpret_cast<__m128i>(b)));
  }
  static Int UnpackHigh64(Int a, Int b) noexcept {
    return reinterpret_cast<Int>(
        _mm_unpackhi_epi64(reinterpret_cast<__m128i>(a), reinterpret_cast<__m128i>(b)));
  }
};

}  // namespace kerul::lidar
