// The capture reader: a file of any bytes, read to its end twice.
#include <sys/mman.h>
#include <unistd.h>

#include <iostream>
#include <stdexcept>
#include <string>

#include "byte_input.h"
#include "source/pcap_source.h"

using namespace kerul::lidar;
using fuzz::Require;

namespace {

constexpr std::size_t kGlobalHeaderBytes = 24;
constexpr std::size_t kRecordHeaderBytes = 16;
constexpr int kShortestHeaders = 42;

// Reads until the end, or until the reader keeps saying that the file is cut.
void ReadAll(PcapSource& source, std::size_t file_bytes) {
  const std::size_t records = file_bytes / kRecordHeaderBytes + 1;
  UdpPacket packet{};
  std::size_t calls = 0;
  int failures = 0;
  while (source.IsOpened() && failures < 3) {
    Require(++calls <= records + 3, "an end after all records");
    packet.length = 0;
    const int result = source.Receive(packet, kMaxDatagramBytes, 0, 1000);
    failures = result == -1 ? failures + 1 : 0;
    Require(result <= kMaxDatagramBytes - kShortestHeaders, "a payload fits into its frame");
    if (result > 0) Require(packet.length == result, "the length of what was given");
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  std::cout.rdbuf(nullptr);
  std::cerr.rdbuf(nullptr);  // a line for each capture of another link type
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const int file = memfd_create("capture", 0);
  static const std::string path = "/proc/self/fd/" + std::to_string(file);
  if (ftruncate(file, 0) != 0 || pwrite(file, data, size, 0) != static_cast<ssize_t>(size)) {
    std::abort();
  }
  PcapSource source(path);
  try {
    source.Open();
  } catch (const std::runtime_error&) {
    return 0;
  }
  Require(size >= kGlobalHeaderBytes, "a header");
  ReadAll(source, size);
  source.Rewind();
  ReadAll(source, size);
  return 0;
}
