#include "pixel_story/json_writer.h"

#include <charconv>
#include <cmath>
#include <ostream>
#include <string>

#include "support/json_text.h"

namespace kerul::lidar::story {
namespace {

constexpr int kLinesToDepth = 4;  // deeper, a value stays on its line

}  // namespace

void JsonWriter::BeginValue() {
  if (after_key_) {
    after_key_ = false;
    return;
  }
  if (needs_comma_) out_ << ',';
  if (depth_ > 0 && depth_ <= kLinesToDepth) out_ << '\n';
}

void JsonWriter::Open(char bracket) {
  BeginValue();
  out_ << bracket;
  ++depth_;
  needs_comma_ = false;
}

void JsonWriter::Close(char bracket) {
  --depth_;
  out_ << bracket;
  needs_comma_ = true;
  if (depth_ == 0) out_ << '\n';
}

void JsonWriter::BeginObject() { Open('{'); }
void JsonWriter::EndObject() { Close('}'); }
void JsonWriter::BeginArray() { Open('['); }
void JsonWriter::EndArray() { Close(']'); }

void JsonWriter::Key(std::string_view name) {
  BeginValue();
  out_ << JsonText(name) << ':';
  after_key_ = true;
}

void JsonWriter::Text(std::string_view text) {
  BeginValue();
  out_ << JsonText(text);
  needs_comma_ = true;
}

void JsonWriter::Whole(std::int64_t number) {
  BeginValue();
  out_ << number;
  needs_comma_ = true;
}

void JsonWriter::Real(float number) {
  if (!std::isfinite(number)) {
    Text(std::isnan(number) ? "nan" : number > 0.0F ? "inf" : "-inf");
    return;
  }
  char digits[64];
  const std::string text(digits, std::to_chars(digits, digits + sizeof(digits), number).ptr);
  BeginValue();
  // Readers take "-0" for a whole number, which has no sign at 0.
  out_ << text << (text.find_first_of(".e") == std::string::npos ? ".0" : "");
  needs_comma_ = true;
}

void JsonWriter::TextMember(std::string_view name, std::string_view text) {
  Key(name);
  Text(text);
}

void JsonWriter::WholeMember(std::string_view name, std::int64_t number) {
  Key(name);
  Whole(number);
}

void JsonWriter::RealMember(std::string_view name, float number) {
  Key(name);
  Real(number);
}

}  // namespace kerul::lidar::story
