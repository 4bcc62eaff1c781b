// Runs a fuzz program without libFuzzer: gives it the inputs in the named files and directories,
// each once, in the order of their names. A failed check ends the process, as in the fuzzer.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <vector>

namespace fs = std::filesystem;

extern "C" {
// Not every fuzz program has one.
[[gnu::weak]] int LLVMFuzzerInitialize(int* argc, char*** argv);
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
}

namespace {

std::vector<fs::path> InputsOf(const fs::path& path) {
  if (!fs::is_directory(path)) return {path};
  std::vector<fs::path> files;
  for (const fs::directory_entry& entry : fs::directory_iterator(path)) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
  // A directory that holds nothing was meant to.
  if (files.empty()) throw std::runtime_error("no inputs in " + path.string());
  std::sort(files.begin(), files.end());
  return files;
}

std::vector<std::uint8_t> Read(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path.string());
  return {std::istreambuf_iterator<char>(file), {}};
}

struct Input {
  fs::path path;
  std::vector<std::uint8_t> bytes;
};

// All are read first: a fuzz program may change its directory.
std::vector<Input> ReadInputs(int argc, char** argv) {
  std::vector<Input> inputs;
  for (int i = 1; i < argc; ++i) {
    for (const fs::path& path : InputsOf(argv[i])) inputs.push_back({path, Read(path)});
  }
  if (inputs.empty()) throw std::runtime_error("usage: a fuzz program FILE|DIRECTORY...");
  return inputs;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const std::vector<Input> inputs = ReadInputs(argc, argv);
    if (LLVMFuzzerInitialize != nullptr) LLVMFuzzerInitialize(&argc, &argv);
    for (const Input& input : inputs) {
      // The last name printed tells which one ended the process.
      std::fprintf(stderr, "%s, %zu bytes\n", input.path.c_str(), input.bytes.size());
      LLVMFuzzerTestOneInput(input.bytes.data(), input.bytes.size());
    }
    std::fprintf(stderr, "%zu inputs, all held\n", inputs.size());
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 2;
  }
  return 0;
}
