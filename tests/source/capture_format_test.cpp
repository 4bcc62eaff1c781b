#include "source/capture_format.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace kerul::lidar {
namespace {

using Bytes = std::vector<std::uint8_t>;

// A header of 24 bytes: magic first, link type last.
Bytes Header(const Bytes& magic, const Bytes& link_type) {
  Bytes header(24);
  std::copy(magic.begin(), magic.end(), header.begin());
  std::copy(link_type.begin(), link_type.end(), header.begin() + 20);
  return header;
}

const Bytes kMicroseconds{0xD4, 0xC3, 0xB2, 0xA1};

TEST(CaptureFormat, EthernetWithMicrosecondsNeedsNoWord) {
  EXPECT_EQ(CaptureFormatNote(Header(kMicroseconds, {1, 0, 0, 0})), "");
  // Four bytes of check sequence at each frame's end, given in the upper bits.
  EXPECT_EQ(CaptureFormatNote(Header(kMicroseconds, {1, 0, 0, 0x40})), "");
}

TEST(CaptureFormat, OtherLinkTypesAreNamed) {
  EXPECT_EQ(CaptureFormatNote(Header(kMicroseconds, {113, 0, 0, 0})),
            "the frames' link type is 113 (Linux cooked), but all are read as Ethernet (1)");
  EXPECT_EQ(CaptureFormatNote(Header(kMicroseconds, {20, 1, 0, 0})),
            "the frames' link type is 276 (Linux cooked, version 2), but all are read as Ethernet "
            "(1)");
  EXPECT_EQ(CaptureFormatNote(Header(kMicroseconds, {147, 0, 0, 0})),
            "the frames' link type is 147 (unknown here), but all are read as Ethernet (1)");
}

TEST(CaptureFormat, OtherFileFormatsAreNamed) {
  EXPECT_EQ(CaptureFormatNote(Header({0xA1, 0xB2, 0xC3, 0xD4}, {0, 0, 0, 1})),
            "it is a capture in the other byte order");
  for (const Bytes& magic : {Bytes{0x4D, 0x3C, 0xB2, 0xA1}, Bytes{0xA1, 0xB2, 0x3C, 0x4D}}) {
    EXPECT_EQ(CaptureFormatNote(Header(magic, {1, 0, 0, 0})), "it is a capture with nanoseconds");
  }
  EXPECT_EQ(CaptureFormatNote(Bytes{0x0A, 0x0D, 0x0D, 0x0A}),
            "it is a capture of the next generation's format (pcapng)");
}

TEST(CaptureFormat, WhatIsNoCaptureOrTooShortHasNoNote) {
  EXPECT_EQ(CaptureFormatNote({}), "");
  EXPECT_EQ(CaptureFormatNote(Bytes{0xD4, 0xC3, 0xB2}), "");
  EXPECT_EQ(CaptureFormatNote(Header({'t', 'e', 'x', 't'}, {9, 0, 0, 0})), "");
  Bytes cut = Header(kMicroseconds, {113, 0, 0, 0});
  cut.pop_back();
  EXPECT_EQ(CaptureFormatNote(cut), "");
}

}  // namespace
}  // namespace kerul::lidar
