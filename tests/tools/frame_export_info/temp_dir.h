// A directory of its own for each test.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace kerul::lidar::export_test {

class TempDir {
 public:
  TempDir() {
    std::string pattern =
        (std::filesystem::temp_directory_path() / "frame_export_info_XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary directory");
    path_ = pattern;
  }
  ~TempDir() { std::filesystem::remove_all(path_); }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  std::string File(const std::string& name) const { return (path_ / name).string(); }

  template <class Bytes>
  std::string Write(const std::string& name, const Bytes& bytes) const {
    std::ofstream file(path_ / name, std::ios::binary);
    for (const auto byte : bytes) file.put(static_cast<char>(byte));
    return File(name);
  }

  std::string Read(const std::string& name) const {
    std::ifstream file(path_ / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

 private:
  std::filesystem::path path_;
};

}  // namespace kerul::lidar::export_test
