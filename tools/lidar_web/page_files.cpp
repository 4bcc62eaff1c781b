#include "lidar_web/page_files.h"

#include <filesystem>
#include <vector>

#include "files/regular_file.h"
#include "lidar_web/request.h"

namespace kerul::lidar::web {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMostBytes = 32U << 20;
constexpr std::string_view kPackedEnding = ".gz";

bool CanBeAskedFor(const std::string& name) {
  return ParseTarget("/" + name, "").wanted == Wanted::kPage;
}

}  // namespace

bool PageFiles::Load(const std::string& folder, std::string& error) {
  files_.clear();
  std::error_code failure;
  std::size_t total = 0;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder, failure)) {
    const std::string name = entry.path().filename().string();
    if (!CanBeAskedFor(name) || !entry.is_regular_file(failure)) continue;
    std::vector<std::uint8_t> bytes;
    if (ReadRegularFile(entry.path().string(), bytes) != FileFault::kNone) {
      error = "cannot read " + entry.path().string();
      return false;
    }
    total += bytes.size();
    if (total > kMostBytes) {
      error = folder + " holds more than a page";
      return false;
    }
    files_[name].plain = std::make_shared<const std::string>(bytes.begin(), bytes.end());
  }
  if (failure) {
    error = folder + ": " + failure.message();
    return false;
  }
  for (auto& [name, file] : files_) {
    const auto packed = files_.find(name + std::string(kPackedEnding));
    if (packed != files_.end()) file.packed = packed->second.plain;
  }
  if (Find("index.html") != nullptr) return true;
  error = "no index.html in " + folder;
  files_.clear();
  return false;
}

const PageFiles::File* PageFiles::Find(std::string_view name) const {
  const auto found = files_.find(name);
  return found == files_.end() ? nullptr : &found->second;
}

std::string FindPageFolder(const std::string& program) {
  const fs::path folder = fs::path(program).parent_path();
  std::error_code ignored;
  for (const fs::path& page : {folder / "lidar_web_page", folder / "../share/kerul_lidar/page"}) {
    if (fs::is_regular_file(page / "index.html", ignored)) return page.lexically_normal().string();
  }
  return {};
}

}  // namespace kerul::lidar::web
