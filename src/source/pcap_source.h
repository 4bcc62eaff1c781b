// Packets out of a capture file.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "source/source.h"

namespace kerul::lidar {

// Replays the UDP payloads of a classic capture file (microseconds, little-endian, Ethernet) as
// fast as they are asked for. The whole file stays in memory while the source is open. The caller
// finds out which datagrams are the sensor's. The bytes may be anything: headers are taken to have
// their usual length, and after a short frame the buffer holds bytes of earlier frames.
class PcapSource : public Source {
 public:
  explicit PcapSource(std::string path);
  ~PcapSource() override;

  std::string GetType() override;  // "PCAP"
  // True, or throws std::runtime_error: the file can't be opened, is no regular file, or is no such
  // capture. Standard error names a format or link type that cannot be read. Never waits.
  bool Open() override;
  void Close() override;
  // False from the end of the file on, until Rewind.
  bool IsOpened() override;
  void SetClientIp(const std::string& ip) override;  // not supported, says so
  // Sends nothing, gives `length`.
  int Send(const std::uint8_t* buffer, std::uint16_t length, int flags) override;
  // Takes the next frame; length, flags and timeout_us are ignored. -1: end of file, or the file is
  // cut. 1 or 2: a frame without a payload for the caller. Above 2: bytes of a UDP payload, now in
  // the packet. 0 or below: the frame is not longer than its headers. Stores positive results in
  // packet.length.
  int Receive(UdpPacket& packet, std::uint16_t length, int flags, int timeout_us) override;
  int SetSocketBufferSize(std::uint32_t size) override;  // not used, says so; 0

  // When the frame taken last was captured, microseconds since the epoch; 0 before the first.
  std::int64_t CaptureTimeUs() const noexcept;

  // Starts again with the first record.
  void Rewind();

 private:
  struct Reader;
  struct FrameLayout;

  struct RecordHeader {
    std::uint32_t seconds;
    std::uint32_t microseconds;
    std::uint32_t included_length;  // bytes of the frame in the file
    std::uint32_t wire_length;
  };

  void CloseFile();
  int TakeFrame(UdpPacket& packet, int frame_length);
  int TakeDatagram(UdpPacket& packet, int frame_length, const FrameLayout& layout);

  std::unique_ptr<Reader> reader_;
  std::string path_;
  std::array<std::uint8_t, 24> global_header_{};
  RecordHeader record_header_{};
  std::array<std::uint8_t, kMaxDatagramBytes> frame_{};
};

}  // namespace kerul::lidar
