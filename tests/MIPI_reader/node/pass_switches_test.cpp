// Each pass over a row runs by its own switch and by no other one.
#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

#include "bloom/bloom_frame.h"
#include "support/ground_settings_builder.h"
#include "support/node_fixture.h"

namespace kerul::lidar::testing {
namespace {

// What the passes leave in the scene below.
struct Effects {
  bool ground = false;       // an echo on the ground is labelled
  bool pulled = false;       // an echo off the ground's plane is moved
  bool lone_erased = false;  // an echo without neighbours is gone
  bool noise_erased = false;
  bool bloom_marked = false;
  bool ordered = false;  // the nearer echo of a pixel has come to the first slot
  bool operator==(const Effects&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Effects& effects) {
  return out << "ground " << effects.ground << " pulled " << effects.pulled << " lone "
             << effects.lone_erased << " noise " << effects.noise_erased << " bloom "
             << effects.bloom_marked << " ordered " << effects.ordered;
}

// The row of each scene; so far apart that none lies in another's sight.
constexpr int kGroundRow = 1;
constexpr int kLoneRow = 10;
constexpr int kNoiseRow = 20;
constexpr int kBloomRow = 30;

class PassSwitches : public NodeFixture {
 protected:
  // No pass is switched on.
  static DefaultConfig BareConfig() {
    DefaultConfig config = TestConfig();
    config.ground_enable = false;
    config.ground_plane_enable = false;
    config.neighbor_check_enable = false;
    config.shot_noise_enable = false;
    config.high_ref_blooming = false;
    config.ground_plane_min_points = 20;
    config.ground_plane_inlier_m = 100.0F;
    config.ground_plane_pull_full_m = 100.0F;
    return config;
  }

  LidarPoint& Pixel(int row, int col) {
    return Access().frame().points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)];
  }

  void PutScenes() {
    // A level ground 1 m below, and one pixel far away from it.
    Access().angle_grid() = ground_builder::DownwardGrid(216, 288);
    for (int row = 4; row < 14; ++row) {
      for (int col = 0; col < 288; ++col) {
        const float z = ground_builder::GetDirection(Access().angle_grid(), row, col).z;
        Pixel(row, col).echoes[0].dist_raw = -1.0F / z;
      }
    }
    Pixel(8, 100).echoes[0].dist_raw = 12.0F;
    // An echo alone, and a pixel whose second echo is the nearer one.
    Pixel(62, 100).echoes[0].dist_raw = 5.0F;
    Pixel(62, 200).echoes[0].dist_raw = 2.0F;
    Pixel(62, 200).echoes[1].dist_raw = Pixel(62, 200).echoes[1].dist_proc = 1.0F;
    Pixel(62, 200).echoes[1].peak = 100.0F;
    // Narrow pulses, no block of which fits the one beside it.
    for (int row = 120; row < 126; ++row) {
      for (int col = 0; col < 288; ++col) {
        Pixel(row, col).echoes[0].dist_raw = col / 6 % 2 == 0 ? 10.0F : 20.0F;
        Pixel(row, col).echoes[0].cogw_flag = 1;
      }
    }
    // A bright target and a weak echo at its range.
    Access().bloom_calib() = bloom_test::PlainCalib();
    bloom_test::PutSource(Access().frame(), 182, 100, 10.0F, 40.0F);
    bloom_test::PutEcho(Access().frame(), 183, 101, 10.0F, 80.0F);
  }

  // record_slots: echo slots of the process's records, 0 for as many as are configured.
  Effects Run(DefaultConfig config, int record_slots = 0) {
    config.shm_name = UniqueShmName("node");
    StartNode(config);
    if (record_slots != 0) LidarPoint::echo_num = record_slots;
    PutScenes();
    for (const int m_row : {kGroundRow, kLoneRow, kNoiseRow, kBloomRow}) {
      Access().ProcessMiniflashRow(m_row);
    }
    const float pulled = Pixel(8, 100).echoes[0].dist_raw;
    return {.ground = Pixel(9, 50).echoes[0].ground,
            .pulled = pulled != 12.0F && pulled != 0.0F,
            .lone_erased = Pixel(62, 100).echoes[0].dist_raw == 0.0F,
            .noise_erased = Pixel(122, 100).echoes[0].shot_noise_group_point,
            .bloom_marked = Pixel(183, 101).echoes[0].highReflBlooming,
            .ordered = Pixel(62, 200).echoes[0].dist_proc == 1.0F};
  }
};

TEST_F(PassSwitches, WithoutASwitchOnlyTheEchoesAreOrdered) {
  EXPECT_EQ(Run(BareConfig()), (Effects{.ordered = true}));
}

TEST_F(PassSwitches, EachSwitchRunsItsOwnPass) {
  struct Switch {
    bool DefaultConfig::*setting;
    Effects effects;
  };
  const std::vector<Switch> switches = {
      {&DefaultConfig::ground_enable, {.ground = true, .ordered = true}},
      // The plane goes through labelled echoes: labelling runs before it, whatever its switch.
      {&DefaultConfig::ground_plane_enable, {.ground = true, .pulled = true, .ordered = true}},
      {&DefaultConfig::neighbor_check_enable, {.lone_erased = true}},
      {&DefaultConfig::shot_noise_enable, {.noise_erased = true, .ordered = true}},
      {&DefaultConfig::high_ref_blooming, {.bloom_marked = true, .ordered = true}}};
  for (std::size_t i = 0; i < switches.size(); ++i) {
    DefaultConfig config = BareConfig();
    config.*switches[i].setting = true;
    EXPECT_EQ(Run(config), switches[i].effects) << "switch " << i;
  }
}

TEST_F(PassSwitches, WithAllOfThemEveryPassRuns) {
  DefaultConfig config = BareConfig();
  config.ground_enable = true;
  config.ground_plane_enable = true;
  config.shot_noise_enable = true;
  config.high_ref_blooming = true;
  EXPECT_EQ(Run(config), (Effects{.ground = true,
                                  .pulled = true,
                                  .noise_erased = true,
                                  .bloom_marked = true,
                                  .ordered = true}));
}

TEST_F(PassSwitches, WithCalibrationOffNoneRuns) {
  DefaultConfig config = BareConfig();
  config.calib_enable = false;
  config.ground_enable = true;
  config.ground_plane_enable = true;
  config.neighbor_check_enable = true;
  config.shot_noise_enable = true;
  config.high_ref_blooming = true;
  EXPECT_EQ(Run(config), Effects{});
}

TEST_F(PassSwitches, OnlyTwoSlotsInTheSettingsAndInTheRecordsAreOrdered) {
  DefaultConfig config = BareConfig();
  EXPECT_EQ(Run(config, 1), Effects{});
  EXPECT_EQ(Run(config, 2), (Effects{.ordered = true}));
  config.echo_num = 1;
  EXPECT_EQ(Run(config, 1), Effects{});
  EXPECT_EQ(Run(config, 2), Effects{});
}

}  // namespace
}  // namespace kerul::lidar::testing
