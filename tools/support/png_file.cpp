#include "support/png_file.h"

#include <png.h>

#include <cstddef>
#include <utility>

#include "support/output_file.h"

namespace kerul::lidar {

bool EncodePng(int width, int height, const std::vector<std::uint8_t>& rgb,
               std::vector<char>& encoded, std::string& error) {
  const auto fail = [&](const std::string& reason) {
    error = reason;
    return false;
  };
  if (width < 1 || height < 1) return fail("a picture needs a pixel");
  if (rgb.size() !=
      std::size_t{3} * static_cast<std::size_t>(width) * static_cast<std::size_t>(height)) {
    return fail("the picture's size does not fit its pixels");
  }
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(width);
  image.height = static_cast<png_uint_32>(height);
  image.format = PNG_FORMAT_RGB;
  // Not with the library's own file writer: when that fails, it removes whatever has the name.
  png_alloc_size_t bytes = PNG_IMAGE_PNG_SIZE_MAX(image);
  encoded.resize(bytes);
  if (png_image_write_to_memory(&image, encoded.data(), &bytes, 0, rgb.data(), 0, nullptr) == 0) {
    return fail(image.message);
  }
  encoded.resize(bytes);
  return true;
}

bool WritePng(const std::string& path, int width, int height, const std::vector<std::uint8_t>& rgb,
              std::string& error) {
  std::vector<char> encoded;
  return EncodePng(width, height, rgb, encoded, error) && WriteOutputFile(path, encoded, error);
}

bool ReadPng(const std::string& path, int& width, int& height, std::vector<std::uint8_t>& rgb,
             std::string& error) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  const auto fail = [&](const std::string& reason) {
    error = reason;
    png_image_free(&image);
    return false;
  };
  if (png_image_begin_read_from_file(&image, path.c_str()) == 0) return fail(image.message);
  constexpr png_uint_32 kLargest = 16384;  // a few header bytes cannot ask for all memory
  if (image.width > kLargest || image.height > kLargest) return fail("the picture is too large");
  image.format = PNG_FORMAT_RGB;
  std::vector<std::uint8_t> pixels(PNG_IMAGE_SIZE(image));
  const png_color black{};
  if (png_image_finish_read(&image, &black, pixels.data(), 0, nullptr) == 0) {
    return fail(image.message);
  }
  width = static_cast<int>(image.width);
  height = static_cast<int>(image.height);
  rgb = std::move(pixels);
  return true;
}

}  // namespace kerul::lidar
