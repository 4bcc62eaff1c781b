#include <algorithm>
#include <string>
#include <utility>

#include "MIPI_reader/node/bloom/bloom_suppression_scalar.h"
#include "pixel_story/pass_stories.h"
#include "pixel_story/words.h"

namespace kerul::lidar::story {
namespace {

// The trace of one wanted echo, for one of the two rounds over the row.
class TellingTrace {
 public:
  static constexpr bool kPrints = false;
  static constexpr bool kHearsAll = true;

  TellingTrace(Step& step, const BloomSuppressCalib& calib) : step_(step), calib_(calib) {}

  void MarkPixel(const LidarEcho& /*echo*/, std::size_t sources) const {
    Say("bright pixels in the 3 x 3 blocks around it: " + std::to_string(sources));
    step_.values.push_back(CountValue("sources", static_cast<std::int64_t>(sources)));
  }
  void MarkNotCandidate(const LidarEcho& echo) const {
    const Sides height = Compared(echo.cogh, calib_.threshold);
    Say(std::string("no candidate: it must not be bright itself (it ") +
        (echo.highRefl ? "is" : "is not") + "), its height must be below " + height.right +
        " (it is " + height.left + "), and it must have a return (its range is " +
        Metres(echo.dist_raw) + ")");
  }
  void MarkSource(const LidarEcho& echo, const BloomSource& source, bool matched) const {
    const float difference = bloom::RangeDifference(source, echo);
    nearest_ = looked_at_ == 0 ? difference : std::min(nearest_, difference);
    ++looked_at_;
    if (!matched) return;
    const Sides sides = Compared(difference, calib_.dist_gate_m);
    Say("marked as bloom: the bright pixel " + Pixel(source.row, source.col) + " at " +
        Metres(source.dist) + " is " + sides.left + " m off in range, less than " + sides.right +
        " m needed");
  }
  void MarkResult(const BloomSource* source) const {
    if (source != nullptr) return;
    const Sides sides = Compared(nearest_, calib_.dist_gate_m);
    Say("not marked: the nearest of them in range is " + sides.left + " m off, less than " +
        sides.right + " m needed");
  }
  void FilterNotMarked() const {}
  void FilterNotCandidate(const LidarEcho& /*echo*/) const {
    Say("not filtered: it is no candidate any more");
  }
  void FilterSource(const LidarEcho& /*echo*/, const BloomSource& source, float psf_w,
                    float contribution, float /*filterpower_sum*/) const {
    Say("from " + Pixel(source.row, source.col) + " at " + Metres(source.dist) + " spills power " +
        Number(source.power) + " x " + Number(psf_w) + " = " + Number(contribution));
  }
  void FilterNoSource() const { Say("not filtered: no bright pixel lies at its range"); }
  void FilterGain(const BloomSpill& spill, const BloomBlockGains& gains) const {
    Say("spilled power: sum " + Number(spill.psf_sum) + " x " + Exact(calib_.psf_coeff) +
        " x energy gate " + Number(spill.gate_energy) + " (pattern score " +
        Number(spill.pattern_score) + ") x spread gain " + Number(gains.dist_std) +
        " x edge gain " + Number(gains.edge_neighbor) + " = " + Number(spill.final_filterpower));
    step_.values.push_back(PlainValue("pattern_score", spill.pattern_score));
    step_.values.push_back(PlainValue("energy_gate", spill.gate_energy));
    step_.values.push_back(PlainValue("spread_gain", gains.dist_std));
    step_.values.push_back(PlainValue("edge_gain", gains.edge_neighbor));
    step_.values.push_back(PlainValue("spilled_power", spill.final_filterpower));
  }
  void FilterResult(const LidarEcho& echo, const BloomOutcome& outcome) const {
    const std::string left =
        "of its power " + Number(echo.power) + " the spill leaves " + Number(outcome.pr);
    if (outcome.action == BloomAction::kZeroByPower) {
      Say("erased by the bloom filter: " + left + ", more than 0 needed");
      return;
    }
    const Sides ratio = Compared(outcome.ratio, bloom::kMinPowerRatio);
    const Sides refl = Compared(outcome.refl, bloom::kMinReflectivity);
    Say(std::string(outcome.action == BloomAction::kScaleRefl ? "kept" : "erased") +
        " by the bloom filter: " + left + ", a share of " + ratio.left + " (more than " +
        ratio.right + " needed), so its reflectivity becomes " + refl.left + " (at least " +
        refl.right + " needed)");
  }

 private:
  void Say(std::string sentence) const { step_.sentences.push_back(std::move(sentence)); }

  Step& step_;
  const BloomSuppressCalib& calib_;
  mutable int looked_at_ = 0;
  mutable float nearest_ = 0.0F;  // difference in range of the sources looked at, metres
};

struct TellingTraces {
  PassSheet& sheet;
  const BloomSuppressCalib& calib;
  BloomTrace place = {};  // nothing is printed

  bool HearsOf(const BloomBlock& block) const {
    for (int row = 0; row < bloom::kBlockSide; ++row) {
      for (int col = 0; col < bloom::kBlockSide; ++col) {
        if (sheet.Find(block.m_row * bloom::kBlockSide + row, block.m_col * bloom::kBlockSide + col,
                       block.echo) != nullptr) {
          return true;
        }
      }
    }
    return false;
  }
  bool PrintsOf(const BloomBlock& /*block*/) const noexcept { return false; }
  void Gains(const BloomBlock& /*block*/, const BloomBlockGains& /*gains*/) const noexcept {}
  void FilterDisabled() const {
    sheet.VisitAll([](int, int, int, Step& step) {
      step.sentences.emplace_back(
          "the bloom filter is switched off: marked echoes stay as they are");
    });
  }
  template <class Use>
  void With(const BloomBlock& block, bool heard, int row, int col, const Use& use) const {
    Step* step = heard ? sheet.Find(row, col, block.echo) : nullptr;
    if (step != nullptr) {
      use(TellingTrace(*step, calib));
    } else {
      use(SilentBloomTrace());
    }
  }
};

}  // namespace

void TellBloom(LidarFrame& frame, const PassMoment& moment, PassSheet& sheet) {
  const BloomSuppressCalib& calib = moment.settings.tables.bloom;
  bloom::SuppressRow(frame, moment.m_row, calib, moment.settings.blooming_filter,
                     moment.settings.possibly_bright_rows, TellingTraces{sheet, calib});
  sheet.VisitAll([&](int, int, int, Step& step) {
    if (!step.sentences.empty()) return;
    step.sentences.push_back(calib.enable ? "not marked: no bright target farther than " +
                                                Exact(calib.source_min_dist_m) + " m" +
                                                " lies in the 3 x 3 blocks around it"
                                          : "the bloom pass is switched off by its table");
  });
}

}  // namespace kerul::lidar::story
