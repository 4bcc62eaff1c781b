#include "pixel_story/calibration_steps.h"

#include <cmath>
#include <cstddef>
#include <string>

#include "pixel_story/sentence.h"

namespace kerul::lidar::story {
namespace {

using namespace point_calibration;
using std::to_string;

Step Named(const char* name) { return {.name = name, .sentences = {}, .values = {}, .plot = {}}; }

std::string TableName(bool high) { return high ? "high-width" : "low-width"; }

std::string EntryOf(const PacketRoad& road) {
  return "entry " + to_string(road.pixel_entry) + " of the table by pixel";
}

// What stands there when a step leaves the echo alone.
std::string Idle(bool is_on, float range, const std::string& otherwise) {
  if (!is_on) return "this step is off";
  if (!(range > 0.0F)) return "the echo has no range, so there is nothing to do";
  return otherwise;
}

Step EnvironmentStep(const PacketRoad& road, const EnvCalib* env, int slot) {
  const CalibrationDecisions& told = road.calibration[static_cast<std::size_t>(slot)];
  Step step = Named("environment");
  if (told.gain) {
    const HeightGain& gain = *told.gain;
    step.sentences.push_back("a noise of " + Rounded(gain.noise) + " reads entry " +
                             to_string(gain.index) + " of the " + TableName(gain.high) +
                             " table, a gain of " + Rounded(gain.gain) + ": the height goes from " +
                             Rounded(gain.before) + " to " + Rounded(gain.height) +
                             " levels, with a bias of " + Rounded(gain.bias));
  } else {
    step.sentences.push_back(Idle(env != nullptr,
                                  road.decoded.echoes[static_cast<std::size_t>(slot)].dist_raw,
                                  "height or noise is not a number: the height becomes 0"));
  }
  if (told.shift) {
    step.sentences.push_back("the background shifts the range from " + Rounded(told.shift->before) +
                             " m to " + Rounded(told.shift->range) + " m (noise term " +
                             Rounded(told.shift->noise_term) + ")");
  }
  step.values = {{"cogh", told.after_environment.cogh, "levels at 160 shots"},
                 {"range", told.after_environment.dist_raw, "m"}};
  if (told.gain) {
    step.values.push_back({"gain_index", std::int64_t{told.gain->index}, ""});
    step.values.push_back({"gain", told.gain->gain, ""});
  }
  return step;
}

std::string ReadingText(const CurveReading& reading, float height) {
  return "at a height of " + Rounded(height) + " levels the curve gives " + Rounded(reading.value) +
         ", from entry " + to_string(reading.index) + " (" + Rounded(reading.lower) +
         ") and the next (" + Rounded(reading.upper) + ")";
}

void AddReading(const CurveReading& reading, Step& step) {
  step.values.push_back({"curve_index", std::int64_t{reading.index}, ""});
  step.values.push_back({"curve_fraction", reading.fraction, ""});
  step.values.push_back({"curve_value", reading.value, ""});
}

void TellRange(const PacketRoad& road, const RangeCorrection& range, Step& step) {
  step.sentences.push_back("the " + TableName(range.high) +
                           " curve is read: " + ReadingText(range.curve, range.height));
  step.sentences.push_back("the pixel's offset is " + Rounded(range.offset) + ", " + EntryOf(road));
  step.sentences.push_back(Rounded(range.before) + " m less the sum of both at " +
                           Rounded(range.scale) + " / 64 m each is " + Rounded(range.corrected) +
                           " m");
  if (range.corrected < 0.0F) {
    step.sentences.push_back("that is below 0: the smallest range, " + Rounded(range.range) +
                             " m, stays");
  }
  AddReading(range.curve, step);
  step.values.push_back({"offset_entry", std::int64_t{road.pixel_entry}, ""});
  step.values.push_back({"offset", range.offset, ""});
}

Step RangeStep(const PacketRoad& road, const DistCalib* dist, int slot) {
  const CalibrationDecisions& told = road.calibration[static_cast<std::size_t>(slot)];
  Step step = Named("range_calibration");
  step.values = {{"range", told.after_range.dist_raw, "m"}};
  if (told.range) {
    TellRange(road, *told.range, step);
  } else if (told.range_loss && told.range_loss->before > 0.0F) {
    step.sentences.push_back(
        std::isnan(told.range_loss->height)
            ? std::string("the height is not a number: the echo loses its range")
            : "the pixel's offset is 0, " + EntryOf(road) +
                  ": a pixel without calibration, the echo loses its range");
  } else {
    step.sentences.push_back(Idle(dist != nullptr, 0.0F, ""));
  }
  return step;
}

Step HighThresholdStep(const PacketRoad& road, const HighThresholdMap* map, int slot) {
  const CalibrationDecisions& told = road.calibration[static_cast<std::size_t>(slot)];
  Step step = Named("high_threshold");
  step.values = {{"cogh", told.after_map.cogh, "levels at 160 shots"}};
  if (!told.mapping) {
    step.sentences.push_back(
        Idle(map != nullptr, told.after_range.dist_raw,
             "the height was measured at the low threshold, so it is not mapped"));
    return step;
  }
  const HeightMapping& mapping = *told.mapping;
  const std::string result =
      Rounded(told.after_range.cogh) + " levels becomes " + Rounded(mapping.mapped) + ": ";
  if (mapping.inside) {
    step.sentences.push_back("a height at the high threshold of " + result + "entry " +
                             to_string(mapping.below) + " maps " + Rounded(mapping.in_below) +
                             " to " + Rounded(mapping.out_below) + ", the next " +
                             Rounded(mapping.in_above) + " to " + Rounded(mapping.out_above));
  } else {
    step.sentences.push_back("a height at the high threshold of " + result +
                             "outside the map the nearest entry counts, " +
                             to_string(mapping.below) + ", for a height of " +
                             Rounded(mapping.in_below));
  }
  step.values.push_back({"map_index", std::int64_t{mapping.below}, ""});
  return step;
}

const char* RuleName(HighReflRule rule) {
  switch (rule) {
    case HighReflRule::kBaselineRise:
      return "the baseline's rise";
    case HighReflRule::kA:
      return "rule A (strong and near, weaker echo beyond)";
    case HighReflRule::kB:
      return "rule B (second echo at twice the range)";
    case HighReflRule::kC:
      return "rule C (strong at a distance)";
    case HighReflRule::kD:
      return "rule D (after-pulse just beyond)";
  }
  return "";
}

struct SideText {
  const char* what;
  const char* unit;
};

SideText TextOf(HighReflSide side) {
  switch (side) {
    case HighReflSide::kHeight:
      return {"height ", " levels"};
    case HighReflSide::kRange:
      return {"range ", " m"};
    case HighReflSide::kGap:
      return {"gap to the second echo ", " m"};
    case HighReflSide::kFromDouble:
      return {"distance of the second echo from twice the range ", " m"};
    case HighReflSide::kSecondHeight:
      return {"the second echo's height ", " levels"};
    case HighReflSide::kSecondRms:
      return {"the second echo's ratio of root mean square to peak ", ""};
  }
  return {"", ""};
}

// "height 12 levels is not above 40"
std::string ComparisonText(const HighReflComparison& comparison) {
  const auto [what, unit] = TextOf(comparison.side);
  const std::string verb = comparison.holds ? " is " : " is not ";
  const Sides from = RoundedSides(comparison.value, comparison.above);
  const Sides to = RoundedSides(comparison.value, comparison.up_to);
  if (std::isinf(comparison.up_to)) return what + from.left + unit + verb + "above " + from.right;
  if (std::isinf(comparison.above)) return what + to.left + unit + verb + "at most " + to.right;
  const std::string& value = from.left.size() > to.left.size() ? from.left : to.left;
  return what + value + unit + verb + "above " + from.right + " and at most " + to.right;
}

std::string RuleText(const RuleTold& rule, bool decided) {
  std::string text = RuleName(rule.rule);
  text += decided ? " holds: " : " does not hold: ";
  for (std::size_t i = 0; i < rule.comparisons.size(); ++i) {
    text += (i == 0 ? "" : "; ") + ComparisonText(rule.comparisons[i]);
  }
  if (!decided && (rule.comparisons.empty() || rule.comparisons.back().holds)) {
    text += rule.comparisons.empty() ? "a test it needs is switched off"
                                     : "; a further test it needs is switched off";
  }
  return text;
}

void TellRules(const PacketRoad& road, const HighReflCheck& check, Step& step) {
  for (std::size_t i = 0; i < road.rules.size(); ++i) {
    const bool last = i + 1 == road.rules.size();
    step.sentences.push_back(RuleText(road.rules[i], last && road.verdict->by_rule));
  }
  const bool needs_second = check.rule_a_enable || check.rule_b_enable || check.rule_d_enable;
  const bool has_second = LidarPoint::echo_num > 1 && road.calibration[1].after_map.dist_raw > 0.0F;
  if (needs_second && !has_second && !road.verdict->by_rule) {
    step.sentences.emplace_back("rules that need a second echo are not looked at: there is none");
  }
}

Step HighReflectivityStep(const PacketRoad& road, const HighReflCheck* check, int slot) {
  const LidarEcho& echo = road.calibration[static_cast<std::size_t>(slot)].after_check;
  Step step = Named("high_reflectivity");
  step.values = {{"high_reflectivity", std::int64_t{echo.highRefl}, ""},
                 {"after_pulse", std::int64_t{echo.afterPulse}, ""}};
  if (check == nullptr || !check->enable) {
    step.sentences.emplace_back("this step is off");
    return step;
  }
  if (!road.verdict) {
    step.sentences.emplace_back("the first echo has no range, so no rule is looked at");
    return step;
  }
  TellRules(road, *check, step);
  if (slot == 0) {
    step.sentences.emplace_back(echo.highRefl ? "the echo is a bright target"
                                              : "the echo is no bright target");
  } else {
    step.sentences.emplace_back(echo.afterPulse ? "the second echo is an after-pulse"
                                                : "the second echo is no after-pulse");
  }
  return step;
}

void TellMeasure(const PacketRoad& road, const ReflectivityMeasure& measure, Step& step) {
  step.sentences.push_back(ReadingText(measure.curve, measure.height) +
                           ", the base-2 logarithm of the power " + Rounded(measure.power));
  std::string exponent = "twice the range's logarithm, " + Rounded(measure.range_log) +
                         ", and the curve, less the pixel's scale of " + Rounded(measure.scale) +
                         " (" + EntryOf(road) + ") and " + Rounded(measure.ref_offset);
  if (measure.near.row >= 0) {
    exponent += ", and the near range's " + Rounded(measure.near.value) + " (row " +
                to_string(measure.near.row) + ", column " + to_string(measure.near.lane) +
                " of its table)";
  }
  step.sentences.push_back(exponent + ", make an exponent of " + Rounded(measure.exponent));
  const Sides sides = RoundedSides(measure.measured, 255.0F);
  step.sentences.push_back(
      "two to that power is a reflectivity of " + sides.left +
      (measure.measured > 255.0F ? ", above the top value: " + sides.right : std::string()));
  AddReading(measure.curve, step);
  step.values.push_back({"scale_entry", std::int64_t{road.pixel_entry}, ""});
  step.values.push_back({"scale", measure.scale, ""});
  step.values.push_back({"exponent", measure.exponent, ""});
}

void TellFloor(const ReflectivityFloor& floor, Step& step) {
  const Sides sides = RoundedSides(floor.reflectivity, floor.floor);
  const bool erased = floor.floor > floor.reflectivity;
  step.sentences.push_back("at " + Rounded(floor.range) + " m a reflectivity of " + sides.left +
                           " is " + (erased ? "below" : "not below") + " the floor of " +
                           sides.right + " (from entry " + to_string(floor.entry) +
                           " of its table on)" + (erased ? ": the echo is erased" : ""));
}

Step ReflectivityStep(const PacketRoad& road, const RetroCalib* retro, int slot) {
  const auto at = static_cast<std::size_t>(slot);
  const CalibrationDecisions& told = road.calibration[at];
  const LidarEcho& echo = road.calibrated.echoes[at];
  Step step = Named("reflectivity");
  step.values = {{"reflectivity", echo.refl_raw, ""},
                 {"power", echo.power, ""},
                 {"range", echo.dist_raw, "m"}};
  if (told.reflectivity) {
    TellMeasure(road, *told.reflectivity, step);
  } else if (told.unscaled_range) {
    step.sentences.push_back("the pixel's scale is 0, " + EntryOf(road) +
                             ": a pixel without calibration, the echo of " +
                             Rounded(*told.unscaled_range) + " m is erased");
  } else {
    step.sentences.push_back(Idle(retro != nullptr, 0.0F, ""));
  }
  if (told.bright) {
    step.sentences.push_back(
        "a bright target: the reflectivity is set to 255 and the power by "
        "range to " +
        Rounded(told.bright->bright_power));
  }
  if (told.softened) {
    const Sides range = RoundedSides(told.softened->range, told.softened->near_range);
    step.sentences.push_back("the range of " + range.left + " m is below " + range.right +
                             " m and the reflectivity of " + Rounded(told.softened->before) +
                             " above 100: it is softened to " +
                             Rounded(told.softened->reflectivity));
  }
  if (told.floor) TellFloor(*told.floor, step);
  return step;
}

}  // namespace

std::vector<Step> CalibrationStepsOf(const PacketRoad& road, const CalibrationSteps& steps,
                                     int slot) {
  return {EnvironmentStep(road, steps.env, slot), RangeStep(road, steps.dist, slot),
          HighThresholdStep(road, steps.high_threshold_map, slot),
          HighReflectivityStep(road, steps.high_refl_check, slot),
          ReflectivityStep(road, steps.retro, slot)};
}

}  // namespace kerul::lidar::story
