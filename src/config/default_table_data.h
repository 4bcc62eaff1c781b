// Numbers of the default tables, without logic. All constant expressions: the configuration is
// built during static initialisation, when no other object may be relied upon.
#pragma once

#include <array>

#include "config/table_curves.h"

namespace kerul::lidar::default_table_data {

inline constexpr int kEnvEntries = 1024;
inline constexpr int kDetectThresholdEntries = 513;
inline constexpr int kCogwEntries = 641;
inline constexpr int kEfficiantRows = 100;
inline constexpr int kEfficiantCols = 6;

// 36 miniflash rows, most shots in the middle of the field; no valid row reaches the zeros.
inline constexpr std::array<ValueRun, 8> kShotTimes{{{80.0F, 8},
                                                     {176.0F, 4},
                                                     {288.0F, 3},
                                                     {432.0F, 4},
                                                     {288.0F, 2},
                                                     {176.0F, 3},
                                                     {80.0F, 12},
                                                     {0.0F, 12}}};

// The heights that the high threshold map knows: 0 to this one, without two.
inline constexpr int kHighThresholdLastHeight = 511;
inline constexpr std::array<int, 2> kHighThresholdMissingHeights{4, 10};

// What heights at the high threshold map to. Here `index` is the height, not yet its position.
inline constexpr std::array<CurvePoint, 10> kHighThresholdPairs{{{0, 0.0F},
                                                                 {5, 4.0F},
                                                                 {52, 44.0F},
                                                                 {102, 85.0F},
                                                                 {152, 127.0F},
                                                                 {202, 173.0F},
                                                                 {252, 217.0F},
                                                                 {302, 270.0F},
                                                                 {402, 381.0F},
                                                                 {511, 490.0F}}};

// Peaks at 244 and falls back a little to the plateau that starts at 248.
inline constexpr std::array<CurvePoint, 9> kEnvCogh{{{0, 0.0F},
                                                     {5, 0.00006F},
                                                     {10, 0.01796F},
                                                     {32, 0.06739F},
                                                     {64, 0.13742F},
                                                     {128, 0.3278F},
                                                     {244, 1.90958F},
                                                     {248, 1.87417F},
                                                     {1023, 1.87417F}}};

// Plateau from 243 on.
inline constexpr std::array<CurvePoint, 8> kEnvCoghHigh{{{0, 0.00002F},
                                                         {5, 0.00077F},
                                                         {10, 0.01545F},
                                                         {32, 0.06842F},
                                                         {64, 0.13916F},
                                                         {128, 0.33974F},
                                                         {243, 1.81036F},
                                                         {1023, 1.81036F}}};

inline constexpr std::array<CurvePoint, 9> kDetectThreshold{{{0, 6.0F},
                                                             {8, 11.0F},
                                                             {16, 16.0F},
                                                             {32, 23.0F},
                                                             {64, 36.0F},
                                                             {128, 60.0F},
                                                             {256, 93.0F},
                                                             {384, 120.0F},
                                                             {512, 142.0F}}};

// Known rows of the range-dependent power correction, one value for each pixel row.
struct EfficiantRow {
  int row;
  std::array<float, kEfficiantCols> values;
};
inline constexpr std::array<EfficiantRow, 6> kCoghEfficiant{
    {{0, {7.141F, 7.425F, 7.251F, 6.703F, 6.786F, 7.285F}},
     {1, {7.141F, 7.425F, 7.251F, 6.703F, 6.786F, 7.285F}},
     {10, {0.842F, 1.337F, 2.427F, 2.9F, 3.585F, 5.944F}},
     {20, {1.803F, 1.412F, 2.053F, 2.594F, 2.033F, 2.472F}},
     {50, {2.056F, 2.067F, 1.976F, 1.933F, 1.936F, 1.998F}},
     {99, {2.079F, 2.283F, 2.161F, 1.83F, 1.824F, 2.074F}}}};

// Zero after these: no pulse with a peak of 17 and above lies below the low curve.
inline constexpr std::array<ValueRun, 11> kCogwA{{{4.8F, 1},
                                                  {8.6F, 1},
                                                  {8.0F, 2},
                                                  {7.38F, 1},
                                                  {5.48F, 1},
                                                  {6.39F, 1},
                                                  {5.59F, 1},
                                                  {4.88F, 1},
                                                  {5.5F, 4},
                                                  {4.7F, 4},
                                                  {0.0F, kCogwEntries - 17}}};

inline constexpr std::array<CurvePoint, 7> kCogwB{{{0, 7.45395F},
                                                   {8, 7.45395F},
                                                   {16, 7.2678F},
                                                   {64, 6.3619F},
                                                   {128, 5.8265F},
                                                   {320, 5.3549F},
                                                   {640, 4.35357F}}};

// The place of the smallest value is our choice; the value itself is measured.
inline constexpr int kCogwCSmallestAt = 544;
inline constexpr std::array<CurvePoint, 7> kCogwC{{{0, 3.82526F},
                                                   {8, 3.7491F},
                                                   {64, 3.2155F},
                                                   {128, 2.954F},
                                                   {320, 2.7745F},
                                                   {kCogwCSmallestAt, 2.68896F},
                                                   {640, 2.71568F}}};

// Spill of a bright source by distance in half pixels. The small negative tails are deliberate: a
// distant source then adds a little to the power that remains of an echo.
inline constexpr std::array<ValueRun, 11> kPsfSameBlock{{{1.24976e-4F, 6},
                                                         {1.10544e-4F, 1},
                                                         {7.782e-5F, 1},
                                                         {4.064e-5F, 1},
                                                         {3.7484e-5F, 2},
                                                         {2.7628e-5F, 2},
                                                         {2.0148e-5F, 1},
                                                         {1.1556e-5F, 2},
                                                         {1.1004e-5F, 1},
                                                         {1.792e-6F, 1},
                                                         {0.0F, 14}}};
inline constexpr std::array<ValueRun, 5> kPsfAdjacentBlock{
    {{2.9956e-5F, 2}, {2.8188e-5F, 4}, {7.348e-6F, 1}, {3.616e-6F, 9}, {-4.36e-7F, 16}}};
inline constexpr std::array<ValueRun, 7> kPsfDiagonalBlock{{{1.284e-5F, 6},
                                                            {1.2636e-5F, 1},
                                                            {1.1188e-5F, 1},
                                                            {1.972e-6F, 2},
                                                            {1.568e-6F, 2},
                                                            {9.36e-7F, 4},
                                                            {-1.2e-8F, 16}}};

inline constexpr std::array<float, 36> kPowerTemplate{
    72.44F,  92.65F,  129.37F, 119.34F, 84.23F,  69.19F,   //
    97.6F,   118.88F, 187.22F, 169.9F,  106.08F, 90.32F,   //
    147.51F, 188.57F, 301.58F, 277.41F, 170.03F, 132.55F,  //
    133.6F,  170.66F, 270.61F, 254.69F, 162.65F, 126.94F,  //
    92.52F,  112.91F, 183.48F, 172.93F, 108.99F, 92.76F,   //
    73.06F,  90.48F,  129.11F, 122.72F, 86.81F,  69.98F};

// Smallest ground distance in metres by miniflash row.
inline constexpr std::array<ValueRun, 4> kGroundMinDist{
    {{0.4F, 6}, {1.0F, 6}, {3.0F, 6}, {99.0F, 18}}};

}  // namespace kerul::lidar::default_table_data
