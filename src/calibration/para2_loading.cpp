#include "calibration/para2_loading.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <system_error>

#include "calibration/printable_id.h"
#include "calibration/rcx_client.h"
#include "files/file_set.h"
#include "files/regular_file.h"

namespace kerul::lidar {
namespace para2_lidar_detail {
namespace {

namespace fs = std::filesystem;

constexpr double kTimeoutS = 1.0;
constexpr unsigned kPagesBetweenLines = 100;

Para2LidarCalib LoadFromFiles(const Para2LoadOptions& options, const std::string& head_path,
                              const std::string& main_path, const std::string& id,
                              Para2CalibSource source) {
  const std::vector<std::uint8_t> head = ReadFileBytes(head_path);
  const std::vector<std::uint8_t> main = ReadFileBytes(main_path);
  VerifyHeadCrc(head, main);
  Para2LidarCalib calib;
  TakeHeadFields(head, calib);
  if (calib.lidar_id != id) {
    std::cerr << "[WARN] para2: " << head_path << " holds the calibration of sensor \""
              << PrintableId(calib.lidar_id) << "\" and is loaded as that of \"" << PrintableId(id)
              << "\"" << std::endl;
  }
  UnpackPara2Main(main, options.tile_pixels, options.tile_columns, calib);
  calib.source = source;
  calib.lidar_id = id;
  return calib;
}

std::vector<std::uint8_t> ReadHeadRegister(const Para2LoadOptions& options) {
  try {
    RcxClient client(options.host, options.port, kTimeoutS);
    return client.ReadIicRegMulti(options.iic_device, kHeadRegister, kPageBytes);
  } catch (const std::exception& error) {
    throw std::runtime_error(std::string("para2 head register read failed: ") + error.what());
  }
}

bool IsCached(const std::string& id) {
  std::error_code ignored;
  return fs::exists(ParaReadHeadBinPath(id), ignored) &&
         fs::exists(ParaReadMainBinPath(id), ignored);
}

// A cache that does not fit its checksums is refused at every start, though the sensor has the
// data.
Para2LidarCalib LoadFromCache(const Para2LoadOptions& options, const std::string& id) {
  try {
    return TryLoadFromBinFiles(options, id, Para2CalibSource::kLocalCache);
  } catch (const std::exception&) {
    std::error_code ignored;
    std::cerr << "[WARN] the cached calibration cannot be used; to read it from the sensor again, "
                 "delete "
              << fs::absolute(ParaReadDir(id), ignored).string() << std::endl;
    throw;
  }
}

Para2LidarCalib FallBackToCache(const Para2LoadOptions& options, const std::string& id,
                                const std::string& read_error) {
  if (options.force_read_from_lidar) {
    throw std::runtime_error("para2 main read failed (force_read_from_lidar): " + read_error);
  }
  try {
    return TryLoadFromBinFiles(options, id, Para2CalibSource::kFallback);
  } catch (const std::exception& error) {
    throw std::runtime_error("para2 main read failed: " + read_error +
                             "; bin fallback failed: " + error.what());
  }
}

// Called before each page: a slow or hostile sensor could draw the read out for days.
class PageWatch {
 public:
  PageWatch(unsigned pages, std::chrono::milliseconds limit)
      : pages_(pages), limit_(limit), deadline_(std::chrono::steady_clock::now() + limit) {}

  void Look(unsigned pages_read) const {
    if (load_is_interrupted) throw LoadInterrupted{pages_read, pages_};
    const std::string progress = std::to_string(pages_read) + " of " + std::to_string(pages_);
    if (std::chrono::steady_clock::now() > deadline_) {
      throw std::runtime_error("para2 main read took more than " + std::to_string(limit_.count()) +
                               " ms: " + progress + " pages read");
    }
    if (pages_read == 0 || pages_read % kPagesBetweenLines != 0) return;
    std::cerr << "[INFO] para2: " << progress << " pages read from the sensor" << std::endl;
  }

