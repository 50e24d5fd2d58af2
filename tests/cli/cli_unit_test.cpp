// The command's pieces: sample conversions, names of sequences, the frame
// cache, options made from the host's controls, the JSON writer.
#include <gtest/gtest.h>

#include <malloc.h>

#include <cstring>

#include "controls.h"
#include "frame_cache.h"
#include "io/media.h"
#include "json.h"
#include "pixels.h"

namespace {

using cli::Picture;
using cli::SampleType;

TEST(PixelConversion, EightBitIntoEachDepth) {
  EXPECT_EQ(cli::px::u8ToHost16(0), 0);
  EXPECT_EQ(cli::px::u8ToHost16(255), 32768);
  EXPECT_EQ(cli::px::u8ToHost16(128), (128u * 32768u + 127u) / 255u);
  EXPECT_FLOAT_EQ(cli::px::u8ToFloat(51), 51 / 255.0f);
}

TEST(PixelConversion, SixteenBitFileAndHostSixteen) {
  EXPECT_EQ(cli::px::u16ToHost16(65535), 32768);
  EXPECT_EQ(cli::px::u16ToHost16(1), (32768u + 32767u) / 65535u);
  EXPECT_EQ(cli::px::u16ToU8(65535), 255);
  EXPECT_EQ(cli::px::u16ToU8(257), 1);
  EXPECT_EQ(cli::px::host16ToU8(32768), 255);
  EXPECT_EQ(cli::px::host16ToU8(16384), (16384u * 255u + 16384u) / 32768u);
  EXPECT_EQ(cli::px::host16ToU16(32768), 65535);
  // Every 16-bit host value survives a trip through a 16-bit file.
  for (uint32_t a = 0; a <= 32768; ++a) ASSERT_EQ(cli::px::u16ToHost16(cli::px::host16ToU16(a)), a) << a;
}

TEST(PixelConversion, FloatClampsAndRounds) {
  EXPECT_EQ(cli::px::floatToU8(-0.5f), 0);
  EXPECT_EQ(cli::px::floatToU8(2.0f), 255);
  EXPECT_EQ(cli::px::floatToU8(0.5f), static_cast<int>(0.5f * 255 + 0.5f));
  EXPECT_EQ(cli::px::floatToU16(1.0f), 65535);
  EXPECT_EQ(cli::px::floatToU8(std::nanf("")), 0);
}

TEST(PixelConversion, FileRgbaBecomesHostArgbAndBack) {
  Picture p(2, 1, SampleType::U8);
  const uint8_t px[8] = {10, 20, 30, 40, 50, 60, 70, 80};
  std::memcpy(p.data.data(), px, 8);
  const thost::Image img = cli::toHost(p, thost::Depth::Bits8);
  EXPECT_EQ(img.row(0)[0], 40);  // alpha first
  EXPECT_EQ(img.row(0)[1], 10);
  EXPECT_EQ(img.row(0)[7], 70);
  EXPECT_EQ(cli::fromHost(img, SampleType::U8), p);
  // 8 -> 16 -> 8 is exact, and so is 8 -> float -> 8.
  EXPECT_EQ(cli::fromHost(cli::toHost(p, thost::Depth::Bits16), SampleType::U8), p);
  EXPECT_EQ(cli::fromHost(cli::toHost(p, thost::Depth::Float32), SampleType::U8), p);
}

TEST(PixelConversion, AutoDepthFollowsTheFile) {
  EXPECT_EQ(cli::autoDepth(SampleType::U8), thost::Depth::Bits8);
  EXPECT_EQ(cli::autoDepth(SampleType::U16), thost::Depth::Bits16);
  EXPECT_EQ(cli::autoDepth(SampleType::F32), thost::Depth::Float32);
}

// swscale writes up to 60 bytes past the last row of a tightly packed picture
// (an 8-pixel-wide yuv420p frame into RGBA); without room there it overwrote
// the next heap block. Under AddressSanitizer the usable size is the size asked.
TEST(PixelMemory, EveryPictureOwnsRoomPastItsLastRow) {
  for (const cli::SampleType t : {cli::SampleType::U8, cli::SampleType::U16, cli::SampleType::F32}) {
    for (const int w : {1, 8, 17, 1920}) {
      const cli::Picture p(w, 3, t);
      EXPECT_GE(malloc_usable_size(const_cast<uint8_t*>(p.data.data())), p.data.size() + 64)
          << cli::sampleName(t) << " " << w;
    }
  }
}

TEST(MediaNames, KindsAndSequenceNumbers) {
  EXPECT_EQ(cli::mediaKind("a/%04d.png"), cli::MediaKind::Sequence);
  EXPECT_EQ(cli::mediaKind("clip.MOV"), cli::MediaKind::Video);
  EXPECT_EQ(cli::mediaKind("x.exr"), cli::MediaKind::Still);
  EXPECT_EQ(cli::mediaKind("null:"), cli::MediaKind::Null);
  EXPECT_EQ(cli::sequenceName("f/%04d.png", 7), "f/0007.png");
  EXPECT_EQ(cli::sequenceName("f/%d.tif", 12), "f/12.tif");
  EXPECT_EQ(cli::imageSampleType("a.png", thost::Depth::Float32), SampleType::U16);
  EXPECT_EQ(cli::imageSampleType("a.tif", thost::Depth::Float32), SampleType::F32);
  EXPECT_EQ(cli::imageSampleType("a.jpg", thost::Depth::Bits16), SampleType::U8);
}

// A source that counts its reads.
class CountingSource : public cli::FrameSource {
 public:
  explicit CountingSource(int frames) : frames_(frames) {}
  int frameCount() const override { return frames_; }
  SampleType sampleType() const override { return SampleType::U8; }
  std::pair<int, int> frameSize(int) const override { return {16, 16}; }
  Picture read(int k) override {
    ++reads;
    Picture p(16, 16, SampleType::U8);
    std::memset(p.data.data(), k, p.data.size());
    return p;
  }
  int reads = 0;

