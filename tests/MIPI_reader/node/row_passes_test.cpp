// Which passes run, in which order, with which of the settings, and what a hook sees of it.
#include "MIPI_reader/node/row_passes.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "MIPI_reader/node/bloom/bloom_frame.h"
#include "support/frame_builder.h"
#include "support/ground_settings_builder.h"

namespace kerul::lidar {
namespace {

using frame_builder::SetEcho;
using frame_builder::WildContent;

template <bool primes_late>
struct NameCollector {
  static constexpr bool kPrimesLate = primes_late;
  std::string& seen;
  void operator()(RowPass pass, const LidarFrame& /*frame*/) const {
    seen += std::string(RowPassName(pass)) + " ";
  }
};

// Three miniflash rows of twelve blocks; the passes run over the middle one, rows 6 to 11.
class RowPasses : public ::testing::Test {
 protected:
  ~RowPasses() override { LidarPoint::echo_num = 1; }

  RowPassSettings Settings() const {
    return {.tables = {.ground = ground_, .angle_grid = grid_, .bloom = bloom_, .echo_plan = plan_},
            .on = on_,
            .shot_noise_dist_gate = 1.0F,
            .blooming_filter = blooming_filter_,
            .bloom_trace = {},
            .row_height = 6,
            .block_columns = block_columns_,
            .possibly_bright_rows = bright_rows_};
  }
  void SwitchAllOn() { on_ = {true, true, true, true, true}; }

  // The passes that ran, each followed by a blank.
  template <bool primes_late = false>
  std::string Run() {
    std::string seen;
    RunRowPasses(frame_, 1, Settings(), NameCollector<primes_late>{seen});
    return seen;
  }
  void RunAlone(RowPass pass) { RunRowPass(pass, frame_, 1, Settings()); }

  LidarEcho& Echo(int row, int col, int slot = 0) {
    return bloom_test::EchoAt(frame_, row, col, slot);
  }

