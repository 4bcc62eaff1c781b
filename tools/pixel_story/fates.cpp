#include "pixel_story/fates.h"

namespace kerul::lidar::story {
namespace {

struct Naming {
  std::string_view name;
  std::string_view words;
};

constexpr std::array<Naming, kFates> kFateNames{
    {{"published", "published"},
     {"out_of_range", "range outside of what is published"},
     {"not_chosen", "not among the published echoes"},
     {"bloom", "erased by bloom suppression"},
     {"shot_noise", "erased by the shot-noise filter"},
     {"isolated", "erased by neighbour validation"},
     {"after_pulse", "erased as an after-pulse"},
     {"too_weak", "too weak for its range"},
     {"no_calibration", "pixel without calibration"},
     {"no_range", "no range above 0"},
     {"too_wide", "pulse too wide"},
     {"below_level", "below the detection level"},
     {"no_pulse", "no pulse in the window"},
     {"no_window", "no window"},
     {"no_packet", "no packet came"},
     {"row_not_run", "row did not run"},
     {"slot_not_in_use", "slot not in use"}}};

constexpr std::array<Naming, kMarks> kMarkNames{{{"near_miss", "near miss of the detection level"},
                                                 {"smoothed", "smoothed"},
                                                 {"filled", "filled hole"},
                                                 {"refilled", "erased, then filled"},
                                                 {"ground", "ground"},
                                                 {"bright", "high reflectivity"},
                                                 {"bloom_marked", "marked as bloom"},
                                                 {"bloom_dimmed", "dimmed as bloom"},
                                                 {"twice", "in both packets"}}};

// Packets of the block that carry the slot's echo with a range.
int PacketsWith(const PixelRecord& pixel, int slot) noexcept {
  int packets = 0;
  for (std::size_t packet = 0; packet < kEchoSlots; ++packet) {
    const PublishedPoint& point = pixel.echoes[packet].published;
    if (point.there && pixel.from_slot[packet] == slot && point.distance != 0) ++packets;
  }
  return packets;
}

bool IsCarried(const PixelRecord& pixel, int slot) noexcept {
  for (std::size_t packet = 0; packet < kEchoSlots; ++packet) {
    if (pixel.echoes[packet].published.there && pixel.from_slot[packet] == slot) return true;
  }
  return false;
}

// Which echo the slots hold is the order's business; up to there the slot is the echo's own.
constexpr std::size_t kBeforeOrder = MomentAfter(RowPass::kBloom);

// The raw range before priming, from then on the processed one, which a filled hole has alone.
bool HasRange(const EchoRecord& echo, std::size_t moment) noexcept {
  const EchoState& state = echo.states[moment];
  return (moment == 0 ? state.dist_raw : state.dist_proc) > 0.0F;
}

std::optional<RowPass> LastErasure(const EchoRecord& echo) noexcept {
  for (std::size_t moment = kBeforeOrder; moment > 0; --moment) {
    if (HasRange(echo, moment - 1) && !HasRange(echo, moment)) return kRowPassOrder[moment - 1];
  }
  return echo.erased_before;
}

Fate FateOfErased(const EchoRecord& echo, RowPass pass) noexcept {
  switch (pass) {
    case RowPass::kNeighbours:
      return echo.states[kBeforeOrder].after_pulse ? Fate::kAfterPulse : Fate::kIsolated;
    case RowPass::kShotNoise:
      return Fate::kShotNoise;
    case RowPass::kBloom:
      return Fate::kBloom;
    default:  // these leave every range a range
      return Fate::kNoRange;
  }
}

Fate FateOfArrival(Arrival arrival) noexcept {
  switch (arrival) {
    case Arrival::kNoPacket:
      return Fate::kNoPacket;
    case Arrival::kNoWindow:
      return Fate::kNoWindow;
    case Arrival::kNoPulse:
      return Fate::kNoPulse;
    case Arrival::kBelowLevel:
      return Fate::kBelowLevel;
    case Arrival::kTooWide:
      return Fate::kTooWide;
    case Arrival::kNoCalibration:
      return Fate::kNoCalibration;
    case Arrival::kTooWeak:
      return Fate::kTooWeak;
    case Arrival::kNoRange:
    case Arrival::kRange:
      break;
  }
  return Fate::kNoRange;
}

}  // namespace

std::string_view NameOf(Fate fate) noexcept {
  return kFateNames[static_cast<std::size_t>(fate)].name;
}
std::string_view NameOf(Mark mark) noexcept {
  return kMarkNames[static_cast<std::size_t>(mark)].name;
}
std::string_view WordsOf(Fate fate) noexcept {
  return kFateNames[static_cast<std::size_t>(fate)].words;
}
std::string_view WordsOf(Mark mark) noexcept {
  return kMarkNames[static_cast<std::size_t>(mark)].words;
}

Fate FateOf(const FrameStates& states, int row, int col, int slot) {
  if (slot >= states.EchoCount()) return Fate::kSlotNotInUse;
  const PixelRecord& pixel = states.At(row, col);
  if (!pixel.row_ran) return Fate::kRowNotRun;
  if (PacketsWith(pixel, slot) > 0) return Fate::kPublished;
  const EchoRecord& echo = pixel.echoes[static_cast<std::size_t>(slot)];
  if (HasRange(echo, kBeforeOrder)) {
    return IsCarried(pixel, slot) ? Fate::kOutOfRange : Fate::kNotChosen;
  }
  if (const auto pass = LastErasure(echo)) return FateOfErased(echo, *pass);
  return FateOfArrival(echo.arrival);
}

bool HasMark(const PixelRecord& pixel, int slot, Mark mark) noexcept {
  const EchoRecord& echo = pixel.echoes[static_cast<std::size_t>(slot)];
  const EchoState& arrived = echo.states[0];
  const EchoState& after_neighbours = echo.states[MomentAfter(RowPass::kNeighbours)];
  const EchoState& before_bloom = echo.states[MomentAfter(RowPass::kShotNoise)];
  const EchoState& last = echo.states[kBeforeOrder];
  const bool had_range = arrived.dist_raw > 0.0F || echo.erased_before.has_value();
  const bool is_filled = last.fill_point && !(last.dist_raw > 0.0F);
  switch (mark) {
    case Mark::kNearMiss:
      return !last.detect_pass && !is_filled;
    case Mark::kSmoothed:
      return !is_filled && (after_neighbours.dist_proc != after_neighbours.dist_raw ||
                            after_neighbours.refl_proc != after_neighbours.refl_raw);
    case Mark::kFilled:
      return is_filled && !had_range;
    case Mark::kRefilled:
      return is_filled && had_range;
    case Mark::kGround:
      return last.ground;
    case Mark::kBright:
      return last.high_refl;
    case Mark::kBloomMarked:
      return last.bloom;
    case Mark::kBloomDimmed:
      return last.refl_proc < before_bloom.refl_proc;
    case Mark::kTwice:
      return PacketsWith(pixel, slot) > 1;
  }
  return false;
}

int FateTable::SumOfFates() const noexcept {
  int sum = 0;
  for (const auto& count : fates) sum += count[0] + count[1];
  return sum;
}

FateTable CountFates(const FrameStates& states, const PixelRect& rect) {
  FateTable table{.rect = rect};
  for (int row = rect.first_row; row <= rect.last_row; ++row) {
    for (int col = rect.first_col; col <= rect.last_col; ++col) {
      for (std::size_t slot = 0; slot < kEchoSlots; ++slot) {
        const int number = static_cast<int>(slot);
        const Fate fate = FateOf(states, row, col, number);
        ++table.fates[static_cast<std::size_t>(fate)][slot];
        if (fate != Fate::kPublished) continue;
        for (std::size_t mark = 0; mark < kMarks; ++mark) {
          if (HasMark(states.At(row, col), number, static_cast<Mark>(mark))) {
            ++table.marks[mark][slot];
          }
        }
      }
    }
  }
  return table;
}

PixelRect WholeFrame(const FrameStates& states) noexcept {
  return {0, 0, states.Height() - 1, states.Width() - 1};
}

}  // namespace kerul::lidar::story
