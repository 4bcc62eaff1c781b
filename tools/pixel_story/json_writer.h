// JSON, value by value.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string_view>

namespace kerul::lidar::story {

// Puts commas and line breaks. Begins and ends must match; a value inside an object comes after its
// Key.
class JsonWriter {
 public:
  // The stream must outlive it.
  explicit JsonWriter(std::ostream& out) : out_(out) {}

  void BeginObject();
  void EndObject();
  void BeginArray();
  void EndArray();
  void Key(std::string_view name);

  void Text(std::string_view text);
  void Whole(std::int64_t number);
  // The fewest digits that give the same float back, never without a point or an exponent. What is
  // no number goes out as the text "nan", "inf" or "-inf".
  void Real(float number);

  void TextMember(std::string_view name, std::string_view text);
  void WholeMember(std::string_view name, std::int64_t number);
  void RealMember(std::string_view name, float number);

 private:
  void BeginValue();
  void Open(char bracket);
  void Close(char bracket);

  std::ostream& out_;
  int depth_ = 0;
  bool needs_comma_ = false;
  bool after_key_ = false;
};

}  // namespace kerul::lidar::story
