#include "output/shm_region.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>

namespace kerul::lidar {
namespace {

constexpr const char* kDefaultName = "/kerul_lidar_udp_shm";
constexpr mode_t kObjectMode = 0666;

// Identity of the object behind a descriptor. False when it cannot be told.
bool ObjectToken(int fd, std::uint64_t& token) {
  struct stat status {};
  if (fstat(fd, &status) != 0) return false;
  token =
      (static_cast<std::uint64_t>(status.st_dev) << 32) | static_cast<std::uint64_t>(status.st_ino);
  return true;
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
  return false;
}

// Opens the object for reading and lowers `size` to its size. -1 when it is not there or too small.
int OpenForReading(const std::string& name, std::uint32_t& size) {
  const int fd = shm_open(name.c_str(), O_RDONLY, kObjectMode);
  if (fd < 0) return -1;
  struct stat status {};
  if (fstat(fd, &status) != 0 || status.st_size < off_t{kSmallestShmRegion}) {
    close(fd);
    return -1;
  }
  if (status.st_size < off_t{size}) size = static_cast<std::uint32_t>(status.st_size);
  return fd;
}

int OpenForWriting(const std::string& name, std::uint32_t size, bool recreate) {
  if (recreate && !RemoveStaleObject(name)) return -1;
  const int fd = shm_open(name.c_str(), O_CREAT | O_RDWR, kObjectMode);
  if (fd < 0) return -1;
  if (ftruncate(fd, off_t{size}) != 0) {
    close(fd);
    return -1;
  }
  return fd;
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
  if (size_ < kSmallestShmRegion) return false;
  read_only_ = read_only;
  fd_ = read_only ? OpenForReading(name_, size_) : OpenForWriting(name_, size_, recreate);
  if (fd_ < 0) return false;

  const int protection = read_only ? PROT_READ : PROT_READ | PROT_WRITE;
  void* mapping = mmap(nullptr, size_, protection, MAP_SHARED, fd_, 0);
  if (mapping == MAP_FAILED) {
    Close();
    return false;
  }
  data_ = static_cast<std::uint8_t*>(mapping);
  opened_ = true;
  return true;
}

void ShmRegion::Close() {
  if (data_ != nullptr) munmap(data_, size_);
  if (fd_ >= 0) close(fd_);
  data_ = nullptr;
  fd_ = -1;
  opened_ = false;
}

bool ShmRegion::IsOpened() const noexcept { return opened_ && data_ != nullptr; }

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
  const int fd = shm_open(name_.c_str(), O_RDONLY, kObjectMode);
  if (fd < 0) return false;
  std::uint64_t now = 0;
  const bool known = ObjectToken(fd, now);
  close(fd);
  return !known || now != token;
}

}  // namespace kerul::lidar
