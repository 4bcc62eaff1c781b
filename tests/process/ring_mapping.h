// The node's ring as anybody on the machine may map it.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kerul::lidar::testing {

inline constexpr auto kRing = "/kerul_lidar_udp_shm";
inline constexpr auto kRingPath = "/dev/shm/kerul_lidar_udp_shm";
inline constexpr std::size_t kRingBytes = 104857600;

class RingMapping {
 public:
  RingMapping() : fd_(shm_open(kRing, O_RDWR, 0)) {
    void* at = mmap(nullptr, kRingBytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0);
    bytes_ = at == MAP_FAILED ? nullptr : static_cast<std::uint8_t*>(at);
  }
  ~RingMapping() {
    if (bytes_ != nullptr) munmap(bytes_, kRingBytes);
    if (fd_ >= 0) close(fd_);
  }
  RingMapping(const RingMapping&) = delete;
  RingMapping& operator=(const RingMapping&) = delete;

  bool Exists() const noexcept { return bytes_ != nullptr; }
  void Overwrite(std::size_t at, std::uint8_t value, std::size_t count) {
    std::memset(bytes_ + at, value, count);
  }
  std::uint32_t Word(std::size_t at) const {
    std::uint32_t word = 0;
    std::memcpy(&word, bytes_ + at, sizeof(word));
    return word;
  }
  // Magic, version, slots, stride and room for a packet as they have to be.
  bool HeaderIsRight() const {
    return Word(0) == 0x00034853 && Word(12) == 69534 && Word(16) == (1500U << 16U | 1508U);
  }

 private:
  int fd_;
  std::uint8_t* bytes_ = nullptr;
};

}  // namespace kerul::lidar::testing
