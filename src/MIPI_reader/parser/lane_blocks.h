// Moves between records in memory and lanes: a vector of W lanes seen as W / 4 blocks of 16 bytes.
// Four vectors hold 16 bytes of each lane, lane 4 * b + i in block b of vector i; a transposition
// makes four vectors of one word of every lane out of them, and back. No gather instruction, which
// some processors have only in a slow form.
#pragma once

#include <cstdint>

#include "MIPI_reader/parser/lanes.h"

namespace kerul::lidar {

template <int W>
struct LaneBlocks;

template <>
struct LaneBlocks<4> {
  using Float = Lanes<4>::Float;
  using Int = Lanes<4>::Int;
  using HalfDouble __attribute__((vector_size(16))) = double;

  // 16 bytes from each of base + offsets[0], [4], [8] and so on.
  static Int Load(const std::uint8_t* base, const std::int32_t* offsets) noexcept {
    return reinterpret_cast<Int>(
        _mm_loadu_si128(reinterpret_cast<const __m128i*>(base + offsets[0])));
  }
  // Block b to records[4 * b] + offset.
  static void Store(Int value, std::uint8_t* const* records, int offset) noexcept {
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
  static Float Gather(const float* table, Int index) noexcept {
    return Float{table[index[0]], table[index[1]], table[index[2]], table[index[3]]};
  }
  static Int Gather(const std::int32_t* table, Int index) noexcept {
    return Int{table[index[0]], table[index[1]], table[index[2]], table[index[3]]};
  }
  // The entries index and index + 1, the latter in the upper half.
  static Int GatherPairs(const std::uint16_t* table, Int index) noexcept {
    Int pairs;
    for (int i = 0; i < 4; ++i) {
      std::int32_t pair;
      std::memcpy(&pair, table + index[i], sizeof(pair));
      pairs[i] = pair;
    }
    return pairs;
  }
  static HalfDouble LowToDouble(Float value) noexcept { return _mm_cvtps_pd(value); }
  static HalfDouble HighToDouble(Float value) noexcept {
    return _mm_cvtps_pd(_mm_movehl_ps(value, value));
  }
  static Float ToFloat(HalfDouble low, HalfDouble high) noexcept {
    return _mm_movelh_ps(_mm_cvtpd_ps(low), _mm_cvtpd_ps(high));
  }
};

#if defined(__AVX2__)
template <>
struct LaneBlocks<8> {
  using Float = Lanes<8>::Float;
  using Int = Lanes<8>::Int;
  using HalfDouble __attribute__((vector_size(32))) = double;

  static __m128i LoadBlock(const std::uint8_t* from) noexcept {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
  }
  static Int Load(const std::uint8_t* base, const std::int32_t* offsets) noexcept {
    return reinterpret_cast<Int>(_mm256_inserti128_si256(
        _mm256_castsi128_si256(LoadBlock(base + offsets[0])), LoadBlock(base + offsets[4]), 1));
  }
  static void Store(Int value, std::uint8_t* const* records, int offset) noexcept {
    const auto bits = reinterpret_cast<__m256i>(value);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(records[0] + offset), _mm256_castsi256_si128(bits));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(records[4] + offset),
                     _mm256_extracti128_si256(bits, 1));
  }
  // The same 16 places within each block.
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
  static Float Gather(const float* table, Int index) noexcept {
    return _mm256_i32gather_ps(table, reinterpret_cast<__m256i>(index), 4);
  }
  static Int Gather(const std::int32_t* table, Int index) noexcept {
    return reinterpret_cast<Int>(
        _mm256_i32gather_epi32(table, reinterpret_cast<__m256i>(index), 4));
  }
  static Int GatherPairs(const std::uint16_t* table, Int index) noexcept {
    return reinterpret_cast<Int>(_mm256_i32gather_epi32(reinterpret_cast<const int*>(table),
                                                        reinterpret_cast<__m256i>(index), 2));
  }
  static HalfDouble LowToDouble(Float value) noexcept {
    return _mm256_cvtps_pd(_mm256_castps256_ps128(value));
  }
  static HalfDouble HighToDouble(Float value) noexcept {
    return _mm256_cvtps_pd(_mm256_extractf128_ps(value, 1));
  }
  static Float ToFloat(HalfDouble low, HalfDouble high) noexcept {
    return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm256_cvtpd_ps(low)), _mm256_cvtpd_ps(high),
                                1);
  }
};
#endif

