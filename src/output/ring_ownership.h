// Who writes a ring: a writer holds a lock on the ring's object for as long as it lives.
//
// The lock belongs to the open descriptor and ends with it, however its process ends. Only a
// process that may write to the object can hold it; readers do not need it. The object's bytes stay
// unchanged.
//
// A process that finds the ring taken and gives way leaves word the same way: it locks a byte far
// beyond the object's end for a while, and the writer looks there now and then.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>

namespace kerul::lidar {

// Takes the writer's lock of the object behind `fd`, which is open for writing. False when another
// writer holds it or the file system has no such locks: then nobody can see that a writer lives.
bool LockAsWriter(int fd) noexcept;

// Whether another descriptor holds the writer's lock of the object behind `fd`.
bool WriterLives(int fd) noexcept;

// The same for the named object, with its leading "/". False when it is missing or not readable.
bool RingWriterLives(const std::string& object_name) noexcept;

// Long enough for a writer that looks once a frame, and at most every kRefusalLookPause.
inline constexpr auto kRefusalShows = std::chrono::milliseconds(1000);
inline constexpr auto kRefusalLookPause = std::chrono::milliseconds(250);

// Shows the writer of the named object for `shows` that this process was refused. Waits so long.
void ShowRefusal(const std::string& object_name, std::chrono::milliseconds shows = kRefusalShows);

// The process that was refused lately as a writer of the object behind `fd`; 0 when none was, -1
// when its number is not known here, as that of another container.
pid_t RefusedProcess(int fd) noexcept;

}  // namespace kerul::lidar
