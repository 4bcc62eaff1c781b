// The client of the sensor's command service, and the start-up that reads the calibration through
// it: the peer may answer with anything, in any pieces, and may fall silent at any point.
//
// The system calls of the connection are this program's own, so that no network is needed.
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "byte_input.h"
#include "calibration/para2_loading.h"
#include "calibration/rcx_client.h"
#include "reference/para2.h"

using namespace kerul::lidar;
using namespace kerul::lidar::para2_lidar_detail;
using fuzz::ByteInput;
using fuzz::Require;
namespace fs = std::filesystem;

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kHeaderBytes = 8;
constexpr std::size_t kSmallestRead = 18;  // a request to read registers

// A sensor with sound blobs behind a connection that the fuzzer's bytes disturb.
class Peer {
 public:
  explicit Peer(ByteInput& input) : input_(input) {}

  Bytes head = Bytes(kPageBytes, 0xFF);
  Bytes main;

  void Seal() {
    const std::uint32_t sums[2] = {reference::Para2Crc(main.data(), main.size()), 0};
    std::memcpy(&head[kPara2CrcOffset], &sums[0], sizeof(sums[0]));
    const std::uint32_t own = reference::Para2Crc(head.data(), kHeadCheckedBytes);
    std::memcpy(&head[kHeadCrcOffset], &own, sizeof(own));
  }

  void Connected() {
    page_ = 0;
    answer_.clear();
  }

  // The request's register is in the bytes after the pass-through's selector and device.
  ssize_t Send(const std::uint8_t* request, std::size_t size) {
    if (size >= kSmallestRead) {
      const unsigned reg = request[14] * 256U + request[15];
      Answer(request[2], reg == kHeadRegister ? head : Page(page_++));
    } else {
      Answer(size > 2 ? request[2] : std::uint8_t{0}, {});
    }
    return static_cast<ssize_t>(size);
  }

  ssize_t Receive(std::uint8_t* buffer, std::size_t asked) {
    if (input_.Empty()) return Honest(buffer, asked);
    const unsigned how = input_.Byte();
    switch (how % 5) {
      case 0:
        return Honest(buffer, asked);
      case 1:
        return Honest(buffer, std::min<std::size_t>(asked, 1 + how / 5));
      case 2: {
        const ssize_t given = Honest(buffer, asked);
        if (given > 0) buffer[input_.Byte() % static_cast<std::size_t>(given)] ^= input_.Byte();
        return given;
      }
      case 3: {
        const auto bytes = input_.Take(std::min<std::size_t>(asked, 1 + how / 5));
        std::copy(bytes.begin(), bytes.end(), buffer);
        return static_cast<ssize_t>(bytes.size());
      }
      default:
        errno = EAGAIN;
        return how < 128 ? 0 : -1;
    }
  }

 private:
  Bytes Page(std::size_t page) const {
    if (page == 0) return head;
    Bytes bytes(kPageBytes);
    for (std::size_t i = 0; i < kPageBytes; ++i) {
      const std::size_t at = (page - 1) * kPageBytes + i;
      if (at < main.size()) bytes[i] = main[at];
    }
    return bytes;
  }

  void Answer(std::uint8_t command, const Bytes& payload) {
    const auto length = static_cast<std::uint32_t>(payload.size());
    const std::uint8_t header[kHeaderBytes] = {0x47,
                                               0x74,
                                               command,
                                               0,
                                               0,
                                               0,
                                               static_cast<std::uint8_t>(length >> 8),
                                               static_cast<std::uint8_t>(length)};
    answer_.insert(answer_.end(), header, header + kHeaderBytes);
    answer_.insert(answer_.end(), payload.begin(), payload.end());
  }

  ssize_t Honest(std::uint8_t* buffer, std::size_t asked) {
    const std::size_t given = std::min(asked, answer_.size());
    const auto end = answer_.begin() + static_cast<std::ptrdiff_t>(given);
    std::copy(answer_.begin(), end, buffer);
    answer_.erase(answer_.begin(), end);
    return static_cast<ssize_t>(given);
  }

  ByteInput& input_;
  Bytes answer_;
  std::size_t page_ = 0;
};

Peer* active = nullptr;

// --- The client alone ---

