// A named POSIX shared-memory mapping.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "bus_error_guard.h"  // beside this header, in the tree and installed

namespace kerul::lidar {

inline constexpr std::uint32_t kSmallestShmRegion = 3036;  // ring header and two slots, bytes

// Owns descriptor and mapping, never the named object: only a recreating Open unlinks it.
class ShmRegion {
 public:
  ShmRegion(const char* name, std::uint32_t size);
  ~ShmRegion();
  ShmRegion(const ShmRegion&) = delete;
  ShmRegion& operator=(const ShmRegion&) = delete;

  // A null or empty name gives the default name; a leading "/" is put in front where it is missing.
  static std::string NormalizeName(const char* name);
  // The file in which Linux shows the object of a normalized name.
  static std::string ObjectFile(const std::string& name) { return "/dev/shm" + name; }

  // read_only: attaches to an existing object, lowering the size to the object's. Otherwise makes
  // the object, after unlinking an old one when `recreate`, and claims all of its memory. Takes
  // plain objects only and never waits for another process, as a FIFO of the name would make it.
  // False leaves the region closed, and an object that was made for it is gone.
  bool Open(bool read_only, bool recreate);
  void Close();
  bool IsOpened() const noexcept;
  // Why the last Open failed: an errno, EINVAL when the object is no region. 0 after success.
  int OpenError() const noexcept;
  // Keeps the process alive when the open object is made shorter (see bus_error_guard.h). Ends with
  // Close.
  bool Guard() noexcept;
  // Whether that has happened: the region is now private memory.
  bool PagesLost() const noexcept;
  std::uint8_t* Data() noexcept;
  const std::uint8_t* Data() const noexcept;
  std::uint32_t Size() const noexcept;

  // Identity of the object now mapped: device number * 2^32 or'ed with the inode number; 0 unknown.
  std::uint64_t AttachToken() const;
  // True when the name now leads to another object than that of `token`.
  bool NamedObjectReplaced(std::uint64_t token) const;

 protected:
  std::string name_;
  std::uint32_t size_;
  bool read_only_ = true;
  bool opened_ = false;
  std::uint8_t* data_ = nullptr;
  int fd_ = -1;
  int open_error_ = 0;
  BusErrorGuard guard_;
};

}  // namespace kerul::lidar
