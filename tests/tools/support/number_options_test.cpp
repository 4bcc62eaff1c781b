#include "support/number_options.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace kerul::lidar {
namespace {

bool Passes(const CLI::Validator& check, const std::string& text) {
  std::string copy = text;
  return check(copy).empty();
}

TEST(NumberOptions, AWholeNumberWithinItsBordersPasses) {
  const CLI::Validator check = WholeNumber(1, 200);
  for (const char* text : {"1", "7", "200", "0x1", "0xC8", "0Xc8"}) {
    EXPECT_TRUE(Passes(check, text)) << text;
  }
  for (const char* text : {"0", "201", "0xC9", "-1", "-0", "99999999999999999999"}) {
    EXPECT_FALSE(Passes(check, text)) << text;
  }
}

TEST(NumberOptions, OnlyDigitsMakeAWholeNumber) {
  const CLI::Validator check = WholeNumber(0, 1000);
  for (const char* text :
       {"", " 1", "1 ", "+1", "1.0", "1e2", "nan", "inf", "0x", "x1", "1x", "--1", "-", "0x-1"}) {
    EXPECT_FALSE(Passes(check, text)) << text;
  }
  EXPECT_FALSE(Passes(check, "010")) << "would be taken for octal";
  EXPECT_TRUE(Passes(check, "0"));
}

TEST(NumberOptions, AMinusPassesWhereTheLeastIsBelowZero) {
  const CLI::Validator check = WholeNumber(-5, 5);
  for (const char* text : {"-5", "-1", "0", "5"}) EXPECT_TRUE(Passes(check, text)) << text;
  for (const char* text : {"-6", "6", "-99999999999999999999"}) {
    EXPECT_FALSE(Passes(check, text)) << text;
  }
}

TEST(NumberOptions, ATypeGivesItsBorders) {
  const std::uint16_t port = 0;
  EXPECT_TRUE(Passes(WholeNumberOf(port), "65535"));
  EXPECT_FALSE(Passes(WholeNumberOf(port), "65536"));
  const std::uint64_t seed = 0;
  EXPECT_TRUE(Passes(WholeNumberOf(seed), "18446744073709551615"));
  EXPECT_FALSE(Passes(WholeNumberOf(seed), "18446744073709551616"));
  EXPECT_FALSE(Passes(WholeNumberOf(seed, 1), "0"));
  const std::optional<std::uint32_t> none;
  EXPECT_TRUE(Passes(WholeNumberOf(none), "4294967295"));
  EXPECT_FALSE(Passes(WholeNumberOf(none), "4294967296"));
}

TEST(NumberOptions, AFiniteNumberWithinItsBordersPasses) {
  const CLI::Validator check = FiniteNumber(0.0, 1.0);
  for (const char* text : {"0", "1", "0.5", "1e-3", "0.000"}) EXPECT_TRUE(Passes(check, text));
  for (const char* text : {"nan", "-nan", "inf", "1.0001", "-0.1", "", "0.5x", "1e999", " 1"}) {
    EXPECT_FALSE(Passes(check, text)) << text;
  }
}

TEST(NumberOptions, NothingPassesForPositiveThatIsNotAboveZero) {
  for (const char* text : {"1", "0.1", "1e300"}) EXPECT_TRUE(Passes(PositiveNumber(), text));
  for (const char* text : {"0", "-1", "nan", "inf", "1e999", "-inf"}) {
    EXPECT_FALSE(Passes(PositiveNumber(), text)) << text;
  }
}

TEST(NumberOptions, TheMessageHasTheBorders) {
  std::string text = "9";
  EXPECT_EQ(WholeNumber(1, 8)(text), "9 is not a whole number from 1 to 8");
  text = "nan";
  EXPECT_EQ(FiniteNumber(0.0, 1.0)(text), "nan is not a number from 0 to 1");
  EXPECT_EQ(PositiveNumber()(text), "nan is not a number above 0");
}

}  // namespace
}  // namespace kerul::lidar
