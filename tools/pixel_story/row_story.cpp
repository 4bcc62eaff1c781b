#include "pixel_story/row_story.h"

#include <algorithm>
#include <string>
#include <utility>

#include "pixel_story/frame_states.h"

namespace kerul::lidar::story {
namespace {

Step PublishedStep(const PublishedPoint& point) {
  Step step{.name = "published", .sentences = {}, .values = {}, .plot = {}};
  step.values.push_back({"distance", std::int64_t{point.distance}, ""});
  for (std::size_t i = 0; i < point.payload.size(); ++i) {
    step.values.push_back({"payload_" + std::to_string(i), std::int64_t{point.payload[i]}, ""});
  }
  return step;
}

}  // namespace

void RowStory::Begin(const NodeParts& parts) { parts_ = &parts; }

void RowStory::OnRowBegins(const RowMoment& moment) {
  const int first_row = moment.m_row * moment.settings.row_height;
  const PixelRect& wanted = book_.Wanted();
  for (int row = std::max(first_row, wanted.first_row);
       row <= std::min(first_row + moment.settings.row_height - 1, wanted.last_row); ++row) {
    for (int col = wanted.first_col; col <= wanted.last_col; ++col) book_.BeginRow(row, col);
  }
}

void RowStory::OnPass(const PassMoment& /*moment*/) {}

void RowStory::OnRowPublished(const RowMoment& /*moment*/,
                              const std::vector<ReceivedPacket>& packets) {
  VisitPublished(packets, [this](int row, int col, int slot, const PublishedPoint& point) {
    if (book_.Wants(row, col)) book_.AddRowStep(row, col, slot, PublishedStep(point));
  });
}

}  // namespace kerul::lidar::story
