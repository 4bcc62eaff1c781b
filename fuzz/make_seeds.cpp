// Writes the inputs that the fuzz programs start with, from the simulated sensor: one directory per
// program.
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

#include "MIPI_reader/node/frame_end/frame_export.h"
#include "MIPI_reader/parser/lidar_parser.h"
#include "MIPI_reader/parser/point_packet_layout.h"
#include "MIPI_reader/parser/raw_packet.h"
#include "config/default_config.h"
#include "seed_directory.h"
#include "sensor_simulator/calibration_blobs.h"
#include "sensor_simulator/capture_file.h"
#include "sensor_simulator/frame_packets.h"

using namespace kerul::lidar;
namespace fs = std::filesystem;

namespace {

using simulator::RawPacket;

constexpr int kPacketsPerRow = 192;
constexpr int kPacketsPerSlot = 48;

// --- Streams of datagrams, see datagram_script.h ---

Bytes BytesOf(const RawPacket& packet) { return {packet.begin(), packet.end()}; }

// A packet of the frame, moved into a row of the small frame.
RawPacket MovedToRow(const RawPacket& packet, int m_row) {
  RawPacket moved = packet;
  moved[raw_packet::kGroupIdOffset] = static_cast<std::uint8_t>(m_row);
  moved[raw_packet::kSlotIdOffset] = 0;
  return moved;
}

// Twelve packets from the middle of a row, moved into the rows of the small frame.
Bytes RowsSeed(const std::vector<RawPacket>& frame, int m_row, Bytes settings) {
  Bytes seed = std::move(settings);
  for (int i = 0; i < 12; ++i) {
    const int first = (m_row + i / 4) * kPacketsPerRow + i % 4;
    const RawPacket& packet = frame[static_cast<std::size_t>(first + kPacketsPerSlot * 2)];
    seed = Joined({seed, DatagramStep(BytesOf(MovedToRow(packet, i / 4)))});
  }
  return Joined({seed, {8, 0, 8, 1, 8, 2}});
}

void WriteStreams(const SeedDirectory& seeds, const std::string& scene,
                  const std::vector<RawPacket>& frame) {
  for (const int m_row : {2, 12, 20, 30}) {
    const std::string name = scene + "_row" + std::to_string(m_row);
    const auto mode = static_cast<std::uint8_t>(m_row % 14);
    seeds.Write("packet_rows_fuzz", name, RowsSeed(frame, m_row, {0, mode, 5}));
    const RawPacket& packet = frame[static_cast<std::size_t>(m_row * kPacketsPerRow + 100)];
    const Bytes steps = TemplateSteps(BytesOf(packet));
    seeds.Write(
        "packet_rows_fuzz", name + "_filled",
        Joined({{32, mode, 70}, steps, {2, 0, 0, 0}, Fill(143), {8, 1, 5, 7, 7}, Fill(60)}));
    // Two rows; a frame change; a wrapped counter; a whole frame.
    seeds.Write("node_stream_fuzz", name,
                Joined({steps,
                        {6, 9, 2, static_cast<std::uint8_t>(m_row), 0, 0},
                        Fill(500),
                        {5, 3, 9},
                        Fill(300),
                        {6, 10},
                        Fill(200),
                        {6, 250},
                        Fill(30),
                        {6, 3},
                        Fill(400)}));
    seeds.Write("node_stream_fuzz", name + "_frame",
                Joined({steps, {6, 255, 2, 0, 0, 0}, Fill(6911), {2, 3, 1, 8}, Fill(100)}));
  }
}

void WritePulseStreams(const SeedDirectory& seeds) {
  Bytes rows = {0, 12, 5};
  Bytes node;
  for (std::uint8_t i = 0; i < 24; ++i) {
    const Bytes steps =
        Joined({{5, i, 1, 2, static_cast<std::uint8_t>(i / 8), 0, static_cast<std::uint8_t>(i * 2)},
                Fill(5)});
    rows = Joined({rows, steps});
    node = Joined({node, steps, Fill(90), {6, static_cast<std::uint8_t>(i / 6)}});
  }
  seeds.Write("packet_rows_fuzz", "pulses", rows);
  seeds.Write("node_stream_fuzz", "pulses", node);
}

// --- Published packets, export files ---

LidarFrame ParseFrame(const std::vector<RawPacket>& packets, LidarParserQDV11& parser) {
  LidarFrame frame(parser.Height(), parser.Width(), kEchoSlots);
  std::vector<LidarPoint> points;
  for (const RawPacket& bytes : packets) {
    UdpPacket packet{};
    std::copy(bytes.begin(), bytes.end(), packet.buffer);
    packet.length = static_cast<std::uint16_t>(bytes.size());
    points.clear();
    int frame_id = 0;
    if (parser.ParsePacket(packet, points, frame_id, kEchoSlots) < 0) continue;
    for (const LidarPoint& point : points) {
      frame.points[static_cast<std::size_t>(point.row)][static_cast<std::size_t>(point.col)] =
          point;
    }
  }
  return frame;
}

void WritePointPackets(const SeedDirectory& seeds, const std::vector<RawPacket>& packets) {
  const DefaultTables& tables = default_config::kConfig.tables;
  LidarParserQDV11 parser;
  parser.shot_times = tables.shot_times;
  parser.detect_threshold_bins = tables.detect_threshold;
  const LidarFrame frame = ParseFrame(packets, parser);
  for (int mode = 0; mode < 14; ++mode) {
    Bytes seed;
    for (const int block : {0, 700, 1680}) {
      for (int echo = 0; echo < kEchoSlots; ++echo) {
        UdpPacket packet{};
        const int length = parser.GetPacket_7_10_FromFrame(
            frame.points, echo, packet, block, 7, mode, 12, static_cast<std::uint8_t>(echo + 1));
        seed = Joined({seed, {1}, Bytes(packet.buffer, packet.buffer + length), {4}, Word(50)});
      }
    }
    seeds.Write("point_packet_fuzz", "mode" + std::to_string(mode), seed);
  }
}

void WriteExports(const SeedDirectory& seeds) {
  LidarFrame frame(4, 6, kEchoSlots);
  for (std::size_t i = 0; i < 24; i += 2) {
    LidarEcho& echo = frame.points[i / 6][i % 6].echoes[0];
    echo.dist_raw = echo.dist_proc = static_cast<float>(i) * 0.5F;
    echo.refl_raw = echo.refl_proc = static_cast<float>(i);
  }
  const fs::path directory = seeds.Root() / "export_file_fuzz";
  fs::create_directories(directory);
  for (const char* mode : {"raw", "processed", "doubled"}) {
    ExportFrame(frame, {.export_dir = directory.string(),
                        .node_name = "seed",
                        .export_mode = mode,
                        .frame_id = 3,
                        .sequence = 1});
  }
}

// --- The rest ---

void WriteCaptures(const SeedDirectory& seeds, const std::vector<RawPacket>& packets) {
  const fs::path path = seeds.Root() / "capture_fuzz" / "street";
  fs::create_directories(path.parent_path());
  simulator::CaptureWriter writer(path.string(), {});
  for (std::size_t i = 0; i < 4; ++i) writer.Write(1000 * i, packets[i]);
  writer.Close();
  Bytes bytes = ReadFile(path);
  bytes.resize(bytes.size() - 300);
  seeds.Write("capture_fuzz", "cut", bytes);
}

void WriteCalibration(const SeedDirectory& seeds) {
  const simulator::CalibrationBlobs blobs = simulator::MakeBlobs(simulator::SimulatorOptions());
  const Bytes part(blobs.main.begin(), blobs.main.begin() + 2048);
  seeds.Write("para2_fuzz", "stretched", Joined({{0x44}, blobs.head, part}));
  seeds.Write("para2_fuzz", "sealed", Joined({{0x4C}, blobs.head, part}));
  seeds.Write("para2_fuzz", "tiles", Joined({{0x4D, 36, 48, 0}, blobs.head, part}));
  seeds.Write("para2_fuzz", "short", Joined({{0x0A, 140}, blobs.head, part}));
  const Bytes record(blobs.head.begin() + 20, blobs.head.begin() + 98);
  seeds.Write("angle_record_fuzz", "camera", record);

  const Bytes id(blobs.head.begin(), blobs.head.begin() + 20);
  seeds.Write("rcx_client_fuzz", "load_whole", Joined({{0, 1}, id}));
  seeds.Write("rcx_client_fuzz", "load_short", Joined({{0, 0}, id, {9, 0, 1, 6, 0, 0}}));
  seeds.Write("rcx_client_fuzz", "load_forced", Joined({{0, 5}, id, {0, 0, 0, 0, 4}}));
  seeds.Write("rcx_client_fuzz", "load_wrong_sum", Joined({{0, 3}, id}));
  seeds.Write("rcx_client_fuzz", "request", {1, 255, '0', '0', ' ', 'A', 'f', '\t', '1', '2'});
  seeds.Write("rcx_client_fuzz", "reads", {2, 0, 1, 1, 0x40, 0, 0, 32, 0, 0, 0x40, 6, 11, 2, 3, 1});
}

void WriteRings(const SeedDirectory& seeds) {
  seeds.Write("ring_fuzz", "keep_up", {0x60, 0x62, 0xE0, 0xE2, 0x60, 0x63});
  seeds.Write("ring_fuzz", "overrun", {0x02, 0xE0, 0xE0, 0xE2, 0xE3, 0x07, 0x20, 0xE2, 0xE3});
  seeds.Write("ring_fuzz", "header", {0x60, 0x62, 0x64, 4, 9, 9, 9, 9, 0x02, 0x20, 0x62, 0xE4, 0,
                                      0,    0,    0,    0, 0, 0, 0, 0, 0x62, 0x40, 0x62, 0x63});
  seeds.Write("ring_fuzz", "slot", {0xE0, 0x1D, 20, 0, 1, 0, 0, 0, 0xE2, 0xE3, 6, 0xDD, 5});
}

// Taken from what has been written before.
SoundInputs CollectSoundInputs(const SeedDirectory& seeds, const std::vector<RawPacket>& packets) {
  constexpr int kMiddleRow = 12;
  constexpr std::ptrdiff_t kPartBytes = 2048;
  const simulator::CalibrationBlobs blobs = simulator::MakeBlobs(simulator::SimulatorOptions());
  const RawPacket& packet = packets[kMiddleRow * kPacketsPerRow + kPacketsPerSlot * 2];
  const Bytes point_packets = ReadFile(seeds.Root() / "point_packet_fuzz" / "mode0");
  const auto first = point_packets.begin() + 1;
  return {
      .camera_record = Bytes(blobs.head.begin() + 20, blobs.head.begin() + 98),
      .export_file = ReadFile(seeds.Root() / "export_file_fuzz" / "seed_raw_f003_n000001.bin"),
      .head = Bytes(blobs.head.begin(), blobs.head.end()),
      .main_part = Bytes(blobs.main.begin(), blobs.main.begin() + kPartBytes),
      .capture = ReadFile(seeds.Root() / "capture_fuzz" / "street"),
      .raw_packet = BytesOf(MovedToRow(packet, 0)),
      .point_packet = Bytes(first, first + point_packet::kBytes),
  };
}

void WriteAll(const SeedDirectory& seeds) {
  SoundInputs sound;
  WriteExports(seeds);
  for (const std::string scene : {"street", "retro"}) {
    const std::vector<RawPacket> packets = simulator::SimulateFrame(scene, 1);
    WriteStreams(seeds, scene, packets);
    if (scene != "street") continue;
    WritePointPackets(seeds, packets);
    WriteCaptures(seeds, packets);
    sound = CollectSoundInputs(seeds, packets);
  }
  WritePulseStreams(seeds);
  WriteCalibration(seeds);
  WriteRings(seeds);
#ifdef KERUL_WITH_MCAP
  WriteMcapFiles(seeds);
#endif
  WriteOddFiles(seeds, sound);
  WriteOddPackets(seeds, sound);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: make_fuzz_seeds DIRECTORY\n");
    return 2;
  }
  try {
    WriteAll(SeedDirectory(argv[1]));
#ifdef KERUL_WITH_WEB
    WriteWebInputs(SeedDirectory(argv[1]));
#endif
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
  return 0;
}
