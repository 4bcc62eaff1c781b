#include "support/json_text.h"

namespace kerul::lidar {

std::string JsonText(std::string_view text) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string quoted = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      quoted += '\\';
      quoted += c;
    } else if (byte < 0x20) {
      quoted += "\\u00";
      quoted += kDigits[byte >> 4];
      quoted += kDigits[byte & 0xF];
    } else {
      quoted += c;
    }
  }
  return quoted + '"';
}

}  // namespace kerul::lidar
