// Sixteen lanes, for files that are compiled for AVX-512.
#pragma once

#include "lanes/lane_types.h"

namespace kerul::lidar {

template <>
struct LaneOperations<16> : LaneTypes<16> {
  static Int Truncate(Float value) noexcept {
    return reinterpret_cast<Int>(_mm512_cvttps_epi32(value));
  }
  static Float ToFloat(Int value) noexcept {
    return _mm512_cvtepi32_ps(reinterpret_cast<__m512i>(value));
  }
  static Int Max(Int a, Int b) noexcept {
    return reinterpret_cast<Int>(
        _mm512_max_epi32(reinterpret_cast<__m512i>(a), reinterpret_cast<__m512i>(b)));
  }
  static Float Max(Float a, Float b) noexcept { return _mm512_max_ps(a, b); }
  static Float Sqrt(Float value) noexcept { return _mm512_sqrt_ps(value); }
  static std::uint32_t Bits(Int mask) noexcept {
    return _mm512_movepi32_mask(reinterpret_cast<__m512i>(mask));
  }

  static Double Low(Float value) noexcept { return _mm512_cvtps_pd(_mm512_castps512_ps256(value)); }
  static Double High(Float value) noexcept {
    return _mm512_cvtps_pd(_mm512_extractf32x8_ps(value, 1));
  }
  static Float Join(Double low, Double high) noexcept {
    return _mm512_insertf32x8(_mm512_castps256_ps512(_mm512_cvtpd_ps(low)), _mm512_cvtpd_ps(high),
                              1);
  }
  static Int Truncate(Double low, Double high) noexcept {
    return reinterpret_cast<Int>(_mm512_inserti64x4(
        _mm512_castsi256_si512(_mm512_cvttpd_epi32(low)), _mm512_cvttpd_epi32(high), 1));
  }

  static Float Gather(const float* table, Int index) noexcept {
    return _mm512_i32gather_ps(reinterpret_cast<__m512i>(index), table, 4);
  }
  static Int Gather(const std::int32_t* table, Int index) noexcept {
    return reinterpret_cast<Int>(
        _mm512_i32gather_epi32(reinterpret_cast<__m512i>(index), table, 4));
  }
  static Float Pick(const float* sixteen, Int index) noexcept {
    return _mm512_permutexvar_ps(reinterpret_cast<__m512i>(index), _mm512_loadu_ps(sixteen));
  }
  static Int Pick(const std::int32_t* sixteen, Int index) noexcept {
    return reinterpret_cast<Int>(
        _mm512_permutexvar_epi32(reinterpret_cast<__m512i>(index), _mm512_loadu_si512(sixteen)));
  }
  static Int GatherPairs(const std::uint16_t* table, Int index) noexcept {
    return reinterpret_cast<Int>(
        _mm512_i32gather_epi32(reinterpret_cast<__m512i>(index), table, 2));
  }

  static Int LoadBlocks(const std::uint8_t* base, const std::int32_t* offsets) noexcept {
    const __m256i low = _mm256_inserti128_si256(
        _mm256_castsi128_si256(LoadBlock(base + offsets[0])), LoadBlock(base + offsets[4]), 1);
    const __m256i high = _mm256_inserti128_si256(
        _mm256_castsi128_si256(LoadBlock(base + offsets[8])), LoadBlock(base + offsets[12]), 1);
    return reinterpret_cast<Int>(_mm512_inserti64x4(_mm512_castsi256_si512(low), high, 1));
  }
  static void StoreBlocks(Int value, std::uint8_t* const* records, int offset) noexcept {
    const auto bits = reinterpret_cast<__m512i>(value);
    StoreBlock(records[0] + offset, _mm512_castsi512_si128(bits));
    StoreBlock(records[4] + offset, _mm512_extracti32x4_epi32(bits, 1));
    StoreBlock(records[8] + offset, _mm512_extracti32x4_epi32(bits, 2));
    StoreBlock(records[12] + offset, _mm512_extracti32x4_epi32(bits, 3));
  }
  static Int ShuffleBytes(Int value, __m128i places) noexcept {
    return reinterpret_cast<Int>(
        _mm512_shuffle_epi8(reinterpret_cast<__m512i>(value), _mm512_broadcast_i32x4(places)));
  }
  static Int UnpackLow32(Int a, Int b) noexcept {
    return reinterpret_cast<Int>(
        _mm512_unpacklo_epi32(reinterpret_cast<__m512i>(a), reinterpret_cast<__m512i>(b)));
  }
  static Int UnpackHigh32(Int a, Int b) noexcept {
    return reinterpret_cast<Int>(
        _mm512_unpackhi_epi32(reinterpret_cast<__m512i>(a), reinterpret_cast<__m512i>(b)));
  }
  static Int UnpackLow64(Int a, Int b) noexcept {
    return reinterpret_cast<Int>(
        _mm512_unpacklo_epi64(reinterpret_cast<__m512i>(a), reinterpret_cast<__m512i>(b)));
  }
  static Int UnpackHigh64(Int a, Int b) noexcept {
    return reinterpret_cast<Int>(
        _mm512_unpackhi_epi64(reinterpret_cast<__m512i>(a), reinterpret_cast<__m512i>(b)));
  }

 private:
  static __m128i LoadBlock(const std::uint8_t* from) noexcept {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
  }
  static void StoreBlock(std::uint8_t* to, __m128i block) noexcept {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), block);
  }
};

}  // namespace kerul::lidar
