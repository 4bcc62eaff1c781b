#include "twin_run.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

#include "support/point_compare.h"
#include "support/temp_dir.h"

namespace kerul::lidar::testing {
namespace {

constexpr std::size_t kClockFirst = 216;
constexpr std::size_t kClockEnd = 224;
constexpr std::size_t kPointsFirst = 20;
constexpr int kPointBytes = 5;
constexpr int kPointsPerPacket = 36;
constexpr std::size_t kRowOffset = 207;
constexpr std::size_t kBlockOffset = 208;
constexpr std::size_t kRawFrameIdOffset = 675;

// Takes what is printed while it lives.
class CoutCapture {
 public:
  CoutCapture() : before_(std::cout.rdbuf(text_.rdbuf())) {}
  ~CoutCapture() { std::cout.rdbuf(before_); }
  CoutCapture(const CoutCapture&) = delete;
  CoutCapture& operator=(const CoutCapture&) = delete;
  std::string text() const { return text_.str(); }

 private:
  std::ostringstream text_;
  std::streambuf* before_;
};

bool IsRawPacket(const UdpPacket& packet) {
  static constexpr std::uint8_t kStart[] = {0xEE, 0xFF, 7, 11};
  return std::memcmp(packet.buffer, kStart, sizeof(kStart)) == 0;
}

std::string FirstDifference(const std::vector<std::uint8_t>& node,
                            const reference::PublishedPacket& expected) {
  std::ostringstream text;
  if (node.size() != expected.size()) {
    text << "length " << node.size();
    return text.str();
  }
  for (std::size_t i = 0; i < expected.size(); ++i) {
    if (i >= kClockFirst && i < kClockEnd) continue;
    if (node[i] == expected[i]) continue;
    text << "byte " << i << " is " << int{node[i]} << ", expected " << int{expected[i]};
    if (i >= kPointsFirst && i < kPointsFirst + kPointBytes * kPointsPerPacket) {
      const int point = static_cast<int>(i - kPointsFirst) / kPointBytes;
      text << " (pixel row " << node[kRowOffset] * 6 + point % 6 << ", column "
           << node[kBlockOffset] * 6 + point / 6 << ")";
    }
    return text.str();
  }
  return {};
}

}  // namespace

DefaultConfig StreamConfig() {
  DefaultConfig config = default_config::kConfig;
  config.recv_port = 0;
  config.shm_name = UniqueShmName("stream");
  // Room for more than one datagram can release: both echoes of the frame that it closes, and of
  // the earlier rows in the frame that it opens.
  config.shm_size = shm_ring::kHeaderBytes + 8192U * shm_ring::kStride;
  return config;
}

class TwinRun::PairedSource : public Source {
 public:
  explicit PairedSource(TwinRun& run) : run_(run) {}
  std::string GetType() override { return "TWIN"; }
  bool Open() override { return true; }
  void Close() override {}
  bool IsOpened() override { return true; }
  void SetClientIp(const std::string&) override {}
  int Send(const std::uint8_t*, std::uint16_t length, int) override { return length; }
  int SetSocketBufferSize(std::uint32_t) override { return 0; }
  int Receive(UdpPacket& packet, std::uint16_t, int, int) override { return run_.GiveNext(packet); }

