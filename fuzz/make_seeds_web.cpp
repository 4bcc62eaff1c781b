// The inputs that web_request_fuzz starts with.
#include <string>

#include "lidar_web/frame_message.h"
#include "seed_directory.h"

using namespace kerul::lidar;

namespace {

Bytes Chosen(std::uint8_t choice, const std::string& text) {
  return Joined({Bytes(1, choice), Bytes(text.begin(), text.end())});
}

// The header of a message of two echoes with flags.
std::string FrameMessageHead() {
  Frame frame;
  frame.echoes = 2;
  frame.output_mode = 12;
  frame.range_m[0] = 5.0F;
  web::FrameMessage message;
  web::EncodeFrame(frame, 1, 0.0, 0, message);
  return {message.bytes.begin(), message.bytes.begin() + web::kFrameHeaderBytes};
}

}  // namespace

void WriteWebInputs(const SeedDirectory& seeds) {
  const auto write = [&](const char* name, std::uint8_t choice, const std::string& text) {
    seeds.Write("web_request_fuzz", name, Chosen(choice, text));
  };
  write("target", 0, "/frame.pcd?x\nfloats=1&t=2");
  write("target_climbs", 0, "/../.git/config\n");
  write("headers", 1, "[fe80::1]:8710\nhttp://[fe80::1]:8710");
  write("pull", 2, std::string("\1\1\0\0\0\0\0\0\0\0\0\0\0\0\x29\x40", 16));
  write("frame", 3, FrameMessageHead());
  write("log", 4,
        "raw packets lost in 10 frames: 3 of them closed without 12 packets (the last, frame_id 7, "
        "with 6900 of 6912), 1 frame ids never came, 5 datagrams dropped by the kernel\n");
  write(
      "udp_table", 5,
      "sl local_address\n 1: 00000000:0940 00000000:0000 07 00000000:00000000 00:00000000 0 0 0 1 "
      "2 3 100971\n");
  write("process", 5, "4711 (a) S 1 2 3 4 5 6 7 8 9 10 250 50 13 14 15 16 17 18 19 20 1000 22\n");
}
