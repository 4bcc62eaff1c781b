#include "sensor_simulator/truth_file.h"

#include <cstring>
#include <stdexcept>

namespace kerul::lidar::simulator {
namespace {

constexpr char kMagic[] = "KLTRUTH1";
constexpr std::size_t kHeaderBytes = 32;
constexpr std::size_t kFrameHeaderBytes = 16;
constexpr std::size_t kEchoBytes = 20;
constexpr std::size_t kFrameBytes =
    kFrameHeaderBytes + kEchoBytes * kEchoes * static_cast<std::size_t>(kPixels);

template <typename T>
void Put(std::uint8_t* bytes, T value) noexcept {
  std::memcpy(bytes, &value, sizeof value);
}

template <typename T>
T Get(const std::uint8_t* bytes) noexcept {
  T value;
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

void PutEcho(const EchoTruth& echo, std::uint8_t* bytes) noexcept {
  Put(bytes, echo.range_m);
  Put(bytes + 4, echo.reflectivity);
  Put(bytes + 8, echo.cos_incidence);
  Put(bytes + 12, echo.strength);
  bytes[16] = static_cast<std::uint8_t>(echo.kind);
  bytes[17] = echo.body;
  bytes[18] = echo.sent;
}

EchoTruth GetEcho(const std::uint8_t* bytes) noexcept {
  EchoTruth echo;
  echo.range_m = Get<float>(bytes);
  echo.reflectivity = Get<float>(bytes + 4);
  echo.cos_incidence = Get<float>(bytes + 8);
  echo.strength = Get<float>(bytes + 12);
  echo.kind = static_cast<ReturnKind>(bytes[16]);
  echo.body = bytes[17];
  echo.sent = bytes[18];
  return echo;
}

std::vector<std::uint8_t> FileHeader() {
  std::vector<std::uint8_t> header(kHeaderBytes);
  std::memcpy(header.data(), kMagic, 8);
  Put(&header[8], static_cast<std::uint32_t>(kRows));
  Put(&header[12], static_cast<std::uint32_t>(kCols));
  Put(&header[16], static_cast<std::uint32_t>(kEchoes));
  Put(&header[20], static_cast<std::uint32_t>(kEchoBytes));
  return header;
}

}  // namespace

TruthWriter::TruthWriter(const std::string& path)
    : path_(path), file_(path, std::ios::binary | std::ios::trunc) {
  const std::vector<std::uint8_t> header = FileHeader();
  file_.write(reinterpret_cast<const char*>(header.data()), kHeaderBytes);
  if (!file_) throw std::runtime_error("cannot write " + path_);
}

void TruthWriter::Write(const SimulatedFrame& frame) {
  std::vector<std::uint8_t> bytes(kFrameBytes);
  Put(bytes.data(), frame.number);
  Put(&bytes[8], frame.time_s);
  std::uint8_t* place = bytes.data() + kFrameHeaderBytes;
  for (const PixelTruth& pixel : frame.truth) {
    for (const EchoTruth& echo : pixel) {
      PutEcho(echo, place);
      place += kEchoBytes;
    }
  }
  file_.write(reinterpret_cast<const char*>(bytes.data()), kFrameBytes);
  file_.flush();
  if (!file_) throw std::runtime_error("cannot write " + path_);
}

std::vector<SimulatedFrame> ReadTruthFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::vector<std::uint8_t> header(kHeaderBytes);
  file.read(reinterpret_cast<char*>(header.data()), kHeaderBytes);
  if (!file) throw std::runtime_error("cannot read " + path);
  if (header != FileHeader()) throw std::runtime_error("not a truth file: " + path);
  std::vector<SimulatedFrame> frames;
  std::vector<std::uint8_t> bytes(kFrameBytes);
  while (file.read(reinterpret_cast<char*>(bytes.data()), kFrameBytes)) {
    SimulatedFrame frame;
    frame.number = Get<std::uint32_t>(bytes.data());
    frame.time_s = Get<double>(&bytes[8]);
    frame.truth.resize(static_cast<std::size_t>(kPixels));
    const std::uint8_t* place = bytes.data() + kFrameHeaderBytes;
    for (PixelTruth& pixel : frame.truth) {
      for (EchoTruth& echo : pixel) {
        echo = GetEcho(place);
        place += kEchoBytes;
      }
    }
    frames.push_back(std::move(frame));
  }
  return frames;
}

}  // namespace kerul::lidar::simulator
