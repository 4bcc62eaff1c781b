// A network and a shared memory of the test's own.
//
// The node's ports, the sensor's address and the ring's name are compiled in: programs of two tests
// that run at a time would meet. So each test moves its process into namespaces of its own, and
// the programs that it starts follow.
#pragma once

#include <string>

namespace kerul::lidar::testing {

class Isolation {
 public:
  // Moves the calling thread, and what it starts from now on, to a network that holds nothing but
  // the loopback interface and to an empty /dev/shm. Never throws; see Fault().
  Isolation();
  // The shared memory goes; the process stays where it is.
  ~Isolation();
  Isolation(const Isolation&) = delete;
  Isolation& operator=(const Isolation&) = delete;

  // Empty when all went well, else why this machine does not permit it.
  const std::string& Fault() const noexcept { return fault_; }

  // Lets datagrams to groups go over the loopback interface. Throws std::runtime_error.
  void AllowMulticast();
  // Gives the loopback interface one more address. Throws std::runtime_error.
  void AddAddress(const std::string& ip);

 private:
  std::string fault_;
  bool shm_mounted_ = false;
  int addresses_ = 0;
};

}  // namespace kerul::lidar::testing
