// Runs every committed seed and every saved finding through the fuzz targets,
// so the ordinary and sanitizer builds keep checking what the fuzzers found.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "fuzz_targets.h"

namespace fuzz {
void fail(const char* what) { throw std::runtime_error(what); }
}  // namespace fuzz

namespace {

namespace fs = std::filesystem;
using Target = int (*)(const uint8_t*, size_t);

// Replays tests/fuzz/{corpus,regressions}/<name>/*; returns how many files ran.
size_t replay(const std::string& name, Target target) {
  size_t ran = 0;
  for (const char* kind : {"corpus", "regressions"}) {
    const fs::path dir = fs::path(TESSELUX_FUZZ_DIR) / kind / name;
    if (!fs::is_directory(dir)) continue;
    std::vector<fs::path> files;
    for (const auto& e : fs::directory_iterator(dir))
      if (e.is_regular_file()) files.push_back(e.path());
    std::sort(files.begin(), files.end());
    for (const fs::path& f : files) {
      std::ifstream s(f, std::ios::binary);
      const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(s)),
                                       std::istreambuf_iterator<char>());
      try {
        target(bytes.data(), bytes.size());
      } catch (const std::exception& e) {
        ADD_FAILURE() << f << ": " << e.what();
      }
      ++ran;
    }
  }
  return ran;
}

}  // namespace

TEST(FuzzReplay, Renderer) { EXPECT_GT(replay("render", fuzz::renderOne), 0u); }
TEST(FuzzReplay, SampleTime) { EXPECT_GT(replay("sample_time", fuzz::sampleTimeOne), 0u); }
TEST(FuzzReplay, EffectMainThroughTheHost) {
  EXPECT_GT(replay("effect_main", fuzz::effectMainOne), 0u);
}
TEST(FuzzReplay, CommandReaders) { EXPECT_GT(replay("reader", fuzz::readerOne), 0u); }
