// The points of a block over W points at once, bit for bit the scalar form beside it
// (point_packet_encoder.cpp, OutputMode::kReflectivity).
#pragma once

#include <cstdint>
#include <cstring>

#include "MIPI_reader/parser/lidar_point.h"
#include "MIPI_reader/parser/point_block.h"
#include "lanes/lanes.h"

namespace kerul::lidar {

template <int W>
struct PointBlockKernel {
  using V = Lanes<W>;
  using Float = typename V::Float;
  using Int = typename V::Int;

  static void Write(const BlockRows& block, int echo, std::uint8_t* bytes) noexcept {
    Fields fields;
    Load(block, echo, fields);
    std::int32_t first_four[kLanes];
    std::int32_t last[kLanes];
    for (int i = 0; i < kLanes; i += W) Encode(fields, i, first_four, last);
    for (int i = 0; i < point_packet::kPoints; ++i) {
      std::memcpy(bytes, &first_four[i], 4);
      bytes[4] = static_cast<std::uint8_t>(last[i]);
      bytes += point_packet::kPointBytes;
    }
  }

  // Range in units, low 16 bits; 0 outside the published span. The product has the quotient's
  // integer part exactly. The factor is slightly too large, so a whole number of units never falls
  // short. A float of this span between two whole numbers is at least 2^-31 m below the upper one,
  // far more than the factor's error adds.
  static Int EncodeDistance(Float range) noexcept {
    constexpr double kUnitsPerMetre =
        (1.0 + 0x1p-40) / static_cast<double>(point_packet::kUnitMetres);
    const Int outside = (range <= 0.05F) | (range >= 40.0F);
    const Int units = V::Truncate(V::Low(range) * kUnitsPerMetre, V::High(range) * kUnitsPerMetre);
    return units & 0xFFFF & ~outside;
  }

 private:
  // Whole vectors; the lanes after the last point are zeros.
  static constexpr int kLanes = (point_packet::kPoints + W - 1) / W * W;

  struct Fields {
    float range[kLanes];
    float reflectivity[kLanes];
    float height[kLanes];
    float shot_ratio[kLanes];
    std::int32_t ground[kLanes];
  };

  // Column by column, as the points stand in the packet.
  static void Load(const BlockRows& block, int echo, Fields& fields) noexcept {
    int i = 0;
    for (int col = 0; col < point_packet::kBlockSide; ++col) {
      for (int row = 0; row < point_packet::kBlockSide; ++row, ++i) {
        const LidarPoint& point = block.rows[row][col];
        const LidarEcho& from = point.echoes[echo];
        fields.range[i] = from.dist_proc;
        fields.reflectivity[i] = from.refl_proc;
        fields.height[i] = from.cogh;
        fields.shot_ratio[i] = point.shot_ratio;
        fields.ground[i] = from.ground ? 1 : 0;
      }
    }
    for (; i < kLanes; ++i) {
      fields.range[i] = fields.reflectivity[i] = fields.height[i] = fields.shot_ratio[i] = 0.0F;
      fields.ground[i] = 0;
    }
  }

  static void Encode(const Fields& fields, int first, std::int32_t* first_four,
                     std::int32_t* last) noexcept {
    const Float reflectivity = V::Load(fields.reflectivity + first);
    const Int whole_reflectivity =
        V::Select(reflectivity > 255.0F, V::SplatInt(255), V::Truncate(reflectivity) & 255);

    // Quotient and remainder by 4 toward zero.
    const Int height = V::Truncate(V::Load(fields.height + first));
    const Int quarter = (height + ((height >> 31) & 3)) >> 2;
    const Int rest = height - quarter * 4;
    // Only six bits of the ratio reach the byte; the product would leave 32 bits.
    const Int ratio = V::Truncate(10.0F * V::Load(fields.shot_ratio + first)) & 63;
    const Int mixed = rest + ratio * 4;

    V::Store(first_four + first, EncodeDistance(V::Load(fields.range + first)) |
                                     (whole_reflectivity << 16) | (mixed << 24));
    V::Store(last + first, quarter - V::Load(fields.ground + first) * 128);
  }
};

}  // namespace kerul::lidar
