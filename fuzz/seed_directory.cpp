#include "seed_directory.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

Bytes Joined(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

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
