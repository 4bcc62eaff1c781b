// Files that belong together, written so that a crash leaves all of them or an incomplete set.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace kerul::lidar {

struct NewFile {
  std::string path;
  std::span<const std::uint8_t> bytes;
};

// Writes each file to the disk under another name beside its own, removes the old set, then renames
// the new files. So the names never hold bytes of two sets, nor part of a file. When a write fails
// (full disk), the old set stays and nothing of the new one. When a rename fails, no file of either
// stays. A symbolic link is replaced, never followed. Throws std::runtime_error "cannot write " or
// "write failed: " and the file's own path.
void ReplaceFiles(std::span<const NewFile> files);

}  // namespace kerul::lidar
