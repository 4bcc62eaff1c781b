#include "pixel_story/echo_steps.h"

#include <string>
#include <utility>

#include "MIPI_reader/parser/echo_rules.h"
#include "pixel_story/sample_plot.h"
#include "pixel_story/sentence.h"

namespace kerul::lidar::story {
namespace {

using namespace echo_computation;
using std::to_string;

// One slot's view of the road.
struct Window17 {
  const PacketRoad& road;
  const EchoDecisions& told;
  const LidarEcho& echo;
  int slot;
  bool there;
};

Step Named(const char* name) { return {.name = name, .sentences = {}, .values = {}, .plot = {}}; }

std::int64_t Whole(std::integral auto number) { return static_cast<std::int64_t>(number); }

void TellCut(const Window17& window, Step& step) {
  if (!window.told.clip) {
    step.sentences.emplace_back("no sample is cut");
    return;
  }
  const SidePeakClip& clip = *window.told.clip;
  const auto highest =
      static_cast<float>(window.told.samples[static_cast<std::size_t>(clip.highest)]);
  const Sides sides = RoundedSides(highest, clip.level);
  const std::string start = "the highest sample, " + to_string(clip.highest) + ", is " + sides.left;
  if (!(highest > clip.level)) {
    step.sentences.push_back(start + ", not above the " + sides.right +
                             " from which on side peaks are cut");
    return;
  }
  const std::vector<int> cut = CutSamples(window.told);
  step.sentences.push_back(
      start + "; other peaks are cut to " + sides.right + ": " +
      (cut.empty() ? "there are none" : (cut.size() == 1 ? "sample " : "samples ") + Listed(cut)));
}

Step SamplesStep(const Window17& window) {
  const RawHeader& header = window.road.header;
  const RawPixel& words = window.road.words;
  Step step = Named("samples");
  const int first_bin = words.peak_addr[window.slot];
  step.sentences.push_back("pixel id " + to_string(words.pixel_id) + " of miniflash row " +
                           to_string(header.group_id) + ", column slot " +
                           to_string(header.slot_id) + ", in the packet with sequence number " +
                           to_string(header.udp_sequence_num));
  if (window.there) {
    step.sentences.push_back("17 samples from bin " + to_string(first_bin) + " on");
    TellCut(window, step);
  } else {
    step.sentences.push_back("no window: it would begin at bin " + to_string(first_bin) +
                             ", the last bin to begin at is " +
                             to_string(raw_packet::kMaxPeakAddr));
  }
  std::string samples;
  for (const std::uint16_t sample : window.told.samples) {
    if (!samples.empty()) samples += ' ';
    samples += to_string(sample);
  }
  step.values = {{"packet_frame_id", Whole(header.frame_id), ""},
                 {"group_id", Whole(header.group_id), ""},
                 {"slot_id", Whole(header.slot_id), ""},
                 {"subpacket_id", Whole(header.subpkt_id), ""},
                 {"sequence_number", Whole(header.udp_sequence_num), ""},
                 {"timestamp", Whole(header.timestamp), ""},
                 {"pixel_id", Whole(words.pixel_id), ""},
                 {"peak_addr", Whole(first_bin), "bins"},
                 {"noise_received", Whole(words.noise), "raw units"},
                 {"shot_times", window.road.decoded.shot_times, "shots"},
                 {"shot_ratio", window.road.decoded.shot_ratio, ""},
                 {"samples", samples, ""}};
  if (window.there) step.plot = PlotOfSamples(window.road, window.slot);
  return step;
}

void TellRise(const EchoDecisions& told, const LidarEcho& echo, Step& step) {
  const HeadRise& head = *told.head_rise;
  const Sides sides = RoundedSides(head.mean, head.reported);
  const std::string start = "the mean of the first " + to_string(head.samples) +
                            (head.samples == 1 ? " sample, " : " samples, ") + sides.left +
                            " levels, is ";
  if (!told.rise_pulse) {
    step.sentences.push_back(start + "not above the baseline of " + sides.right +
                             ": the baseline stays");
    return;
  }
  step.sentences.push_back(start + "above the baseline of " + sides.right + " by " +
                           Rounded(head.rise));
  const Sides pulse = RoundedSides(told.rise_pulse->pulse, told.rise_pulse->gate);
  if (!told.rise) {
    step.sentences.push_back("the pulse at the centre, " + pulse.left +
                             " levels above the head, is not above " + pulse.right +
                             ": the baseline stays");
    return;
  }
  const BaselineRise& rise = *told.rise;
  step.sentences.push_back(
      "the pulse at the centre, " + pulse.left + " levels above the head, is above " + pulse.right +
      ": the baseline rises by the smaller of " + Rounded(rise.wanted) + " and the limit " +
      Rounded(rise.limit) + ", to " + Rounded(told.shape->baseline) + " levels, and the noise by " +
      Rounded(rise.noise_add));
  const Sides bright = RoundedSides(rise.add, rise.bright);
  step.sentences.push_back("the rise of " + bright.left + " is " +
                           (echo.highRefl ? "above " : "not above ") + bright.right +
                           (echo.highRefl ? ": a bright target" : ": no sign of a bright target"));
}

Step BaselineStep(const Window17& window) {
  Step step = Named("baseline");
  if (!window.there) {
    step.sentences.emplace_back("no window, no baseline");
    return step;
  }
  step.sentences.push_back("a noise of " + to_string(window.road.words.noise) + " raw units at " +
                           Rounded(window.road.decoded.shot_times) + " shots is a baseline of " +
                           Rounded(window.road.baseline) + " levels (sums of three samples)");
  if (window.told.head_rise) {
    TellRise(window.told, window.echo, step);
  } else {
    step.sentences.emplace_back("the baseline of a second window is never adapted");
  }
  step.values = {{"baseline_reported", window.road.baseline, "levels"},
                 {"baseline_used", window.told.shape->baseline, "levels"},
                 {"noise", window.echo.noise, "raw units"},
                 {"noise_append", window.echo.change_noise_noise_append, "raw units"}};
  return step;
}

void TellDetection(const Window17& window, Step& step) {
  const packet_decoding::DetectionLevel& level = *window.road.detection;
  const Detection& detection = *window.told.detection;
  step.sentences.push_back(level.index < 0
                               ? "there is no table of detection levels: the level is 0"
                               : "the detection level is " + Rounded(level.level) + ": entry " +
                                     to_string(level.index) + " of its table, from noise " +
                                     to_string(level.by_noise) + " at a shot ratio of " +
                                     Rounded(window.road.decoded.shot_ratio));
  const Sides peak = RoundedSides(detection.peak, detection.level);
  const std::string start =
      "the peak of " + peak.left + " levels against " + peak.right + " gives a peak ratio of ";
  if (detection.ratio < 0.0F) {
    step.sentences.push_back(start + Rounded(detection.ratio) +
                             ", below 0: the level lies below the baseline, and the pulse counts");
  } else if (detection.sure) {
    const Sides sides = RoundedSides(detection.ratio, kSureRatio);
    step.sentences.push_back(start + sides.left + ", above " + sides.right + ": a sure pulse");
  } else {
    const Sides miss = RoundedSides(detection.ratio, kNearMissRatio);
    const bool near = detection.ratio > kNearMissRatio;
    step.sentences.push_back(start + miss.left +
                             (near ? ", not above 1 but above " : ", not above ") + miss.right +
                             (near ? ": a near miss, which later passes judge"
                                   : ": no pulse, the window gives no echo"));
  }
}

std::string ThresholdSentence(const char* which, float threshold, float noise_level,
                              const char* share_name, float share) {
  const Sides sides = RoundedSides(noise_level, share);
  return std::string("the ") + which + " threshold is " + Rounded(threshold) +
         " levels above the baseline: the larger of the noise's " + sides.left + " and " +
         share_name + " of the centre's sum, " + sides.right;
}

void TellHighWish(const EchoDecisions& told, Step& step) {
  const HighWidthWish& wish = *told.high_wish;
  std::string why = "it is switched off";
  if (wish.mode == 1) {
    why = "it always is";
  } else if (wish.mode == 2 && wish.has_gate) {
    const Sides sides = RoundedSides(wish.width, wish.gate);
    why = "the low width of " + sides.left + " bins is " +
          (told.high_width ? "above" : "not above") + " the gate curve's " + sides.right +
          " and a tolerance of 0.1";
  } else if (wish.mode == 2) {
    why = "there is no gate curve";
  }
  step.sentences.push_back(std::string("the high width is ") +
                           (told.high_width ? "measured: " : "not measured: ") + why);
}

Step ThresholdsStep(const Window17& window) {
  Step step = Named("thresholds");
  if (!window.there) {
    step.sentences.emplace_back("no window, no thresholds");
    return step;
  }
  const EchoDecisions& told = window.told;
  TellDetection(window, step);
  step.values = {{"detection_level", told.detection->level, "levels"},
                 {"peak_level", told.detection->peak, "levels"},
                 {"peak_ratio", told.detection->ratio, ""},
                 {"detect_pass", Whole(window.echo.detect_pass), ""}};
  if (!told.low_width) return step;
  step.sentences.push_back(ThresholdSentence("low", told.low_edges->threshold,
                                             told.low_width->noise_level, "a fifth",
                                             told.low_width->share));
  step.values.push_back({"low_threshold", told.low_edges->threshold, "levels above baseline"});
  TellHighWish(told, step);
  if (!told.high_width) return step;
  step.sentences.push_back(ThresholdSentence("high", told.high_edges->threshold,
                                             told.high_width->noise_level, "two thirds",
                                             told.high_width->share));
  step.values.push_back({"high_threshold", told.high_edges->threshold, "levels above baseline"});
  return step;
}

std::string EdgesSentence(const char* which, const Edges& edges, float width) {
  return std::string("at the ") + which + " threshold the pulse goes from sample " +
         Rounded(edges.from) + " to " + Rounded(edges.to) + ": a width of " + Rounded(width) +
         " bins";
}

Step EdgesStep(const Window17& window) {
  Step step = Named("edges");
  const EchoDecisions& told = window.told;
  if (!told.low_width) {
    step.sentences.emplace_back("no pulse, no edges");
    return step;
  }
  const LowWidth& low = *told.low_width;
  step.sentences.push_back(EdgesSentence("low", *told.low_edges, low.width));
  if (low.curve.index >= 0) {
    const Sides sides = RoundedSides(low.width, low.curve.low);
    const bool below = (window.echo.cogw_flag & cogw_flags::kBelowLowCurve) != 0;
    step.sentences.push_back("the low curve at a normalised peak of " + to_string(low.curve.index) +
                             " is " + sides.right + " bins: a width of " + sides.left + " is " +
                             (below ? "below" : "not below") + " it");
  }
  if (told.high_width) {
    const HighWidth& high = *told.high_width;
    step.sentences.push_back(EdgesSentence("high", *told.high_edges, high.width));
    if (high.has_limit) {
      const Sides sides = RoundedSides(high.width, high.limit);
      const bool above = (window.echo.cogw_flag & cogw_flags::kAboveHighCurve) != 0;
      step.sentences.push_back("a high width of " + sides.left + " is " +
                               (above ? "above" : "not above") + " the high curve's " +
                               sides.right + " bins and a tolerance of 0.1");
    }
  }
  step.values = {{"cogw", window.echo.cogw, "bins"},
                 {"cogw_high", window.echo.cogw_high, "bins"},
                 {"cogw_flag", Whole(window.echo.cogw_flag), ""}};
  step.plot = PlotOfSums(told);
  return step;
}

Step CentreStep(const Window17& window) {
  Step step = Named("centre");
  if (!window.told.raw_range) {
    step.sentences.emplace_back("no pulse, no centre");
    return step;
  }
  const Centroid& centroid = window.told.raw_range->centroid;
  step.sentences.push_back("the centre of gravity between the edges lies at sample " +
                           Rounded(centroid.centre) + ", at a height of " +
                           Rounded(centroid.height) + " levels; at 160 shots that is " +
                           Rounded(window.echo.cogh));
  step.values = {{"centre", centroid.centre, "samples"},
                 {"cogh", window.echo.cogh, "levels at 160 shots"},
                 {"peak", window.echo.peak, "levels at 160 shots"},
                 {"waveform_rms_ratio", window.echo.waveform_rms_ratio, ""}};
  return step;
}

void TellWidePulse(const WidePulse& wide, float range, Step& step) {
  const Sides width = RoundedSides(wide.width, wide.limit);
  const std::string start = "the high width of " + width.left + " bins ";
  switch (wide.fate) {
    case WidePulseFate::kKept:
      break;
    case WidePulseFate::kDropped:
      step.sentences.push_back(start + "is at least the high curve's " + width.right +
                               " and 1 more, and the height of " + Rounded(wide.height) +
                               " levels is above 80: the pulse is dropped");
      break;
    case WidePulseFate::kParabola:
      step.sentences.push_back(start + "is between 0.1 and 1 above the high curve's " +
                               width.right + ": the vertex of the parabola, sample " +
                               Rounded(wide.vertex) + ", gives the range instead, " +
                               Rounded(range) + " m");
      break;
  }
}

Step RawRangeStep(const Window17& window) {
  Step step = Named("raw_range");
  if (window.told.raw_range) {
    const RawRange& raw = *window.told.raw_range;
    step.sentences.push_back("bin " + Rounded(raw.first_bin) + " and sample " +
                             Rounded(raw.centroid.centre) +
                             ", at 0.15 m a bin: " + Rounded(raw.range) + " m");
    if (window.told.wide_pulse) {
      TellWidePulse(*window.told.wide_pulse, window.echo.dist_raw, step);
    }
  } else {
    step.sentences.emplace_back("no pulse, no range");
  }
  step.values = {{"raw_range", window.echo.dist_raw, "m"}};
  return step;
}

}  // namespace

std::vector<Step> EchoSteps(const PacketRoad& road, int slot) {
  const auto at = static_cast<std::size_t>(slot);
  const Window17 window{.road = road,
                        .told = road.echoes[at],
                        .echo = road.decoded.echoes[at],
                        .slot = slot,
                        .there = road.has_window[at]};
  std::vector<Step> steps;
  for (const auto tell :
       {SamplesStep, BaselineStep, ThresholdsStep, EdgesStep, CentreStep, RawRangeStep}) {
    steps.push_back(tell(window));
  }
  return steps;
}

}  // namespace kerul::lidar::story
