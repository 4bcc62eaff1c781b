#include "road/options.h"

#include <charconv>
#include <stdexcept>

namespace kerul::lidar::bench {
namespace {

constexpr const char* kUsage =
    "usage: kerul_road [--quick] [--road-only] [--rounds N]\n"
    "                  [--instructions scalar|plain|avx2|avx512]\n"
    "       kerul_road --profile FRAMES [--scene SCENE] [--instructions SET]";

constexpr InstructionSet kAllSets[] = {InstructionSet::kScalar, InstructionSet::kPlain,
                                       InstructionSet::kAvx2, InstructionSet::kAvx512};

std::vector<InstructionSet> SetsOfThisProcessor() {
  std::vector<InstructionSet> sets;
  for (const InstructionSet set : kAllSets) {
    if (IsSupported(set)) sets.push_back(set);
  }
  return sets;
}

InstructionSet SetNamed(const std::string& name) {
  for (const InstructionSet set : kAllSets) {
    if (name != InstructionSetName(set)) continue;
    if (!IsSupported(set)) {
      throw std::invalid_argument("--instructions " + name + ": this processor lacks it");
    }
    return set;
  }
  throw std::invalid_argument("--instructions " + name + ": must be scalar, plain, avx2 or avx512");
}

int PositiveNumber(const std::string& option, const std::string& text) {
  int number = 0;
  const char* const end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc{} || stopped != end || number < 1) {
    throw std::invalid_argument(option + " " + text + ": must be a number above 0");
  }
  return number;
}

}  // namespace

Options ParseOptions(const std::vector<std::string>& arguments) {
  Options options;
  options.instruction_sets = SetsOfThisProcessor();
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    const bool has_value = i + 1 < arguments.size();
    if (argument == "--quick") {
      options.rounds = 5;
      options.side_rounds = 3;
      options.live_seconds = 1.0;
    } else if (argument == "--road-only") {
      options.road_only = true;
    } else if (argument == "--rounds" && has_value) {
      options.rounds = PositiveNumber(argument, arguments[++i]);
    } else if (argument == "--profile" && has_value) {
      options.profile_frames = PositiveNumber(argument, arguments[++i]);
    } else if (argument == "--scene" && has_value) {
      options.profile_scene = arguments[++i];
    } else if (argument == "--instructions" && has_value) {
      options.instruction_sets = {SetNamed(arguments[++i])};
    } else {
      throw std::invalid_argument(kUsage);
    }
  }
  return options;
}

}  // namespace kerul::lidar::bench
