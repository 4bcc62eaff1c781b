#include <cmath>

#include "reference/numeric.h"
#include "reference/parser.h"

namespace reference {
namespace {

// What the steps of one computation hand on to each other.
struct Work {
  float w[17];     // samples
  float d[15];     // three-bin sums above the baseline, d[7] is the centre
  float D[17];     // the same with a zero at each end, the centre is D[8]
  float B = 0.0F;  // baseline
};

struct Edges {
  int L = 8;
  int R = 8;
  float xl = 0.0F;
  float xr = 0.0F;
};

struct Gravity {
  float centre = 8.0F;
  float h = 0.0F;
};

void AdaptBaseline(const Parser& parser, const std::uint16_t* samples, float r, LidarEcho& e) {
  e.change_noise_noise_append = 0.0F;
  const int n = parser.baseline_samples;
  float sum = 0.0F;
  for (int i = 0; i < n && i < 17; ++i) sum += static_cast<float>(samples[i]);
  const float m = sum * 3.0F / static_cast<float>(n);
  const float rise = m - e.baseline;
  const float centre = static_cast<float>(samples[7]) + static_cast<float>(samples[8]) +
                       static_cast<float>(samples[9]) - m;
  if (!(rise > 0.0F && centre > parser.baseline_rise_gate * r)) return;
  const float add = Smaller(rise + 1.0F, parser.baseline_rise_limit * r);
  e.baseline += add;
  const float c = 2048.0F * add / (160.0F * r) / 3.0F;
  e.change_noise_noise_append = c;
  e.noise += c;
  if (add > r * 7.0F) e.highRefl = true;
}

// Cuts every run of samples above T, but the one that holds the maximum, down to T.
void ClipSidePeaks(float* w, const bool* above, float T) {
  int b = w[0] < w[1] ? 1 : 0;
  for (int i = 2; i <= 16; ++i) {
    if (w[i] > w[b]) b = i;
  }
  if (!above[b]) return;

  int left = b - 1;
  while (left >= 0 && above[left]) --left;
  for (int k = 0; k < left; ++k) {
    if (above[k]) w[k] = T;
  }
  int right = b + 1;
  while (right <= 16 && above[right]) ++right;
  for (int k = right + 1; k <= 16; ++k) {
    if (above[k]) w[k] = T;
  }
}

void ThreeBinSums(Work& work) {
  float S[15];
  S[0] = work.w[0] + work.w[1] + work.w[2];
  for (int k = 1; k <= 14; ++k) S[k] = (work.w[k + 2] - work.w[k - 1]) + S[k - 1];
  for (int k = 0; k <= 14; ++k) work.d[k] = S[k] > work.B ? S[k] - work.B : 0.0F;
  work.D[0] = 0.0F;
  for (int k = 0; k <= 14; ++k) work.D[k + 1] = work.d[k];
  work.D[16] = 0.0F;
}

Edges FindEdges(const float* D, float H) {
  Edges e;
  e.L = 8;
  while (e.L > 0 && D[e.L] > H) --e.L;
  e.R = 8;
  while (e.R < 16 && D[e.R] > H) ++e.R;
  const float L = static_cast<float>(e.L);
  const float R1 = static_cast<float>(e.R - 1);

  e.xl = L + 0.5F;
  const float left_step = D[e.L + 1] - D[e.L];
  if (left_step != 0.0F && D[e.L] < H) e.xl = (H - D[e.L]) / left_step + L;

  e.xr = R1 + 0.5F;
  const float right_step = D[e.R] - D[e.R - 1];
  if (right_step != 0.0F && D[e.R] < H) e.xr = (H - D[e.R - 1]) / right_step + R1;
  return e;
}

Gravity CentreOfGravity(const float* D, const Edges& edges, float H) {
  Gravity result;
  const int a = edges.L + 1;
  const int z = edges.R - 1;
  if (a > z) return result;

  float A = 0.0F;
  float M = 0.0F;
  float E = 0.0F;
  for (int k = a; k <= z; ++k) {
    A += D[k];
    M += static_cast<float>(k) * D[k];
    E += D[k] * D[k];
  }
  if (!(A > 0.0F)) return result;

  const float fa = static_cast<float>(a);
  const float fz = static_cast<float>(z);
  const float v = -(edges.xl - fa + fz - edges.xr) - 1.0F;
  const float A2 = A + v * H;
  result.h = 0.5F * ((H * H * v + E) / A2);
  const float left_product = edges.xl * H;
  const float right_product = H * edges.xr;
  const double t = (static_cast<double>(fa - edges.xl) - 0.5) * static_cast<double>(left_product) +
                   (static_cast<double>(edges.xr - fz) - 0.5) * static_cast<double>(right_product);
  result.centre = (M + static_cast<float>(t)) / A2;
  return result;
}

int CurveIndex(float normalised_peak) {
  // NaN and infinity count as below every index.
  if (!std::isfinite(normalised_peak)) return 0;
  if (normalised_peak >= 640.0F) return 640;
  if (normalised_peak <= 0.0F) return 0;
  const long rounded = std::lround(normalised_peak);
  return static_cast<int>(rounded);
}

// Position of the top of the parabola through the three sums around the centre.
float ParabolaPosition(const float* d) {
  if (!std::isfinite(d[6]) || !std::isfinite(d[7]) || !std::isfinite(d[8])) return 8.0F;
  const float q = d[6] - (d[7] + d[7]) + d[8];
  if (!(q + q < -1e-12F)) return 8.0F;
  const float u = (d[6] - d[8]) / (q + q);
  if (!std::isfinite(u) || std::fabs(u) > 1.0F) return 8.0F;
  return 8.0F + u;
}

// From the samples to the three-bin sums.
void LoadWindow(const Parser& parser, const std::uint16_t* samples, float r, int slot, LidarEcho& e,
                Work& work) {
  if (slot == 1) {
    // The second echo: neither baseline adaptation nor clipping.
    for (int i = 0; i < 17; ++i) work.w[i] = static_cast<float>(samples[i] & 0xFFF);
    work.B = e.baseline;
  } else {
    // Baseline adaptation.
    AdaptBaseline(parser, samples, r, e);
    work.B = e.baseline;
    // Level of a significant sample.
    const float T = (3.0F * std::sqrt(work.B) + work.B) / 3.0F;
    bool above[17];
    for (int i = 0; i < 17; ++i) {
      work.w[i] = static_cast<float>(samples[i]);
      above[i] = work.w[i] > T;
    }
    // Side peaks.
    if (parser.clip_side_peaks) ClipSidePeaks(work.w, above, T);
  }
  ThreeBinSums(work);
}

struct WidthLimits {
  bool filter = false;
  float c0 = 0.0F;
  float c1 = 0.0F;
  float c2 = 0.0F;
};

// Limits of the widths at this peak; all 0 without curves.
WidthLimits LookUpLimits(const WidthCurves& curves, float normalised_peak) {
  WidthLimits limits;
  if (curves.low.empty()) return limits;
  const auto idx = static_cast<std::size_t>(CurveIndex(normalised_peak));
  limits.filter = true;
  limits.c0 = curves.low[idx];
  limits.c1 = curves.gate[idx];
  limits.c2 = curves.high[idx];
  return limits;
}

// Widths, then the centre of gravity between the edges of the last run.
Gravity MeasurePulse(int cogw_high_mode, const Work& work, const WidthLimits& limits,
                     LidarEcho& e) {
  const float centre_sum = work.d[7];
  // Low width.
  float H = Larger(3.0F * std::sqrt(e.baseline), centre_sum / 5.0F);
  Edges edges = FindEdges(work.D, H);
  e.cogw = edges.xr - edges.xl;
  e.cogw_high = 0.0F;
  e.cogw_flag = 0;
  if (limits.filter && !std::isnan(e.cogw) && limits.c0 > e.cogw) e.cogw_flag = 1;

  // High width.
  const bool is_wide = limits.filter && !std::isnan(e.cogw) && e.cogw > limits.c1 + 0.1F;
  if (cogw_high_mode == 1 || (cogw_high_mode == 2 && is_wide)) {
    H = Larger(3.0F * std::sqrt(e.baseline), (centre_sum + centre_sum) / 3.0F);
    edges = FindEdges(work.D, H);
    e.cogw_high = edges.xr - edges.xl;
    e.cogw_flag |= 2;
    if (limits.filter && e.cogw_high > limits.c2 + 0.1F) e.cogw_flag |= 4;
  }

  return CentreOfGravity(work.D, edges, H);
}

}  // namespace

void ComputeEcho(const Parser& parser, const std::uint16_t* samples, LidarPoint& point, int slot) {
  LidarEcho& e = point.echoes[slot];
  const float r = point.shot_ratio;

  // Keep the samples.
  if (parser.keep_bins) {
    for (std::size_t i = 0; i < 17; ++i) e.bins[i] = samples[i] & 0xFFF;
  }

  Work work;
  LoadWindow(parser, samples, r, slot, e, work);
  const float* d = work.d;

  // Root mean square of the pulse.
  float Q = 0.0F;
  for (int k = 0; k <= 14; ++k) Q += d[k] * d[k];
  const float rms = std::sqrt(Q / 15.0F);

  // Is there a pulse at all?
  e.peak = work.B + d[7];
  e.peak_ratio = (e.peak - e.baseline) / (point.detect_threshold - e.baseline);
  e.detect_pass = e.peak_ratio > 1.0F || e.peak_ratio < 0.0F;
  if (!e.detect_pass && !(e.peak_ratio > 0.7F)) return;

  e.waveform_rms_ratio = rms / e.peak;

  const WidthLimits limits = LookUpLimits(parser.width_curves, e.peak / r);
  const Gravity gravity = MeasurePulse(parser.cogw_high_mode, work, limits, e);

  // Normalise and give the range.
  e.peak = e.peak / r;
  e.cogh = gravity.h / r;
  e.baseline = e.baseline / r;
  const float base = static_cast<float>(e.peak_addr & 0xFFF);
  e.dist_raw = (gravity.centre + base) * 0.15F;

  // Wide pulses.
  if (!limits.filter || std::isnan(e.cogw_high)) return;
  if (e.cogw_high >= limits.c2 + 1.0F && e.cogh > 80.0F) {
    e.dist_raw = 0.0F;
    return;
  }
  if (limits.c2 + 0.1F < e.cogw_high && e.cogw_high < limits.c2 + 1.0F) {
    e.dist_raw = (base + ParabolaPosition(d)) * 0.15F;
  }
}

}  // namespace reference
