#include "output/shm_region.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>

namespace kerul::lidar {
namespace {

constexpr const char* kDefaultName = "/kerul_lidar_udp_shm";
constexpr mode_t kObjectMode = 0666;

// Identity of the object behind a descriptor. False when it is unknown.
bool ObjectToken(int fd, std::uint64_t& token) {
  struct stat status {};
  if (fstat(fd, &status) != 0) return false;
  token =
      (static_cast<std::uint64_t>(status.st_dev) << 32) | static_cast<std::uint64_t>(status.st_ino);
  return true;
}

// In /dev/shm only its owner and root may remove an object.
void PrintForeignOwner(const std::string& name) {
  struct stat status {};
  if (lstat(ShmRegion::ObjectFile(name).c_str(), &status) != 0 || status.st_uid == geteuid())
    return;
  std::cerr << "ShmRegion::Open name=" << name << " belongs to user " << status.st_uid
            << ": only that user or root can remove it" << std::endl;
}

// Removes the object that an earlier writer left. Having none is the normal first start.
bool RemoveStaleObject(const std::string& name) {
  if (shm_unlink(name.c_str()) == 0) {
    std::cout << "ShmRegion::Open removed stale region, name=" << name << " (dev path: /dev/shm"
              << name << ")" << std::endl;
    return true;
  }
  const int error = errno;
  if (error == ENOENT) return true;
  std::cerr << "ShmRegion::Open shm_unlink failed, name=" << name << " errno=" << error << " ("
            << std::strerror(error) << ")" << std::endl;
  PrintForeignOwner(name);
  return false;
}

// Opens the named object. A FIFO of that name must not block the caller, so nothing here waits.
int OpenObject(const std::string& name, int flags) {
  return shm_open(name.c_str(), flags | O_NONBLOCK, kObjectMode);
}

// Closes, and sets errno to `error`. Gives -1.
int CloseFailed(int fd, int error) {
  close(fd);
  errno = error;
  return -1;
}

// Opens the object for reading and lowers `size` to its size. -1 and errno when it is not there,
// too small or no plain object of shared memory.
int OpenForReading(const std::string& name, std::uint32_t& size) {
  const int fd = OpenObject(name, O_RDONLY);
  if (fd < 0) return -1;
  struct stat status {};
  if (fstat(fd, &status) != 0) return CloseFailed(fd, errno);
  if (!S_ISREG(status.st_mode) || status.st_size < off_t{kSmallestShmRegion}) {
    return CloseFailed(fd, EINVAL);
  }
  if (status.st_size < off_t{size}) size = static_cast<std::uint32_t>(status.st_size);
  return fd;
}

// Gives the object its size and claims the memory for it. Without the claim, the first page that
// does not exist would end the writer with a bus error. 0 or the error's number.
int ClaimMemory(int fd, std::uint32_t size) {
  if (ftruncate(fd, off_t{size}) != 0) return errno;
  int error = 0;
  do {
    error = posix_fallocate(fd, 0, off_t{size});
  } while (error == EINTR);
  return error;
}

void PrintNoMemory(const std::string& name, int fd, std::uint32_t size, int error) {
  std::cerr << "ShmRegion::Open no memory for the region, name=" << name << " errno=" << error
            << " (" << std::strerror(error) << ") needed=" << size;
  struct statvfs status {};
  if (fstatvfs(fd, &status) == 0) {
    std::cerr << " free=" << status.f_bavail * status.f_frsize
              << " size=" << status.f_blocks * status.f_frsize;
  }
  std::cerr << " bytes in /dev/shm" << std::endl;
}

// -1 and errno when it fails. `made` says whether the object was not there before; then the caller
// removes it after a failure.
int OpenForWriting(const std::string& name, std::uint32_t size, bool recreate, bool& made) {
  if (recreate && !RemoveStaleObject(name)) return -1;
  int fd = OpenObject(name, O_CREAT | O_EXCL | O_RDWR);
  made = fd >= 0;
  if (!made && errno == EEXIST) fd = OpenObject(name, O_CREAT | O_RDWR);
  if (fd < 0) return -1;
  struct stat before {};
  if (fstat(fd, &before) != 0) return CloseFailed(fd, errno);
  if (!S_ISREG(before.st_mode)) return CloseFailed(fd, EINVAL);
  const int error = ClaimMemory(fd, size);
  if (error == 0) return fd;
  PrintNoMemory(name, fd, size, error);
  if (!made && ftruncate(fd, before.st_size) != 0) {
    std::cerr << "ShmRegion::Open left the object longer than it was, name=" << name << std::endl;
  }
  return CloseFailed(fd, error);
}

}  // namespace

ShmRegion::ShmRegion(const char* name, std::uint32_t size)
    : name_(NormalizeName(name)), size_(size) {}

ShmRegion::~ShmRegion() { Close(); }

std::string ShmRegion::NormalizeName(const char* name) {
  if (name == nullptr || *name == '\0') return kDefaultName;
  if (*name == '/') return name;
  return std::string("/") + name;
}

bool ShmRegion::Open(bool read_only, bool recreate) {
  if (IsOpened()) {
    if (!recreate) return true;
    Close();
  }
  open_error_ = EINVAL;
  if (size_ < kSmallestShmRegion) return false;
  read_only_ = read_only;
  bool made = false;
  fd_ = read_only ? OpenForReading(name_, size_) : OpenForWriting(name_, size_, recreate, made);
  const int protection = read_only ? PROT_READ : PROT_READ | PROT_WRITE;
  void* const mapping = fd_ < 0 ? MAP_FAILED : mmap(nullptr, size_, protection, MAP_SHARED, fd_, 0);
  if (mapping == MAP_FAILED) {
    open_error_ = errno;
    if (made) shm_unlink(name_.c_str());
    Close();
    return false;
  }
  open_error_ = 0;
  data_ = static_cast<std::uint8_t*>(mapping);
  opened_ = true;
  return true;
}

void ShmRegion::Close() {
  guard_.Release();
  if (data_ != nullptr) munmap(data_, size_);
  if (fd_ >= 0) close(fd_);
  data_ = nullptr;
  fd_ = -1;
  opened_ = false;
}

bool ShmRegion::IsOpened() const noexcept { return opened_ && data_ != nullptr; }

int ShmRegion::OpenError() const noexcept { return open_error_; }

bool ShmRegion::Guard() noexcept { return IsOpened() && guard_.Watch(data_, size_); }

bool ShmRegion::PagesLost() const noexcept { return guard_.PagesLost(); }

std::uint8_t* ShmRegion::Data() noexcept { return data_; }

const std::uint8_t* ShmRegion::Data() const noexcept { return data_; }

std::uint32_t ShmRegion::Size() const noexcept { return size_; }

std::uint64_t ShmRegion::AttachToken() const {
  std::uint64_t token = 0;
  if (fd_ < 0 || !ObjectToken(fd_, token)) return 0;
  return token;
}

bool ShmRegion::NamedObjectReplaced(std::uint64_t token) const {
  if (token == 0) return false;
  const int fd = OpenObject(name_, O_RDONLY);
  if (fd < 0) return false;
  std::uint64_t now = 0;
  const bool known = ObjectToken(fd, now);
  close(fd);
  return !known || now != token;
}

}  // namespace kerul::lidar
