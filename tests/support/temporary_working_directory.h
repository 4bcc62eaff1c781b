// A working directory of its own for a test.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

namespace kerul::lidar {

// A new empty directory that is the working directory while it lives, and is gone afterwards.
class TemporaryWorkingDirectory {
 public:
  TemporaryWorkingDirectory() : before_(std::filesystem::current_path()) {
    std::string name = (std::filesystem::temp_directory_path() / "kerul_XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary directory");
    path_ = name;
    std::filesystem::current_path(path_);
  }
  ~TemporaryWorkingDirectory() {
    std::error_code ignored;
    std::filesystem::current_path(before_, ignored);
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryWorkingDirectory(const TemporaryWorkingDirectory&) = delete;
  TemporaryWorkingDirectory& operator=(const TemporaryWorkingDirectory&) = delete;

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path before_;
  std::filesystem::path path_;
};

}  // namespace kerul::lidar
