// Peak memory of a render does not follow the clip's length: frames are
// served through a bounded cache, whatever times the shift asks for.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "cli_test_support.h"

namespace {

long peakRssKb(const cli_test::Scratch& s, int frames) {
  const std::string in = s / ("in" + std::to_string(frames) + ".mp4");
  EXPECT_EQ(cli_test::shell("ffmpeg -v error -f lavfi -i testsrc2=size=320x180:rate=30 -frames:v " +
                            std::to_string(frames) + " -c:v libx264 -g 10 -pix_fmt yuv420p '" + in + "'"),
            0);
  const auto r = cli_test::run(TESSELUX_CLI,
                               {"render", in, "-o", "null:", "--time-frames", "16", "--edge-mode", "wrap",
                                "--time-probability", "100", "--stepping-unit", "frame", "--time-step-frames", "2",
                                "--cache-mb", "16", "--threads", "2", "--quiet"},
                               s.path());
  EXPECT_EQ(r.status, 0) << r.err;
  return r.maxRssKb;
}

TEST(RenderMemory, PeakDoesNotGrowWithClipLength) {
  if (cli_test::shell("ffmpeg -version >/dev/null 2>&1") != 0) GTEST_SKIP() << "no ffmpeg tool";
  cli_test::Scratch s;
#if defined(TESSELUX_ASAN)
  // AddressSanitizer holds freed blocks back in a quarantine that grows with
  // everything a run ever frees; without it the peak measures the program.
  const char* asan = std::getenv("ASAN_OPTIONS");
  const std::string options = std::string(asan ? asan : "") +
                              ":quarantine_size_mb=0:thread_local_quarantine_size_kb=0";
  setenv("ASAN_OPTIONS", options.c_str(), 1);
#endif
  const long short100 = peakRssKb(s, 100);
  const long long300 = peakRssKb(s, 300);
  // 300 frames of 320x180 RGBA are 66 MiB, 46 MiB more than 100 frames; with a
  // 16 MiB cache the peak stays put. The fixed bound covers the process itself
  // (module, decoder and encoder threads, frames in flight).
  std::printf("peak RSS: 100 frames %ld KiB, 300 frames %ld KiB\n", short100, long300);
#if defined(TESSELUX_ASAN)
  // AddressSanitizer's shadow memory and allocator come on top.
  const long bound = 768 * 1024;
#else
  const long bound = 256 * 1024;
#endif
  EXPECT_LT(long300, bound) << "peak " << long300 << " KiB";
  EXPECT_LT(long300, short100 + 12 * 1024) << "100 frames: " << short100 << " KiB, 300 frames: " << long300 << " KiB";
}

}  // namespace