 private:
  unsigned pages_;
  std::chrono::milliseconds limit_;
  std::chrono::steady_clock::time_point deadline_;
};

void RequireFile(const std::string& path, const char* missing) {
  std::error_code ignored;
  if (!fs::is_regular_file(path, ignored)) throw std::runtime_error(missing + path);
}

bool IsDirectory(const fs::path& path) {
  std::error_code ignored;
  return fs::is_directory(path, ignored);
}

}  // namespace

std::string ParaReadDir(const std::string& id) { return "data/" + id + "/para_read/"; }

std::string ParaReadHeadBinPath(const std::string& id) {
  return ParaReadDir(id) + id + "_head.bin";
}

std::string ParaReadMainBinPath(const std::string& id) {
  return ParaReadDir(id) + id + "_para2.bin";
}

bool IsSafeLidarId(const std::string& id) {
  return !id.empty() && id != "." && id != ".." && id.find('/') == std::string::npos &&
         std::none_of(id.begin(), id.end(), IsControl);
}

std::string LidarIdFromRegister(const std::vector<std::uint8_t>& head) {
  if (head.empty()) throw std::runtime_error("para2 head register read failed: empty head");
  std::string id = ParseLidarId(head);
  if (!IsSafeLidarId(id)) {
    throw std::runtime_error("cannot parse lidar_id from para2 head register bytes[0:20]");
  }
  return id;
}

void TakeHeadFields(const std::vector<std::uint8_t>& head, Para2LidarCalib& calib) {
  calib.lidar_id = ParseLidarId(head);
  if (calib.lidar_id.empty()) {
    throw std::runtime_error("cannot parse lidar_id from para2 head bytes[0:20]");
  }
  if (head.size() < kAngleBlockOffset + kAngleRecordBytes) {
    throw std::runtime_error("para2 head too short for angle block");
  }
  std::memcpy(&calib.angle_record, head.data() + kAngleBlockOffset, kAngleRecordBytes);
}

std::vector<std::uint8_t> ReadFileBytes(const std::string& path) {
  std::vector<std::uint8_t> bytes;
  switch (ReadRegularFile(path, bytes)) {
    case FileFault::kNone:
      return bytes;
    case FileFault::kCannotOpen:
      throw std::runtime_error("cannot open " + path);
    case FileFault::kNotRegular:
      throw std::runtime_error("cannot stat " + path);
    default:
      throw std::runtime_error("read failed: " + path);
  }
}

void ReadMainOnline(const Para2LoadOptions& options, const std::vector<std::uint8_t>& head,
                    std::vector<std::uint8_t>& main) {
  if (head.size() < kPageCountOffset + 2) {
    throw std::runtime_error("para2 head too short for page_count");
  }
  const unsigned page_count = head[kPageCountOffset] + 256U * head[kPageCountOffset + 1];
  if (page_count == 0xFFFFU) throw std::runtime_error("para2 page_count invalid (0xFFFF)");
  if (page_count < 2) {
    throw std::runtime_error("para2 page_count invalid (<2): " + std::to_string(page_count));
  }
  RcxClient client(options.host, options.port, kTimeoutS);
  main.clear();
  main.reserve((page_count - 1) * kPageBytes);
  const PageWatch watch(page_count, options.main_read_limit);
  for (unsigned page = 0; page < page_count; ++page) {
    watch.Look(page);
    const std::vector<std::uint8_t> bytes =
        client.ReadIicRegMulti(options.iic_device, kMainRegister, kPageBytes);
    if (page == 0) continue;  // the stream begins with the head page, which is known already
    main.insert(main.end(), bytes.begin(), bytes.end());
  }
}

Para2LidarCalib TryLoadFromBinFiles(const Para2LoadOptions& options, const std::string& id,
                                    Para2CalibSource source) {
  return LoadFromFiles(options, ParaReadHeadBinPath(id), ParaReadMainBinPath(id), id, source);
}

Para2LidarCalib TryLoadFromCaliPath(const Para2LoadOptions& options, Para2CalibSource source) {
  std::string dir;
  std::string id;
  ResolveCaliPath(options.cali_path, dir, id);
  return LoadFromFiles(options, dir + id + "_head.bin", dir + id + "_para2.bin", id, source);
}

void ResolveCaliPath(const std::string& cali_path, std::string& dir, std::string& id) {
  if (cali_path.empty()) throw std::runtime_error("cali_path is empty");
  std::string stripped = cali_path;
  while (stripped.size() > 1 && (stripped.back() == '/' || stripped.back() == '\\')) {
    stripped.pop_back();
  }
  fs::path path = fs::path(stripped).lexically_normal();
  if (!path.has_filename() || path.filename() == ".") path = path.parent_path();
  if (!IsDirectory(path)) {
    throw std::runtime_error("cali_path is not a valid directory: " + cali_path);
  }

  fs::path found = path;
  id = path.filename().string();
  if (id == "para_read") {
    id = path.parent_path().filename().string();
  } else if (IsDirectory(path / "para_read")) {
    found = path / "para_read";
  }
  if (id.empty() || id == "." || id == "..") {
    throw std::runtime_error("cannot derive lidar_id from cali_path: " + cali_path);
  }
  RequireFile((found / (id + "_head.bin")).string(), "cali_path missing head bin: ");
  RequireFile((found / (id + "_para2.bin")).string(), "cali_path missing para2 bin: ");

  dir = found.string();
  if (!dir.empty() && dir.back() != '/' && dir.back() != '\\') dir += '/';
}

void SaveParaReadCache(const std::string& id, const std::vector<std::uint8_t>& head,
                       const std::vector<std::uint8_t>& main, const Para2LidarCalib& calib) {
  fs::create_directories(ParaReadDir(id));
  const auto* angle = reinterpret_cast<const std::uint8_t*>(&calib.angle_record);
  const NewFile files[] = {
      {ParaReadHeadBinPath(id), head},
      {ParaReadMainBinPath(id), main},
      {ParaReadDir(id) + "Lidar-" + id + "_angle_calib.dat", {angle, kAngleRecordBytes}}};
  ReplaceFiles(files);
}

}  // namespace para2_lidar_detail

Para2LidarCalib LoadPara2Calib(const Para2LoadOptions& options) {
  using namespace para2_lidar_detail;
  if (!options.cali_path.empty()) {
    return TryLoadFromCaliPath(options, Para2CalibSource::kLocalCache);
  }

  // Which sensor is connected.
  const std::vector<std::uint8_t> head = ReadHeadRegister(options);
  const std::string id = LidarIdFromRegister(head);

  // Its cache entry: the cached head is used then, not the one just read.
  if (!options.force_read_from_lidar && IsCached(id)) {
    return LoadFromCache(options, id);
  }

  // The sensor itself. Only a failed read may fall back to the cache.
  std::vector<std::uint8_t> main;
  try {
    ReadMainOnline(options, head, main);
  } catch (const std::exception& error) {
    return FallBackToCache(options, id, error.what());
  }

  Para2LidarCalib calib;
  VerifyHeadCrc(head, main);
  TakeHeadFields(head, calib);
  UnpackPara2Main(main, options.tile_pixels, options.tile_columns, calib);
  calib.source = Para2CalibSource::kOnline;
  SaveParaReadCache(id, head, main, calib);
  return calib;
}

void ValidateCaliPath(const std::string& path) {
  std::string dir;
  std::string id;
  para2_lidar_detail::ResolveCaliPath(path, dir, id);
}

}  // namespace kerul::lidar
