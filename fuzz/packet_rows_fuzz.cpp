// A sequence of datagrams through parser, calibration, assembly, row passes and encoder, in every
// vector form that this processor runs, against the reference. On three miniflash rows of a quarter
// of the sensor's width, to be fast; node_stream_fuzz runs whole frames.
#include <iostream>
#include <vector>

#include "byte_input.h"
#include "datagram_script.h"
#include "sensor_simulator/frame_simulator.h"
#include "twin_rows.h"

using namespace kerul::lidar;
using namespace kerul::lidar::fuzz;

namespace {

constexpr int kMaxDatagrams = 300;
constexpr int kMaxRows = 12;
constexpr int kEchoCodes[] = {0, 1, 2, 3, 4, 12, 21, 34, 43};

TwinRows& Twins() {
  static TwinRows* const twins =
      new TwinRows(default_config::kConfig, simulator::MakeBlobs(simulator::SimulatorOptions()));
  return *twins;
}

TwinSettings TakeSettings(ByteInput& input) {
  const unsigned flags = input.Byte();
  TwinSettings settings;
  settings.echo_num = (flags & 1U) != 0 ? 1 : 2;
  settings.keep_bins = (flags & 2U) != 0;
  settings.clip_side_peaks = (flags & 4U) != 0;
  settings.calibrate = (flags & 8U) == 0;
  settings.ground = (flags & 16U) == 0;
  settings.ground_plane = (flags & 32U) != 0;
  settings.blooming_filter = (flags & 64U) == 0;
  settings.output_mode = input.Byte() % 14;
  const unsigned choice = input.Byte();
  settings.echo_output_code = kEchoCodes[choice % std::size(kEchoCodes)];
  settings.cogw_high_mode = static_cast<int>(choice / 64 % 3);
  return settings;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  std::cout.rdbuf(nullptr);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ByteInput input(data, size);
  TwinRows& twins = Twins();
  twins.Begin(TakeSettings(input));
  DatagramScript script(input, {.rows = kTwinMrows, .slots = 1, .datagrams = kMaxDatagrams});
  int rows = 0;
  for (ScriptEvent event = script.Next(); event != ScriptEvent::kEnd; event = script.Next()) {
    if (event == ScriptEvent::kDatagram) {
      twins.TakeDatagram(script.Datagram());
    } else if (++rows <= kMaxRows) {
      twins.FinishRow(script.Row());
    }
  }
  for (int m_row = 0; m_row < kTwinMrows; ++m_row) twins.FinishRow(m_row);
  return 0;
}
