#include "lanes/instruction_set.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>

namespace kerul::lidar {
namespace {

// Before any test forces another one.
const InstructionSet kAtFirst = ChosenInstructionSet();

// What the kernel tells of this processor.
std::set<std::string> ProcessorFlags() {
  std::ifstream file("/proc/cpuinfo");
  return {std::istream_iterator<std::string>(file), {}};
}

class InstructionSetChoice : public ::testing::Test {
 protected:
  ~InstructionSetChoice() override { ForceInstructionSet(kAtFirst); }
};

TEST_F(InstructionSetChoice, IsTheWidestThatTheProcessorRuns) {
  const std::set<std::string> flags = ProcessorFlags();
  if (flags.count("flags") == 0) GTEST_SKIP() << "needs the flags of /proc/cpuinfo";
  const bool has_avx512 = flags.count("avx512f") != 0 && flags.count("avx512bw") != 0 &&
                          flags.count("avx512dq") != 0 && flags.count("avx512vl") != 0;
  const bool has_avx2 = flags.count("avx2") != 0;
  EXPECT_EQ(IsSupported(InstructionSet::kAvx512), has_avx512);
  EXPECT_EQ(IsSupported(InstructionSet::kAvx2), has_avx2);
  EXPECT_EQ(kAtFirst, has_avx512 ? InstructionSet::kAvx512
                      : has_avx2 ? InstructionSet::kAvx2
                                 : InstructionSet::kPlain);
}

TEST_F(InstructionSetChoice, EveryProcessorRunsTheScalarAndThePlainForm) {
  EXPECT_TRUE(IsSupported(InstructionSet::kScalar));
  EXPECT_TRUE(IsSupported(InstructionSet::kPlain));
}

TEST_F(InstructionSetChoice, AForcedOneHoldsUntilTheNext) {
  ForceInstructionSet(InstructionSet::kScalar);
  EXPECT_EQ(ChosenInstructionSet(), InstructionSet::kScalar);
  ForceInstructionSet(InstructionSet::kPlain);
  EXPECT_EQ(ChosenInstructionSet(), InstructionSet::kPlain);
}

// Only the choice is asked for, so the wide ones need not be supported.
TEST_F(InstructionSetChoice, GivesAKernelItsFormOfThatSetAndNoneForTheScalarOne) {
  using Form = int (*)();
  constexpr VectorForms<Form> kForms{[] { return 4; }, [] { return 8; }, [] { return 16; }};
  ForceInstructionSet(InstructionSet::kScalar);
  EXPECT_EQ(kForms.Chosen(), nullptr);
  ForceInstructionSet(InstructionSet::kPlain);
  EXPECT_EQ(kForms.Chosen()(), 4);
  ForceInstructionSet(InstructionSet::kAvx2);
  EXPECT_EQ(kForms.Chosen()(), 8);
  ForceInstructionSet(InstructionSet::kAvx512);
  EXPECT_EQ(kForms.Chosen()(), 16);
}

TEST_F(InstructionSetChoice, HasANameForEach) {
  EXPECT_STREQ(InstructionSetName(InstructionSet::kScalar), "scalar");
  EXPECT_STREQ(InstructionSetName(InstructionSet::kPlain), "plain");
  EXPECT_STREQ(InstructionSetName(InstructionSet::kAvx2), "avx2");
  EXPECT_STREQ(InstructionSetName(InstructionSet::kAvx512), "avx512");
}

}  // namespace
}  // namespace kerul::lidar
