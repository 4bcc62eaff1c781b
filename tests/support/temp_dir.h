// A directory of its own for a test, and the content of its files.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>

namespace kerul::lidar::testing {

inline std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// Made with the object, gone with it.
class TempDir {
 public:
  TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "kerul_XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = std::filesystem::canonical(pattern);
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::string File(const std::string& name) const { return (path_ / name).string(); }

  // Gives the file's path.
  template <class Bytes = std::string>
  std::string Write(const std::string& name, const Bytes& bytes) const {
    std::ofstream file(path_ / name, std::ios::binary);
    for (const auto byte : bytes) file.put(static_cast<char>(byte));
    return File(name);
  }
  std::string Read(const std::string& name) const { return ReadFile(path_ / name); }

 private:
  std::filesystem::path path_;
};

// The working directory while it lives.
class TempWorkingDir {
 public:
  TempWorkingDir() { std::filesystem::current_path(directory_.path()); }
  ~TempWorkingDir() {
    std::error_code ignored;
    std::filesystem::current_path(before_, ignored);
  }
  TempWorkingDir(const TempWorkingDir&) = delete;
  TempWorkingDir& operator=(const TempWorkingDir&) = delete;

  const std::filesystem::path& path() const { return directory_.path(); }

 private:
  std::filesystem::path before_ = std::filesystem::current_path();
  TempDir directory_;
};

}  // namespace kerul::lidar::testing
