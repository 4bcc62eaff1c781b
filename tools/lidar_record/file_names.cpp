#include "lidar_record/file_names.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <system_error>

#include "mcap/survey.h"

namespace kerul::lidar::record {
namespace {

namespace fs = std::filesystem;

// The number in `name`, 0 for none; nothing when it is not one of the recording's names.
std::optional<int> NumberOf(const std::string& name, const fs::path& first) {
  if (name == first.filename()) return 0;
  const std::string begin = first.stem().string() + "_";
  const std::string end = first.extension().string();
  if (name.size() <= begin.size() + end.size() || !name.starts_with(begin) ||
      !name.ends_with(end)) {
    return std::nullopt;
  }
  const char* digits = name.data() + begin.size();
  const char* digits_end = name.data() + name.size() - end.size();
  int number = 0;
  const auto [stop, error] = std::from_chars(digits, digits_end, number);
  if (error != std::errc() || stop != digits_end || number < 1) return std::nullopt;
  return number;
}

// Empty when it was finished, is being written, or is no MCAP file.
std::string UnfinishedNote(const std::string& path) {
  mcap::FileSource source;
  mcap::FileEnd end;
  std::string error;
  if (!source.Open(path, error) || source.IsLocked() || mcap::IsFinished(source)) return "";
  if (!mcap::FindFileEnd(source, end, error) || end.finished) return "";
  return path + " was not finished: " + std::to_string(end.whole_chunks) + " whole chunks";
}

}  // namespace

std::vector<int> FileNames::TakenNumbers() const {
  const fs::path first(first_);
  const fs::path folder = first.has_parent_path() ? first.parent_path() : fs::path(".");
  std::vector<int> numbers;
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    const auto number = NumberOf(entry->path().filename().string(), first);
    if (number) numbers.push_back(*number);
  }
  std::sort(numbers.begin(), numbers.end());
  return numbers;
}

std::string FileNames::Name(int number) const {
  if (number == 0) return first_;
  constexpr int kLongest = 16;
  char digits[kLongest];
  std::snprintf(digits, sizeof digits, "_%04d", number);
  const fs::path first(first_);
  return (first.parent_path() / (first.stem().string() + digits + first.extension().string()))
      .string();
}

std::string FileNames::Next() const {
  const std::vector<int> taken = TakenNumbers();
  return Name(taken.empty() ? 0 : taken.back() + 1);
}

std::vector<std::string> FileNames::UnfinishedFiles() const {
  std::vector<std::string> notes;
  for (const int number : TakenNumbers()) {
    std::string note = UnfinishedNote(Name(number));
    if (!note.empty()) notes.push_back(std::move(note));
  }
  return notes;
}

}  // namespace kerul::lidar::record
