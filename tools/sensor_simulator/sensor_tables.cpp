#include "sensor_simulator/sensor_tables.h"

#include <cmath>
#include <utility>

namespace kerul::lidar::simulator {
namespace {

using Points = std::vector<std::pair<double, double>>;

// Straight lines through the points, one entry per whole number.
std::vector<float> Interpolated(const Points& points, int entries) {
  std::vector<float> table;
  std::size_t upper = 1;
  for (int i = 0; i < entries; ++i) {
    while (upper + 1 < points.size() && points[upper].first < i) ++upper;
    const auto& [x0, y0] = points[upper - 1];
    const auto& [x1, y1] = points[upper];
    const double value = i >= x1 ? y1 : y0 + (y1 - y0) * (i - x0) / (x1 - x0);
    table.push_back(static_cast<float>(value));
  }
  return table;
}

std::vector<float> Shots() {
  std::vector<float> shots;
  const std::pair<int, float> runs[] = {{8, 80.0F},  {4, 176.0F}, {3, 288.0F}, {4, 432.0F},
                                        {2, 288.0F}, {3, 176.0F}, {12, 80.0F}};
  for (const auto& [count, value] : runs)
    shots.insert(shots.end(), static_cast<std::size_t>(count), value);
  return shots;
}

std::vector<float> NearTable() {
  const int rows[] = {0, 1, 10, 20, 50, 99};
  const double values[][kLanes] = {
      {7.141, 7.425, 7.251, 6.703, 6.786, 7.285}, {7.141, 7.425, 7.251, 6.703, 6.786, 7.285},
      {0.842, 1.337, 2.427, 2.9, 3.585, 5.944},   {1.803, 1.412, 2.053, 2.594, 2.033, 2.472},
      {2.056, 2.067, 1.976, 1.933, 1.936, 1.998}, {2.079, 2.283, 2.161, 1.83, 1.824, 2.074}};
  std::vector<float> table(static_cast<std::size_t>(kNearRows * kLanes));
  for (std::size_t lane = 0; lane < kLanes; ++lane) {
    Points points;
    for (std::size_t i = 0; i < 6; ++i) points.emplace_back(rows[i], values[i][lane]);
    const std::vector<float> column = Interpolated(points, kNearRows);
    for (std::size_t row = 0; row < kNearRows; ++row) table[row * kLanes + lane] = column[row];
  }
  return table;
}

SensorTables MakeTables() {
  SensorTables tables;
  tables.shots = Shots();
  tables.gain_low = Interpolated({{0, 0.0},
                                  {5, 0.00006},
                                  {10, 0.01796},
                                  {32, 0.06739},
                                  {64, 0.13742},
                                  {128, 0.3278},
                                  {244, 1.90958},
                                  {248, 1.87417}},
                                 kGainEntries);
  tables.gain_high = Interpolated({{0, 0.00002},
                                   {5, 0.00077},
                                   {10, 0.01545},
                                   {32, 0.06842},
                                   {64, 0.13916},
                                   {128, 0.33974},
                                   {243, 1.81036}},
                                  kGainEntries);
  tables.near = NearTable();
  tables.gate_width = Interpolated({{0, 7.45395},
                                    {8, 7.45395},
                                    {16, 7.2678},
                                    {64, 6.3619},
                                    {128, 5.8265},
                                    {320, 5.3549},
                                    {640, 4.35357}},
                                   kWidthEntries);
  tables.high_width = Interpolated({{0, 3.82526},
                                    {8, 3.7491},
                                    {64, 3.2155},
                                    {128, 2.954},
                                    {320, 2.7745},
                                    {600, 2.68896},
                                    {640, 2.71568}},
                                   kWidthEntries);
  tables.map_out = Interpolated({{0, 0},
                                 {5, 4},
                                 {52, 44},
                                 {102, 85},
                                 {152, 127},
                                 {202, 173},
                                 {252, 217},
                                 {302, 270},
                                 {402, 381},
                                 {511, 490}},
                                512);
  for (int i = 0; i < 512; ++i) tables.map_in.push_back(static_cast<float>(i));
  tables.detect = Interpolated(
      {{0, 6}, {8, 11}, {16, 16}, {32, 23}, {64, 36}, {128, 60}, {256, 93}, {384, 120}, {512, 142}},
      513);
  return tables;
}

}  // namespace

const SensorTables& DefaultSensorTables() {
  static const SensorTables tables = MakeTables();
  return tables;
}

double NearRangeLoss(const SensorTables& tables, double range_m, int lane) noexcept {
  if (range_m > 9.900001) return 0.0;
  const double place = range_m / 0.1;
  const double whole = std::floor(place);
  const auto row = static_cast<std::size_t>(whole);
  const auto at = [&](std::size_t r) {
    return static_cast<double>(tables.near[r * kLanes + static_cast<std::size_t>(lane)]);
  };
  if (row > 98) return at(99) - 2.0;
  return at(row) + (at(row + 1) - at(row)) * (place - whole) - 2.0;
}

}  // namespace kerul::lidar::simulator
