#include "pixel_story/settings.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iomanip>
#include <ostream>
#include <stdexcept>
#include <string_view>

#include "pixel_story/words.h"

namespace kerul::lidar::story {
namespace {

// Letters to add, to take away and to change.
std::size_t EditDistance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j < row.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t change = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({change, row[j] + 1, row[j - 1] + 1});
    }
  }
  return row.back();
}

// A name without the records around it is near as well.
std::size_t DistanceTo(const std::string& name, const Setting& setting) {
  const std::string_view full = setting.name;
  const std::size_t dot = full.find('.');
  const std::size_t whole = EditDistance(name, full);
  return dot == std::string_view::npos ? whole
                                       : std::min(whole, EditDistance(name, full.substr(dot + 1)));
}

template <typename Number>
bool ReadNumber(const std::string& text, Number& number) {
  const char* end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, number);
  return read.ec == std::errc() && read.ptr == end;
}

// Puts a text into a setting; gives what is allowed where the text is not.
struct Assign {
  const Setting& setting;
  const std::string& text;

  std::string operator()(bool* place) const {
    if (text != "true" && text != "false") return "true or false";
    *place = text == "true";
    return "";
  }
  std::string operator()(float* place) const {
    float number = 0.0F;
    if (!ReadNumber(text, number) || !std::isfinite(number)) return "a decimal number";
    *place = number;
    return "";
  }
  std::string operator()(std::vector<float>* place) const {
    float number = 0.0F;
    const std::string wrong = (*this)(&number);
    if (wrong.empty()) std::ranges::fill(*place, number);
    return wrong;
  }
  template <typename Whole>
  std::string operator()(Whole* place) const {
    std::int64_t number = 0;
    if (!ReadNumber(text, number) || number < setting.least || number > setting.most) {
      return "a whole number from " + std::to_string(setting.least) + " to " +
             std::to_string(setting.most);
    }
    *place = static_cast<Whole>(number);
    return "";
  }
};

struct Show {
  std::string operator()(const bool* place) const { return *place ? "true" : "false"; }
  std::string operator()(const float* place) const { return Exact(*place); }
  std::string operator()(const std::vector<float>* place) const {
    std::vector<std::string> values;
    for (const float value : *place) {
      if (values.empty() || values.back() != Exact(value)) values.push_back(Exact(value));
    }
    return Joined(values);
  }
  template <typename Whole>
  std::string operator()(const Whole* place) const {
    return std::to_string(*place);
  }
};

struct KindOf {
  const char* operator()(const bool*) const { return "true or false"; }
  const char* operator()(const float*) const { return "number"; }
  const char* operator()(const std::vector<float>*) const { return "numbers"; }
  template <typename Whole>
  const char* operator()(const Whole*) const {
    return "whole number";
  }
};

}  // namespace

std::string TextOf(const Setting& setting) { return std::visit(Show{}, setting.place); }

void ApplySetting(const std::string& assignment, DefaultConfig& config) {
  const std::string in_front = "--set " + assignment + ": ";
  const std::size_t equals = assignment.find('=');
  if (equals == std::string::npos) throw std::invalid_argument(in_front + "it has no \"=\"");
  const std::string name = assignment.substr(0, equals);
  const std::string text = assignment.substr(equals + 1);
  const std::vector<Setting> settings = SettingsOf(config);
  const auto setting = std::ranges::find(settings, name, &Setting::name);
  if (setting == settings.end()) {
    const auto nearest = std::ranges::min_element(
        settings, {}, [&](const Setting& one) { return DistanceTo(name, one); });
    throw std::invalid_argument(in_front + "there is no such setting, the nearest is \"" +
                                nearest->name + "\"; --set help lists all");
  }
  const std::string allowed = std::visit(Assign{*setting, text}, setting->place);
  if (!allowed.empty()) throw std::invalid_argument(in_front + name + " takes " + allowed);
}

void WriteSettings(std::ostream& out, const DefaultConfig& config) {
  DefaultConfig copy = config;
  for (const Setting& setting : SettingsOf(copy)) {
    out << std::left << std::setw(48) << setting.name << std::setw(16)
        << std::visit(KindOf{}, setting.place) << TextOf(setting) << '\n';
  }
}

}  // namespace kerul::lidar::story
