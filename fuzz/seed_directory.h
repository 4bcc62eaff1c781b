// Where make_fuzz_seeds writes: one directory per fuzz program below a root.
#pragma once

#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

using Bytes = std::vector<std::uint8_t>;

Bytes Joined(std::initializer_list<Bytes> parts);

// The whole file; empty when it cannot be read.
Bytes ReadFile(const std::filesystem::path& path);

class SeedDirectory {
 public:
  explicit SeedDirectory(std::filesystem::path root) : root_(std::move(root)) {}

  // Throws std::runtime_error when the file cannot be written.
  void Write(const std::string& program, const std::string& name, const Bytes& bytes) const;
  const std::filesystem::path& Root() const { return root_; }

 private:
  std::filesystem::path root_;
};

// The inputs that are made by hand: those at which such code breaks, named after what is odd about
// them. `camera_record`: 78 bytes; `export_file`: a raw export of 4 x 6 pixels, 11 of which have a
// return.
void WriteOddInputs(const SeedDirectory& seeds, const Bytes& camera_record,
                    const Bytes& export_file);

// Recordings, for a build that has their libraries.
void WriteMcapFiles(const SeedDirectory& seeds);

// What lidar_web takes from outside, for a build that has its library.
void WriteWebInputs(const SeedDirectory& seeds);
