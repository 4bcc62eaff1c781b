// The odd inputs made by hand of files, answers and rings; see WriteOddFiles.
#include <bit>
#include <limits>

#include "seed_directory.h"

namespace {

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

Bytes Float(float value) {
  const auto bits = std::bit_cast<std::uint32_t>(value);
  return {static_cast<std::uint8_t>(bits), static_cast<std::uint8_t>(bits >> 8),
          static_cast<std::uint8_t>(bits >> 16), static_cast<std::uint8_t>(bits >> 24)};
}

// --- Camera records: binning at 5, rows 6, columns 8, then floats ---

void WriteCameraRecords(const SeedDirectory& seeds, const Bytes& camera) {
  constexpr std::size_t kBinning = 5;
  constexpr std::size_t kRows = 6;
  constexpr std::size_t kFocalLength = 10;
  constexpr std::size_t kPrincipalPoint = 14;
  constexpr std::size_t kDistortion = 22;
  constexpr std::size_t kTilt = 38;
  constexpr std::size_t kAzimuth = 42;
  const Bytes small = With(camera, kRows, {24, 0, 32, 0});
  const auto write = [&](const char* name, const Bytes& record) {
    seeds.Write("angle_record_fuzz", name, record);
  };
  write("one_byte_short", Bytes(camera.begin(), camera.end() - 1));
  write("small_grid", small);
  write("one_pixel", With(camera, kRows, {1, 0, 1, 0}));
  write("no_rows", With(small, kRows, {0, 0}));
  write("binning_nothing", With(small, kBinning, {0}));
  write("focal_length_zero", With(small, kFocalLength, Float(0.0F)));
  write("focal_length_negative", With(small, kFocalLength, Float(-1.0F)));
  write("focal_length_nan", With(small, kFocalLength, Float(kNan)));
  write("focal_length_infinite", With(small, kFocalLength, Float(kInfinity)));
  write("principal_point_nan", With(small, kPrincipalPoint, Joined({Float(kNan), Float(kNan)})));
  write("principal_point_far_off",
        With(small, kPrincipalPoint, Joined({Float(-3e38F), Float(3e38F)})));
  write("distortion_folds_back", With(small, kDistortion, Float(-50.0F)));
  write("distortion_infinite", With(small, kDistortion + 12, Float(kInfinity)));
  write("tilt_nan", With(small, kTilt, Float(kNan)));
  write("azimuth_infinite", With(small, kAzimuth, Float(kInfinity)));
}

// --- Export files: height at 12, width 14, count of returns 32, records of 12 bytes from 36 ---

void WriteExportFiles(const SeedDirectory& seeds, const Bytes& file) {
  constexpr std::size_t kHeight = 12;
  constexpr std::size_t kWidth = 14;
  constexpr std::size_t kCount = 32;
  constexpr std::size_t kFirstRecord = 36;
  constexpr std::size_t kSecondRecord = 48;
  const Bytes all_ones(4, 0xFF);
  const auto write = [&](const char* name, const Bytes& bytes) {
    seeds.Write("export_file_fuzz", name, bytes);
  };
  write("no_rows", With(file, kHeight, {0, 0}));
  write("no_columns", With(file, kWidth, {0, 0}));
  write("largest_grid", With(With(file, kHeight, all_ones), kCount, all_ones));
  write("return_count_all_ones", With(file, kCount, all_ones));
  write("pixel_outside_the_grid", With(file, kFirstRecord, {4, 0, 0, 0}));
  write("pixel_twice", With(file, kSecondRecord, {0, 0, 2, 0}));  // the first record's
  const Bytes no_value = Joined({Float(kNan), Float(kInfinity)});
  write("range_without_a_value", With(With(file, kCount, {10}), kFirstRecord + 4, no_value));
}

// --- Command service ---

// A start against a service: its kind, then the 20 bytes of the sensor's id.
Bytes Start(std::uint8_t kind, const std::string& id) {
  return With(Joined({{0, kind}, Bytes(20, 0xFF)}), 2, Bytes(id.begin(), id.end()));
}

void WriteCommandServices(const SeedDirectory& seeds) {
  const auto write = [&](const char* name, const Bytes& bytes) {
    seeds.Write("rcx_client_fuzz", name, bytes);
  };
  write("id_empty", Start(1, ""));
  write("id_dot", Start(1, "."));
  write("id_two_dots", Start(1, ".."));
  write("id_climbs", Start(1, "../../x"));
  write("id_absolute", Start(5, "/tmp/kerul"));
  write("id_slash_inside", Start(1, "a/b"));
  write("id_with_zero", Start(1, std::string("S1\0/..", 6)));
  write("id_without_end", Start(1, std::string(20, 'A')));
  write("no_pages", Joined({Start(0, "S1"), {0, 0}}));
  write("one_page", Joined({Start(0, "S1"), {1, 0}}));
  write("sixty_three_pages", Joined({Start(0, "S1"), {63, 0}}));
  write("silence_at_once", Joined({Start(1, "S1"), Bytes(8, 0xFE)}));
  write("byte_by_byte", Joined({Start(1, "S1"), Bytes(400, 1)}));
  write("odd_digits", {1, 0xFF, '0', ' ', '1', ' ', '2', 'x', 'y', 'z'});
  write("read_of_no_bytes", {2, 0, 0, 0, 0});
  write("read_of_too_many_bytes", {2, 0x4B, 4, 0, 0});
  write("answer_of_another_command", {2, 0x10, 0, 0, 0, 0x26, 'G', 't', 0x55, 0, 0, 0, 0, 0x10});
  write("answer_length_all_ones",
        {2, 0x10, 0, 0, 0, 0x26, 'G', 't', 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 4});
}

// --- Rings ---

// Two packets, the four header bytes from `offset` on overwritten, and packets and reads after it.
Bytes HeaderOverwritten(std::uint8_t offset, std::uint8_t value) {
  return Joined({{0xE0, 0xE2, 0xE3, 0x64, offset},
                 Bytes(4, value),
                 {0xE2, 0xE3, 0xE0, 0xE0, 0xE2, 0xE3, 0xE2, 0xE3}});
}

void WriteRingSchedules(const SeedDirectory& seeds) {
  const auto write = [&](const std::string& name, const Bytes& bytes) {
    seeds.Write("ring_fuzz", name, bytes);
  };
  const std::pair<const char*, std::uint8_t> fields[] = {
      {"magic", 0}, {"head", 4}, {"boot_id", 8}, {"slots", 12}, {"stride_and_room", 16}};
  for (const auto& [name, offset] : fields) {
    write(std::string(name) + "_zero", HeaderOverwritten(offset, 0));
    write(std::string(name) + "_all_ones", HeaderOverwritten(offset, 0xFF));
  }
  write("head_ahead_of_its_slot",
        {0xE0, 0x64, 4, 0xE8, 3, 0, 0, 0xE2, 0xE3, 0xE2, 0xE3, 0xE0, 0xE2, 0xE3});
  write("length_all_ones",
        {0xE0, 0x1D, 0x18, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0xE2, 0xE3, 0xE0, 0xE2, 0xE3});
  write("restart_unread", {0xE0, 0xE0, 7, 0x20, 0xE2, 0xE3, 7, 0xE2, 0xE3, 0xE0, 0xE2, 0xE3});
  write("room_above_stride", {0xE0, 0x64, 0x10, 0xE4, 5, 0xFF, 0xFF, 0xE0, 0xE2, 0xE3});
  write("slots_past_the_region", {0xE0, 0x64, 12, 6, 0, 0, 0, 0xE0, 0xE2, 0xE3, 0xE0, 0xE2, 0xE3});
  write("stride_overlaps", {0xE0, 0x64, 0x10, 4, 0, 0xDC, 5, 0xE0, 0xE2, 0xE3, 0xE0, 0xE2, 0xE3});
}

// --- Calibration blobs: options, tile sizes if the options say so, head, main; see para2_fuzz ---

Bytes BlobsWithId(const SoundInputs& sound, const Bytes& id) {
  const Bytes head = With(With(sound.head, 0, Bytes(20, 0xFF)), 0, id);
  return Joined({{0x4C}, head, sound.main_part});
}

void WriteCalibrationBlobs(const SeedDirectory& seeds, const SoundInputs& sound) {
  const auto write = [&](const char* name, const Bytes& bytes) {
    seeds.Write("para2_fuzz", name, bytes);
  };
  const auto write_tiles = [&](const char* name, std::uint8_t pixels, int columns) {
    write(name, Joined({{0x4D, pixels},
                        Word(static_cast<std::size_t>(columns)),
                        sound.head,
                        sound.main_part}));
  };
  const std::string climbing = "../../../tmp/x";
  Bytes high_bytes;
  for (int byte = 0xEC; byte < 0xFF; ++byte) high_bytes.push_back(static_cast<std::uint8_t>(byte));
  write("id_empty", BlobsWithId(sound, {}));
  write("id_two_dots", BlobsWithId(sound, {'.', '.'}));
  write("id_climbs", BlobsWithId(sound, Bytes(climbing.begin(), climbing.end())));
  write("id_high_bytes", BlobsWithId(sound, high_bytes));
  write("no_head", {2, 0});
  write("head_of_an_id", Joined({{2, 20}, Bytes(sound.head.begin(), sound.head.begin() + 20)}));
  write("head_one_byte_short_of_an_id",
        Joined({{2, 19}, Bytes(sound.head.begin(), sound.head.begin() + 19)}));
  write("main_one_byte_short", Joined({{0x0C}, sound.head, sound.main_part}));
  write_tiles("tiles_of_nothing", 0, 0);
  write_tiles("tiles_of_no_columns", 36, 0);
  write_tiles("tiles_of_negative_width", 36, -48);
  write_tiles("tiles_of_smallest_numbers", 0x80, -0x8000);
}

}  // namespace

void WriteOddFiles(const SeedDirectory& seeds, const SoundInputs& sound) {
  WriteCameraRecords(seeds, sound.camera_record);
  WriteExportFiles(seeds, sound.export_file);
  WriteCalibrationBlobs(seeds, sound);
  WriteCommandServices(seeds);
  WriteRingSchedules(seeds);
}
