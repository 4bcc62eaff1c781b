// Vectors of W lanes: 4 for plain x86-64, 8 for AVX2, 16 for AVX-512. A lane is a different pixel
// or echo, never a term of one sum. So each lane keeps the order of operations of the scalar form,
// and its very bits.
//
// A kernel written on these types is a template over W in a header `<kernel>_lanes.h`. Each room
// instantiates its kernels in one file per instruction set: `kernels_plain.cpp`,
// `kernels_avx2.cpp`, `kernels_avx512.cpp`. The build compiles the last two with their instruction
// set. The linker must not take code from such a file for the rest of the program. So everything it
// calls is a template over W that no other file instantiates with that width. Of the standard
// library it uses constexpr arithmetic only.
#pragma once

#include "lanes/lanes_plain.h"
#if defined(__AVX2__)
#include "lanes/lanes_avx2.h"
#endif
#if defined(__AVX512F__)
#include "lanes/lanes_avx512.h"
#endif

namespace kerul::lidar {

template <int W>
struct Lanes : LaneOperations<W> {
  using typename LaneTypes<W>::Float;
  using typename LaneTypes<W>::Int;

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

  static bool Any(Int mask) noexcept { return LaneOperations<W>::Bits(mask) != 0; }

  static Float Abs(Float value) noexcept {
    return reinterpret_cast<Float>(reinterpret_cast<Int>(value) & SplatInt(0x7FFFFFFF));
  }
};

// ---- Records and lanes ----
//
// A vector of W lanes is W / 4 blocks of 16 bytes. Four vectors hold 16 bytes of each lane's
// record, those of lane 4 * b + i in block b of vector i. A transposition makes four vectors of one
// word of every lane out of them, and back. No gather instruction: some processors have only a slow
// form of it.

// Four vectors of blocks and four vectors of words: either is the transposition of the other.
template <int W>
void TransposeBlocks(typename Lanes<W>::Int* v) noexcept {
  using V = Lanes<W>;
  const auto low01 = V::UnpackLow32(v[0], v[1]);
  const auto low23 = V::UnpackLow32(v[2], v[3]);
  const auto high01 = V::UnpackHigh32(v[0], v[1]);
  const auto high23 = V::UnpackHigh32(v[2], v[3]);
  v[0] = V::UnpackLow64(low01, low23);
  v[1] = V::UnpackHigh64(low01, low23);
  v[2] = V::UnpackLow64(high01, high23);
  v[3] = V::UnpackHigh64(high01, high23);
}

// Words 0..3 of the 16 bytes at base + offsets[lane].
template <int W>
[[gnu::always_inline]] inline void LoadWords(const std::uint8_t* base, const std::int32_t* offsets,
                                             typename Lanes<W>::Int* words) noexcept {
  for (int i = 0; i < 4; ++i) words[i] = Lanes<W>::LoadBlocks(base, offsets + i);
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
  for (int i = 0; i < 4; ++i) Lanes<W>::StoreBlocks(v[i], records + i, offset);
}

#if defined(__AVX__)
// The last statement of every AVX2 and AVX-512 instance. g++ leaves the upper halves of the vector
// registers dirty where a vector is passed between functions. Every SSE instruction after that, the
// C library's pow and log2 above all, then runs at a fraction of its speed.
inline __attribute__((always_inline)) void LeaveWideVectors() noexcept {
  __builtin_ia32_vzeroupper();
}
#endif

}  // namespace kerul::lidar
