// What became of each echo of a frame: one fate for each, so that counts add up.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "pixel_story/frame_states.h"
#include "pixel_story/story.h"

namespace kerul::lidar::story {

// From what was published back to what never was an echo.
enum class Fate : std::uint8_t {
  kPublished,
  kOutOfRange,  // in a packet, but its range goes out as 0
  kNotChosen,   // a range to its end, but no packet carries its slot
  kBloom,       // erased by bloom suppression
  kShotNoise,   // erased by the shot-noise filter
  kIsolated,    // erased by neighbour validation
  kAfterPulse,  // the same, as an after-pulse
  kTooWeak,     // this and the following as in Arrival
  kNoCalibration,
  kNoRange,
  kTooWide,
  kBelowLevel,
  kNoPulse,
  kNoWindow,
  kNoPacket,
  kRowNotRun,     // the frame ended before
  kSlotNotInUse,  // echo_num is 1
};
inline constexpr std::size_t kFates = 17;

// What else is true of a published echo; any number of them.
enum class Mark : std::uint8_t {
  kNearMiss,     // its peak missed the detection level
  kSmoothed,     // its processed range or reflectivity is not the raw one any more
  kFilled,       // a hole without an echo, filled from its neighbours
  kRefilled,     // an echo that was erased, its hole filled
  kGround,       // labelled as ground
  kBright,       // a high-reflectivity target
  kBloomMarked,  // marked as bloom
  kBloomDimmed,  // of these, with a lower reflectivity
  kTwice,        // both packets of its block carry it
};
inline constexpr std::size_t kMarks = 9;

// For programs: "published", "out_of_range".
std::string_view NameOf(Fate fate) noexcept;
std::string_view NameOf(Mark mark) noexcept;
// For people, lower case, without a stop.
std::string_view WordsOf(Fate fate) noexcept;
std::string_view WordsOf(Mark mark) noexcept;

Fate FateOf(const FrameStates& states, int row, int col, int slot);

// Of a published echo.
bool HasMark(const PixelRecord& pixel, int slot, Mark mark) noexcept;

struct FateTable {
  PixelRect rect;
  // [fate or mark][slot]
  std::array<std::array<int, kEchoSlots>, kFates> fates{};
  std::array<std::array<int, kEchoSlots>, kMarks> marks{};

  int Of(Fate fate) const noexcept {
    const auto& count = fates[static_cast<std::size_t>(fate)];
    return count[0] + count[1];
  }
  int Of(Mark mark) const noexcept {
    const auto& count = marks[static_cast<std::size_t>(mark)];
    return count[0] + count[1];
  }
  int SumOfFates() const noexcept;
  int Pixels() const noexcept {
    return (rect.last_row - rect.first_row + 1) * (rect.last_col - rect.first_col + 1);
  }
};

// Over the rectangle, which must lie in the frame.
FateTable CountFates(const FrameStates& states, const PixelRect& rect);

PixelRect WholeFrame(const FrameStates& states) noexcept;

}  // namespace kerul::lidar::story
