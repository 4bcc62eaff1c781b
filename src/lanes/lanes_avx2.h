// Eight lanes, for files that are compiled for AVX2.
#pragma once

#include "lanes/lane_types.h"

namespace kerul::lidar {

template <>
struct LaneOperations<8> : LaneTypes<8> {
  static Int Truncate(Float value) noexcept {
    return reinterpret_cast<Int>(_mm256_cvttps_epi32(value));
  }
  static Float ToFloat(Int value) noexcept {
    return _mm256_cvtepi32_ps(reinterpret_cast<__m256i>(value));
  }
  static Int Max(Int a, Int b) noexcept {
    return reinterpret_cast<Int>(
        _mm256_max_epi32(reinterpret_cast<__m256i>(a), reinterpret_cast<__m256i>(b)));
  }
  static Float Max(Float a, Float b) noexcept { return _mm256_max_ps(a, b); }
  static Float Sqrt(Float value) noexcept { return _mm256_sqrt_ps(value); }
  static std::uint32_t Bits(Int mask) noexcept {
    return static_cast<std::uint32_t>(_mm256_movemask_ps(reinterpret_cast<__m256>(mask)));
  }

  static Double Low(Float value) noexcept { return _mm256_cvtps_pd(_mm256_castps256_ps128(value)); }
  static Double High(Float value) noexcept {
    return _mm256_cvtps_pd(_mm256_extractf128_ps(value, 1));
  }
  static Float Join(Double low, Double high) noexcept {
    return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm256_cvtpd_ps(low)), _mm256_cvtpd_ps(high),
                                1);
  }
  static Int Truncate(Double low, Double high) noexcept {
    return reinterpret_cast<Int>(_mm256_inserti128_si256(
        _mm256_castsi128_si256(_mm256_cvttpd_epi32(low)), _mm256_cvttpd_epi32(high), 1));
  }

  static Float Gather(const float* table, Int index) noexcept {
    return _mm256_i32gather_ps(table, reinterpret_cast<__m256i>(index), 4);
  }
  static Int Gather(const std::int32_t* table, Int index) noexcept {
    return reinterpret_cast<Int>(
        _mm256_i32gather_epi32(table, reinterpret_cast<__m256i>(index), 4));
  }
  static Float Pick(const float* sixteen, Int index) noexcept {
    const auto places = reinterpret_cast<__m256i>(index);
    return _mm256_blendv_ps(_mm256_permutevar8x32_ps(_mm256_loadu_ps(sixteen), places),
                            _mm256_permutevar8x32_ps(_mm256_loadu_ps(sixteen + 8), places),
                            _mm256_castsi256_ps(_mm256_slli_epi32(places, 28)));
  }
  static Int Pick(const std::int32_t* sixteen, Int index) noexcept {
    return reinterpret_cast<Int>(Pick(reinterpret_cast<const float*>(sixteen), index));
  }
  static Int GatherPairs(const std::uint16_t* table, Int index) noexcept {
    return reinterpret_cast<Int>(_mm256_i32gather_epi32(reinterpret_cast<const int*>(table),
                                                        reinterpret_cast<__m256i>(index), 2));
  }

  static Int LoadBlocks(const std::uint8_t* base, const std::int32_t* offsets) noexcept {
    return reinterpret_cast<Int>(_mm256_inserti128_si256(
        _mm256_castsi128_si256(LoadBlock(base + offsets[0])), LoadBlock(base + offsets[4]), 1));
  }
  static void StoreBlocks(Int value, std::uint8_t* const* records, int offset) noexcept {
    const auto bits = reinterpret_cast<__m256i>(value);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(records[0] + offset), _mm256_castsi256_si128(bits));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(records[4] + offset),
                     _mm256_extracti128_si256(bits, 1));
  }
  static Int ShuffleBytes(Int value, __m128i places) noexcept {
    return reinterpret_cast<Int>(
        _mm256_shuffle_epi8(reinterpret_cast<__m256i>(value), _mm256_broadcastsi128_si256(places)));
  }
  static Int UnpackLow32(Int a, Int b) noexcept {
    return reinterpret_cast<Int>(
        _mm256_unpacklo_epi32(reinterpret_cast<__m256i>(a), reinterpret_cast<__m256i>(b)));
  }
  static Int UnpackHigh32(Int a, Int b) noexcept {
    return reinterpret_cast<Int>(
        _mm256_unpackhi_epi32(reinterpret_cast<__m256i>(a), reinterpret_cast<__m256i>(b)));
  }
  static Int UnpackLow64(Int a, Int b) noexcept {
    return reinterpret_cast<Int>(
        _mm256_unpacklo_epi64(reinterpret_cast<__m256i>(a), reinterpret_cast<__m256i>(b)));
  }
  static Int UnpackHigh64(Int a, Int b) noexcept {
    return reinterpret_cast<Int>(
        _mm256_unpackhi_epi64(reinterpret_cast<__m256i>(a), reinterpret_cast<__m256i>(b)));
  }

 private:
  static __m128i LoadBlock(const std::uint8_t* from) noexcept {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
  }
};

}  // namespace kerul::lidar
