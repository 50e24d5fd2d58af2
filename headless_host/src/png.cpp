// Surfaces to and from PNG files, through libpng's simplified interface.
#include <png.h>

#include <cstring>

#include "thost/host.h"

namespace thost {

bool Surface::writePng(const std::string& path) const {
  if (width <= 0 || height <= 0 || bgra.size() != static_cast<size_t>(width) * height * 4)
    return false;
  png_image image;
  std::memset(&image, 0, sizeof image);
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(width);
  image.height = static_cast<png_uint_32>(height);
  // The file is plain 8-bit RGBA; BGRA only describes the order in memory.
  image.format = PNG_FORMAT_BGRA;
  const int ok = png_image_write_to_file(&image, path.c_str(), 0, bgra.data(), width * 4, nullptr);
  png_image_free(&image);
  return ok != 0;
}

bool Surface::readPng(const std::string& path, Surface& out) {
  png_image image;
  std::memset(&image, 0, sizeof image);
  image.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_file(&image, path.c_str())) {
    png_image_free(&image);
    return false;
  }
  image.format = PNG_FORMAT_BGRA;
  std::vector<uint8_t> pixels(PNG_IMAGE_SIZE(image));
  if (!png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr)) {
    png_image_free(&image);
    return false;
  }
  out.width = static_cast<int>(image.width);
  out.height = static_cast<int>(image.height);
  out.bgra = std::move(pixels);
  png_image_free(&image);
  return true;
}

}  // namespace thost
