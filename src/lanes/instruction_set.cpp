#include "lanes/instruction_set.h"

namespace kerul::lidar {
namespace {

InstructionSet WidestSupported() noexcept {
  if (IsSupported(InstructionSet::kAvx512)) return InstructionSet::kAvx512;
  if (IsSupported(InstructionSet::kAvx2)) return InstructionSet::kAvx2;
  return InstructionSet::kPlain;
}

InstructionSet& Chosen() noexcept {
  static InstructionSet chosen = WidestSupported();
  return chosen;
}

}  // namespace

bool IsSupported(InstructionSet set) noexcept {
  switch (set) {
    case InstructionSet::kScalar:
    case InstructionSet::kPlain:
      return true;
    case InstructionSet::kAvx2:
      return __builtin_cpu_supports("avx2") != 0;
    case InstructionSet::kAvx512:
      return __builtin_cpu_supports("avx512f") != 0 && __builtin_cpu_supports("avx512bw") != 0 &&
             __builtin_cpu_supports("avx512dq") != 0 && __builtin_cpu_supports("avx512vl") != 0;
  }
  return false;
}

InstructionSet ChosenInstructionSet() noexcept { return Chosen(); }

void ForceInstructionSet(InstructionSet set) noexcept { Chosen() = set; }

const char* InstructionSetName(InstructionSet set) noexcept {
  switch (set) {
    case InstructionSet::kScalar:
      return "scalar";
    case InstructionSet::kPlain:
      return "plain";
    case InstructionSet::kAvx2:
      return "avx2";
    case InstructionSet::kAvx512:
      return "avx512";
  }
  return "unknown";
}

}  // namespace kerul::lidar
