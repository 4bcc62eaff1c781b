// The forms of the vector kernels, forced for a scope or taken as parameters of tests.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

#include "lanes/instruction_set.h"

namespace kerul::lidar {

// The forms that this processor can run, the scalar one first.
inline std::vector<InstructionSet> SupportedForms() {
  std::vector<InstructionSet> sets;
  for (const InstructionSet set : {InstructionSet::kScalar, InstructionSet::kPlain,
                                   InstructionSet::kAvx2, InstructionSet::kAvx512}) {
    if (IsSupported(set)) sets.push_back(set);
  }
  return sets;
}

// Those that have lanes.
inline std::vector<InstructionSet> FormsWithLanes() {
  std::vector<InstructionSet> sets = SupportedForms();
  sets.erase(sets.begin());
  return sets;
}

// Holds one form in force for a scope.
class ForcedForm {
 public:
  explicit ForcedForm(InstructionSet set) : before_(ChosenInstructionSet()) {
    ForceInstructionSet(set);
  }
  ~ForcedForm() { ForceInstructionSet(before_); }
  ForcedForm(const ForcedForm&) = delete;
  ForcedForm& operator=(const ForcedForm&) = delete;

 private:
  InstructionSet before_;
};

// Forces the supported forms in turn; the one before is back at its end.
class FormsInTurn {
 public:
  void Next() {
    ForceInstructionSet(sets_[next_]);
    next_ = (next_ + 1) % sets_.size();
  }

 private:
  ForcedForm held_{ChosenInstructionSet()};
  std::vector<InstructionSet> sets_ = SupportedForms();
  std::size_t next_ = 0;
};

// A test that is run once in each form: the parameter is in force from its beginning to its end.
class FormsTest : public ::testing::TestWithParam<InstructionSet> {
 private:
  ForcedForm held_{GetParam()};
};

// How gtest shows it.
inline void PrintTo(InstructionSet set, std::ostream* out) { *out << InstructionSetName(set); }

inline std::string FormName(const ::testing::TestParamInfo<InstructionSet>& info) {
  return InstructionSetName(info.param);
}

}  // namespace kerul::lidar

// `suite` is FormsTest or a fixture derived from it.
#define RUN_IN_EVERY_FORM(suite)                                                                \
  INSTANTIATE_TEST_SUITE_P(Forms, suite, ::testing::ValuesIn(::kerul::lidar::SupportedForms()), \
                           ::kerul::lidar::FormName)

// For tests that hold the lanes against the scalar form.
#define RUN_IN_EVERY_VECTOR_FORM(suite)                                                         \
  INSTANTIATE_TEST_SUITE_P(Forms, suite, ::testing::ValuesIn(::kerul::lidar::FormsWithLanes()), \
                           ::kerul::lidar::FormName)