 private:
  TwinRun& run_;
};

TwinRun::TwinRun(const DefaultConfig& config, const simulator::CalibrationBlobs& blobs)
    : shm_name_(config.shm_name) {
  const CoutCapture start_log;
  const TempDir dir;
  const std::filesystem::path para_read = simulator::WriteBlobs(blobs, dir.path());
  node_ = std::make_unique<LidarNode>(config.lidar_name + "_node", config, para_read.string());
  node_->RequestStop();
  node_->JoinWorker();
  reference_ = std::make_unique<reference::Node>(
      config, reference::CalibrationFromPara2(blobs.head, blobs.main, config));
}

TwinRun::~TwinRun() {
  const CoutCapture closing_lines;
  node_.reset();
  shm_unlink(shm_name_.c_str());
}

std::string TwinRun::Play(const NextDatagram& next) {
  next_ = next;
  LidarNodeTestAccess access{*node_};
  std::string log;
  {
    const CoutCapture capture;
    access.source() = std::make_unique<PairedSource>(*this);
    access.running() = true;
    node_->Run();
    log = capture.text();
  }
  if (difference_.empty()) difference_ = ComparePublished();
  if (difference_.empty()) difference_ = CompareClosedFrames(log);
  if (difference_.empty()) difference_ = CompareFrame();
  if (difference_.empty()) difference_ = CompareExportedFiles();
  return difference_;
}

// One turn: compare what the last datagram brought about, then hand the next one to both.
int TwinRun::GiveNext(UdpPacket& packet) {
  // The node asks a few times before it looks whether it is to stop.
  if (difference_.empty()) difference_ = ComparePublished();
  const Datagram* datagram = difference_.empty() ? next_() : nullptr;
  while (datagram != nullptr && EndsTheProcess(*datagram)) {
    ++counts_.withheld;
    datagram = next_();
  }
  if (datagram == nullptr) {
    node_->RequestStop();
    return 0;
  }
  ++counts_.datagrams;
  std::memcpy(packet.buffer, datagram->data(), datagram->size());
  std::memcpy(buffer_.buffer, datagram->data(), datagram->size());
  CountStraggler();
  reference_->Feed(datagram->data(), datagram->size());
  return static_cast<int>(datagram->size());
}

// A short datagram is parsed with the bytes of the one before it; when those are foreign, its
// channel count is not nine, and both sides stop the process, deliberately.
bool TwinRun::EndsTheProcess(const Datagram& datagram) const {
  UdpPacket parsed = buffer_;
  std::memcpy(parsed.buffer, datagram.data(), datagram.size());
  return IsRawPacket(parsed) && parsed.buffer[12] != 9;
}

void TwinRun::CountStraggler() {
  if (!IsRawPacket(buffer_) || reference_->current_frame_id < 0) return;
  const int behind = reference_->current_frame_id - buffer_.buffer[kRawFrameIdOffset];
  if (behind > 0 && behind <= 200) ++counts_.stragglers;
}

std::string TwinRun::ComparePublished() {
  LidarNodeTestAccess access{*node_};
  const std::vector<std::vector<std::uint8_t>> packets = ring_tail_.Take(*access.shm_writer());
  const std::size_t common = std::min(packets.size(), reference_->published.size());
  std::ostringstream text;
  for (std::size_t i = 0; i < common; ++i) {
    CountPacket(packets[i]);
    const std::string difference = FirstDifference(packets[i], reference_->published[i]);
    if (difference.empty()) continue;
    text << "datagram " << counts_.datagrams << ", packet " << counts_.packets << " of frame "
         << counts_.frames << ", row " << int{packets[i][kRowOffset]} << ", block "
         << int{packets[i][kBlockOffset]} << ", marker " << int{packets[i][12]} << ": "
         << difference;
    return text.str();
  }
  if (packets.size() != reference_->published.size()) {
    text << "datagram " << counts_.datagrams << " set " << packets.size()
         << " packets free, expected " << reference_->published.size();
    return text.str();
  }
  reference_->published.clear();
  counts_.frames = reference_->closed_frames.size();
  return {};
}

void TwinRun::CountPacket(const std::vector<std::uint8_t>& packet) {
  ++counts_.packets;
  for (std::size_t i = 0; i < packet.size(); ++i) {
    if (i >= kClockFirst && i < kClockEnd) continue;
    counts_.digest = (counts_.digest ^ packet[i]) * 1099511628211U;  // FNV-1a
  }
  for (std::size_t i = 0; i < kPointsPerPacket; ++i) {
    const std::size_t at = kPointsFirst + kPointBytes * i;
    if (packet[at] != 0 || packet[at + 1] != 0) ++counts_.distances;
  }
  if (packet[kBlockOffset] != 0 || packet[12] == 2) return;
  ++counts_.rows;
  const int row = packet[kRowOffset];
  if (counts_.frames == frames_at_last_row_ && row <= last_row_) ++counts_.rows_again;
  frames_at_last_row_ = counts_.frames;
  last_row_ = row;
}

// The node's line for each closed frame ends with its id and count.
std::string TwinRun::CompareClosedFrames(const std::string& log) {
  std::istringstream lines(log);
  std::string line;
  std::size_t frame = 0;
  std::ostringstream text;
  while (std::getline(lines, line)) {
    const std::size_t at = line.find(", frame_id: ");
    if (at == std::string::npos) continue;
    if (frame == reference_->closed_frames.size()) return "the node closed more frames";
    const reference::FrameClosed& expected = reference_->closed_frames[frame];
    std::ostringstream ending;
    ending << ", frame_id: " << expected.frame_id << ", received_count:" << expected.received_count;
    if (line.substr(at) != ending.str()) {
      text << "closed frame " << frame << line.substr(at) << ", expected" << ending.str();
      return text.str();
    }
    ++frame;
  }
  if (frame != reference_->closed_frames.size()) return "the node closed fewer frames";
  return {};
}

std::string TwinRun::CompareFrame() {
  LidarNodeTestAccess access{*node_};
  access.SettleFrame();
  const std::string difference = FrameDifference(access.frame(), reference_->frame);
  return difference.empty() ? difference : "frame left in hand: " + difference;
}

std::string TwinRun::CompareExportedFiles() {
  for (const reference::ExportedFile& expected : reference_->exported_files) {
    std::ifstream file(expected.path, std::ios::binary);
    const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(file), {}};
    const auto [got, told] =
        std::mismatch(bytes.begin(), bytes.end(), expected.bytes.begin(), expected.bytes.end());
    if (got != bytes.end() || told != expected.bytes.end()) {
      return expected.path + " of " + std::to_string(bytes.size()) + " bytes, expected " +
             std::to_string(expected.bytes.size()) + ", differs at byte " +
             std::to_string(got - bytes.begin());
    }
    ++counts_.exported_files;
  }
  return {};
}

}  // namespace kerul::lidar::testing
