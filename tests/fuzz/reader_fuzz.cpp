// The command's image and video readers on arbitrary file bytes. The first
// byte picks the file name's extension, which picks the reader; the rest is
// the file. A file that cannot be read must say so with a MediaError, never
// by crashing or with another exception.
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include "fuzz_input.h"
#include "fuzz_targets.h"
#include "io/media.h"

namespace fuzz {
namespace {

const char* const kExtensions[] = {".png", ".exr", ".tif", ".jpg", ".dpx", ".bmp",
                                   ".mp4", ".mov", ".mkv", ".avi", ".y4m", ".webm"};
constexpr size_t kExtensionCount = sizeof kExtensions / sizeof kExtensions[0];

// The inputs' folder goes when the process ends normally; scripts/fuzz points
// TMPDIR at a folder it removes, for runs that end otherwise.
struct InputFolder {
  std::filesystem::path dir;
  ~InputFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(dir, ignored);
  }
};

std::string fileFor(size_t extension) {
  static const InputFolder folder = [] {
    const auto d = std::filesystem::temp_directory_path() /
                   ("tesselux-reader-fuzz-" + std::to_string(getpid()));
    std::filesystem::create_directories(d);
    return InputFolder{d};
  }();
  return (folder.dir / (std::string("input") + kExtensions[extension])).string();
}

}  // namespace

int readerOne(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::string path = fileFor(data[0] % kExtensionCount);
  {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data + 1), static_cast<std::streamsize>(size - 1));
  }
  try {
    std::unique_ptr<cli::FrameSource> source = cli::openSource(path);
    const int frames = source->frameCount();
    if (frames < 0) fail("a reader reported a negative frame count");
    for (int k = 0; k < frames && k < 3; ++k) {
      const auto [w, h] = source->frameSize(k);
      const cli::Picture picture = source->read(k);
      if (w <= 0 || h <= 0 || picture.width != w || picture.height != h)
        fail("a frame read is not the size its reader announced");
    }
  } catch (const cli::MediaError&) {
    // The expected answer to a damaged file.
  } catch (const std::exception& e) {
    std::fprintf(stderr, "%s: %s\n", path.c_str(), e.what());
    fail("a reader failed with something other than a MediaError");
  }
  std::remove(path.c_str());
  return 0;
}

}  // namespace fuzz
