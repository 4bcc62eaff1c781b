// The table and the picture of fates in their forms.
#include <gtest/gtest.h>

#include <array>
#include <sstream>
#include <string>

#include "pixel_story/fate_html.h"
#include "pixel_story/fate_picture.h"
#include "pixel_story/fate_text.h"
#include "story_fixture.h"

namespace kerul::lidar::story {
namespace {

// Two pixels: in slot 0 both published, one of them ground; in slot 1 one erased, one no window.
FateTable SmallTable() {
  FateTable table{.rect = {3, 4, 3, 5}};
  table.fates[static_cast<std::size_t>(Fate::kPublished)] = {2, 0};
  table.fates[static_cast<std::size_t>(Fate::kIsolated)] = {0, 1};
  table.fates[static_cast<std::size_t>(Fate::kNoWindow)] = {0, 1};
  table.marks[static_cast<std::size_t>(Mark::kGround)] = {1, 0};
  return table;
}

TEST(FateTableText, HasALineForEachFateThatOccursAndSaysItsSum) {
  std::ostringstream out;
  WriteFates(out, SmallTable());
  EXPECT_EQ(out.str(),
            "fates of the echoes of pixels 3,4 to 3,5\n"
            "                                       slot 0   slot 1     both   colour\n"
            "published                                   2        0        2   #2ea05a\n"
            "erased by neighbour validation              0        1        1   #d72828\n"
            "no window                                   0        1        1   #0c0e12\n"
            "sum                                         2        2        4\n"
            "the fates add up to 4 echoes: 2 pixels with 2 slots each\n"
            "of those published, in as many of the following as apply\n"
            "ground                                      1        0        1\n");
}

TEST(FateNames, AreDifferentAndSoAreTheColours) {
  for (std::size_t i = 0; i < kFates; ++i) {
    EXPECT_FALSE(NameOf(static_cast<Fate>(i)).empty());
    for (std::size_t k = 0; k < i; ++k) {
      EXPECT_NE(NameOf(static_cast<Fate>(i)), NameOf(static_cast<Fate>(k)));
      EXPECT_NE(WordsOf(static_cast<Fate>(i)), WordsOf(static_cast<Fate>(k)));
      EXPECT_NE(HexOf(ColourOf(static_cast<Fate>(i))), HexOf(ColourOf(static_cast<Fate>(k))));
    }
  }
}

// Examples of RFC 4648, section 10.
TEST(Base64, PadsToFourLetters) {
  const std::array<std::string, 7> texts{"", "f", "fo", "foo", "foob", "fooba", "foobar"};
  const std::array<std::string, 7> codes{"",         "Zg==",     "Zm8=",    "Zm9v",
                                         "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy"};
  for (std::size_t i = 0; i < texts.size(); ++i) EXPECT_EQ(Base64(texts[i]), codes[i]);
  const std::array<char, 3> high{'\xFF', '\xFE', '\xFD'};
  EXPECT_EQ(Base64(high), "//79");
}

class FatePictures : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    states_ = new FrameStates;
    RunStory(SourceOf(SimulatedFrames("retro", 1, 17), 0), {states_});
  }
  static void TearDownTestSuite() { delete states_; }

  static Colour At(const FatePicture& picture, int x, int y) {
    const auto at = 3 * static_cast<std::size_t>(y * picture.width + x);
    return {picture.rgb[at], picture.rgb[at + 1], picture.rgb[at + 2]};
  }
  static Colour ColourAt(int row, int col, int slot) {
    return ColourOf(FateOf(*states_, row, col, slot));
  }
  static FrameStates* states_;
};
FrameStates* FatePictures::states_ = nullptr;

// Two by two for each pixel, the slots 8 apart, the lowest row at the bottom.
TEST_F(FatePictures, ShowTheWholeFrameTwice) {
  const FatePicture picture = DrawFates(*states_, WholeFrame(*states_));
  ASSERT_EQ(picture.width, 2 * 576 + 8);
  ASSERT_EQ(picture.height, 432);
  ASSERT_EQ(picture.rgb.size(), 3U * 1160U * 432U);
  for (int row = 0; row < 216; row += 5) {
    for (int col = 0; col < 288; col += 7) {
      const int y = 431 - 2 * row;
      ASSERT_EQ(At(picture, 2 * col, y), ColourAt(row, col, 0)) << row << ',' << col;
      ASSERT_EQ(At(picture, 2 * col + 1, y - 1), ColourAt(row, col, 0)) << row << ',' << col;
      ASSERT_EQ(At(picture, 584 + 2 * col, y), ColourAt(row, col, 1)) << row << ',' << col;
    }
  }
  EXPECT_NE(At(picture, 580, 0), ColourAt(215, 287, 0));
}

TEST_F(FatePictures, EnlargeARectangleAndStackTwoFrames) {
  const PixelRect rect{100, 140, 101, 149};
  FatePicture picture = DrawFates(*states_, rect);
  ASSERT_EQ(picture.width, 2 * 240 + 8) << "24 for each pixel";
  ASSERT_EQ(picture.height, 48);
  EXPECT_EQ(At(picture, 23, 24), ColourAt(100, 140, 0));
  EXPECT_EQ(At(picture, 24, 23), ColourAt(101, 141, 0));
  EXPECT_EQ(At(picture, 248 + 239, 0), ColourAt(101, 149, 1));
  const FatePicture once = picture;
  AppendBelow(once, picture);
  ASSERT_EQ(picture.height, 48 + 8 + 48);
  ASSERT_EQ(picture.rgb.size(), 3U * 488U * 104U);
  for (int x = 0; x < 488; ++x) EXPECT_EQ(At(picture, x, 56 + 24), At(once, x, 24));
}

TEST_F(FatePictures, StandInThePageWithTheTableAsLegend) {
  const FateTable table = CountFates(*states_, {100, 140, 101, 149});
  const std::string markup = FatesMarkup("Fates & more", table, *states_);
  EXPECT_NE(markup.find("<h2>Fates &amp; more</h2>"), std::string::npos);
  EXPECT_NE(markup.find("src=\"data:image/png;base64,iVBORw0KGgo"), std::string::npos);
  EXPECT_NE(markup.find("the fates add up to 40 echoes: 20 pixels with 2 slots each"),
            std::string::npos);
  const Fate first = FateOf(*states_, 100, 140, 0);
  EXPECT_NE(markup.find("background: " + HexOf(ColourOf(first)) + "\"></span>" +
                        std::string(WordsOf(first)) + "</td><td>" +
                        std::to_string(table.fates[static_cast<std::size_t>(first)][0])),
            std::string::npos);
}

}  // namespace
}  // namespace kerul::lidar::story
