#include "sensor_simulator/pixel_simulator.h"

#include <algorithm>
#include <cmath>

namespace kerul::lidar::simulator {
namespace {

constexpr int kFirstPeakBin = 8;     // the window must begin inside the histogram
constexpr int kLastPeakBin = 1008;   // and at bin 1000 at the latest
constexpr int kPeakSpacing = 8;      // bins between two peaks that are told apart
constexpr int kDrawn = kWindow + 2;  // a bin to spare on both sides for the peak's choice
constexpr int kDrawnCentre = kWindowCentre + 1;
constexpr double kReportSigmas = 3.0;
constexpr int kMaxSample = 4095;  // 12 bits

constexpr double kAfterPulseShare = 0.018;  // of the counts of the pulse before
constexpr double kAfterPulseDelay = 11.3;   // bins
constexpr double kAfterPulseFrom = 250.0;   // counts per 160 shots below which none is seen

constexpr int kCandidates = kMaxPulses + 3;

// A peak that the sensor may find.
struct Candidate {
  int bin = 0;
  double net = 0.0;    // expected three-bin sum above background
  int noise_sum = -1;  // three-bin sum of a chance peak, -1 for a pulse
  EchoTruth truth;
};

struct PulseSet {
  std::array<PulseCounts, kMaxPulses + 1> pulses;
  std::array<EchoTruth, kMaxPulses + 1> truths;
  std::size_t count = 0;

  double At(int bin) const noexcept {
    double sum = 0.0;
    for (std::size_t i = 0; i < count; ++i) sum += pulses[i].At(bin);
    return sum;
  }
};

double TotalCounts(const PulseCounts& pulse) noexcept {
  double sum = 0.0;
  for (const float counts : pulse.counts) sum += static_cast<double>(counts);
  return sum;
}

// A cell that has just fired may fire again by itself.
void AddAfterPulse(const PixelLight& light, int shots, const PulseResponse& response,
                   PulseSet& set) {
  std::size_t strongest = 0;
  double most = 0.0;
  for (std::size_t i = 0; i < set.count; ++i) {
    const double total = TotalCounts(set.pulses[i]) * 160.0 / shots;
    if (total > most) {
      most = total;
      strongest = i;
    }
  }
  if (most < kAfterPulseFrom) return;
  EchoTruth truth;
  truth.kind = ReturnKind::kAfterPulse;
  truth.strength = static_cast<float>(most * kAfterPulseShare);
  truth.range_m = set.truths[strongest].range_m + static_cast<float>(kAfterPulseDelay * kBinMetres);
  set.pulses[set.count] = response.Counts(
      most * kAfterPulseShare, light.pulses[strongest].position_bins + kAfterPulseDelay, shots);
  set.truths[set.count] = truth;
  ++set.count;
}

struct Drawn {
  int first_bin = 0;
  std::array<std::uint16_t, kDrawn> counts{};
};

std::uint16_t Saturated(int counts) noexcept {
  return static_cast<std::uint16_t>(std::min(counts, kMaxSample));
}

Drawn DrawWindow(const Candidate& candidate, const PulseSet& set, const Background& background,
                 const Drawn* earlier, Random& random) {
  Drawn drawn;
  drawn.first_bin = candidate.bin - kDrawnCentre;
  for (int i = 0; i < kDrawn; ++i) {
    const double signal = set.At(drawn.first_bin + i);
    const int counts =
        signal < 1e-3 ? background.bin.Draw(random) : random.Poisson(background.per_bin + signal);
    drawn.counts[static_cast<std::size_t>(i)] = Saturated(counts);
  }
  if (candidate.noise_sum >= 0) {
    std::array<int, 3> parts{};
    for (int i = 0; i < candidate.noise_sum; ++i) ++parts[random.Below(3)];
    for (std::size_t i = 0; i < parts.size(); ++i) {
      drawn.counts[kDrawnCentre - 1 + i] = Saturated(parts[i]);
    }
  }
  if (earlier != nullptr) {
    // Both windows are cut from one histogram: where they overlap they hold the same counts.
    for (int i = 0; i < kDrawn; ++i) {
      const int other = drawn.first_bin + i - earlier->first_bin;
      if (other >= 0 && other < kDrawn) {
        drawn.counts[static_cast<std::size_t>(i)] =
            earlier->counts[static_cast<std::size_t>(other)];
      }
    }
  }
  return drawn;
}

int SumAround(const Drawn& drawn, int centre) noexcept {
  const auto at = static_cast<std::size_t>(centre);
  return drawn.counts[at - 1] + drawn.counts[at] + drawn.counts[at + 1];
}

// Centres the window on the highest of three places. Gives the sum there.
int Cut(const Drawn& drawn, std::uint16_t& peak_addr, std::array<std::uint16_t, kWindow>& samples) {
  int centre = kDrawnCentre;
  for (const int other : {kDrawnCentre - 1, kDrawnCentre + 1}) {
    if (SumAround(drawn, other) > SumAround(drawn, centre)) centre = other;
  }
  const int start = centre - kWindowCentre;
  const int bin = drawn.first_bin + start;
  if (bin < 0 || bin > kLastPeakBin - kWindowCentre) return 0;
  peak_addr = static_cast<std::uint16_t>(bin);
  std::copy_n(drawn.counts.begin() + start, kWindow, samples.begin());
  return SumAround(drawn, centre);
}

class CandidateList {
 public:
  void Add(const Candidate& candidate) noexcept {
    if (candidate.bin < kFirstPeakBin || candidate.bin > kLastPeakBin) return;
    if (count_ < candidates_.size()) candidates_[count_++] = candidate;
  }
  // The highest one that is far enough from `other`; null when there is none.
  const Candidate* Highest(const Candidate* other) const noexcept {
    const Candidate* best = nullptr;
    for (std::size_t i = 0; i < count_; ++i) {
      const Candidate& candidate = candidates_[i];
      if (other != nullptr && std::abs(candidate.bin - other->bin) <= kPeakSpacing) continue;
      if (best == nullptr || candidate.net > best->net) best = &candidate;
    }
    return best;
  }

