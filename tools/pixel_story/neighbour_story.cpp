#include "MIPI_reader/node/neighbours/neighbour_validation_scalar.h"
#include "pixel_story/pass_stories.h"
#include "pixel_story/words.h"

namespace kerul::lidar::story {
namespace {

using namespace neighbour;

class NeighbourTeller : public NoTeller {
 public:
  explicit NeighbourTeller(PassSheet& sheet) : sheet_(sheet) {}

  void Pixel(std::size_t row, std::ptrdiff_t col) noexcept {
    row_ = static_cast<int>(row);
    col_ = static_cast<int>(col);
  }
  void Echo(int slot) noexcept { step_ = sheet_.Find(row_, col_, slot); }
  void AfterPulseErased() {
    if (step_ != nullptr) Say("erased by neighbour validation: it is an after-pulse");
  }
  void Support(const SupportTold& told) {
    if (step_ != nullptr) TellSupport(told);
  }
  void Smoothed(const SmoothingTold& told) {
    if (step_ != nullptr) TellSmoothing(told);
  }
  void Fill(const FillTold& told) {
    if (step_ != nullptr) TellFill(told);
  }

 private:
  void Say(std::string sentence) { step_->sentences.push_back(std::move(sentence)); }

  // Entry i of the ring, group A before group B.
  std::string PlaceOf(std::size_t i) const {
    const std::size_t pair = i % kPairs;
    const bool first = i < kPairs;
    return story::Pixel(row_ + (first ? kGrpADr[pair] : kGrpBDr[pair]),
                        col_ + (first ? kGrpADc[pair] : kGrpBDc[pair]));
  }

  void TellSupport(const SupportTold& told) {
    const bool kept = told.support >= told.required;
    Say(std::string(kept ? "kept" : "erased") + " by neighbour validation: " +
        std::to_string(told.support) + " of 8 agree within " + Metres(told.gates.support) + ", " +
        std::to_string(told.required) + " needed (range " + Metres(told.range) + ", peak ratio " +
        Number(told.peak_ratio) + (told.ground ? ", ground widens the gate)" : ")"));
    std::vector<std::string> agreeing;
    std::vector<std::string> others;
    for (std::size_t i = 0; i < kNeighbours; ++i) {
      if (!(told.around.dist[i] > 0.0F)) {
        others.push_back(PlaceOf(i) + " has no return");
        continue;
      }
      const bool agrees = Agrees(told.around, i, told.range, told.gates.support);
      (agrees ? agreeing : others)
          .push_back(PlaceOf(i) + " at " + Metres(told.around.dist[i]) + " is " +
                     Metres(DifferenceTo(told.around, i, told.range)) + " off");
    }
    if (!agreeing.empty()) Say("these agree: " + Joined(agreeing));
    if (!others.empty()) Say("these do not: " + Joined(others));
    step_->values.push_back(CountValue("agreeing", told.support));
    step_->values.push_back(CountValue("required", told.required));
    step_->values.push_back(MetresValue("gate", told.gates.support));
    step_->values.push_back(PlainValue("peak_ratio", told.peak_ratio));
  }

  void TellSmoothing(const SmoothingTold& told) {
    std::vector<std::string> pairs;
    for (std::size_t i = 0; i < kPairs; ++i) {
      if ((told.pairs >> i & 1U) == 0) continue;
      pairs.push_back(PlaceOf(i) + " and " + PlaceOf(i + kPairs) + " with " +
                      Exact(kPairWeights[i]) + " each");
    }
    if (pairs.empty()) {
      Say("not smoothed: no two opposite neighbours both lie within " + Metres(told.gate));
      return;
    }
    Say("smoothed over opposite neighbours that both lie within " + Metres(told.gate) +
        ": itself with weight " + Exact(told.centre_weight) + ", " + Joined(pairs) +
        "; the weights sum to " + Number(told.sum_of_weights));
  }

  void TellFill(const FillTold& told) {
    const std::string samples = std::to_string(told.sample_count) +
                                " neighbours are farther than " + Exact(kFillMinDist) + " m" +
                                " with a peak ratio above " + Exact(kSureDetection);
    const Sides sides = Compared(told.farthest, told.tolerance);
    switch (told.outcome) {
      case FillOutcome::kTooFewSamples:
        Say("the hole is not filled: " + samples + ", " + std::to_string(kFillMinSamples) +
            " needed");
        return;
      case FillOutcome::kNoCompletePair:
        Say("the hole is not filled: " + samples + ", but no two of them lie opposite");
        return;
      case FillOutcome::kSampleTooFar:
        Say("the hole is not filled: a neighbour lies " + sides.left + " m from the mean of " +
            Metres(told.mean_dist) + ", " + sides.right + " m allowed");
        return;
      case FillOutcome::kFilled:
        Say("filled: " + samples + " (" + std::to_string(kFillMinSamples) + " needed), " +
            std::to_string(told.complete_pairs) + " opposite pairs give the mean of " +
            Metres(told.mean_dist) + ", and none lies farther from it than " + sides.left + " m (" +
            sides.right + " m allowed)");
    }
  }

  PassSheet& sheet_;
  int row_ = 0;
  int col_ = 0;
  Step* step_ = nullptr;  // of the echo in hand; null when it is not wanted
};

}  // namespace

void TellNeighbours(LidarFrame& frame, const PassMoment& moment, PassSheet& sheet) {
  NeighbourTeller teller(sheet);
  const int rows = moment.settings.row_height;
  ValidateRowsScalar(frame.points, ClipRows(frame.points, moment.m_row * rows, rows),
                     LidarPoint::echo_num, teller);
  sheet.VisitAll([](int, int, int slot, Step& step) {
    if (slot > 0 && step.sentences.empty()) {
      step.sentences.emplace_back("no return in this slot, and holes are filled in slot 0 only");
    }
  });
}

}  // namespace kerul::lidar::story
