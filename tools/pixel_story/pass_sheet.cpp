#include "pixel_story/pass_sheet.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "pixel_story/words.h"

namespace kerul::lidar::story {
namespace {

// One NaN is as good as another: which of two an operation hands on is the compiler's choice.
bool SameValue(float a, float b) {
  return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b) ||
         (std::isnan(a) && std::isnan(b));
}

// All that a pass writes.
bool SameEcho(const LidarEcho& a, const LidarEcho& b) {
  if (std::memcmp(&a, &b, sizeof(a)) == 0) return true;
  return SameValue(a.dist_raw, b.dist_raw) && SameValue(a.refl_raw, b.refl_raw) &&
         SameValue(a.dist_proc, b.dist_proc) && SameValue(a.refl_proc, b.refl_proc) &&
         SameValue(a.cogh, b.cogh) && SameValue(a.cogw, b.cogw) &&
         SameValue(a.cogw_high, b.cogw_high) && SameValue(a.peak, b.peak) &&
         SameValue(a.noise, b.noise) && SameValue(a.ground_refl_scale, b.ground_refl_scale) &&
         a.ground == b.ground && a.fill_point == b.fill_point &&
         a.highReflBlooming == b.highReflBlooming &&
         a.shot_noise_group_point == b.shot_noise_group_point;
}

bool SamePixel(const LidarPoint& a, const LidarPoint& b) {
  return SameEcho(a.echoes[0], b.echoes[0]) && SameEcho(a.echoes[1], b.echoes[1]);
}

NamedValue FlagValue(std::string name, bool value) {
  return {std::move(name), std::int64_t{value ? 1 : 0}, ""};
}

}  // namespace

PassSheet::PassSheet(const StoryBook& book, std::string name, int m_row, int row_height)
    : rect_(book.Wanted()), slots_(book.Slots()) {
  rect_.first_row = std::max(rect_.first_row, m_row * row_height);
  rect_.last_row = std::min(rect_.last_row, (m_row + 1) * row_height - 1);
  if (rect_.last_row < rect_.first_row) return;
  const int pixels =
      (rect_.last_row - rect_.first_row + 1) * (rect_.last_col - rect_.first_col + 1);
  steps_.resize(static_cast<std::size_t>(pixels * slots_));
  for (Step& step : steps_) step.name = name;
}

Step* PassSheet::Find(int row, int col, int slot) noexcept {
  if (!rect_.Contains(row, col) || slot >= slots_) return nullptr;
  const int width = rect_.last_col - rect_.first_col + 1;
  const int pixel = (row - rect_.first_row) * width + col - rect_.first_col;
  return &steps_[static_cast<std::size_t>(pixel * slots_ + slot)];
}

void PassSheet::Say(int row, int col, int slot, std::string sentence) {
  Step* step = Find(row, col, slot);
  if (step != nullptr) step->sentences.push_back(std::move(sentence));
}

void AddState(Step& step, const LidarEcho& echo) {
  step.values.push_back(MetresValue("dist_raw", echo.dist_raw));
  step.values.push_back(PlainValue("refl_raw", echo.refl_raw));
  step.values.push_back(MetresValue("dist_proc", echo.dist_proc));
  step.values.push_back(PlainValue("refl_proc", echo.refl_proc));
  if (echo.ground) step.values.push_back(FlagValue("ground", true));
  if (echo.fill_point) step.values.push_back(FlagValue("fill_point", true));
  if (echo.highReflBlooming) step.values.push_back(FlagValue("bloom", true));
  if (echo.shot_noise_group_point) step.values.push_back(FlagValue("shot_noise", true));
}

void HoldAgainst(const LidarFrame& told, const PassMoment& moment) {
  const RowsInSight in_sight = RowsInSightOf(moment.m_row, moment.settings.row_height);
  for (int row = std::max(in_sight.first, 0); row < std::min(in_sight.end, told.height); ++row) {
    const auto& told_row = told.points[static_cast<std::size_t>(row)];
    const auto& node_row = moment.after.points[static_cast<std::size_t>(row)];
    const auto differs =
        std::mismatch(told_row.begin(), told_row.end(), node_row.begin(), SamePixel);
    if (differs.first == told_row.end()) continue;
    throw std::runtime_error("the story of pass " + std::string(RowPassName(moment.pass)) +
                             " is not the node's: pixel " +
                             Pixel(row, static_cast<int>(differs.first - told_row.begin())));
  }
}

}  // namespace kerul::lidar::story
