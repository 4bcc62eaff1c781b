// Bring-up, teardown and logging of the node.
#include "MIPI_reader/node/lidar_node.h"

#include <pthread.h>

#include <csignal>
#include <iostream>
#include <stdexcept>

#include "MIPI_reader/node/bring_up.h"
#include "output/ring_ownership.h"
#include "source/pcap_source.h"

using kerul::lidar::DefaultConfig;
using kerul::lidar::LidarFrame;
using kerul::lidar::PcapSource;
using kerul::lidar::ShmUdpWriter;
using kerul::lidar::SocketSource;
using kerul::lidar::TransformParam;

std::vector<std::shared_ptr<LidarNode>> nodes;

namespace {

constexpr std::uint32_t kDataFromSocket = 1;
constexpr std::uint32_t kDataFromPcap = 2;

// Holds the interrupt signal back from the calling thread, and from what it starts meanwhile.
class InterruptBlock {
 public:
  InterruptBlock() {
    sigset_t interrupt;
    sigemptyset(&interrupt);
    sigaddset(&interrupt, SIGINT);
    pthread_sigmask(SIG_BLOCK, &interrupt, &before_);
  }
  ~InterruptBlock() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  InterruptBlock(const InterruptBlock&) = delete;
  InterruptBlock& operator=(const InterruptBlock&) = delete;

 private:
  sigset_t before_{};
};

// Two nodes on one ring would each publish to readers that the other takes away. Asked before the
// input opens: a refused node must not take the living one's datagrams.
void RefuseSecondWriter(const DefaultConfig& config) {
  if (config.udp_output || config.shm_takeover) return;
  const std::string name = kerul::lidar::ShmRegion::NormalizeName(config.shm_name.c_str());
  if (!kerul::lidar::RingWriterLives(name)) return;
  kerul::lidar::ShowRefusal(name);  // the living one tells it too
  throw std::runtime_error("the writer of the ring " + name +
                           " still lives; stop it first, or set shm_takeover to take its place");
}

}  // namespace

LidarNode::LidarNode(const std::string& name, const DefaultConfig& config,
                     const std::string& cali_path)
    : name_(name), config_(std::make_shared<const DefaultConfig>(config)) {
  CheckConfig();
  MakeParser();
  RefuseSecondWriter(*config_);
  OpenSource();
  OpenOutput();
  angle_grid_ = {};
  AssembleCalibration(cali_path);
  ground_settings_ = MakeGroundSettings(*config_);
  color_map_ = std::make_shared<ColorMap>();
  transform_ = std::make_shared<TransformParam>(config_->transform);
  ComputeRotation(*transform_);
  AllocateFrames();
  echo_plan_ = kerul::lidar::MakeEchoOutputPlan(config_->echo_num, config_->echo_output_code);
  running_ = true;
  // The worker leaves interrupts to the main thread. One that cut short the wait for a datagram
  // would look like a failed read, and after the last try that ends the process.
  const InterruptBlock block;
  thread_ = std::make_unique<std::thread>(&LidarNode::Run, this);
  pthread_setname_np(thread_->native_handle(), "lidar_worker");  // as `top -H` shows it
}

LidarNode::~LidarNode() {
  // The order in which the closing lines of the sources are printed.
  source_.reset();
  udp_output_.reset();
  shm_writer_.reset();
}

void LidarNode::JoinWorker() {
  if (!thread_) return;
  thread_->join();
  thread_.reset();
  Warn(loss_watch_.Rest());
}

void LidarNode::CheckConfig() const {
  if (config_->module_type != 1) {
    throw std::runtime_error("module_type do not supported: " +
                             std::to_string(config_->module_type));
  }
  if (config_->data_source != kDataFromSocket && config_->data_source != kDataFromPcap) {
    throw std::runtime_error("data_source do not supported: " +
                             std::to_string(config_->data_source));
  }
  if (config_->echo_num > kerul::lidar::kEchoSlots) {
    throw std::runtime_error("echo_num do not supported: " + std::to_string(config_->echo_num));
  }
}

void LidarNode::MakeParser() {
  parser_ = std::make_shared<LidarParserQDV11>();
  ConfigureParser(*config_, *parser_);
  const DefaultConfig::Debug& debug = config_->debug;
  if (debug.if_debug) {
    Log("] debug.if_debug=true (pixel echo debug) row=" + std::to_string(debug.row) +
        " col=" + std::to_string(debug.col) + " echo=" + std::to_string(debug.echo));
  }
  if (debug.packet_debug) Log("] debug.packet_debug=true (packet command-line logging)");
}

void LidarNode::OpenSource() {
  if (config_->data_source == kDataFromPcap) {
    if (config_->pcap_path.empty()) {
      throw std::runtime_error("DATA_FROM_PCAP requires non-empty pcap_path in embedded config");
    }
    source_ = std::make_unique<PcapSource>(config_->pcap_path);
    if (!source_->Open()) throw std::runtime_error("Fail to open pcap: " + config_->pcap_path);
    Log("] pcap=" + config_->pcap_path);
    return;
  }
  auto socket = std::make_unique<SocketSource>(config_->recv_port, config_->recv_ip);
  if (!config_->recv_sender_ip.empty() && !socket->AcceptOnlyFrom(config_->recv_sender_ip)) {
    throw std::runtime_error("recv_sender_ip is no IPv4 address: " + config_->recv_sender_ip);
  }
  source_ = std::move(socket);
  // A socket that does not open is tried again at every Receive.
  source_->Open();
  Log("] recv=" + config_->recv_ip + ":" + std::to_string(config_->recv_port));
}

void LidarNode::OpenOutput() {
  if (config_->udp_output) {
    udp_output_ = std::make_unique<SocketSource>(config_->udp_dest_port, config_->recv_ip);
    // Deliberate: SetClientIp throws away the socket that is bound here.
    udp_output_->Open();
    udp_output_->SetClientIp(config_->udp_dest_ip);
    Log("] output=UDP " + config_->udp_dest_ip + ":" + std::to_string(config_->udp_dest_port));
    return;
  }
  shm_writer_ = std::make_unique<ShmUdpWriter>(config_->shm_name.c_str(), config_->shm_size);
  if (!shm_writer_->Open()) {
    throw std::runtime_error("ShmUdpWriter::Open failed: " + config_->shm_name);
  }
  Log("] output=SHM name=" + config_->shm_name + " size=" + std::to_string(config_->shm_size));
}

void LidarNode::AllocateFrames() {
  const int height = parser_->Height();
  const int width = parser_->Width();
  frame_ = std::make_shared<LidarFrame>(height, width, config_->echo_num);
  upsampled_frame_ = std::make_shared<LidarFrame>(height * 2, width * 2, config_->echo_num);
  stale_pixels_ = kerul::lidar::StalePixels(height, width);
  packets_per_mrow_ = parser_->col_groups * 4;
  miniflash_rows_ = parser_->miniflash_rows;
  ResetMrowProgress();
  const auto pixels = static_cast<std::size_t>(height) * static_cast<std::size_t>(width);
  cur_dist_map_.assign(pixels, 0.0F);
  prev_dist_map_.assign(pixels, 0.0F);
  prev_dist_map_valid_ = false;
}

void LidarNode::Log(std::string_view text, std::string_view color) const {
  std::cout << color << "[LidarNode][" << name_ << text << (color.empty() ? "" : "\033[0m")
            << std::endl;
}
