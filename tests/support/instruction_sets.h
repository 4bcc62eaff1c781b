// The forms of the vector kernels that this processor can run, for tests that try them all.
#pragma once

#include <vector>

#include "lanes/instruction_set.h"

namespace kerul::lidar::testing {

inline std::vector<InstructionSet> SupportedInstructionSets() {
  std::vector<InstructionSet> sets;
  for (const InstructionSet set : {InstructionSet::kScalar, InstructionSet::kPlain,
                                   InstructionSet::kAvx2, InstructionSet::kAvx512}) {
    if (IsSupported(set)) sets.push_back(set);
  }
  return sets;
}

// Forms come and go while it lives; the one before is back at its end.
class InstructionSetGuard {
 public:
  InstructionSetGuard() : before_(ChosenInstructionSet()) {}
  ~InstructionSetGuard() { ForceInstructionSet(before_); }
  InstructionSetGuard(const InstructionSetGuard&) = delete;
  InstructionSetGuard& operator=(const InstructionSetGuard&) = delete;

  // Takes the supported forms in turn.
  void Next() {
    ForceInstructionSet(sets_[next_]);
    next_ = (next_ + 1) % sets_.size();
  }

 private:
  InstructionSet before_;
  std::vector<InstructionSet> sets_ = SupportedInstructionSets();
  std::size_t next_ = 0;
};

}  // namespace kerul::lidar::testing
