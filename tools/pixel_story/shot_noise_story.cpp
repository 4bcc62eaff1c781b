#include <map>
#include <string>
#include <vector>

#include "MIPI_reader/node/rows/shot_noise_filter_scalar.h"
#include "pixel_story/pass_stories.h"
#include "pixel_story/words.h"

namespace kerul::lidar::story {
namespace {

using namespace shot_noise;

std::string RangesText(const LidarEcho& left, const LidarEcho& right) {
  return Number(left.dist_proc) + " and " + Metres(right.dist_proc);
}

class ShotNoiseTeller {
 public:
  ShotNoiseTeller(PassSheet& sheet, float gate) : sheet_(sheet), gate_(gate) {}

  void Edge(std::size_t row, std::size_t /*right_col*/, const LidarEcho& left,
            const LidarEcho& right, EdgeRow verdict) {
    const std::string name = "row " + std::to_string(row);
    switch (verdict) {
      case EdgeRow::kNotCounted:
        rows_.push_back(name + " does not count");
        return;
      case EdgeRow::kFits:
        rows_.push_back(name + " fits: " + RangesText(left, right));
        return;
      case EdgeRow::kDiffers:
        rows_.push_back(name + " differs: " + RangesText(left, right));
    }
  }
  void Judged(std::size_t block, const Boundary& boundary) {
    const std::size_t right_col = kBlockSide * (block + 1);
    boundaries_[block] = {
        "the block edge between columns " + std::to_string(right_col - 1) + " and " +
            std::to_string(right_col) + " is " + (boundary.IsBroken() ? "broken: " : "sound: ") +
            std::to_string(boundary.differing) + " of " + std::to_string(boundary.valid) +
            " rows that count differ by " + Metres(gate_) + " or more; to be broken it needs " +
            std::to_string(kMinValidRows) + " that count and at most one that fits",
        "its rows (one counts unless both ranges are 0 or both peaks above " + Exact(kStrongPeak) +
            "): " + Joined(rows_, "; ")};
    rows_.clear();
  }
  void Suspects(const std::vector<bool>& by_block, std::ptrdiff_t count) {
    sheet_.VisitAll([&](int, int col, int slot, Step& step) {
      const std::size_t block = static_cast<std::size_t>(col) / kBlockSide;
      if (block >= by_block.size()) return;
      SayOfEdges(step, block, slot);
      step.sentences.push_back(std::string("its block is ") +
                               (by_block[block] ? "suspect: an edge of it is broken"
                                                : "not suspect: no edge of it is broken"));
      step.sentences.push_back("the row has " + std::to_string(count) +
                               " suspect blocks, more than " + std::to_string(kMaxTrustedSuspects) +
                               " needed for anything to be erased");
      step.values.push_back(CountValue("suspect", by_block[block] ? 1 : 0));
      step.values.push_back(CountValue("suspect_blocks", count));
    });
  }
  void Echo(std::size_t row, std::size_t col, int slot, bool erased) {
    sheet_.Say(static_cast<int>(row), static_cast<int>(col), slot,
               erased
                   ? "erased by the shot-noise filter: its pulse is narrower than the low width "
                     "curve"
                   : "kept by the shot-noise filter: its pulse is not narrower than the low width "
                     "curve");
  }

 private:
  // Echo 0 alone is judged; the other slot's story only points there.
  void SayOfEdges(Step& step, std::size_t block, int slot) const {
    if (slot > 0) {
      step.sentences.emplace_back("blocks are judged by their echoes in slot 0");
      return;
    }
    for (const std::size_t edge : {block - 1, block}) {
      const auto found = boundaries_.find(edge);
      if (found == boundaries_.end()) continue;
      step.sentences.insert(step.sentences.end(), found->second.begin(), found->second.end());
    }
  }

  PassSheet& sheet_;
  float gate_;                                                  // metres
  std::vector<std::string> rows_;                               // of the boundary in hand
  std::map<std::size_t, std::vector<std::string>> boundaries_;  // by the block to their left
};

}  // namespace

void TellShotNoise(LidarFrame& frame, const PassMoment& moment, PassSheet& sheet) {
  const float gate = moment.settings.shot_noise_dist_gate;
  ShotNoiseTeller teller(sheet, gate);
  FilterRow(frame.points, moment.m_row, moment.settings.block_columns, gate, teller);
}

}  // namespace kerul::lidar::story
