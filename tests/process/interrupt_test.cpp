// Interrupts in every phase of the node's life.
#include <csignal>
#include <string>

#include "process_fixture.h"

namespace kerul::lidar::testing {
namespace {

const std::string kInterruptLine = "Interrupt signal (2) received.\n";
const std::string kClosingLines = "SocketSource::Close()\nSource::Close()\n";

class Interrupt : public IsolatedProcessTest {};

// The text from the first interrupt line on.
std::string FromInterrupt(const std::string& out) {
  const std::size_t at = out.find(kInterruptLine);
  return at == std::string::npos ? "" : out.substr(at);
}

TEST_F(Interrupt, AnIdleNodeEndsWell) {
  const auto node = StartCalibratedNode();
  EXPECT_EQ(node->Interrupt(), 0);
  EXPECT_EQ(FromInterrupt(node->Out()), kInterruptLine + kClosingLines);
  EXPECT_EQ(node->Err(), "");
}

}  // namespace
}  // namespace kerul::lidar::testing