#if defined(__AVX512F__)
template <>
struct LaneBlocks<16> {
  using Float = Lanes<16>::Float;
  using Int = Lanes<16>::Int;
  using HalfDouble __attribute__((vector_size(64))) = double;

  static __m128i LoadBlock(const std::uint8_t* from) noexcept {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
  }
  static Int Load(const std::uint8_t* base, const std::int32_t* offsets) noexcept {
    const __m256i low = _mm256_inserti128_si256(
        _mm256_castsi128_si256(LoadBlock(base + offsets[0])), LoadBlock(base + offsets[4]), 1);
    const __m256i high = _mm256_inserti128_si256(
        _mm256_castsi128_si256(LoadBlock(base + offsets[8])), LoadBlock(base + offsets[12]), 1);
    return reinterpret_cast<Int>(_mm512_inserti64x4(_mm512_castsi256_si512(low), high, 1));
  }
  static void Store(Int value, std::uint8_t* const* records, int offset) noexcept {
    const auto bits = reinterpret_cast<__m512i>(value);
    StoreBlock(records[0] + offset, _mm512_castsi512_si128(bits));
    StoreBlock(records[4] + offset, _mm512_extracti32x4_epi32(bits, 1));
    StoreBlock(records[8] + offset, _mm512_extracti32x4_epi32(bits, 2));
    StoreBlock(records[12] + offset, _mm512_extracti32x4_epi32(bits, 3));
  }
  static void StoreBlock(std::uint8_t* to, __m128i block) noexcept {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), block);
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
  static Float Gather(const float* table, Int index) noexcept {
    return _mm512_i32gather_ps(reinterpret_cast<__m512i>(index), table, 4);
  }
  static Int Gather(const std::int32_t* table, Int index) noexcept {
    return reinterpret_cast<Int>(
        _mm512_i32gather_epi32(reinterpret_cast<__m512i>(index), table, 4));
  }
  static Int GatherPairs(const std::uint16_t* table, Int index) noexcept {
    return reinterpret_cast<Int>(
        _mm512_i32gather_epi32(reinterpret_cast<__m512i>(index), table, 2));
  }
  static HalfDouble LowToDouble(Float value) noexcept {
    return _mm512_cvtps_pd(_mm512_castps512_ps256(value));
  }
  static HalfDouble HighToDouble(Float value) noexcept {
    return _mm512_cvtps_pd(_mm512_extractf32x8_ps(value, 1));
  }
  static Float ToFloat(HalfDouble low, HalfDouble high) noexcept {
    return _mm512_insertf32x8(_mm512_castps256_ps512(_mm512_cvtpd_ps(low)), _mm512_cvtpd_ps(high),
                              1);
  }
};
#endif

// Four vectors of blocks and four vectors of words: either is the transposition of the other.
template <int W>
void TransposeBlocks(typename Lanes<W>::Int* v) noexcept {
  using Blocks = LaneBlocks<W>;
  const auto low01 = Blocks::UnpackLow32(v[0], v[1]);
  const auto low23 = Blocks::UnpackLow32(v[2], v[3]);
  const auto high01 = Blocks::UnpackHigh32(v[0], v[1]);
  const auto high23 = Blocks::UnpackHigh32(v[2], v[3]);
  v[0] = Blocks::UnpackLow64(low01, low23);
  v[1] = Blocks::UnpackHigh64(low01, low23);
  v[2] = Blocks::UnpackLow64(high01, high23);
  v[3] = Blocks::UnpackHigh64(high01, high23);
}

// Words 0..3 of 16 bytes at base + offsets[lane].
template <int W>
[[gnu::always_inline]] inline void LoadWords(const std::uint8_t* base, const std::int32_t* offsets,
                                             typename Lanes<W>::Int* words) noexcept {
  for (int i = 0; i < 4; ++i) words[i] = LaneBlocks<W>::Load(base, offsets + i);
  TransposeBlocks<W>(words);
}

// One word of each of the four vectors, of floats or integers, to records[lane] + offset, 16 bytes
// in all.
template <int W, typename A, typename B, typename C, typename D>
void StoreWords(A a, B b, C c, D d, std::uint8_t* const* records, int offset) noexcept {
  using Int = typename Lanes<W>::Int;
  Int v[4] = {__builtin_bit_cast(Int, a), __builtin_bit_cast(Int, b), __builtin_bit_cast(Int, c),
              __builtin_bit_cast(Int, d)};
  TransposeBlocks<W>(v);
  for (int i = 0; i < 4; ++i) LaneBlocks<W>::Store(v[i], records + i, offset);
}

}  // namespace kerul::lidar
