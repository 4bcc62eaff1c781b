#include "start_log.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace kerul::lidar::testing {
namespace {

const std::string kPrefix = "[LidarNode][QNDR_001_node] ";
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

std::string Coloured(const char* colour, const std::string& text) {
  return colour + kPrefix + text + "\033[0m\n";
}

}  // namespace

std::string Plain(const std::string& text) { return kPrefix + text + "\n"; }
std::string Green(const std::string& text) { return Coloured("\033[32m", text); }
std::string Yellow(const std::string& text) { return Coloured("\033[33m", text); }
std::string Red(const std::string& text) { return Coloured("\033[31m", text); }

const std::string kLastStartLine =
    Green("detect threshold load succssed (default_tables, bins=513)");

std::string OpeningLines(const std::string& cali_path) {
  return "[INFO] using embedded default config for lidar \"QNDR_001\", cali_path=" +
         (cali_path.empty() ? "(RCX)" : cali_path) +
         "\n"
         "SocketSource::Open succeed, sock:3\n"
         "SocketSource::Open SO_RCVBUF=" +
         std::to_string(GrantedBufferBytes()) + " bytes\n" + Plain("recv=:2368") +
         "ShmUdpWriter init ring: slots=69534 stride=1508 boot_id=1 region=104857600\n" +
         Plain("output=SHM name=kerul_lidar_udp_shm size=104857600");
}

std::string LoadingLine(const std::string& cali_path) {
  if (cali_path.empty()) {
    return Yellow("Loading para2 calibration (RCX head -> cache or full RCX)...");
  }
  return Yellow("Loading para2 calibration from cali_path=" + cali_path + " (no RCX)...");
}

std::string LoadedLines(const std::string& label, const std::string& lidar_id) {
  std::string log;
  if (label == "local_cache") {
    log += Yellow("para2 loaded from para_read cache (lidar_id=" + lidar_id + ", skip main RCX)");
  }
  if (label == "bin") {
    log += Yellow("para2 online read failed; fallback to para_read (lidar_id=" + lidar_id + ")");
  }
  log += Green("para2 load succeeded (source=" + label + ", lidar_id=" + lidar_id + ", CRC PASS)");
  if (label == "online") log += Green("para_read cache saved (data/" + lidar_id + "/para_read/)");
  log += Green("angle calib load succssed (" + label + ", shape=3x216x288)");
  log += Green("cogh_efficiant load succssed (para2/default_tables)");
  log += Green("highrefl check enabled");
  log += Green("dist calib load succssed (lidar/bin, source=" + label + ")");
  log += Green("dist curve high load succssed (embedded)");
  log += Green("retro calib load succssed (lidar/bin, source=" + label + ")");
  log += Green("shot_times load succssed (default_tables, 48 entries)");
  log += Green("env normal load succssed (default_tables)");
  log += Green("env high load succssed (default_tables)");
  log += Red("env cogt load failed (default_tables empty), cogt compensation disabled");
  log += Green("bloom load succssed (default_tables)");
  log += Green("bloom filter enabled");
  log += Green("cogw filter load succssed (default_tables)");
  log += Green("shot_noise enabled");
  log += Green("high-threshold map load succssed (default_tables)");
  return log + kLastStartLine;
}

}  // namespace kerul::lidar::testing
