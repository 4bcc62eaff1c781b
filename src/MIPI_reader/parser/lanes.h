// Vectors of W lanes on the compilers' own vector types: 4 lanes for plain x86-64, 8 for AVX2, 16
// for AVX-512. A lane is a different pixel or echo, never a term of one sum, so each lane keeps the
// order of operations of the scalar form and its very bits.
//
// Kernels written on these types are templates over W in a header `<kernel>_lanes.h`; a small file
// for each instruction set instantiates one width: `<kernel>_plain.cpp`, `<kernel>_avx2.cpp`,
// `<kernel>_avx512.cpp`. The build compiles the last two with their instruction set. So that no
// code of such a file can be taken by the linker for the rest of the program, everything it calls
// is a template over W, which no other file instantiates with that width, and nothing from the
// standard library that is not constexpr arithmetic.
#pragma once

#include <cstdint>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace kerul::lidar {

template <int W>
struct Lanes {
  using Float __attribute__((vector_size(4 * W))) = float;
  // Also the type of masks: every lane all ones or all zeros. a < b gives one; NaN compares false.
  using Int __attribute__((vector_size(4 * W))) = std::int32_t;
  using Double __attribute__((vector_size(8 * W))) = double;

  // Any address: the records are not aligned to vectors.
  static Float Load(const float* from) noexcept {
    Float value;
    std::memcpy(&value, from, sizeof(value));
    return value;
  }
  static Int Load(const std::int32_t* from) noexcept {
    Int value;
    std::memcpy(&value, from, sizeof(value));
    return value;
  }
  static void Store(float* to, Float value) noexcept { std::memcpy(to, &value, sizeof(value)); }
  static void Store(std::int32_t* to, Int value) noexcept {
    std::memcpy(to, &value, sizeof(value));
  }
  static Float Splat(float value) noexcept { return value - Float{}; }
  static Int SplatInt(std::int32_t value) noexcept { return value - Int{}; }

  // Lane by lane mask ? a : b.
  static Float Select(Int mask, Float a, Float b) noexcept { return mask ? a : b; }
  static Int Select(Int mask, Int a, Int b) noexcept { return mask ? a : b; }

  // Truncation toward zero; NaN and what does not fit 32 bits give 0x80000000, as the processor's
  // conversion does and TruncateToInt32 in the scalar forms.
  static Int Truncate(Float value) noexcept;
  static Float ToFloat(Int value) noexcept;
  static Float Sqrt(Float value) noexcept;

  // A bit per lane of a mask.
  static std::uint32_t Bits(Int mask) noexcept;
  static bool Any(Int mask) noexcept { return Bits(mask) != 0; }

  static Float Abs(Float value) noexcept {
    return reinterpret_cast<Float>(reinterpret_cast<Int>(value) & SplatInt(0x7FFFFFFF));
  }
};

template <>
inline Lanes<4>::Int Lanes<4>::Truncate(Float value) noexcept {
  return reinterpret_cast<Int>(_mm_cvttps_epi32(value));
}
template <>
inline Lanes<4>::Float Lanes<4>::ToFloat(Int value) noexcept {
  return _mm_cvtepi32_ps(reinterpret_cast<__m128i>(value));
}
template <>
inline Lanes<4>::Float Lanes<4>::Sqrt(Float value) noexcept {
  return _mm_sqrt_ps(value);
}
template <>
inline std::uint32_t Lanes<4>::Bits(Int mask) noexcept {
  return static_cast<std::uint32_t>(_mm_movemask_ps(reinterpret_cast<__m128>(mask)));
}

#if defined(__AVX2__)
template <>
inline Lanes<8>::Int Lanes<8>::Truncate(Float value) noexcept {
  return reinterpret_cast<Int>(_mm256_cvttps_epi32(value));
}
template <>
inline Lanes<8>::Float Lanes<8>::ToFloat(Int value) noexcept {
  return _mm256_cvtepi32_ps(reinterpret_cast<__m256i>(value));
}
template <>
inline Lanes<8>::Float Lanes<8>::Sqrt(Float value) noexcept {
  return _mm256_sqrt_ps(value);
}
template <>
inline std::uint32_t Lanes<8>::Bits(Int mask) noexcept {
  return static_cast<std::uint32_t>(_mm256_movemask_ps(reinterpret_cast<__m256>(mask)));
}
#endif

#if defined(__AVX512F__)
template <>
inline Lanes<16>::Int Lanes<16>::Truncate(Float value) noexcept {
  return reinterpret_cast<Int>(_mm512_cvttps_epi32(value));
}
template <>
inline Lanes<16>::Float Lanes<16>::ToFloat(Int value) noexcept {
  return _mm512_cvtepi32_ps(reinterpret_cast<__m512i>(value));
}
template <>
inline Lanes<16>::Float Lanes<16>::Sqrt(Float value) noexcept {
  return _mm512_sqrt_ps(value);
}
template <>
inline std::uint32_t Lanes<16>::Bits(Int mask) noexcept {
  return _mm512_movepi32_mask(reinterpret_cast<__m512i>(mask));
}
#endif

#if defined(__AVX__)
// The last statement of every AVX2 and AVX-512 instance. g++ leaves the upper halves of the vector
// registers dirty where a vector is passed between functions, and every SSE instruction behind
// that, the C library's pow and log2 above all, then runs at a fraction of its speed.
inline __attribute__((always_inline)) void LeaveWideVectors() noexcept {
  __builtin_ia32_vzeroupper();
}
#endif

}  // namespace kerul::lidar
