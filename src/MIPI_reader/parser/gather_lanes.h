// Table entries for W indices at once.
#pragma once

#include "MIPI_reader/parser/lanes.h"

namespace kerul::lidar {

template <int W>
struct GatherLanes {
  // table[index] lane by lane. Every index must lie in the table, those of unused lanes too.
  static typename Lanes<W>::Float At(const float* table, typename Lanes<W>::Int index) noexcept;
};

template <>
inline Lanes<4>::Float GatherLanes<4>::At(const float* table, Lanes<4>::Int index) noexcept {
  return Lanes<4>::Float{table[index[0]], table[index[1]], table[index[2]], table[index[3]]};
}

#if defined(__AVX2__)
template <>
inline Lanes<8>::Float GatherLanes<8>::At(const float* table, Lanes<8>::Int index) noexcept {
  return _mm256_i32gather_ps(table, reinterpret_cast<__m256i>(index), sizeof(float));
}
#endif

#if defined(__AVX512F__)
template <>
inline Lanes<16>::Float GatherLanes<16>::At(const float* table, Lanes<16>::Int index) noexcept {
  return _mm512_i32gather_ps(reinterpret_cast<__m512i>(index), table, sizeof(float));
}
#endif

}  // namespace kerul::lidar
