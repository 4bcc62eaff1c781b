#include "source/pcap_source.h"

#include <cstddef>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <utility>
#include <vector>

#include "files/regular_file.h"
#include "source/capture_format.h"

namespace kerul::lidar {

struct PcapSource::Reader {
  bool is_open = false;
  std::uint64_t position = 0;  // next byte of `data` to read
  std::vector<std::uint8_t> data;

  // 0 also when the position was set past the end.
  std::uint64_t Remaining() const { return position > data.size() ? 0 : data.size() - position; }
};

// Where a frame of one kind holds the fields needed, from the start of the frame.
struct PcapSource::FrameLayout {
  std::size_t protocol_at;
  int headers_bytes;         // the UDP payload's length is what the frame has beyond these
  bool is_payload_readable;  // false: the packet's buffer keeps what it held
};

namespace {

constexpr std::uint32_t kMagic = 0xA1B2C3D4;  // microseconds, same byte order
constexpr std::uint64_t kGlobalHeaderBytes = 24;

// Network-order words as a little-endian host reads them.
constexpr std::uint16_t kIpv4 = 0x0008;
constexpr std::uint16_t kIpv6 = 0xDD86;
constexpr std::uint16_t kVlan = 0x0081;
constexpr std::size_t kEthertypeAt = 12;
constexpr std::size_t kVlanEthertypeAt = 16;

constexpr std::uint8_t kUdp = 17;

constexpr int kNotIp = 1;   // result for a frame of another Ethertype, and for an oversized one
constexpr int kNotUdp = 2;  // result for a frame whose inside is not UDP

template <typename T>
T LoadHost(const std::uint8_t* bytes) {
  T value;
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

// A result above 0 is the packet's length as well, whether or not it counts bytes.
int StoreResult(UdpPacket& packet, int result) {
  packet.length = static_cast<std::uint16_t>(result);
  return result;
}

}  // namespace

PcapSource::PcapSource(std::string path)
    : reader_(std::make_unique<Reader>()), path_(std::move(path)) {}

PcapSource::~PcapSource() { PcapSource::Close(); }

std::string PcapSource::GetType() { return "PCAP"; }

bool PcapSource::Open() {
  std::cout << "[INFO] Trying to open pcap file: \"" << path_ << "\"\n";
  if (reader_->is_open) CloseFile();
  const FileFault fault = ReadRegularFile(path_, reader_->data);
  reader_->is_open = fault == FileFault::kNone || fault == FileFault::kShorter;
  if (!reader_->is_open) throw std::runtime_error("Fail to open .pcap file: \"" + path_ + "\"");
  const std::string note = CaptureFormatNote(reader_->data);
  if (!note.empty()) std::cerr << "[WARN] pcap file \"" << path_ << "\": " << note << std::endl;
  if (reader_->data.size() >= kGlobalHeaderBytes) {
    std::memcpy(global_header_.data(), reader_->data.data(), kGlobalHeaderBytes);
    reader_->position = kGlobalHeaderBytes;
  }
  if (LoadHost<std::uint32_t>(global_header_.data()) != kMagic) {
    throw std::runtime_error("Not a valid .pcap file: \"" + path_ + "\"");
  }
  eof_ = false;
  return true;
}

void PcapSource::CloseFile() {
  reader_->is_open = false;
  reader_->data.clear();
  reader_->position = 0;
}

void PcapSource::Close() {
  if (reader_->is_open) CloseFile();
  reader_->position = 0;
}

bool PcapSource::IsOpened() { return reader_->is_open && !eof_; }

void PcapSource::SetClientIp(const std::string& /*ip*/) {
  std::cout << "[WARN] pcap source do not support SetClientIp\n";
}

int PcapSource::Send(const std::uint8_t* /*buffer*/, std::uint16_t length, int /*flags*/) {
  return length;
}

int PcapSource::SetSocketBufferSize(std::uint32_t size) {
  // Deliberate: signed, and without a line end.
  std::cout << "[INFO] u32BufSize " << static_cast<std::int32_t>(size)
            << " is not used by pcap_source";
  return 0;
}

std::int64_t PcapSource::CaptureTimeUs() const noexcept {
  constexpr std::int64_t kMicroseconds = 1'000'000;  // in a second
  return record_header_.seconds * kMicroseconds + record_header_.microseconds;
}

void PcapSource::Rewind() {
  reader_->position = kGlobalHeaderBytes;
  eof_ = false;
}

int PcapSource::Receive(UdpPacket& packet, std::uint16_t /*length*/, int /*flags*/,
                        int /*timeout_us*/) {
  Reader& reader = *reader_;
  if (eof_) return -1;
  if (reader.position == reader.data.size()) {
    eof_ = true;
    return -1;
  }
  // Deliberate: a file that is cut in here never counts as ended.
  if (reader.Remaining() < sizeof record_header_) return -1;
  std::memcpy(&record_header_, reader.data.data() + reader.position, sizeof record_header_);
  reader.position += sizeof record_header_;

  // Deliberate: after a cut frame the next call reads on right after the record header.
  const std::uint32_t frame_length = record_header_.included_length;
  if (frame_length > reader.Remaining()) return -1;
  const std::uint8_t* const frame = reader.data.data() + reader.position;
  reader.position += frame_length;
  if (frame_length > frame_.size()) return StoreResult(packet, kNotIp);
  std::memcpy(frame_.data(), frame, frame_length);
  return TakeFrame(packet, static_cast<int>(frame_length));
}

int PcapSource::TakeFrame(UdpPacket& packet, int frame_length) {
  switch (LoadHost<std::uint16_t>(&frame_[kEthertypeAt])) {
    case kIpv4:
      return TakeDatagram(packet, frame_length, {23, 42, true});
    case kIpv6:
      return TakeDatagram(packet, frame_length, {20, 62, true});
    case kVlan:
      break;
    default:
      return StoreResult(packet, kNotIp);
  }
  switch (LoadHost<std::uint16_t>(&frame_[kVlanEthertypeAt])) {
    case kIpv4:
      return TakeDatagram(packet, frame_length, {27, 46, true});
    case kIpv6:
      // Deliberate: looks for the protocol where IPv4 has it, and leaves the payload unread.
      return TakeDatagram(packet, frame_length, {27, 66, false});
    default:
      return StoreResult(packet, kNotUdp);
  }
}

int PcapSource::TakeDatagram(UdpPacket& packet, int frame_length, const FrameLayout& layout) {
  if (frame_[layout.protocol_at] != kUdp) return StoreResult(packet, kNotUdp);
  const int payload_length = frame_length - layout.headers_bytes;
  if (payload_length <= 0) return payload_length;
  if (layout.is_payload_readable) {
    std::memcpy(packet.buffer, frame_.data() + layout.headers_bytes,
                static_cast<std::size_t>(payload_length));
  }
  return StoreResult(packet, payload_length);
}

}  // namespace kerul::lidar
