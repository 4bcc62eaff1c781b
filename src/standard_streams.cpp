#include "standard_streams.h"

#include <fcntl.h>
#include <unistd.h>

#include <initializer_list>

namespace kerul::lidar {

void OpenMissingStandardStreams() noexcept {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(stream, F_GETFD) >= 0) continue;
    // The lowest free number, which is this one. Without a /dev/null anything that holds the number
    // and refuses writes will do.
    if (open("/dev/null", O_RDWR) < 0) open("/", O_PATH);
  }
}

}  // namespace kerul::lidar
