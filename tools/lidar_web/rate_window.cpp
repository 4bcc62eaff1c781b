#include "lidar_web/rate_window.h"

namespace kerul::lidar::web {
namespace {

constexpr std::chrono::seconds kWindow{2};
constexpr std::size_t kMostSamples = 512;
constexpr double kLate = 1.5;  // steps

double Seconds(RateWindow::TimePoint from, RateWindow::TimePoint to) {
  return std::chrono::duration<double>(to - from).count();
}

}  // namespace

void RateWindow::Add(TimePoint now, std::uint64_t total) {
  samples_.push_back({now, total});
  while (samples_.size() > kMostSamples || now - samples_.front().time > kWindow) {
    samples_.pop_front();
  }
}

double RateWindow::PerSecond(TimePoint now) const {
  if (samples_.size() < 2 || now - samples_.back().time > kWindow) return 0.0;
  const double span = Seconds(samples_.front().time, samples_.back().time);
  const double step = span / static_cast<double>(samples_.size() - 1);
  const double since = Seconds(samples_.back().time, now);
  const double seconds = since > kLate * step ? span + since : span;
  const auto grown = static_cast<double>(samples_.back().total - samples_.front().total);
  return seconds > 0.0 ? grown / seconds : 0.0;
}

}  // namespace kerul::lidar::web
