// Where packets come from, and where point packets go by UDP.
#pragma once

#include <cstdint>
#include <string>

#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar {

// Any origin of packets. The order of the virtual operations is part of the interface.
class Source {
 public:
  virtual std::string GetType();  // "NONE"
  // Calls the base's own Close, which prints its line.
  virtual ~Source();
  Source() = default;
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;

  virtual bool Open() = 0;
  virtual void Close();
  virtual bool IsOpened();
  virtual void SetClientIp(const std::string& ip) = 0;
  // Bytes sent, or -1.
  virtual int Send(const std::uint8_t* buffer, std::uint16_t length, int flags) = 0;
  // Takes at most `length` bytes into packet.buffer, waiting up to `timeout_us` microseconds.
  // Above 0: bytes received; 0: nothing came; -1: failed or at the end. Leaves packet.length to
  // the caller, but for the capture source.
  virtual int Receive(UdpPacket& packet, std::uint16_t length, int flags, int timeout_us) = 0;
  // Bytes of the receive buffer. 0, or -1 when it could not be set.
  virtual int SetSocketBufferSize(std::uint32_t size) = 0;

 protected:
  bool eof_ = false;  // the capture source's end-of-file flag
};

}  // namespace kerul::lidar
