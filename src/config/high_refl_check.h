// Rules of the high reflectivity check: one block, copied as a whole out of the configuration.
#pragma once

#include <cstdint>

namespace kerul::lidar {

// A value v lies in the band when lo < v <= hi, so a NaN lies in none.
struct HighReflBand {
  float lo = 0.0F;
  float hi = 0.0F;
};

// Heights are cogh in level units, ranges and gaps metres. d0, h0 and d1, h1 are range and height
// of echo 0 and echo 1. The fields called spare have no reader; they keep the block's layout.
struct HighReflCheck {
  bool enable = false;

  // Rule A: a strong near echo 0 with a weaker echo 1 some gap beyond it.
  bool rule_a_enable = false;
  float rule_a_height = 0.0F;  // h0 must exceed this
  HighReflBand rule_a_range;   // d0
  bool rule_a_range_on = false;
  HighReflBand rule_a_gap;  // d1 - d0
  bool rule_a_gap_on = false;
  HighReflBand rule_a_height2_low;  // h1, third test
  bool rule_a_height2_low_on = false;
  HighReflBand rule_a_height2;  // h1, first test
  bool rule_a_height2_on = false;
  HighReflBand rule_a_height2_rms;  // h1, second test
  bool rule_a_rms_on = false;
  HighReflBand rule_a_rms;  // waveform_rms_ratio of echo 1, second test
  bool rule_a_rms_gate = false;
  float rule_a_spare = 0.0F;

  // Rule B: echo 1 at twice the range of a strong echo 0.
  bool rule_b_enable = false;
  float rule_b_height = 0.0F;
  HighReflBand rule_b_range;
  bool rule_b_range_on = false;
  HighReflBand rule_b_spare_1;
  bool rule_b_spare_1_on = false;
  HighReflBand rule_b_spare_2;
  bool rule_b_spare_2_on = false;
  HighReflBand rule_b_spare_3;
  bool rule_b_spare_3_on = false;
  HighReflBand rule_b_spare_4;
  bool rule_b_spare_4_on = false;
  HighReflBand rule_b_spare_5;
  bool rule_b_spare_5_on = false;
  float rule_b_double_tol = 0.0F;  // largest |d1 - 2 d0|, metres

  // Rule C: a strong echo 0 at a distance, with or without a second echo.
  bool rule_c_enable = false;
  float rule_c_height = 0.0F;  // also the height that keeps a highRefl set by the echo computation
  HighReflBand rule_c_range;
  bool rule_c_range_on = false;
  HighReflBand rule_c_spare_1;
  bool rule_c_spare_1_on = false;
  HighReflBand rule_c_spare_2;
  bool rule_c_spare_2_on = false;
  HighReflBand rule_c_spare_3;
  bool rule_c_spare_3_on = false;
  HighReflBand rule_c_spare_4;
  bool rule_c_spare_4_on = false;
  HighReflBand rule_c_spare_5;
  bool rule_c_spare_5_on = false;
  float rule_c_spare = 0.0F;

  // Rule D: an after-pulse just beyond a fairly strong echo 0.
  bool rule_d_enable = false;
  float rule_d_height = 0.0F;
  HighReflBand rule_d_spare_1;
  bool rule_d_spare_1_on = false;
  HighReflBand rule_d_gap;
  bool rule_d_gap_on = false;
  HighReflBand rule_d_height2;
  bool rule_d_height2_on = false;
  HighReflBand rule_d_spare_2;
  bool rule_d_spare_2_on = false;
  HighReflBand rule_d_spare_3;
  bool rule_d_spare_3_on = false;
  HighReflBand rule_d_spare_4;
  bool rule_d_spare_4_on = false;
  float rule_d_spare = 0.0F;

  bool near_refl_enable = false;  // near-range softening of the reflectivity
  float near_refl_range = 0.0F;   // its upper range, metres
  bool trace_enable = false;      // copies of the debug record's traced pixel
  std::int32_t trace_row = 0;
  std::int32_t trace_col = 0;
  std::int32_t trace_echo = 0;
};

}  // namespace kerul::lidar
