// Holds one form of the vector kernels in force for a scope.
#pragma once

#include "lanes/instruction_set.h"

namespace kerul::lidar {

class ForcedInstructionSet {
 public:
  explicit ForcedInstructionSet(InstructionSet set) : before_(ChosenInstructionSet()) {
    ForceInstructionSet(set);
  }
  ~ForcedInstructionSet() { ForceInstructionSet(before_); }
  ForcedInstructionSet(const ForcedInstructionSet&) = delete;
  ForcedInstructionSet& operator=(const ForcedInstructionSet&) = delete;

 private:
  InstructionSet before_;
};

}  // namespace kerul::lidar
