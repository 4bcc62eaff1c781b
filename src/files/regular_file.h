// Files that are read as a whole, whatever stands under their name.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kerul::lidar {

enum class FileFault : std::uint8_t {
  kNone,
  kCannotOpen,
  kNotRegular,  // a directory, a FIFO, a device, a socket
  kReadFailed,
  kShorter,  // gave less than the size that it had when it was opened
};

// Reads the file at `path`, which may be a symbolic link to one, into `bytes`. Never waits: a FIFO
// without a writer would hold an ordinary open for ever. Of a shorter file `bytes` holds all that
// came; errno tells why one could not be opened or read.
FileFault ReadRegularFile(const std::string& path, std::vector<std::uint8_t>& bytes);

}  // namespace kerul::lidar