 private:
  int frames_;
};

TEST(FrameCache, ServesRepeatsFromMemoryAndStaysWithinItsSize) {
  auto src = std::make_unique<CountingSource>(100);
  CountingSource* counter = src.get();
  const size_t frameBytes = 16 * 16 * 4;
  cli::SourceClip clip(std::move(src), frameBytes * 5);
  for (int round = 0; round < 3; ++round)
    for (int k = 0; k < 5; ++k) EXPECT_EQ(clip.frame(k, thost::Depth::Bits8)->row(0)[0], k);
  EXPECT_EQ(counter->reads, 5);
  for (int k = 0; k < 100; ++k) clip.frame(k, thost::Depth::Bits8);
  EXPECT_LE(clip.cachedBytes(), frameBytes * 5);
  EXPECT_EQ(clip.cachedFrames(), 5u);
  // Out-of-range frames clamp to the clip, as a host checkout does.
  EXPECT_EQ(clip.frame(250, thost::Depth::Bits8)->row(0)[1], 99);
  // Depths are cached apart.
  EXPECT_EQ(clip.frame(99, thost::Depth::Bits16)->depth, thost::Depth::Bits16);
}

TEST(ControlOptions, ChoiceKeywords) {
  EXPECT_EQ(cli::choiceKeywords("Repeat Last|Wrap|Mirror"),
            (std::vector<std::string>{"repeat", "wrap", "mirror"}));
  EXPECT_EQ(cli::choiceKeywords("Threshold|Randomized Threshold|Randomized Mask"),
            (std::vector<std::string>{"threshold", "randomized-threshold", "randomized-mask"}));
}

class ControlOptionsFromHost : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { host = new thost::RenderHost(thost::RenderHost::Options{}); }
  static void TearDownTestSuite() {
    delete host;
    host = nullptr;
  }
  const cli::ControlOption& option(const std::string& name) {
    static std::vector<cli::ControlOption> all = cli::controlOptions(host->controls());
    for (const cli::ControlOption& o : all)
      if (o.option == name) return o;
    throw std::runtime_error("no option " + name);
  }
  static thost::RenderHost* host;
};
thost::RenderHost* ControlOptionsFromHost::host = nullptr;

TEST_F(ControlOptionsFromHost, EveryNamedControlHasAnOption) {
  const auto all = cli::controlOptions(host->controls());
  EXPECT_EQ(all.size(), 19u);
  EXPECT_EQ(option("seed").id, 7);
  EXPECT_EQ(option("time-seed").id, 15);
  EXPECT_EQ(option("edge-mode").rangeText(), "repeat|wrap|mirror");
}

TEST_F(ControlOptionsFromHost, ValuesInTheHostsUnits) {
  EXPECT_EQ(cli::parseControlValue(option("direction"), "vertical"), 3.0);
  EXPECT_EQ(cli::parseControlValue(option("edge-mode"), "repeat-last"), 1.0);
  EXPECT_DOUBLE_EQ(cli::parseControlValue(option("strength"), "0.25"), 0.25);
  EXPECT_DOUBLE_EQ(cli::parseControlValue(option("time-probability"), "100"), 100.0);
  EXPECT_DOUBLE_EQ(cli::parseControlValue(option("block-width"), "12.5"), 12.5);
}

TEST_F(ControlOptionsFromHost, OutOfRangeNamesOptionControlAndRange) {
  try {
    cli::parseControlValue(option("strength"), "1.5");
    FAIL();
  } catch (const cli::UsageError& e) {
    EXPECT_EQ(e.message, "--strength 1.5: out of range for \"Shuffle Strength\" (0.000 .. 1.000)");
  }
  EXPECT_THROW(cli::parseControlValue(option("time-seed"), "0"), cli::UsageError);
  EXPECT_THROW(cli::parseControlValue(option("block-width"), "0.5"), cli::UsageError);
  EXPECT_THROW(cli::parseControlValue(option("time-frames"), "16.00001"), cli::UsageError);
  EXPECT_THROW(cli::parseControlValue(option("channels"), "purple"), cli::UsageError);
  EXPECT_THROW(cli::parseControlValue(option("spread"), "abc"), cli::UsageError);
}

TEST(JsonWriter, NestsAndEscapes) {
  cli::Json j;
  j.open().key("a").num(1).key("b").openArray().str("x\"y").boolean(true).closeArray().key("c").num(0.5).close();
  EXPECT_EQ(j.text(), "{\"a\": 1, \"b\": [\"x\\\"y\", true], \"c\": 0.5}");
}

}  // namespace
