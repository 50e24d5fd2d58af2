// Loading the still-image codec module.
#include "io/image_codec.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace cli {

namespace {

namespace fs = std::filesystem;

std::string modulePath() {
  if (const char* env = std::getenv("TESSELUX_IMAGE_MODULE"); env && *env) return env;
  // An installed or copied tree keeps bin/ and lib/ side by side, as the build does.
  std::error_code ec;
  const fs::path self = fs::read_symlink("/proc/self/exe", ec);
  if (!ec) {
    const fs::path beside = self.parent_path().parent_path() / "lib" / "tesselux_images.so";
    if (fs::exists(beside, ec)) return beside.string();
  }
  return TESSELUX_IMAGE_MODULE_PATH;
}

}  // namespace

std::shared_ptr<const ImageCodec> loadImageCodec() {
  const std::string path = modulePath();
  // RTLD_NODELETE: OpenImageIO's worker threads and exit handlers must
  // outlive the last reader, so the module is never unmapped.
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  if (!handle) {
    const char* why = dlerror();
    throw MediaError("cannot load the image module " + path + ": " + (why ? why : "unknown error"));
  }
  using Entry = const ImageCodec* (*)();
  const auto entry = reinterpret_cast<Entry>(dlsym(handle, "tesselux_image_codec"));
  if (!entry) {
    dlclose(handle);
    throw MediaError(path + ": not a Tesselux image module");
  }
  return std::shared_ptr<const ImageCodec>(entry(), [handle](const ImageCodec*) { dlclose(handle); });
}

}  // namespace cli
