// Double precision for vectors of W floats: two halves of W / 2 lanes, each as wide in memory as
// the vector of floats.
#pragma once

#include <cstdint>

#include "MIPI_reader/parser/lanes.h"

namespace kerul::lidar {

template <int W>
struct HalfLanes {
  using Float = typename Lanes<W>::Float;
  using Double __attribute__((vector_size(4 * W))) = double;
  using Long __attribute__((vector_size(4 * W))) = std::int64_t;

  // Lanes 0..W/2-1 and W/2..W-1, widened exactly.
  static Double Low(Float value) noexcept;
  static Double High(Float value) noexcept;
  // Rounded to nearest, ties to even, as a conversion in scalar code does.
  static Float Join(Double low, Double high) noexcept;
  // Toward zero; NaN and what does not fit gives 0x80000000, as TruncateToInt32 does.
  static typename Lanes<W>::Int Truncate(Double low, Double high) noexcept;
};

template <>
inline HalfLanes<4>::Double HalfLanes<4>::Low(Float value) noexcept {
  return _mm_cvtps_pd(value);
}
template <>
inline HalfLanes<4>::Double HalfLanes<4>::High(Float value) noexcept {
  return _mm_cvtps_pd(_mm_movehl_ps(value, value));
}
template <>
inline HalfLanes<4>::Float HalfLanes<4>::Join(Double low, Double high) noexcept {
  return _mm_movelh_ps(_mm_cvtpd_ps(low), _mm_cvtpd_ps(high));
}
template <>
inline Lanes<4>::Int HalfLanes<4>::Truncate(Double low, Double high) noexcept {
  return reinterpret_cast<Lanes<4>::Int>(
      _mm_unpacklo_epi64(_mm_cvttpd_epi32(low), _mm_cvttpd_epi32(high)));
}

#if defined(__AVX2__)
template <>
inline HalfLanes<8>::Double HalfLanes<8>::Low(Float value) noexcept {
  return _mm256_cvtps_pd(_mm256_castps256_ps128(value));
}
template <>
inline HalfLanes<8>::Double HalfLanes<8>::High(Float value) noexcept {
  return _mm256_cvtps_pd(_mm256_extractf128_ps(value, 1));
}
template <>
inline HalfLanes<8>::Float HalfLanes<8>::Join(Double low, Double high) noexcept {
  return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm256_cvtpd_ps(low)), _mm256_cvtpd_ps(high),
                              1);
}
template <>
inline Lanes<8>::Int HalfLanes<8>::Truncate(Double low, Double high) noexcept {
  return reinterpret_cast<Lanes<8>::Int>(_mm256_inserti128_si256(
      _mm256_castsi128_si256(_mm256_cvttpd_epi32(low)), _mm256_cvttpd_epi32(high), 1));
}
#endif

#if defined(__AVX512F__)
template <>
inline HalfLanes<16>::Double HalfLanes<16>::Low(Float value) noexcept {
  return _mm512_cvtps_pd(_mm512_castps512_ps256(value));
}
template <>
inline HalfLanes<16>::Double HalfLanes<16>::High(Float value) noexcept {
  return _mm512_cvtps_pd(_mm512_extractf32x8_ps(value, 1));
}
template <>
inline HalfLanes<16>::Float HalfLanes<16>::Join(Double low, Double high) noexcept {
  return _mm512_insertf32x8(_mm512_castps256_ps512(_mm512_cvtpd_ps(low)), _mm512_cvtpd_ps(high), 1);
}
template <>
inline Lanes<16>::Int HalfLanes<16>::Truncate(Double low, Double high) noexcept {
  return reinterpret_cast<Lanes<16>::Int>(_mm512_inserti64x4(
      _mm512_castsi256_si512(_mm512_cvttpd_epi32(low)), _mm512_cvttpd_epi32(high), 1));
}
#endif

}  // namespace kerul::lidar
