#include "pixel_story/story_run.h"

#include <stdexcept>
#include <utility>

#include "MIPI_reader/parser/point_packet_layout.h"

namespace kerul::lidar::story {
namespace {

constexpr int kFrameIds = 256;

int MiniflashRowOf(const ReceivedPacket& packet) {
  return packet.bytes[point_packet::kBlockRowOffset];
}

// Follows the node datagram by datagram. Which rows ran is seen from what was published.
class Run : public WatchedNode::Watcher {
 public:
  Run(const StorySource& source, WatchedNode& node, const std::vector<StoryWatcher*>& watchers)
      : node_(node),
        parts_(node.Parts()),
        twin_(parts_),
        wanted_(source.frame),
        watchers_(watchers) {
    for (StoryWatcher* watcher : watchers_) watcher->Begin(parts_);
  }

  void BeforeDatagram(const UdpPacket& packet) override {
    packet_ = packet;
    taken_ = twin_.Parse(packet_);
    changes_frame_ = taken_ && node_.BelongsToAnotherFrame(twin_.ParsedFrameId());
  }

  void AfterDatagram(const std::vector<ReceivedPacket>& published) override {
    next_ = 0;
    published_ = &published;
    if (taken_) {
      if (changes_frame_) {
        FlushFrame();
        EndFrame(twin_.ParsedFrameId());
        if (frame_ > wanted_) return;
      }
      TakePacket();
    }
    while (next_ < published.size()) RunRow();
    if (taken_ && twin_.ClosesFrame()) EndFrame(twin_.ParsedFrameId() + 1);
  }

  const StoryEnd& End() const {
    if (frame_ < wanted_ || (frame_ == wanted_ && end_.packets == 0)) {
      const int last = packets_ > 0 ? frame_ : frame_ - 1;
      throw std::runtime_error(last < 0 ? "the stream holds no packet of the sensor"
                                        : "there is no frame " + std::to_string(wanted_) +
                                              ": the last one is " + std::to_string(last));
    }
    return end_;
  }

 private:
  bool IsWanted() const { return frame_ == wanted_; }

  void TakePacket() {
    const PacketMoment moment = twin_.Take(packet_);
    ++packets_;
    if (!IsWanted()) return;
    ++end_.packets;
    for (StoryWatcher* watcher : watchers_) watcher->OnPacket(moment);
  }

  // A packet of another frame first runs what is left of the frame in hand, to its last row.
  void FlushFrame() {
    int m_row = -1;
    while (m_row != parts_.miniflash_rows - 1) m_row = RunRow();
  }

  void EndFrame(int next_frame_id) {
    twin_.Reset(next_frame_id % kFrameIds);
    ++frame_;
    packets_ = 0;
    if (frame_ > wanted_) node_.Stop();
  }

  // Runs the next row that the node has run; gives its number.
  int RunRow() {
    if (next_ == published_->size()) throw std::runtime_error("the node published too few rows");
    const int m_row = MiniflashRowOf((*published_)[next_]);
    twin_.SettleRow(m_row);
    const RowPassSettings settings = twin_.SettingsOf(m_row);
    const RowMoment moment{m_row, twin_.Frame(), settings};
    if (IsWanted()) {
      for (StoryWatcher* watcher : watchers_) watcher->OnRowBegins(moment);
      twin_.RunRow(m_row, [&](const PassMoment& pass) {
        for (StoryWatcher* watcher : watchers_) watcher->OnPass(pass);
      });
    } else {
      twin_.RunRow(m_row, {});
    }
    const std::vector<ReceivedPacket> packets = HoldAgainstPublished(m_row);
    if (IsWanted()) {
      ++end_.published_rows;
      end_.published_frame = twin_.Frame().frame_id;
      for (StoryWatcher* watcher : watchers_) watcher->OnRowPublished(moment, packets);
    }
    return m_row;
  }

  std::vector<ReceivedPacket> HoldAgainstPublished(int m_row) {
    std::vector<ReceivedPacket> packets;
    for (const std::vector<std::uint8_t>& told : twin_.EncodeRow(m_row)) {
      const bool same = next_ < published_->size() &&
                        told == Timeless((*published_)[next_].bytes, (*published_)[next_].length);
      if (!same) {
        throw std::runtime_error("the story does not end in the published bytes: frame " +
                                 std::to_string(frame_) + ", miniflash row " +
                                 std::to_string(m_row) + ", packet " +
                                 std::to_string(packets.size()) + " of the row");
      }
      packets.push_back((*published_)[next_++]);
    }
    return packets;
  }

  WatchedNode& node_;
  NodeParts parts_;
  FrameTwin twin_;
  int wanted_;
  const std::vector<StoryWatcher*>& watchers_;
  int frame_ = 0;
  int packets_ = 0;  // of the frame in hand
  StoryEnd end_;
  UdpPacket packet_{};
  bool taken_ = false;
  bool changes_frame_ = false;
  const std::vector<ReceivedPacket>* published_ = nullptr;
  std::size_t next_ = 0;  // of published_
};

}  // namespace

StoryEnd RunStory(StorySource source, const std::vector<StoryWatcher*>& watchers) {
  WatchedNode node(source.config, source.cali_path);
  Run run(source, node, watchers);
  node.Play(std::move(source.feed), run);
  return run.End();
}

}  // namespace kerul::lidar::story
