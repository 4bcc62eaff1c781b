// Files that belong together, written so that a crash leaves all of them or a set with gaps.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace kerul::lidar {

struct NewFile {
  std::string path;
  std::span<const std::uint8_t> bytes;
};

// Writes each file under another name beside its own, to the disk, takes the old set away and gives
// the new files their names. So under these names there are never bytes of two sets, nor part of a
// file. When a write fails (full disk) the old set stays and nothing of the new one; when a name
// cannot be given, no file of either stays. A symbolic link is replaced, never followed. Throws
// std::runtime_error "cannot write " or "write failed: " and the file's own path.
void ReplaceFiles(std::span<const NewFile> files);

}  // namespace kerul::lidar
