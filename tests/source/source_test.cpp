#include "source/source.h"

#include <gtest/gtest.h>

#include "source/loopback.h"

namespace kerul::lidar {
namespace {

// Has of its own only what the base leaves open.
class BareSource : public Source {
 public:
  bool Open() override { return true; }
  void SetClientIp(const std::string& /*ip*/) override {}
  int Send(const std::uint8_t* /*buffer*/, std::uint16_t /*length*/, int /*flags*/) override {
    return 0;
  }
  int Receive(UdpPacket& /*packet*/, std::uint16_t /*length*/, int /*flags*/,
              int /*timeout_us*/) override {
    return 0;
  }
  int SetSocketBufferSize(std::uint32_t /*size*/) override { return 0; }
};

TEST(Source, HasNoTypeAndIsNotOpen) {
  Printed([] {
    BareSource source;
    EXPECT_EQ(source.GetType(), "NONE");
    EXPECT_FALSE(source.IsOpened());
    EXPECT_TRUE(source.Open());
    EXPECT_FALSE(source.IsOpened());
  });
}

TEST(Source, ClosePrintsItsLineAndSoDoesTheEnd) {
  EXPECT_EQ(Printed([] { BareSource().Close(); }), "Source::Close()\nSource::Close()\n");
  EXPECT_EQ(Printed([] { BareSource source; }), "Source::Close()\n");
}

}  // namespace
}  // namespace kerul::lidar
