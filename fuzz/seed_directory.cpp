#include "seed_directory.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <stdexcept>

Bytes Joined(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

Bytes Word(std::size_t value) {
  return {static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8)};
}

Bytes With(Bytes bytes, std::size_t offset, const Bytes& field) {
  for (std::size_t i = 0; i < field.size(); ++i) bytes.at(offset + i) = field[i];
  return bytes;
}

Bytes DatagramStep(const Bytes& datagram) { return Joined({{0}, Word(datagram.size()), datagram}); }

Bytes TemplateSteps(const Bytes& packet) {
  constexpr std::size_t kPiece = 250;
  Bytes steps;
  for (std::size_t at = 0; at < packet.size(); at += kPiece) {
    const std::size_t count = std::min(kPiece, packet.size() - at);
    const auto begin = packet.begin() + static_cast<std::ptrdiff_t>(at);
    const Bytes piece(begin, begin + static_cast<std::ptrdiff_t>(count));
    steps = Joined({steps, {1}, Word(at), {static_cast<std::uint8_t>(count)}, piece});
  }
  return steps;
}

Bytes Fill(std::size_t places) { return Joined({{3}, Word(places)}); }

Bytes ReadFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void SeedDirectory::Write(const std::string& program, const std::string& name,
                          const Bytes& bytes) const {
  std::filesystem::create_directories(root_ / program);
  std::ofstream file(root_ / program / name, std::ios::binary);
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  if (!file) throw std::runtime_error("cannot write below " + root_.string());
}
