#include "pixel_story/settings.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>

namespace kerul::lidar::story {
namespace {

std::string FailureOf(const std::string& assignment) {
  DefaultConfig config = default_config::kConfig;
  try {
    ApplySetting(assignment, config);
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
  return "";
}

TEST(Settings, AreSetByTheNameOfTheirField) {
  DefaultConfig config = default_config::kConfig;
  ApplySetting("neighbor_check_enable=false", config);
  ApplySetting("echo_output_code=12", config);
  ApplySetting("ground_vert_span_ratio=0.0625", config);
  ApplySetting("bloom_suppress_calib.min_n=9", config);
  ApplySetting("high_refl_check.rule_a_range.hi=-1.5e1", config);
  ApplySetting("high_refl_check.rule_d_gap_on=false", config);
  ApplySetting("ground_min_dist=0.5", config);
  EXPECT_FALSE(config.neighbor_check_enable);
  EXPECT_EQ(config.echo_output_code, 12);
  EXPECT_EQ(config.ground_vert_span_ratio, 0.0625F);
  EXPECT_EQ(config.bloom_suppress_calib.min_n, 9);
  EXPECT_EQ(config.high_refl_check.rule_a_range.hi, -15.0F);
  EXPECT_FALSE(config.high_refl_check.rule_d_gap_on);
  EXPECT_EQ(config.ground_min_dist, std::vector<float>(36, 0.5F));
}

TEST(Settings, AWrongNameIsAnsweredWithTheNearestOne) {
  EXPECT_EQ(FailureOf("neighbour_check_enable=false"),
            "--set neighbour_check_enable=false: there is no such setting, the nearest is "
            "\"neighbor_check_enable\"; --set help lists all");
  EXPECT_NE(FailureOf("dist_gate=1").find("\"bloom_suppress_calib.dist_gate_m\""),
            std::string::npos);
  EXPECT_NE(FailureOf("rule_c_hight=1").find("\"high_refl_check.rule_c_height\""),
            std::string::npos);
  EXPECT_EQ(FailureOf("echo_num"), "--set echo_num: it has no \"=\"");
}

TEST(Settings, AWrongValueIsAnsweredWithWhatIsAllowed) {
  EXPECT_EQ(FailureOf("echo_num=3"), "--set echo_num=3: echo_num takes a whole number from 1 to 2");
  for (const char* wrong :
       {"echo_num=0", "echo_num=", "echo_num=1.0", "echo_num=1 ", "echo_num=+1",
        "output_mode=65536", "output_mode=-1", "ground_plane_col_step=0", "baseline_samples=18"}) {
    EXPECT_NE(FailureOf(wrong).find("takes a whole number from"), std::string::npos) << wrong;
  }
  for (const char* wrong : {"env_bias=nan", "env_bias=inf", "env_bias=1e99",
                            "env_bias=", "env_bias=x", "env_bias=1x", "ground_min_dist=nan"}) {
    EXPECT_NE(FailureOf(wrong).find("takes a decimal number"), std::string::npos) << wrong;
  }
  for (const char* wrong : {"calib_enable=1", "calib_enable=", "calib_enable=False"}) {
    EXPECT_NE(FailureOf(wrong).find("takes true or false"), std::string::npos) << wrong;
  }
  EXPECT_EQ(FailureOf("output_mode=65535"), "");
}

// A wrong value leaves what was there.
TEST(Settings, AreKeptWhenTheValueIsWrong) {
  DefaultConfig config = default_config::kConfig;
  EXPECT_THROW(ApplySetting("env_bias=7x", config), std::invalid_argument);
  EXPECT_EQ(config.env_bias, default_config::kConfig.env_bias);
}

struct SettingPlace {
  std::uintptr_t address;
  std::string field;
};

// The settings of one record, by address: those with `prefix`, or without any.
std::vector<SettingPlace> ByAddress(DefaultConfig& config, const std::string& prefix) {
  std::vector<SettingPlace> places;
  for (const Setting& setting : SettingsOf(config)) {
    const bool belongs = prefix.empty() ? setting.name.find('.') == std::string::npos
                                        : setting.name.starts_with(prefix);
    // A band's two sides share the band's line in the header.
    if (!belongs || setting.name.ends_with(".hi")) continue;
    std::string field = setting.name.substr(prefix.size());
    if (field.ends_with(".lo")) field.resize(field.size() - 3);
    places.push_back(
        {std::visit([](auto* at) { return reinterpret_cast<std::uintptr_t>(at); }, setting.place),
         field});
  }
  std::ranges::sort(places, {}, &SettingPlace::address);
  return places;
}

std::string TextOfHeader(const std::string& name) {
  std::ifstream file(std::string(KERUL_SOURCE_DIR) + "/src/config/" + name);
  return {std::istreambuf_iterator<char>(file), {}};
}

// Fields lie in memory in the order of their declarations: a name at another field's address would
// stand out of order.
TEST(Settings, EveryNameIsThatOfTheFieldAtItsAddress) {
  DefaultConfig config = default_config::kConfig;
  const std::pair<const char*, const char*> records[] = {
      {"", "default_config.h"},
      {"bloom_suppress_calib.", "bloom_suppress_calib.h"},
      {"high_refl_check.", "high_refl_check.h"}};
  std::size_t settings = 0;
  for (const auto& [prefix, header] : records) {
    const std::string text = TextOfHeader(header);
    std::size_t place = 0;
    for (const SettingPlace& setting : ByAddress(config, prefix)) {
      // Declared as "name = value;" or "name;".
      const std::size_t with_value = text.find(' ' + setting.field + " = ", place);
      const std::size_t plain = text.find(' ' + setting.field + ';', place);
      place = std::min(with_value, plain);
      ASSERT_NE(place, std::string::npos) << prefix << setting.field << " in " << header;
      ++settings;
    }
  }
  EXPECT_GE(settings, 70U);
}

TEST(Settings, StandInTheListOnceWithTheirDefaults) {
  std::ostringstream out;
  WriteSettings(out, default_config::kConfig);
  std::istringstream lines(out.str());
  std::set<std::string> names;
  std::string line;
  int count = 0;
  while (std::getline(lines, line)) {
    names.insert(line.substr(0, line.find(' ')));
    ++count;
  }
  EXPECT_EQ(names.size(), static_cast<std::size_t>(count));
  EXPECT_NE(out.str().find("shot_noise_dist_gate                            number          1\n"),
            std::string::npos);
  EXPECT_NE(out.str().find("ground_min_dist                                 numbers         "
                           "0.4, 1, 3, 99\n"),
            std::string::npos);
}

}  // namespace
}  // namespace kerul::lidar::story
