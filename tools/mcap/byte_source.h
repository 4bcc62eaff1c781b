// Where the bytes of a file to be read come from.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace kerul::lidar::mcap {

class ByteSource {
 public:
  virtual ~ByteSource() = default;
  ByteSource() = default;
  ByteSource(const ByteSource&) = delete;
  ByteSource& operator=(const ByteSource&) = delete;

  virtual std::uint64_t Size() const = 0;
  // Fills `into` from byte `at` on. False when there are not so many, or when they cannot be read.
  virtual bool Read(std::uint64_t at, std::span<std::uint8_t> into) = 0;
};

class MemorySource final : public ByteSource {
 public:
  // The bytes stay the caller's and must outlive the source.
  explicit MemorySource(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}
  std::uint64_t Size() const override { return bytes_.size(); }
  bool Read(std::uint64_t at, std::span<std::uint8_t> into) override;

 private:
  std::span<const std::uint8_t> bytes_;
};

class FileSource final : public ByteSource {
 public:
  FileSource() = default;
  ~FileSource() override;

  // Plain files only; never waits. False with the reason in `error`. A file that grows is read up
  // to the size that it has now.
  bool Open(const std::string& path, std::string& error);
  // Another process has locked the file, as one that writes it does.
  bool IsLocked() const;
  std::uint64_t Size() const override { return size_; }
  bool Read(std::uint64_t at, std::span<std::uint8_t> into) override;

 private:
  int fd_ = -1;
  std::uint64_t size_ = 0;
};

}  // namespace kerul::lidar::mcap
