#include "ros_messages/stream_options.h"

#include <CLI/CLI.hpp>
#include <limits>
#include <vector>

#include "lidar_view/default_angle_record.h"
#include "support/input_options.h"
#include "support/number_options.h"

namespace kerul::lidar::ros {

void AddStreamOptions(CLI::App& app, StreamOptions& options) {
  AddInputOptions(app, options.shm_name, options.udp_port, options.multicast_group);
  app.add_option(
      "--calib", options.calib_dir,
      "Folder with Lidar-*_angle_calib.dat or *_head.bin, or its parent, for the pixels' "
      "directions (default: the simulated sensor's)");
  constexpr double kLargest = std::numeric_limits<float>::max();
  app.add_option_function<std::vector<double>>(
         "--mount",
         [&options](const std::vector<double>& numbers) {
           TransformParam mount;
           mount.x = numbers[0];
           mount.y = numbers[1];
           mount.z = numbers[2];
           mount.roll = numbers[3];
           mount.pitch = numbers[4];
           mount.yaw = numbers[5];
           options.mount = mount;
         },
         "X Y Z ROLL PITCH YAW of the sensor on its carrier, metres and radians: the points are "
         "the carrier's then")
      ->expected(6)
      ->delimiter(',')
      ->check(FiniteNumber(-kLargest, kLargest));
}

std::unique_ptr<FrameStream> OpenStream(const StreamOptions& options, RingStart start,
                                        std::string& error) {
  auto stream = std::make_unique<FrameStream>(options.shm_name, start);
  const auto fail = [&](const std::string& reason) {
    error = reason;
    return std::unique_ptr<FrameStream>();
  };
  if (options.udp_port != 0 &&
      !stream->OpenUdp(static_cast<std::uint16_t>(options.udp_port), options.multicast_group)) {
    return fail("cannot open UDP port " + std::to_string(options.udp_port) + ": " +
                stream->Error());
  }
  if (options.calib_dir.empty()) {
    const QndrAngleDatRecord standard = view::DefaultAngleRecord();
    if (!stream->SetAngleRecord(reinterpret_cast<const std::uint8_t*>(&standard),
                                kAngleRecordBytes)) {
      return fail(stream->Error());
    }
  } else if (!stream->LoadDirections(options.calib_dir)) {
    return fail(stream->Error());
  }
  if (options.mount) stream->SetMount(*options.mount);
  return stream;
}

}  // namespace kerul::lidar::ros
