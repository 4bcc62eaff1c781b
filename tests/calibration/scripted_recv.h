// Takes the place of recv in this program, so that a test decides what each single call gives.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <vector>

namespace kerul::lidar {

// While it lives, the calls of recv on its own thread follow the script: a positive entry waits for
// exactly that many bytes (never more than asked for), 0 is the result of a closed connection, -1
// that of a time-out. After the script's end calls are real. Records the sizes asked for.
class ScriptedRecv {
 public:
  explicit ScriptedRecv(std::vector<int> script);
  ~ScriptedRecv();
  ScriptedRecv(const ScriptedRecv&) = delete;
  ScriptedRecv& operator=(const ScriptedRecv&) = delete;

  const std::vector<std::size_t>& asked() const { return asked_; }

  ssize_t Call(int descriptor, void* buffer, std::size_t size, int flags);

 private:
  std::vector<int> script_;
  std::vector<std::size_t> asked_;
};

}  // namespace kerul::lidar
