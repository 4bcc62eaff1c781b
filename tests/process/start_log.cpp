#include "start_log.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <regex>
#include <sstream>

namespace kerul::lidar::testing {
namespace {

constexpr int kWantedBufferBytes = 0x8000000;

// What the system grants of the receive buffer that the node asks for.
int GrantedBufferBytes() {
  const int fd = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  int bytes = kWantedBufferBytes;
  socklen_t size = sizeof(bytes);
  setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &bytes, size);
  getsockopt(fd, SOL_SOCKET, SO_RCVBUF, &bytes, &size);
  close(fd);
  return bytes;
}

}  // namespace

std::string WithoutFrameLines(const std::string& log) {
  static const std::regex frame_line(
      "等效解包FPS: [0-9.e+]+, frame_id: [0-9]+, received_count:[0-9]+");
  std::istringstream lines(log);
  std::string kept;
  for (std::string line; std::getline(lines, line);) {
    if (!std::regex_match(line, frame_line)) kept += line + "\n";
  }
  return kept;
}

std::string OpeningLines(const std::string& cali_path) {
  return "[INFO] using embedded default config for lidar \"QNDR_001\", cali_path=" +
         (cali_path.empty() ? "(RCX)" : cali_path) +
         "\n"
         "SocketSource::Open succeed, sock:3\n"
         "SocketSource::Open SO_RCVBUF=" +
         std::to_string(GrantedBufferBytes()) + " bytes\n" + kDefaultNode.Plain("recv=:2368") +
         "ShmUdpWriter init ring: slots=69534 stride=1508 boot_id=1 region=104857600\n" +
         kDefaultNode.Plain("output=SHM name=kerul_lidar_udp_shm size=104857600");
}

std::string LoadingLine(const std::string& cali_path) {
  if (cali_path.empty()) {
    return kDefaultNode.Yellow("Loading para2 calibration (RCX head -> cache or full RCX)...");
  }
  return kDefaultNode.Yellow("Loading para2 calibration from cali_path=" + cali_path +
                             " (no RCX)...");
}

std::string ProgressLines() {
  std::string lines;
  for (int pages = 100; pages <= 600; pages += 100) {
    lines += "[INFO] para2: " + std::to_string(pages) + " of 661 pages read from the sensor\n";
  }
  return lines;
}

std::string WithoutProgress(const std::string& err) {
  static const std::regex progress("\\[INFO\\] para2: [1-6]00 of 661 pages read from the sensor\n");
  return std::regex_replace(err, progress, "");
}

std::string LoadedLines(const std::string& label, const std::string& lidar_id) {
  std::string log;
  if (label == "local_cache") {
    log += kDefaultNode.Yellow("para2 loaded from para_read cache (lidar_id=" + lidar_id +
                               ", skip main RCX)");
  }
  if (label == "bin") {
    log += kDefaultNode.Yellow(
        "para2 online read failed; fallback to para_read (lidar_id=" + lidar_id + ")");
  }
  log += kDefaultNode.Green("para2 load succeeded (source=" + label + ", lidar_id=" + lidar_id +
                            ", CRC PASS)");
  if (label == "online")
    log += kDefaultNode.Green("para_read cache saved (data/" + lidar_id + "/para_read/)");
  return log + kDefaultNode.OfCalibration(label);
}

std::string WithoutLosses(const std::string& err) {
  static const std::regex told(
      "\\[WARN\\] \\[LidarNode\\]\\[QNDR_001_node\\] raw packets lost in .*\n");
  return std::regex_replace(err, told, "");
}

}  // namespace kerul::lidar::testing