  LidarFrame frame_{18, 72, 2};
  RowSwitches on_;
  GroundSettings ground_ = ground_builder::DefaultSettings();
  AngleCalibGrid grid_;
  BloomSuppressCalib bloom_ = bloom_test::PlainCalib();
  bool blooming_filter_ = true;
  std::uint32_t bright_rows_ = ~std::uint32_t{0};
  int block_columns_ = 12;
  EchoOutputPlan plan_;
};

// ---- Order and switches.

TEST_F(RowPasses, RunInTheirOrder) {
  SwitchAllOn();
  EXPECT_EQ(Run(), "prime ground neighbours shot_noise bloom order ");
}

TEST_F(RowPasses, WithNothingSwitchedOnStillPrime) { EXPECT_EQ(Run(), "prime "); }

TEST_F(RowPasses, AreSwitchedOnOneByOne) {
  on_ = {.ground = true};
  EXPECT_EQ(Run(), "prime ground ");
  on_ = {.neighbours = true};
  EXPECT_EQ(Run(), "prime neighbours ");
  on_ = {.shot_noise = true};
  EXPECT_EQ(Run(), "prime shot_noise ");
  on_ = {.bloom = true};
  EXPECT_EQ(Run(), "prime bloom ");
  on_ = {.order = true};
  EXPECT_EQ(Run(), "prime order ");
}

TEST_F(RowPasses, LeaveTheOrderOfOneEchoAlone) {
  on_ = {.order = true};
  LidarPoint::echo_num = 1;
  EXPECT_EQ(Run(), "prime ");
}

TEST_F(RowPasses, PrimeLateOnlyBeforeTheNeighboursAndNotAfterThePlaneStage) {
  SwitchAllOn();
  EXPECT_EQ(Run<true>(), "ground neighbours shot_noise bloom order ");
  ground_.plane_enable = true;
  EXPECT_EQ(Run<true>(), "prime ground neighbours shot_noise bloom order ");
  on_.ground = false;  // no ground pass, no plane stage
  EXPECT_EQ(Run<true>(), "neighbours shot_noise bloom order ");
  ground_.plane_enable = false;
  on_ = {.ground = true, .bloom = true};
  EXPECT_EQ(Run<true>(), "prime ground bloom ");
}

TEST(RowSwitchesOfAConfiguration, FollowEachSettingOnItsOwn) {
  const auto names = [](void (*set)(DefaultConfig&)) {
    DefaultConfig config;
    config.calib_enable = true;
    config.echo_num = 1;
    set(config);
    const RowSwitches on = MakeRowSwitches(config);
    return std::string(on.ground ? "ground " : "") + (on.neighbours ? "neighbours " : "") +
           (on.shot_noise ? "shot_noise " : "") + (on.bloom ? "bloom " : "") +
           (on.order ? "order " : "");
  };
  EXPECT_EQ(names([](DefaultConfig&) {}), "");
  EXPECT_EQ(names([](DefaultConfig& c) { c.ground_enable = true; }), "ground ");
  EXPECT_EQ(names([](DefaultConfig& c) { c.ground_plane_enable = true; }), "ground ");
  EXPECT_EQ(names([](DefaultConfig& c) { c.neighbor_check_enable = true; }), "neighbours ");
  EXPECT_EQ(names([](DefaultConfig& c) { c.shot_noise_enable = true; }), "shot_noise ");
  EXPECT_EQ(names([](DefaultConfig& c) { c.high_ref_blooming = true; }), "bloom ");
  EXPECT_EQ(names([](DefaultConfig& c) { c.echo_num = 2; }), "order ");
}

TEST(RowSwitchesOfAConfiguration, WithCalibrationOffAreAllOff) {
  DefaultConfig config = default_config::kConfig;
  RowSwitches on = MakeRowSwitches(config);
  EXPECT_TRUE(on.ground && on.neighbours && on.shot_noise && on.bloom && on.order);
  config.calib_enable = false;
  on = MakeRowSwitches(config);
  EXPECT_FALSE(on.ground || on.neighbours || on.shot_noise || on.bloom || on.order);
}

TEST(BloomTraceOfASetting, NeedsTheSwitchAndAPixel) {
  DefaultConfig::Debug debug;
  debug.row = 0;
  debug.col = 0;
  debug.echo = 1;
  EXPECT_FALSE(MakeBloomTrace(debug).armed);
  debug.if_debug = true;
  EXPECT_TRUE(MakeBloomTrace(debug).armed);
  debug.row = -1;
  EXPECT_FALSE(MakeBloomTrace(debug).armed);
  debug.row = 7;
  debug.col = -1;
  EXPECT_FALSE(MakeBloomTrace(debug).armed);
  debug.col = 9;
  const BloomTrace trace = MakeBloomTrace(debug);
  EXPECT_TRUE(trace.armed);
  EXPECT_EQ(trace.row, 7);
  EXPECT_EQ(trace.col, 9);
  EXPECT_EQ(trace.echo, 1);
}

TEST_F(RowPasses, TakeTheirSettingsFromTheConfiguration) {
  DefaultConfig config;
  config.calib_enable = true;
  config.neighbor_check_enable = true;
  config.shot_noise_dist_gate = 2.5F;
  config.blooming_filter_enable = true;
  config.debug.if_debug = true;
  config.debug.col = 5;
  const RowPassSettings settings = MakeRowPassSettings(
      config, {.ground = ground_, .angle_grid = grid_, .bloom = bloom_, .echo_plan = {2, 4, 3}});
  EXPECT_TRUE(settings.on.neighbours && !settings.on.bloom);
  EXPECT_EQ(settings.shot_noise_dist_gate, 2.5F);
  EXPECT_TRUE(settings.blooming_filter);
  EXPECT_TRUE(settings.bloom_trace.armed);
  EXPECT_EQ(settings.bloom_trace.col, 5);
  EXPECT_EQ(&settings.tables.ground, &ground_);
  EXPECT_EQ(&settings.tables.angle_grid, &grid_);
  EXPECT_EQ(&settings.tables.bloom, &bloom_);
  EXPECT_EQ(settings.tables.echo_plan.first, 4);
  EXPECT_EQ(settings.possibly_bright_rows, 0xFFFFFFFFU);
  EXPECT_EQ(settings.block_columns, 48);
  EXPECT_EQ(settings.row_height, 6);
}

// ---- Each pass gets its row and its settings.

TEST_F(RowPasses, PrimeTheSixPixelRowsOfTheirMiniflashRow) {
  for (int row = 0; row < 18; ++row) Echo(row, 3, 1).dist_raw = 4.0F;
  RunAlone(RowPass::kPrime);
  for (int row = 0; row < 18; ++row) {
    EXPECT_EQ(Echo(row, 3, 1).dist_proc, row >= 6 && row < 12 ? 4.0F : 0.0F) << row;
  }
}

TEST_F(RowPasses, LabelTheGroundOfTheirRowByItsSettings) {
  // Level along the rows, 0.25 m farther with each: ground, from 7.5 m at row 6 on.
  for (int row = 0; row < 18; ++row) {
    for (int col = 0; col < 72; ++col) {
      SetEcho(Echo(row, col), 6.0F + 0.25F * static_cast<float>(row));
    }
  }
  RunAlone(RowPass::kGround);
  for (int row = 0; row < 18; ++row) {
    EXPECT_EQ(Echo(row, 40).ground, row >= 6 && row < 12) << row;
  }
  ground_.min_dist.assign(36, 99.0F);
  RunAlone(RowPass::kGround);
  EXPECT_FALSE(Echo(8, 40).ground);
}

TEST_F(RowPasses, CorrectTheReflectivityOfTheGroundByTheDirectionsOfTheGrid) {
  ground_.vert_seed_enable = true;
  const auto reflectivity = [this] {
    for (int row = 0; row < 18; ++row) {
      for (int col = 0; col < 72; ++col) {
        SetEcho(Echo(row, col), 6.0F + 0.25F * static_cast<float>(row));
      }
    }
    RunAlone(RowPass::kGround);
    EXPECT_TRUE(Echo(8, 40).ground);
    return Echo(8, 40).refl_raw;
  };
  EXPECT_EQ(reflectivity(), 10.0F);  // no grid, no angle
  grid_ = ground_builder::DownwardGrid(18, 72);
  EXPECT_GT(reflectivity(), 10.0F);
}

TEST_F(RowPasses, EraseALoneEchoOfTheirRowOnly) {
  for (const int row : {5, 6, 11, 12}) SetEcho(Echo(row, 10 + 8 * (row % 2)), 5.0F);
  RunAlone(RowPass::kNeighbours);
  EXPECT_EQ(Echo(5, 18).dist_raw, 5.0F);
  EXPECT_EQ(Echo(6, 10).dist_raw, 0.0F);
  EXPECT_EQ(Echo(11, 18).dist_raw, 0.0F);
  EXPECT_EQ(Echo(12, 10).dist_raw, 5.0F);
}

TEST_F(RowPasses, GiveTheShotNoiseFilterTheirRowAndItsColumns) {
  // Every block at another range than the one before: all suspect.
  const auto paint = [this] {
    for (int row = 0; row < 18; ++row) {
      for (int col = 0; col < 72; ++col) {
        SetEcho(Echo(row, col), col / 6 % 2 == 0 ? 10.0F : 11.0F);
        Echo(row, col).cogw_flag = 1;
      }
    }
  };
  paint();
  RunAlone(RowPass::kShotNoise);
  EXPECT_EQ(Echo(5, 0).dist_raw, 10.0F);
  EXPECT_EQ(Echo(6, 0).dist_raw, 0.0F);  // the gate of 1 m is not strict
  EXPECT_EQ(Echo(11, 71).dist_raw, 0.0F);
  EXPECT_EQ(Echo(12, 0).dist_raw, 10.0F);
  paint();
  block_columns_ = 10;
  RunAlone(RowPass::kShotNoise);
  EXPECT_EQ(Echo(6, 59).dist_raw, 0.0F);
  EXPECT_EQ(Echo(6, 60).dist_raw, 10.0F);
  paint();
  block_columns_ = 8;  // more than eight suspect blocks are needed
  RunAlone(RowPass::kShotNoise);
  EXPECT_EQ(Echo(6, 0).dist_raw, 10.0F);
}

TEST_F(RowPasses, GiveTheBloomPassItsFilterAndTheRowsThatMayBeBright) {
  // 80 less half of the source's 40 leaves three quarters of the reflectivity 40.
  bloom_test::PutSource(frame_, 8, 8, 10.0F, 40.0F);
  bloom_test::PutEcho(frame_, 9, 9, 10.125F, 80.0F);
  bright_rows_ = 0;
  RunAlone(RowPass::kBloom);
  EXPECT_FALSE(Echo(9, 9).highReflBlooming);
  bright_rows_ = std::uint32_t{1} << 8U;  // counted from row 0, one miniflash row above
  blooming_filter_ = false;
  RunAlone(RowPass::kBloom);
  EXPECT_TRUE(Echo(9, 9).highReflBlooming);
  EXPECT_EQ(Echo(9, 9).refl_proc, 40.0F);
  blooming_filter_ = true;
  RunAlone(RowPass::kBloom);
  EXPECT_EQ(Echo(9, 9).refl_proc, 30.0F);
}

TEST_F(RowPasses, OrderTheEchoesOfTheirRowAsThePlanSays) {
  const auto put_pairs = [this] {
    for (const int row : {5, 6, 11, 12}) {
      SetEcho(Echo(row, 3, 0), 2.0F);
      SetEcho(Echo(row, 3, 1), 1.0F);
      Echo(row, 3, 1).peak = 100.0F;
    }
  };
  put_pairs();
  RunAlone(RowPass::kOrder);
  EXPECT_EQ(Echo(5, 3).dist_proc, 2.0F);
  EXPECT_EQ(Echo(6, 3).dist_proc, 1.0F);
  EXPECT_EQ(Echo(11, 3).dist_proc, 1.0F);
  EXPECT_EQ(Echo(12, 3).dist_proc, 2.0F);
  put_pairs();
  plan_ = {.count = 1, .first = 3, .second = 1};
  RunAlone(RowPass::kOrder);
  EXPECT_EQ(Echo(6, 3).dist_proc, 2.0F);
}

// ---- What the hook sees.

TEST_F(RowPasses, ShowEachPassWhatTheOneBeforeLeft) {
  SwitchAllOn();
  // Two surfaces, the far one in slot 0, and beside them a lone echo.
  for (int row = 7; row < 10; ++row) {
    for (int col = 9; col < 12; ++col) {
      SetEcho(Echo(row, col, 0), 9.0F);
      SetEcho(Echo(row, col, 1), 3.0F);
      Echo(row, col, 1).peak = 100.0F;
    }
  }
  Echo(8, 10).dist_proc = 0.0F;
  Echo(8, 40).dist_raw = 5.0F;
  std::vector<std::string> seen;
  RunRowPasses(frame_, 1, Settings(), [&](RowPass pass, const LidarFrame& frame) {
    const std::vector<LidarPoint>& row = frame.points[8];
    const auto metres = [](float range) { return std::to_string(std::lround(range)); };
    seen.push_back(std::string(RowPassName(pass)) + " " + metres(row[10].echoes[0].dist_proc) +
                   " " + metres(row[40].echoes[0].dist_proc));
  });
  EXPECT_EQ(seen, (std::vector<std::string>{"prime 9 5", "ground 9 5", "neighbours 9 0",
                                            "shot_noise 9 0", "bloom 9 0", "order 3 0"}));
}

TEST_F(RowPasses, GiveTheSameRowWhetherSomeoneLooksOrNot) {
  SwitchAllOn();
  for (std::uint32_t seed = 1; seed <= 20; ++seed) {
    LidarPoint::echo_num = seed % 2 == 0 ? 1 : 2;
    ground_.smooth_enable = seed % 3 == 0;
    ground_.vert_seed_enable = seed % 5 == 0;
    WildContent(seed).Fill(frame_.points);
    LidarFrame unseen = frame_;
    EXPECT_EQ(Run().substr(0, 6), "prime ");
    RunRowPasses(unseen, 1, Settings(), NoRowHook{});
    frame_builder::ExpectSameRows(frame_.points, unseen.points, 0, 18);
  }
}

}  // namespace
}  // namespace kerul::lidar
