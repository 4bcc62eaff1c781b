#include "frame_export_info/csv_file.h"

#include <array>
#include <charconv>

namespace kerul::lidar {
namespace {

template <class Number>
void Put(std::string& text, Number number) {
  std::array<char, 32> digits;
  const auto [end, status] = std::to_chars(digits.data(), digits.data() + digits.size(), number);
  text.append(digits.data(), end);
}

}  // namespace

std::string FormatCsv(std::span<const ExportRecord> records) {
  std::string text = "row,col,range_m,reflectivity\n";
  for (const ExportRecord& record : records) {
    Put(text, record.row);
    text += ',';
    Put(text, record.col);
    text += ',';
    Put(text, record.range);
    text += ',';
    Put(text, record.reflectivity);
    text += '\n';
  }
  return text;
}

}  // namespace kerul::lidar
