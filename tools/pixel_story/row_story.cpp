#include "pixel_story/row_story.h"

#include <string>
#include <utility>

#include "MIPI_reader/parser/point_packet_encoder.h"
#include "kerul_lidar/point_payload.h"
#include "pixel_story/frame_states.h"
#include "pixel_story/pass_stories.h"
#include "pixel_story/words.h"

namespace kerul::lidar::story {
namespace {

void Tell(LidarFrame& frame, const PassMoment& moment, PassSheet& sheet) {
  switch (moment.pass) {
    case RowPass::kPrime:
      return TellPriming(frame, moment, sheet);
    case RowPass::kGround:
      return TellGround(frame, moment, sheet);
    case RowPass::kNeighbours:
      return TellNeighbours(frame, moment, sheet);
    case RowPass::kShotNoise:
      return TellShotNoise(frame, moment, sheet);
    case RowPass::kBloom:
      return TellBloom(frame, moment, sheet);
    case RowPass::kOrder:
      return TellOrder(frame, moment, sheet);
  }
}

const LidarEcho& EchoOf(const LidarFrame& frame, int row, int col, int slot) {
  return frame.points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)].echoes[slot];
}

std::string HexText(const PublishedPoint& point) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::vector<std::string> bytes;
  for (const int byte : {point.distance & 0xFF, point.distance >> 8, int{point.payload[0]},
                         int{point.payload[1]}, int{point.payload[2]}}) {
    bytes.push_back({kDigits[byte >> 4], kDigits[byte & 0xF]});
  }
  return Joined(bytes, " ");
}

Step PublishedStep(const PublishedPoint& point, const LidarEcho& echo, int output_mode) {
  Step step{.name = "published", .sentences = {}, .values = {}, .plot = {}};
  const PointPayload payload = DecodePointPayload(output_mode, point.payload.data());
  if (point.distance != 0) {
    step.sentences.push_back("published: range " + Metres(echo.dist_proc) + " as " +
                             std::to_string(point.distance) + " units of 4 mm");
  } else if (echo.dist_proc > 0.0F && !IsPublishedRange(echo.dist_proc, output_mode)) {
    step.sentences.push_back("published as no return: its range of " + Metres(echo.dist_proc) +
                             " is not between " + Exact(kNearestPublished) + " m" + " and " +
                             Exact(kFarthestPublished) + " m");
  } else {
    step.sentences.emplace_back("published as no return");
  }
  if ((payload.carries & payload_field::kReflectivity) != 0) {
    step.sentences.push_back("its reflectivity of " + Number(echo.refl_proc) + " goes out as " +
                             std::to_string(payload.reflectivity));
  }
  step.sentences.push_back("the bytes of the point are " + HexText(point));
  step.values.push_back(CountValue("distance", point.distance));
  for (std::size_t i = 0; i < point.payload.size(); ++i) {
    step.values.push_back(CountValue("payload_" + std::to_string(i), point.payload[i]));
  }
  return step;
}

Step NotPublishedStep() {
  return {.name = "published",
          .sentences = {"not published: one packet a block goes out, and it carries slot 0"},
          .values = {},
          .plot = {}};
}

}  // namespace

void RowStory::Begin(const NodeParts& parts) {
  output_mode_ = parts.config.output_mode;
  publishes_slot_1_ = parts.echo_plan.count >= 2;
}

void RowStory::OnRowBegins(const RowMoment& moment) {
  if (told_.points.empty()) told_ = moment.frame;
  PassSheet sheet(book_, "", moment.m_row, moment.settings.row_height);
  sheet.VisitAll([this](int row, int col, int slot, Step&) {
    if (slot == 0) book_.BeginRow(row, col);
  });
}

void RowStory::OnPass(const PassMoment& moment) {
  PassSheet sheet(book_, std::string(RowPassName(moment.pass)), moment.m_row,
                  moment.settings.row_height);
  if (sheet.IsEmpty()) return;
  CopyRows(moment.before, RowsInSightOf(moment.m_row, moment.settings.row_height), told_);
  Tell(told_, moment, sheet);
  HoldAgainst(told_, moment);
  AddSteps(sheet, told_);
}

void RowStory::AddSteps(PassSheet& sheet, const LidarFrame& after) {
  sheet.VisitAll([&](int row, int col, int slot, Step& step) {
    AddState(step, EchoOf(after, row, col, slot));
    book_.AddRowStep(row, col, slot, std::move(step));
  });
}

void RowStory::OnRowPublished(const RowMoment& moment, const std::vector<ReceivedPacket>& packets) {
  VisitPublished(packets, [&](int row, int col, int slot, const PublishedPoint& point) {
    if (!book_.Wants(row, col) || slot >= book_.Slots()) return;
    book_.AddRowStep(row, col, slot,
                     PublishedStep(point, EchoOf(moment.frame, row, col, slot), output_mode_));
    if (!publishes_slot_1_ && book_.Slots() > 1) book_.AddRowStep(row, col, 1, NotPublishedStep());
  });
}

}  // namespace kerul::lidar::story
