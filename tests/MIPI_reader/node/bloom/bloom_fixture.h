// A frame for the bloom pass to run on.
#pragma once

#include <gtest/gtest.h>

#include "MIPI_reader/node/bloom/bloom_suppression.h"
#include "bloom_frame.h"
#include "support/kernel_forms.h"

namespace kerul::lidar {

inline const BloomTrace kNoTrace;

// In each form. Three by three blocks; the tests look at the middle one, rows and columns 6 to 11.
class BloomFixture : public FormsTest {
 protected:
  void Run(bool filter_enable = true, int m_row = 1) {
    SuppressBlooming(frame_, m_row, calib_, filter_enable, kNoTrace);
  }
  LidarEcho& Echo(int row, int col, int slot = 0) {
    return bloom_test::EchoAt(frame_, row, col, slot);
  }

  LidarFrame frame_{18, 18, 2};
  BloomSuppressCalib calib_ = bloom_test::PlainCalib();
};

}  // namespace kerul::lidar
