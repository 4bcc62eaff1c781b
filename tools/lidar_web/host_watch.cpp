#include "lidar_web/host_watch.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace kerul::lidar::web {
namespace {

namespace fs = std::filesystem;

constexpr int kLooksBetweenSearches = 6;
constexpr std::size_t kMostText = 4U << 20;  // of a file below /proc

std::string ReadText(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string text;
  char piece[4096];
  while (text.size() < kMostText && (file.read(piece, sizeof piece), file.gcount() > 0)) {
    text.append(piece, static_cast<std::size_t>(file.gcount()));
  }
  return text;
}

// The next word of `line`, taken off it; empty at its end.
std::string_view TakeWord(std::string_view& line) {
  line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
  const std::string_view word = line.substr(0, line.find_first_of(" \t"));
  line.remove_prefix(word.size());
  return word;
}

std::string_view TakeLine(std::string_view& text) {
  const std::string_view line = text.substr(0, text.find('\n'));
  text.remove_prefix(std::min(line.size() + 1, text.size()));
  return line;
}

template <class Number>
std::optional<Number> ToNumber(std::string_view word, int base = 10) {
  Number value{};
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value, base);
  if (error != std::errc{} || end != word.data() + word.size()) return std::nullopt;
  return value;
}

// Drops of the line's socket; nothing when it is another port's or no socket's.
std::optional<std::uint64_t> DropsOfLine(std::string_view line, std::uint16_t port) {
  TakeWord(line);
  const std::string_view address = TakeWord(line);
  const std::size_t colon = address.find(':');
  if (colon == std::string_view::npos) return std::nullopt;
  if (ToNumber<std::uint16_t>(address.substr(colon + 1), 16) != port) return std::nullopt;
  std::string_view last;
  for (std::string_view word = TakeWord(line); !word.empty(); word = TakeWord(line)) last = word;
  return ToNumber<std::uint64_t>(last);
}

std::string ProcessPath(pid_t pid, const char* file) {
  return "/proc/" + std::to_string(pid) + "/" + file;
}

}  // namespace

std::optional<std::uint64_t> UdpDrops(std::string_view text, std::uint16_t port) {
  std::optional<std::uint64_t> sum;
  TakeLine(text);  // the columns' names
  while (!text.empty()) {
    const std::optional<std::uint64_t> drops = DropsOfLine(TakeLine(text), port);
    if (drops) sum = sum.value_or(0) + *drops;
  }
  return sum;
}

bool ReadProcessStat(std::string_view text, ProcessFigures& figures) {
  // After the name, which ends with the last bracket, comes the state as word 0.
  constexpr int kUserTicks = 11;
  constexpr int kSystemTicks = 12;
  constexpr int kResidentPages = 21;
  const std::size_t end_of_name = text.rfind(')');
  if (end_of_name == std::string_view::npos) return false;
  std::string_view rest = text.substr(end_of_name + 1);
  std::uint64_t ticks = 0;
  for (int word = 0; word <= kResidentPages; ++word) {
    const std::string_view value = TakeWord(rest);
    if (word != kUserTicks && word != kSystemTicks && word != kResidentPages) continue;
    const std::optional<std::uint64_t> number = ToNumber<std::uint64_t>(value);
    if (!number) return false;
    if (word == kResidentPages) {
      figures.resident_bytes = *number * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
    } else {
      ticks += *number;
    }
  }
  figures.cpu_seconds = static_cast<double>(ticks) / static_cast<double>(sysconf(_SC_CLK_TCK));
  return true;
}

bool HasMapping(std::string_view text, unsigned device_major, unsigned device_minor,
                std::uint64_t inode) {
  while (!text.empty()) {
    std::string_view line = TakeLine(text);
    for (int word = 0; word < 3; ++word) TakeWord(line);  // addresses, rights, offset
    const std::string_view device = TakeWord(line);
    const std::size_t colon = device.find(':');
    if (colon == std::string_view::npos || ToNumber<std::uint64_t>(TakeWord(line)) != inode)
      continue;
    if (ToNumber<unsigned>(device.substr(0, colon), 16) == device_major &&
        ToNumber<unsigned>(device.substr(colon + 1), 16) == device_minor) {
      return true;
    }
  }
  return false;
}

std::optional<ProcessFigures> HostWatch::Figures(pid_t pid) {
  ProcessFigures figures{.pid = pid};
  if (!ReadProcessStat(ReadText(ProcessPath(pid, "stat")), figures)) return std::nullopt;
  return figures;
}

std::optional<ProcessFigures> HostWatch::Node() {
  if (node_ && !IsNamedSo(*node_)) node_.reset();
  if (!node_ && looks_until_search_-- <= 0) {
    node_ = FindNode();
    looks_until_search_ = kLooksBetweenSearches;
  }
  return node_ ? Figures(*node_) : std::nullopt;
}

// Not by /proc/net, which is not there in a sandbox that shows processes only.
std::optional<std::uint64_t> HostWatch::KernelDrops() const {
  const std::optional<std::uint64_t> plain = UdpDrops(ReadText("/proc/self/net/udp"), port_);
  const std::optional<std::uint64_t> wide = UdpDrops(ReadText("/proc/self/net/udp6"), port_);
  if (!plain && !wide) return std::nullopt;
  return plain.value_or(0) + wide.value_or(0);
}

std::optional<pid_t> HostWatch::FindNode() const {
  std::vector<pid_t> found;
  std::error_code error;
  for (fs::directory_iterator entry("/proc", error), end; !error && entry != end;
       entry.increment(error)) {
    const std::optional<pid_t> pid = ToNumber<pid_t>(entry->path().filename().native());
    if (pid && IsNamedSo(*pid)) found.push_back(*pid);
  }
  if (found.size() > 1) {
    std::erase_if(found, [&](pid_t pid) { return !HasRingMapped(pid); });
  }
  return found.size() == 1 ? std::optional(found.front()) : std::nullopt;
}

bool HostWatch::IsNamedSo(pid_t pid) const {
  return ReadText(ProcessPath(pid, "comm")) == process_name_ + "\n";
}

// By device and number: the path alone may be that of another mount namespace.
bool HostWatch::HasRingMapped(pid_t pid) const {
  struct stat ring {};
  return !ring_object_.empty() && stat(ring_object_.c_str(), &ring) == 0 &&
         HasMapping(ReadText(ProcessPath(pid, "maps")), major(ring.st_dev), minor(ring.st_dev),
                    ring.st_ino);
}

}  // namespace kerul::lidar::web
