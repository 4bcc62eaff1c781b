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

// The vector forms of one kernel, function pointers of one type.
template <typename Form>
struct VectorForms {
  Form plain;
  Form avx2;
  Form avx512;

  // The one to call now. Null: the kernel's scalar form.
  Form Chosen() const noexcept {
    switch (ChosenInstructionSet()) {
      case InstructionSet::kScalar:
        break;
      case InstructionSet::kPlain:
        return plain;
      case InstructionSet::kAvx2:
        return avx2;
      case InstructionSet::kAvx512:
        return avx512;
    }
    return nullptr;
  }
};

}  // namespace kerul::lidar
