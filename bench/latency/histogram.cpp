#include "latency/histogram.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace kerul::lidar::bench {
namespace {

// Decades of both axes: 10 us to 100 ms, one row in a million to all.
constexpr int kFirstDecade = 1;
constexpr int kDecades = 4;
constexpr int kBinsPerDecade = 12;
constexpr int kBins = kDecades * kBinsPerDecade;
constexpr int kShareDecades = 6;

constexpr double kLeft = 70;
constexpr double kTop = 40;
constexpr double kWidth = 720;
constexpr double kHeight = 300;
constexpr const char* kColours[] = {"#1f6feb", "#d1242f", "#2da44e"};

using Shares = std::array<double, kBins>;

Shares CountShares(const std::vector<double>& us) {
  Shares shares{};
  for (const double latency : us) {
    const double decades = std::log10(std::max(latency, 1e-3)) - kFirstDecade;
    const int bin = std::clamp(static_cast<int>(decades * kBinsPerDecade), 0, kBins - 1);
    shares[static_cast<std::size_t>(bin)] += 1.0 / static_cast<double>(us.size());
  }
  return shares;
}

double X(double decades) { return kLeft + kWidth * decades / kDecades; }

double Y(double share) {
  const double decades = std::max(std::log10(std::max(share, 1e-9)) + kShareDecades, 0.0);
  return kTop + kHeight * (1 - decades / kShareDecades);
}

void Text(std::ostream& out, double x, double y, const char* anchor, const std::string& text) {
  out << "<text x=\"" << x << "\" y=\"" << y << "\" text-anchor=\"" << anchor << "\">" << text
      << "</text>\n";
}

void Axes(std::ostream& out) {
  constexpr const char* kTimes[] = {"10 µs", "100 µs", "1 ms", "10 ms", "100 ms"};
  constexpr const char* kParts[] = {
      "1 in 1,000,000", "1 in 100,000", "1 in 10,000", "1 in 1,000", "1 %", "10 %", "all"};
  for (int i = 0; i <= kDecades; ++i) {
    out << "<path class=\"grid\" d=\"M" << X(i) << ' ' << kTop << 'v' << kHeight << "\"/>\n";
    Text(out, X(i), kTop + kHeight + 18, "middle", kTimes[i]);
  }
  for (int i = 0; i <= kShareDecades; ++i) {
    const double y = kTop + kHeight * (1 - static_cast<double>(i) / kShareDecades);
    out << "<path class=\"grid\" d=\"M" << kLeft << ' ' << y << 'h' << kWidth << "\"/>\n";
    Text(out, kLeft + 6, y - 4, "start", kParts[i]);
  }
}

// A stair: each bin as wide as its part of the axis.
void Stair(std::ostream& out, const Shares& shares, const char* colour) {
  out << "<path fill=\"none\" stroke=\"" << colour << "\" stroke-width=\"2\" d=\"M" << X(0) << ' '
      << Y(0);
  for (int bin = 0; bin < kBins; ++bin) {
    out << 'V' << Y(shares[static_cast<std::size_t>(bin)]) << 'H'
        << X(static_cast<double>(bin + 1) / kBinsPerDecade);
  }
  out << 'V' << Y(0) << "\"/>\n";
}

}  // namespace

void WriteHistogram(const std::string& path, const std::vector<LatencyRun>& runs) {
  std::ostringstream out;
  out << "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " << kLeft + kWidth + 30 << ' '
      << kTop + kHeight + 40
      << "\" font-family=\"sans-serif\" font-size=\"12\">\n<style>.grid{stroke:#ccc;fill:none}"
         "</style>\n<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
  Axes(out);
  for (std::size_t i = 0; i < runs.size(); ++i) {
    const char* const colour = kColours[i % std::size(kColours)];
    Stair(out, CountShares(runs[i].us), colour);
    out << "<g fill=\"" << colour << "\">";
    Text(out, X(kDecades), 16 + 14 * static_cast<double>(i), "end", runs[i].name);
    out << "</g>\n";
  }
  out << "</svg>\n";
  std::ofstream file(path, std::ios::binary);
  if (!(file << out.str()).flush()) throw std::runtime_error(path + ": cannot be written");
}

}  // namespace kerul::lidar::bench
