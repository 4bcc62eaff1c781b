#include "support/isolation.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <net/route.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace kerul::lidar::testing {
namespace {

std::string Failed(const std::string& what) { return what + ": " + std::strerror(errno); }

bool WriteText(const char* path, const std::string& text) {
  const int fd = open(path, O_WRONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool written = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  close(fd);
  return written;
}

// Without the right to make namespaces, one of users gives it; the caller becomes root there.
bool EnterAsNewUser() {
  const uid_t user = getuid();
  const gid_t group = getgid();
  if (unshare(CLONE_NEWUSER | CLONE_NEWNET | CLONE_NEWNS) != 0) return false;
  WriteText("/proc/self/setgroups", "deny");  // absent on old kernels
  return WriteText("/proc/self/uid_map", "0 " + std::to_string(user) + " 1") &&
         WriteText("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
}

// A request to the interface's driver; false sets errno.
template <class Setting>
bool Configure(unsigned long request, Setting& setting) {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  const bool done = ioctl(fd, request, &setting) == 0;
  const int error = errno;
  close(fd);
  errno = error;
  return done;
}

ifreq Interface(const std::string& name) {
  ifreq interface {};
  name.copy(interface.ifr_name, IFNAMSIZ - 1);
  return interface;
}

bool SwitchLoopbackOn() {
  ifreq loopback = Interface("lo");
  if (!Configure(SIOCGIFFLAGS, loopback)) return false;
  loopback.ifr_flags = static_cast<short>(loopback.ifr_flags | IFF_UP | IFF_RUNNING);
  return Configure(SIOCSIFFLAGS, loopback);
}

sockaddr Address(const std::string& ip) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  if (inet_pton(AF_INET, ip.c_str(), &address.sin_addr) != 1) {
    throw std::runtime_error("no address: " + ip);
  }
  sockaddr any{};
  std::memcpy(&any, &address, sizeof(address));
  return any;
}

}  // namespace

Isolation::Isolation() {
  if (unshare(CLONE_NEWNET | CLONE_NEWNS) != 0 && !EnterAsNewUser()) {
    fault_ = Failed("namespaces are not permitted");
    return;
  }
  if (!SwitchLoopbackOn()) {
    fault_ = Failed("the loopback interface cannot be switched on");
    return;
  }
  // Private first, or the mount would show outside.
  if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("tmpfs", "/dev/shm", "tmpfs", 0, nullptr) != 0) {
    fault_ = Failed("/dev/shm cannot be replaced");
    return;
  }
  shm_mounted_ = true;
}

Isolation::~Isolation() {
  if (shm_mounted_) umount2("/dev/shm", MNT_DETACH);
}

void Isolation::AllowMulticast() {
  ifreq loopback = Interface("lo");
  if (!Configure(SIOCGIFFLAGS, loopback)) throw std::runtime_error(Failed("flags of lo"));
  loopback.ifr_flags = static_cast<short>(loopback.ifr_flags | IFF_MULTICAST);
  if (!Configure(SIOCSIFFLAGS, loopback)) throw std::runtime_error(Failed("multicast over lo"));
  rtentry route{};
  route.rt_dst = Address("224.0.0.0");
  route.rt_genmask = Address("240.0.0.0");
  route.rt_flags = RTF_UP;
  char device[] = "lo";
  route.rt_dev = device;
  if (!Configure(SIOCADDRT, route)) throw std::runtime_error(Failed("route of the groups"));
}

void Isolation::AddAddress(const std::string& ip) {
  ifreq alias = Interface("lo:" + std::to_string(++addresses_));
  alias.ifr_addr = Address(ip);
  if (!Configure(SIOCSIFADDR, alias)) throw std::runtime_error(Failed("address " + ip));
  alias.ifr_addr = Address("255.255.255.255");
  if (!Configure(SIOCSIFNETMASK, alias)) throw std::runtime_error(Failed("netmask of " + ip));
}

}  // namespace kerul::lidar::testing
