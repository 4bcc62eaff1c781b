// Files that programs write for their users.
#pragma once

#include <span>
#include <string>

namespace kerul::lidar {

// Writes `bytes` as the file `path`. A plain file is written beside its place and takes it when it
// is complete, so the one before stays until then and is never half overwritten; links are
// followed. Anything else of that name, a device or a FIFO for example, is written to as it stands.
// False with the reason in `error`; what stood at `path` before the call still stands there then.
bool WriteOutputFile(const std::string& path, std::span<const char> bytes, std::string& error);

}  // namespace kerul::lidar
