// Which form of the vector kernels runs on this processor.
#pragma once

namespace kerul::lidar {

// kScalar is the kernels' plain form, the truth that the others are held against. The vector forms
// have 4, 8 and 16 lanes of single precision.
enum class InstructionSet { kScalar, kPlain, kAvx2, kAvx512 };

// Whether this processor can run it.
bool IsSupported(InstructionSet set) noexcept;

// The widest one supported, found once, or the one that was forced.
InstructionSet ChosenInstructionSet() noexcept;

// For tests and benchmarks, which compare the forms: every kernel call from here on takes `set`,
// which must be supported. Not to be called while a node is running.
void ForceInstructionSet(InstructionSet set) noexcept;

// "scalar", "plain", "avx2" or "avx512".
const char* InstructionSetName(InstructionSet set) noexcept;

}  // namespace kerul::lidar
