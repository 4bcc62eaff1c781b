// Who writes a ring: a writer holds a lock on the ring's object for as long as it lives.
//
// The lock belongs to the open descriptor and ends with it, however its process ends. Only a
// process that may write to the object can hold it; readers do not need it. The object's bytes stay
// unchanged.
#pragma once

#include <string>

namespace kerul::lidar {

// Takes the writer's lock of the object behind `fd`, which is open for writing. False when another
// writer holds it or the file system has no such locks: then nobody can see that a writer lives.
bool LockAsWriter(int fd) noexcept;

// Whether another descriptor holds the writer's lock of the object behind `fd`.
bool WriterLives(int fd) noexcept;

// The same for the named object, with its leading "/". False when it is missing or not readable.
bool RingWriterLives(const std::string& object_name) noexcept;

}  // namespace kerul::lidar
