#include "MIPI_reader/node/ground/ground_plane_stage_scalar.h"
#include "MIPI_reader/node/ground/ground_rows_scalar.h"
#include "pixel_story/pass_stories.h"
#include "pixel_story/words.h"

namespace kerul::lidar::story {
namespace {

using namespace ground;

std::string RangesOf(const Window& window) {
  std::vector<std::string> ranges;
  for (const float range : window) ranges.push_back(Metres(range));
  return Joined(ranges);
}

class RiseTeller : public ground::NoTeller {
 public:
  explicit RiseTeller(PassSheet& sheet) : sheet_(sheet) {}

  void Pixel(std::size_t row, std::size_t col, bool fits) {
    step_ = sheet_.Find(static_cast<int>(row), static_cast<int>(col), 0);
    row_ = row;
    if (fits) return;
    Say("not looked at: the five rows and columns around it leave the frame, or its row lies "
        "above " +
        std::to_string(kLastGroundRow) + ", the last one that sees ground");
  }
  void Column(const Window& column, const ColumnFill& fill, float min_dist) {
    if (step_ == nullptr) return;
    const std::string ranges = "the five pixels of its column, rows " +
                               std::to_string(row_ - kReach) + " to " +
                               std::to_string(row_ + kReach) + ", have " + RangesOf(column);
    if (!fill.complete) {
      Say("not ground: all of the column must have a return; " + ranges);
      return;
    }
    Say(ranges);
    Say(std::string(IsColumnFilled(fill) ? "" : "not ground: ") + std::to_string(fill.too_near) +
        " of them are nearer than " + Metres(min_dist) + ", at most " +
        std::to_string(kMaxTooNear) + " may be");
  }
  void RisingRun(const Run& run) {
    if (step_ == nullptr) return;
    Say(run.count == 0
            ? "not ground: the ranges do not rise from row to row through the middle over four rows"
            : "the ranges rise over " + std::to_string(run.count) + " rows");
  }
  void Rises(const Rise& rise) {
    if (step_ == nullptr) return;
    const Sides sides = Compared(rise.rise, rise.needed);
    Say(std::string(rise.rise > rise.needed ? "" : "not ground: ") + "they rise by " + sides.left +
        " m, more than " + sides.right + " m needed");
    step_->values.push_back(MetresValue("rise", rise.rise));
    step_->values.push_back(MetresValue("rise_needed", rise.needed));
  }
  void Level(const RowLevel& level, const RowGates& gates) {
    if (step_ == nullptr) return;
    if (level.valid == 0) {
      Say("not ground: none of the four pixels beside it in its row is far enough away");
      return;
    }
    const Sides mean = Compared(level.mean_diff, gates.mean);
    const Sides most = Compared(level.max_diff, gates.max);
    Say(std::string(IsRowLevel(level, gates) ? "" : "not ground: ") + "the mean of " +
        std::to_string(level.valid) + " pixels beside it is " + mean.left + " m off, less than " +
        mean.right + " m needed, and the farthest is " + most.left + " m off, less than " +
        most.right + " m needed");
  }
  void Labelled(const LidarEcho& echo) {
    if (step_ == nullptr) return;
    const Sides sides = Compared(echo.ground_refl_scale, kNoCorrection);
    Say("ground: it passes all tests");
    Say(echo.ground_refl_scale < kNoCorrection
            ? "its reflectivity of " + Number(echo.refl_raw) + " is divided by the scale of " +
                  sides.left + ", which is below " + sides.right
            : "its reflectivity stays: the scale of " + sides.left + " is not below " +
                  sides.right);
  }
  void Smoothed(const SmoothingTold& told) {
    Say("smoothed along the row over those within " + Metres(told.gate) + ": weights sum to " +
        Number(told.sum_of_weights));
  }

 private:
  void Say(std::string sentence) {
    if (step_ != nullptr) step_->sentences.push_back(std::move(sentence));
  }

  PassSheet& sheet_;
  std::size_t row_ = 0;
  Step* step_ = nullptr;  // of the pixel in hand; null when it is not wanted
};

class PlaneTeller : public NoPlaneTeller {
 public:
  explicit PlaneTeller(PassSheet& sheet) : sheet_(sheet) {}

  void FitPoints(std::size_t found, std::size_t kept, std::size_t least) {
    SayOfRow(std::to_string(kept) + " of the row's " + std::to_string(found) +
             " ground points are for the plane, " + std::to_string(least) + " needed" +
             (kept < least ? ": the labels stay" : ""));
  }
  void Fitted(const GroundPlane& plane) {
    SayOfRow(plane.valid ? "plane: " + Number(plane.a) + " x + " + Number(plane.b) + " y + " +
                               Number(plane.c) + " z = " + Metres(plane.d)
                         : "no plane fits the points: the labels stay");
  }
  void Pixel(int row, int col) { step_ = sheet_.Find(row, col, 0); }
  void NoPoint() { Say("not ground: it has no return or no direction"); }
  void Residual(float residual, float limit) {
    const Sides sides = Compared(residual, limit);
    Say(std::string(residual < limit ? "ground" : "not ground") + " by the plane: " + sides.left +
        " m from it, less than " + sides.right + " m needed");
  }
  void Pulled(float from, float to) {
    const Sides sides = Compared(from, to);
    Say("its raw range of " + sides.left + " m is drawn towards the plane: " + sides.right + " m");
  }

 private:
  void Say(std::string sentence) {
    if (step_ != nullptr) step_->sentences.push_back(std::move(sentence));
  }
  void SayOfRow(const std::string& sentence) {
    sheet_.VisitAll([&](int, int, int slot, Step& step) {
      if (slot == 0) step.sentences.push_back(sentence);
    });
  }

  PassSheet& sheet_;
  Step* step_ = nullptr;
};

}  // namespace

void TellGround(LidarFrame& frame, const PassMoment& moment, PassSheet& sheet) {
  const GroundSettings& settings = moment.settings.tables.ground;
  const AngleCalibGrid& grid = moment.settings.tables.angle_grid;
  const int rows = moment.settings.row_height;
  RiseTeller rise(sheet);
  LabelRowsScalar(frame.points, ClipRows(frame.points, moment.m_row * rows, rows),
                  {settings, grid, MinGroundDist(settings.min_dist, moment.m_row)}, rise);
  if (settings.plane_enable && grid.valid) {
    PlaneTeller plane(sheet);
    LabelRowByPlane(frame.points, moment.m_row, rows, settings, grid, plane);
  }
  sheet.VisitAll([](int, int, int slot, Step& step) {
    if (slot > 0) step.sentences.emplace_back("the ground pass looks at slot 0 only");
  });
}

}  // namespace kerul::lidar::story
