#include "lidar_view/png_file.h"

#include <png.h>

namespace kerul::lidar::view {

bool WritePng(const std::string& path, const Canvas& canvas, std::string& error) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(canvas.width);
  image.height = static_cast<png_uint_32>(canvas.height);
  image.format = PNG_FORMAT_RGB;
  const bool written =
      png_image_write_to_file(&image, path.c_str(), 0, canvas.rgb.data(), 0, nullptr) != 0;
  if (!written) error = image.message;
  return written;
}

}  // namespace kerul::lidar::view
