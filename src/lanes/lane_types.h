// The vector types of W lanes, on the compilers' own vector extensions.
#pragma once

#include <cstdint>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace kerul::lidar {

template <int W>
struct LaneTypes {
  using Float __attribute__((vector_size(4 * W))) = float;
  // Also the type of masks: every lane all ones or all zeros. a < b gives one; NaN compares false.
  using Int __attribute__((vector_size(4 * W))) = std::int32_t;
  // Half as many lanes, as wide in memory as the floats: lanes 0..W/2-1 or W/2..W-1.
  using Double __attribute__((vector_size(4 * W))) = double;
  using Long __attribute__((vector_size(4 * W))) = std::int64_t;
};

// What the processor does to such vectors. Defined for 4, 8 and 16 lanes, each in a header of its
// own, with these members:
//
//   Truncate(Float)            toward zero; NaN and what does not fit 32 bits give 0x80000000, as
//                              TruncateToInt32 does in the scalar forms
//   ToFloat(Int)               rounded to nearest, ties to even
//   Max(a, b)                  a where a > b, else b: b also where one of them is NaN
//   Sqrt(Float)                rounded to nearest, ties to even
//   Bits(mask)                 a bit per lane
//   Low, High(Float)           either half of the lanes, widened exactly
//   Join(Double, Double)       both halves back, rounded to nearest, ties to even
//   Truncate(Double, Double)   as Truncate(Float)
//   Gather(table, index)       table[index] lane by lane; every index must lie in the table, those
//                              of unused lanes too
//   Pick(sixteen, index)       the same for a table of sixteen words in memory: no gather
//   GatherPairs(table, index)  16-bit entries index and index + 1, the latter in the upper half
//   LoadBlocks(base, offsets)  16 bytes from each of base + offsets[0], [4], [8] and so on
//   StoreBlocks(value, records, offset)  block b to records[4 * b] + offset
//   ShuffleBytes(value, places)          the same 16 places within each block; not for 4 lanes
//   UnpackLow32, UnpackHigh32, UnpackLow64, UnpackHigh64  within each block of 16 bytes
template <int W>
struct LaneOperations;

}  // namespace kerul::lidar
