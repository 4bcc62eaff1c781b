// Standard streams that a process was started without.
#pragma once

namespace kerul::lidar {

// Opens /dev/null for each of the descriptors 0, 1 and 2 that is closed. To be called first thing
// in main: the next socket or file would take a free number among them otherwise, and what is
// printed would go there.
void OpenMissingStandardStreams() noexcept;

}  // namespace kerul::lidar
