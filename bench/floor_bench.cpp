// What cannot be undercut: moving the bytes.
#include <memory>

#include "kernel_bench.h"
#include "support/copy_floors.h"
#include "support/measuring.h"

namespace kerul::lidar::bench {

void AddFloors() {
  constexpr int kIterations = 40;
  auto floors = std::make_shared<CopyFloors>();
  const auto nothing = [](int) {};
  const auto cold = [](int) { OtherTraffic(); };
  const auto packets = [=](int i) {
    const std::vector<FramePackets>& frames = FramesOf("street");
    floors->CopyPackets(frames[static_cast<std::size_t>(i) % frames.size()]);
  };
  const auto records = [=](int) { floors->CopyRecords(); };
  AddKernel("copy_packets/floor/warm", kWholeFrame, kIterations, nothing, packets);
  AddKernel("copy_packets/floor/cold", kWholeFrame, kIterations, cold, packets);
  AddKernel("copy_records/floor/warm", kWholeFrame, kIterations, nothing, records);
  AddKernel("copy_records/floor/cold", kWholeFrame, kIterations, cold, records);
}

}  // namespace kerul::lidar::bench