 private:
  std::array<Candidate, kCandidates> candidates_;
  std::size_t count_ = 0;
};

Candidate NoiseCandidate(int sum, const Background& background, Random& random) {
  Candidate candidate;
  candidate.bin = kFirstPeakBin + static_cast<int>(random.Below(kLastPeakBin - kFirstPeakBin));
  candidate.net = sum - background.baseline();
  candidate.noise_sum = sum;
  candidate.truth.kind = ReturnKind::kNoise;
  candidate.truth.range_m = static_cast<float>(candidate.bin * kBinMetres);
  return candidate;
}

CandidateList FindCandidates(const PulseSet& set, const Background& background, Random& random) {
  CandidateList list;
  for (std::size_t i = 0; i < set.count; ++i) {
    const PulsePeak peak = LargestThreeBinSum(set.pulses[i]);
    list.Add({peak.bin, peak.sum, -1, set.truths[i]});
  }
  const auto [first, second] = LargestNoiseSums(background, random);
  list.Add(NoiseCandidate(first, background, random));
  list.Add(NoiseCandidate(second, background, random));
  return list;
}

std::uint16_t MeasuredNoise(const PixelConditions& conditions, Random& random) {
  // Counted over some nine hundred bins.
  const double spread = std::sqrt(conditions.noise * 2048.0 / (conditions.shots * 900.0));
  const double word = conditions.noise + spread * random.Normal() + 0.5;
  return static_cast<std::uint16_t>(std::clamp(word, 0.0, 65535.0));
}

}  // namespace

void ReadOutPixel(const PixelLight& light, const PixelConditions& conditions,
                  const Background& background, const PulseResponse& response, Random& random,
                  PixelReadout& readout, PixelTruth& truth) {
  PulseSet set;
  for (int i = 0; i < light.count; ++i) {
    const LightPulse& pulse = light.pulses[static_cast<std::size_t>(i)];
    set.pulses[set.count] = response.Counts(pulse.strength, pulse.position_bins, conditions.shots);
    set.truths[set.count] = pulse.truth;
    ++set.count;
  }
  AddAfterPulse(light, conditions.shots, response, set);
  readout.noise = MeasuredNoise(conditions, random);
  double total = background.per_bin * (kLastPeakBin + kWindowCentre);
  for (std::size_t i = 0; i < set.count; ++i) total += TotalCounts(set.pulses[i]);
  readout.total_counts = static_cast<std::uint32_t>(std::min(total, 4194303.0));

  const CandidateList list = FindCandidates(set, background, random);
  const double report_level = kReportSigmas * std::sqrt(std::max(background.baseline(), 1.0));
  const Candidate* first = nullptr;
  Drawn first_drawn;
  std::array<int, kEchoes> sums{};
  for (std::size_t echo = 0; echo < kEchoes; ++echo) {
    const Candidate* candidate = list.Highest(first);
    if (candidate == nullptr) break;
    const Drawn drawn =
        DrawWindow(*candidate, set, background, echo == 0 ? nullptr : &first_drawn, random);
    sums[echo] = Cut(drawn, readout.peak_addr[echo], readout.samples[echo]);
    truth[echo] = candidate->truth;
    truth[echo].sent = sums[echo] - background.baseline() > report_level ? 1 : 0;
    if (truth[echo].sent == 0) {
      sums[echo] = 0;
      readout.peak_addr[echo] = kNoPeak;
      readout.samples[echo] = {};
      if (candidate->truth.kind == ReturnKind::kNoise) truth[echo] = {};
    }
    if (echo == 0) {
      first = candidate;
      first_drawn = drawn;
    }
  }
  if (sums[1] > sums[0]) {
    std::swap(readout.peak_addr[0], readout.peak_addr[1]);
    std::swap(readout.samples[0], readout.samples[1]);
    std::swap(truth[0], truth[1]);
  }
}

}  // namespace kerul::lidar::simulator
