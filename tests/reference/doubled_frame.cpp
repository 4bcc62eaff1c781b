#include "reference/merge.h"

#include <cstring>

namespace reference {
namespace {

LidarPoint& At(LidarFrame& frame, int row, int col) {
  return frame.points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)];
}

const LidarPoint& At(const LidarFrame& frame, int row, int col) {
  return frame.points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)];
}

LidarPoint MergeWithMeasures(const std::vector<const LidarPoint*>& sources) {
  LidarPoint merged = MergePoint(sources);
  LidarEcho& e = merged.echoes[0];
  const float s = 0.0625F * e.totsum;
  const float d = 0.15F * e.dist_proc + 1.2F;
  e.refl_raw = s;
  e.refl_proc = s;
  e.dist_proc = d;
  return merged;
}

}  // namespace

bool Upsample(const LidarFrame& source, LidarFrame& target) {
  if (target.height != 2 * source.height || target.width != 2 * source.width) return false;
  ResetFrame(target);
  target.frame_id = source.frame_id;
  for (int i = 0; i < source.height; ++i) {
    for (int j = 0; j < source.width; ++j) {
      const LidarPoint& cur = At(source, i, j);
      const int r = cur.row;
      const int c = cur.col;
      if (r == 0 || c == 0 || r >= source.height || c >= source.width) continue;
      if (r < 0 || c < 0) continue;
      const LidarPoint& up = At(source, r - 1, c);
      const LidarPoint& left = At(source, r, c - 1);
      const LidarPoint& upleft = At(source, r - 1, c - 1);
      const LidarPoint A = MergeWithMeasures({&cur, &up});
      const LidarPoint B = MergeWithMeasures({&cur, &left});
      const LidarPoint C = MergeWithMeasures({&cur, &left, &up, &upleft});
      At(target, 2 * r, 2 * c) = cur;
      At(target, 2 * r - 1, 2 * c - 1) = C;
      At(target, 2 * r - 1, 2 * c) = A;
      At(target, 2 * r, 2 * c - 1) = B;
    }
  }
  return true;
}

namespace {

void Put(std::vector<std::uint8_t>& bytes, std::uint64_t value, int size) {
  for (int i = 0; i < size; ++i)
    bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i) & 0xFF));
}

void PutFloat(std::vector<std::uint8_t>& bytes, float value) {
  std::uint32_t bits = 0;
  std::memcpy(&bits, &value, 4);
  Put(bytes, bits, 4);
}

}  // namespace

std::vector<std::uint8_t> ExportFileBytes(const LidarFrame& frame, const std::string& mode,
                                          int frame_id, std::uint64_t sequence) {
  std::uint8_t mode_code = 2;
  if (mode == "raw") mode_code = 0;
  if (mode == "processed") mode_code = 1;

  std::vector<std::uint8_t> records;
  std::uint32_t count = 0;
  for (int row = 0; row < frame.height; ++row) {
    for (int col = 0; col < frame.width; ++col) {
      const LidarEcho& e = At(frame, row, col).echoes[0];
      const float range = mode_code == 0 ? e.dist_raw : e.dist_proc;
      const float reflectivity = mode_code == 0 ? e.refl_raw : e.refl_proc;
      if (range > 0.0F) ++count;
      if (range <= 0.0F) continue;  // a NaN is written, though it does not count
      Put(records, static_cast<std::uint64_t>(row), 2);
      Put(records, static_cast<std::uint64_t>(col), 2);
      PutFloat(records, range);
      PutFloat(records, reflectivity);
    }
  }

  std::vector<std::uint8_t> bytes;
  for (char letter : std::string("QNDRBIN1")) bytes.push_back(static_cast<std::uint8_t>(letter));
  Put(bytes, 1, 1);
  Put(bytes, 1, 1);
  Put(bytes, mode_code, 1);
  Put(bytes, 0, 1);
  Put(bytes, static_cast<std::uint64_t>(frame.height), 2);
  Put(bytes, static_cast<std::uint64_t>(frame.width), 2);
  Put(bytes, 2, 2);
  Put(bytes, 0, 2);
  Put(bytes, frame_id < 0 ? 0 : static_cast<std::uint64_t>(frame_id), 4);
  Put(bytes, sequence, 8);
  Put(bytes, count, 4);
  bytes.insert(bytes.end(), records.begin(), records.end());
  return bytes;
}

}  // namespace reference
