// What make_fuzz_seeds builds inputs of, and where it writes: one directory per fuzz program below
// a root.
#pragma once

#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

using Bytes = std::vector<std::uint8_t>;

Bytes Joined(std::initializer_list<Bytes> parts);

// A number of two bytes.
Bytes Word(std::size_t value);

// `bytes` with `field` written over those from `offset` on.
Bytes With(Bytes bytes, std::size_t offset, const Bytes& field);

// The whole file; empty when it cannot be read.
Bytes ReadFile(const std::filesystem::path& path);

// Steps of datagram_script.h: one datagram; the packet as the template, for the steps that send it
// repeatedly; the template at so many places.
Bytes DatagramStep(const Bytes& datagram);
Bytes TemplateSteps(const Bytes& packet);
Bytes Fill(std::size_t places);

class SeedDirectory {
 public:
  explicit SeedDirectory(std::filesystem::path root) : root_(std::move(root)) {}

  // Throws std::runtime_error when the file cannot be written.
  void Write(const std::string& program, const std::string& name, const Bytes& bytes) const;
  const std::filesystem::path& Root() const { return root_; }

 private:
  std::filesystem::path root_;
};

// Sound inputs, which the odd ones change.
struct SoundInputs {
  Bytes camera_record;  // 78 bytes
  Bytes export_file;    // raw, 4 x 6 pixels, 11 of which have a return
  Bytes head;           // a calibration's page of 256 bytes and the first part of its main blob
  Bytes main_part;
  Bytes capture;       // four raw packets
  Bytes raw_packet;    // of miniflash row 0 and slot 0, frame id 1
  Bytes point_packet;  // of block 0
};

// The inputs that are made by hand: those at which such code breaks, named after what is odd about
// them.
void WriteOddFiles(const SeedDirectory& seeds, const SoundInputs& sound);
void WriteOddPackets(const SeedDirectory& seeds, const SoundInputs& sound);

// Recordings, for a build that has their libraries.
void WriteMcapFiles(const SeedDirectory& seeds);

// What lidar_web takes from outside, for a build that has its library.
void WriteWebInputs(const SeedDirectory& seeds);