void ReadRegisters(ByteInput& input, Peer& peer) {
  active = &peer;
  try {
    RcxClient client("127.0.0.1", 9347, 1.5);
    for (int i = 0; i < 8; ++i) {
      const int len = static_cast<int>(input.Word() % 1100);
      const auto reg = input.Flag() ? kHeadRegister : kMainRegister;
      try {
        const Bytes bytes = client.ReadIicRegMulti(input.Byte(), reg, len);
        Require(bytes.size() == static_cast<std::size_t>(len), "as many bytes as asked for");
      } catch (const std::invalid_argument&) {
        Require(len < 1 || len > 1024, "a length refused");
      }
    }
  } catch (const std::runtime_error&) {
  }
  active = nullptr;
}

// --- The whole reading of a calibration ---

// Deep enough that a path which climbs out of it is still found.
class WorkingDirectory {
 public:
  WorkingDirectory() : base_(fs::path("/dev/shm") / ("kerul_fuzz_" + std::to_string(getpid()))) {
    fs::create_directories(base_ / kDepth);
    fs::current_path(base_ / kDepth);
  }
  ~WorkingDirectory() {
    std::error_code ignored;
    fs::current_path("/", ignored);
    fs::remove_all(base_, ignored);
  }
  WorkingDirectory(const WorkingDirectory&) = delete;
  WorkingDirectory& operator=(const WorkingDirectory&) = delete;

  // Everything that was written lies in data/<one entry>/para_read/, as a plain file.
  void CheckFiles() const {
    const fs::path data = base_ / kDepth / "data";
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(base_)) {
      if (!entry.is_regular_file()) continue;
      const fs::path directory = entry.path().parent_path();
      Require(directory.filename() == "para_read" && directory.parent_path().parent_path() == data,
              "files in the cache directory only");
    }
  }
  void Clear() const { fs::remove_all(base_ / kDepth / "data"); }

 private:
  static constexpr const char* kDepth = "a/b/c/d";
  fs::path base_;
};

void LoadCalibration(ByteInput& input, Peer& peer) {
  static const WorkingDirectory directory;
  const unsigned options = input.Byte();
  const auto id = input.Take(kLidarIdBytes);
  std::copy(id.begin(), id.end(), peer.head.begin());
  const bool whole = (options & 1U) != 0;
  const unsigned pages = whole ? 661 : input.Word() % 64;
  peer.head[kPageCountOffset] = static_cast<std::uint8_t>(pages);
  peer.head[kPageCountOffset + 1] = static_cast<std::uint8_t>(pages >> 8);
  peer.main.assign(pages > 1 ? (pages - 1) * kPageBytes : 0, static_cast<std::uint8_t>(options));
  if ((options & 2U) == 0) peer.Seal();

  Para2LoadOptions load;
  load.force_read_from_lidar = (options & 4U) != 0;
  active = &peer;
  // The second time there may be a cache.
  for (int start = 0; start < 2; ++start) {
    try {
      const Para2LidarCalib calib = LoadPara2Calib(load);
      Require(IsSafeLidarId(calib.lidar_id), "a sensor with a safe id");
      Require(calib.dist_offset.size() == kPixelEntries, "all tables");
    } catch (const std::exception&) {
    }
  }
  active = nullptr;
  directory.CheckFiles();
  directory.Clear();
}

void BuildRequest(ByteInput& input) {
  const int command = input.Byte();
  const auto bytes = input.Take(64);
  const std::string text(bytes.begin(), bytes.end());
  try {
    const Bytes request = RcxClient::BuildPayload(command, text);
    Require(request.size() >= 3 && request.size() <= 3 + text.size() / 2, "two digits a byte");
  } catch (const std::invalid_argument&) {
  }
}

}  // namespace

// The definitions of the program come before those of the C library.
extern "C" {
int connect(int /*fd*/, const sockaddr* /*address*/, socklen_t /*length*/) {
  if (active != nullptr) active->Connected();
  return 0;
}
ssize_t send(int /*fd*/, const void* buffer, std::size_t size, int /*flags*/) {
  return active->Send(static_cast<const std::uint8_t*>(buffer), size);
}
ssize_t recv(int /*fd*/, void* buffer, std::size_t size, int /*flags*/) {
  return active->Receive(static_cast<std::uint8_t*>(buffer), size);
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ByteInput input(data, size);
  Peer peer(input);
  switch (input.Byte() % 4) {
    case 0:
      LoadCalibration(input, peer);
      break;
    case 1:
      BuildRequest(input);
      break;
    default:
      ReadRegisters(input, peer);
      break;
  }
  return 0;
}
}
