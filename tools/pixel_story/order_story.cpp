#include <string>
#include <utility>

#include "MIPI_reader/node/rows/echo_ordering.h"
#include "MIPI_reader/node/rows/echo_ranking.h"
#include "pixel_story/pass_stories.h"
#include "pixel_story/words.h"

namespace kerul::lidar::story {
namespace {

using namespace echo_order;

std::string YesNo(bool value) { return value ? "yes" : "no"; }

std::string RankingText(const LidarPoint& pixel, const Ranking& ranking) {
  const LidarEcho& first = pixel.echoes[0];
  const LidarEcho& second = pixel.echoes[1];
  const std::string preferred = "slot " + std::to_string(ranking.preferred);
  switch (ranking.rule) {
    case RankRule::kOneValid:
      return "only " + preferred + " has an echo that counts";
    case RankRule::kNoneValid:
      return "no slot has an echo that counts: the slots keep their order";
    case RankRule::kBloom:
      return preferred + " is preferred: marked as bloom are slot 0 " +
             YesNo(first.highReflBlooming) + ", slot 1 " + YesNo(second.highReflBlooming);
    case RankRule::kNearer: {
      const Sides sides = Compared(first.dist_proc, second.dist_proc);
      return preferred + " is preferred: slot 0 lies at " + sides.left + " m, slot 1 at " +
             sides.right + " m, and the nearer one goes first";
    }
  }
  return "";
}

std::string SelectorText(std::int32_t selector) {
  switch (selector) {
    case kOther:
      return "the other echo";
    case kSlot0:
      return "slot 0 always";
    case kSlot1:
      return "slot 1 always";
    default:
      return "the preferred echo";
  }
}

}  // namespace

void TellPriming(LidarFrame& frame, const PassMoment& moment, PassSheet& sheet) {
  const int rows = moment.settings.row_height;
  PrimeProcessedFields(frame.points, moment.m_row * rows, rows);
  sheet.VisitAll([](int, int, int, Step& step) {
    step.sentences.emplace_back("the processed range and reflectivity begin as the raw ones");
  });
}

void TellOrder(LidarFrame& frame, const PassMoment& moment, PassSheet& sheet) {
  const EchoOutputPlan& plan = moment.settings.tables.echo_plan;
  sheet.VisitAll([&](int row, int col, int slot, Step& step) {
    const LidarPoint& pixel =
        frame.points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)];
    const Sides peak = Compared(pixel.echoes[1].peak, kMinSecondPeak);
    if (slot == 0) {
      step.sentences.push_back("an echo of slot 0 counts with a return (its range is " +
                               Metres(pixel.echoes[0].dist_proc) + ")");
    } else {
      step.sentences.push_back("an echo of slot 1 counts with a return (its range is " +
                               Metres(pixel.echoes[1].dist_proc) + ") and a peak above " +
                               peak.right + " (it is " + peak.left + ")");
    }
    const Ranking ranking = RankEchoes(pixel);
    step.sentences.push_back(RankingText(pixel, ranking));
    // With one packet a block the second slot keeps what it has.
    const bool is_chosen = slot == 0 || plan.count == 2;
    const std::int32_t selector = slot == 0 ? plan.first : plan.second;
    const int from = is_chosen ? SelectSlot(selector, ranking) : slot;
    step.sentences.push_back(
        (is_chosen ? "packet " + std::to_string(slot + 1) + " of its block is to carry " +
                         SelectorText(selector) + ": this slot now holds"
                   : std::string("one packet a block is published, from slot 0: this slot keeps")) +
        " the echo of slot " + std::to_string(from));
    step.values.push_back(CountValue("from_slot", from));
  });
  const int rows = moment.settings.row_height;
  OrderEchoes(frame.points, moment.m_row * rows, rows, plan);
}

}  // namespace kerul::lidar::story
