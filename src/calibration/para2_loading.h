// Where the sensor's calibration is taken from: a named directory, the local cache, the sensor.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "calibration/para2_lidar_calib.h"

namespace kerul::lidar {

struct Para2LoadOptions {
  std::string host = "192.168.10.160";  // the sensor, IPv4 in dotted form
  std::int32_t port = 9347;             // its command service
  std::uint8_t iic_device = 0x40;       // device that holds the calibration registers
  std::int32_t tile_pixels = 36;        // pixels of a tile
  std::int32_t tile_columns = 48;       // tiles in a row of tiles
  bool force_read_from_lidar = false;   // never use the cache
  std::string cali_path;                // not empty: load from here, the sensor is not contacted
  // For all pages of the main blob. A valid blob has 661 pages. They take 6610 s if each needs all
  // its waits, twice five of one second.
  std::chrono::milliseconds main_read_limit = std::chrono::hours(2);
};

// Set by the interrupt handler: a read of the sensor's pages ends after the page in hand.
inline std::atomic<bool> load_is_interrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "used by a signal handler");

// How such a read ends. No std::exception: no other way to the calibration is tried.
struct LoadInterrupted {
  unsigned pages_read;
  unsigned pages;
};

// The calibration of the connected sensor. Without `cali_path` every call reads the head page from
// the sensor, to learn which sensor it is. The main blob comes from the cache data/<id>/para_read/
// below the working directory when both of its files exist, otherwise from the sensor, and is then
// cached. Only a failed read falls back to the cache: data that was read but does not fit its
// checksums ends the load. Throws std::exception with the reason; for a cache that is refused, a
// line on standard error names the directory to delete. A read of the pages prints its progress to
// standard error, has an overall limit, and throws LoadInterrupted when interrupted.
Para2LidarCalib LoadPara2Calib(const Para2LoadOptions& options);

// Throws std::runtime_error with the reason when `path` is not a directory to load from.
void ValidateCaliPath(const std::string& path);

namespace para2_lidar_detail {

inline constexpr std::uint16_t kHeadRegister = 0xA02C;  // the head page
inline constexpr std::uint16_t kMainRegister = 0xA01C;  // all pages, one after another

// The cache of one sensor: its directory, with '/' at the end, and the two files that are read.
std::string ParaReadDir(const std::string& id);
std::string ParaReadHeadBinPath(const std::string& id);
std::string ParaReadMainBinPath(const std::string& id);

// True for an id that names one directory entry: not empty, not "." or "..", without '/' and
// control characters. Any other could take the cache out of its directory, or steer a terminal that
// shows it.
bool IsSafeLidarId(const std::string& id);

// The id in a head that was read from the sensor; throws when it cannot be parsed or is not safe.
std::string LidarIdFromRegister(const std::vector<std::uint8_t>& head);

// Takes id and camera model out of `head` into `calib`; throws when the head is too short.
void TakeHeadFields(const std::vector<std::uint8_t>& head, Para2LidarCalib& calib);

// The whole file. Throws "cannot open", "cannot stat" (no size, or a directory), "read failed".
std::vector<std::uint8_t> ReadFileBytes(const std::string& path);

// Reads the main blob over a connection of its own; `head` tells the number of pages.
void ReadMainOnline(const Para2LoadOptions& options, const std::vector<std::uint8_t>& head,
                    std::vector<std::uint8_t>& main);

// From the cache of sensor `id`. The cached head must hold an id. One that differs from `id` gives
// a warning on standard error and nothing else.
Para2LidarCalib TryLoadFromBinFiles(const Para2LoadOptions& options, const std::string& id,
                                    Para2CalibSource source);

// From options.cali_path; the id is the one that the path names.
Para2LidarCalib TryLoadFromCaliPath(const Para2LoadOptions& options, Para2CalibSource source);

// Finds directory (with '/' at the end) and sensor id of a path in one of three shapes:
// <id>/para_read, <id> that holds para_read, or <id> that holds the two files.
void ResolveCaliPath(const std::string& cali_path, std::string& dir, std::string& id);

// Writes the cache files as one set (files/file_set.h). `id` has to be safe.
void SaveParaReadCache(const std::string& id, const std::vector<std::uint8_t>& head,
                       const std::vector<std::uint8_t>& main, const Para2LidarCalib& calib);

}  // namespace para2_lidar_detail
}  // namespace kerul::lidar
