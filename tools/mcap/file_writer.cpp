#include "mcap/file_writer.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>

#include "mcap/record_bytes.h"

namespace kerul::lidar::mcap {
namespace {

constexpr mode_t kNewFileMode = 0666;  // less the umask

// What a summary grows by with the first chunk, beside the chunk's index: the place of the indexes;
// and with the first message of a channel: its number and count.
constexpr std::size_t kRoomOfFirstChunk = kRecordHeaderBytes + 17;
constexpr std::size_t kRoomOfCount = 10;

// 0 or the error's number. An interrupted or short write goes on.
int WriteAll(int fd, std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(fd, bytes.data(), bytes.size());
    if (written > 0) {
      bytes = bytes.subspan(static_cast<std::size_t>(written));
    } else if (written < 0 && errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

}  // namespace

FileWriter::~FileWriter() { Close(); }

void FileWriter::Close() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
}

bool FileWriter::Create(const std::string& path, const FileDescription& description) {
  Close();
  size_ = 0;
  crc_ = 0;
  description_ = description;
  statistics_ = Statistics();
  statistics_.schema_count = static_cast<std::uint16_t>(description.schemas.size());
  statistics_.channel_count = static_cast<std::uint32_t>(description.channels.size());
  chunk_indexes_.clear();
  fd_ = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kNewFileMode);
  if (fd_ < 0) {
    error_ = std::strerror(errno);
    return false;
  }
  flock(fd_, LOCK_EX | LOCK_NB);  // only tells others that the file is being written
  Bytes begin(kMagic.begin(), kMagic.end());
  Append(description.header, begin);
  for (const Schema& schema : description.schemas) Append(schema, begin);
  for (const Channel& channel : description.channels) Append(channel, begin);
  summary_room_bytes_ =
      Summary().size() + kRoomOfFirstChunk + kRoomOfCount * description.channels.size();
  if (Put(begin)) return true;
  unlink(path.c_str());
  Close();
  return false;
}

// All of it or nothing.
bool FileWriter::Put(std::span<const std::uint8_t> bytes) {
  const int error = WriteAll(fd_, bytes);
  if (error == 0) {
    size_ += bytes.size();
    crc_ = Crc32(crc_, bytes);
    return true;
  }
  error_ = std::strerror(error);
  if (ftruncate(fd_, static_cast<off_t>(size_)) != 0 ||
      lseek(fd_, static_cast<off_t>(size_), SEEK_SET) < 0) {
    error_ += std::string(", and it cannot be cut: ") + std::strerror(errno);
  }
  return false;
}

bool FileWriter::Write(const Chunk& chunk) {
  const std::uint64_t at = size_;
  if (!Put(chunk.bytes)) return false;
  ChunkIndex index = chunk.index;
  index.chunk_start += at;
  for (auto& [channel, offset] : index.message_index_offsets) offset += at;
  Append(index, chunk_indexes_);
  Count(chunk);
  return true;
}

std::uint64_t FileWriter::FinishedSize(const Chunk& next) const noexcept {
  constexpr std::size_t kIndexBytes = kRecordHeaderBytes + 64;  // without its map and name
  const std::size_t map_bytes = kRoomOfCount * next.index.message_index_offsets.size();
  return size_ + next.bytes.size() + chunk_indexes_.size() + kIndexBytes + map_bytes +
         next.index.compression.size() + summary_room_bytes_;
}

void FileWriter::Count(const Chunk& chunk) {
  const bool first = statistics_.chunk_count == 0;
  statistics_.start_time_ns = first
                                  ? chunk.index.start_time_ns
                                  : std::min(statistics_.start_time_ns, chunk.index.start_time_ns);
  statistics_.end_time_ns = std::max(statistics_.end_time_ns, chunk.index.end_time_ns);
  ++statistics_.chunk_count;
  for (const auto& [channel, count] : chunk.message_counts) {
    statistics_.message_count += count;
    statistics_.channel_message_counts[channel] += count;
  }
}

// From the end of the data section to the end of the file.
Bytes FileWriter::Summary() const {
  Bytes out;
  Append(DataEnd{crc_}, out);
  const std::size_t begin = out.size();
  std::vector<SummaryOffset> groups;
  const auto group = [&](Opcode opcode, const std::function<void()>& append) {
    const std::size_t at = out.size();
    append();
    if (out.size() > at) groups.push_back({opcode, size_ + at, out.size() - at});
  };
  group(Opcode::kSchema, [&] {
    for (const Schema& schema : description_.schemas) Append(schema, out);
  });
  group(Opcode::kChannel, [&] {
    for (const Channel& channel : description_.channels) Append(channel, out);
  });
  group(Opcode::kStatistics, [&] { Append(statistics_, out); });
  group(Opcode::kChunkIndex,
        [&] { out.insert(out.end(), chunk_indexes_.begin(), chunk_indexes_.end()); });
  Footer footer{size_ + begin, size_ + out.size(), 0};
  for (const SummaryOffset& offset : groups) Append(offset, out);
  // The sum covers the footer too, up to the sum itself.
  Bytes footer_bytes;
  Append(footer, footer_bytes);
  const std::uint32_t crc = Crc32(0, std::span(out).subspan(begin));
  footer.summary_crc =
      Crc32(crc, std::span(footer_bytes).first(footer_bytes.size() - sizeof footer.summary_crc));
  Append(footer, out);
  out.insert(out.end(), kMagic.begin(), kMagic.end());
  return out;
}

bool FileWriter::Finish() {
  bool done = Put(Summary());
  // What a network file system could not store may only be told here.
  if (close(fd_) != 0 && done) {
    error_ = std::strerror(errno);
    done = false;
  }
  fd_ = -1;
  return done;
}

}  // namespace kerul::lidar::mcap
