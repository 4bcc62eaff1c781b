// Files that programs write for their users.
#pragma once

#include <span>
#include <string>

namespace kerul::lidar {

// Writes `bytes` as the file `path`. A plain file is written beside its place and renamed when it
// is complete, so the old one stays until then and is never half overwritten. Links are followed.
// Anything else of that name, for example a device or a FIFO, is written to directly. False with
// the reason in `error`; what was at `path` is then still there.
bool WriteOutputFile(const std::string& path, std::span<const char> bytes, std::string& error);

}  // namespace kerul::lidar
