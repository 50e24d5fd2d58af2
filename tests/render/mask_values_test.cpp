// Per-block mask values: scale, sampling, channel choice and the per-depth
// value rules, read back through the kernel's snapshot.
#include <gtest/gtest.h>

#include "dsp_versions.h"
#include "render/block_sums.h"
#include "render_support.h"

namespace {

using rt::Depth;
using rt::World;

template <typename T>
class MaskValues : public ::testing::Test {};
using Depths = ::testing::Types<uint8_t, uint16_t, float>;
TYPED_TEST_SUITE(MaskValues, Depths);

// Renders with no shuffle attempts and returns the mask values.
template <typename T>
std::vector<A_u_short> maskValues(World<T>& input, ParamValues v, PF_LayerDef* mask = nullptr, int outOx = 0,
                                  int outOy = 0) {
  World<T> out(input.def.width, input.def.height, 2, outOx, outOy);
  v.shuffleStrength = 0;
  v.maskLayer = mask;
  rt::Captured cap;
  EXPECT_EQ(Depth<T>::render(&input.def, &out.def, v, 1.0f, rt::captureHooks(&cap)), PF_Err_NONE);
  EXPECT_TRUE(cap.seen);
  return cap.maskval;
}

template <typename T>
ParamValues withIntensity(double percent, int channel, int bw, int bh) {
  ParamValues v = rt::defaultValues();
  v.maskIntensity = percent;
  v.channels = channel;
  v.blockWidth = bw;
  v.blockHeight = bh;
  return v;
}

TYPED_TEST(MaskValues, IntensityZeroComputesNothing) {
  using T = TypeParam;
  World<T> in(16, 16);
  in.fillPixel(Depth<T>::full(), Depth<T>::full(), Depth<T>::full(), Depth<T>::full());
  for (int ch = 0; ch <= 4; ++ch) {
    const auto m = maskValues(in, withIntensity<T>(0.0, ch, 4, 4));
    ASSERT_EQ(m.size(), 16u);
    for (A_u_short value : m) EXPECT_EQ(value, 0);
  }
}

TYPED_TEST(MaskValues, WhiteBlockIsFullAndBlackBlockIsZeroInRGBA) {
  using T = TypeParam;
  World<T> in(8, 4);
  const T full = Depth<T>::full();
  in.fillPixel(full, T(0), T(0), T(0));  // alpha does not count in RGBA
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 4; ++x)
      for (int c = 1; c < 4; ++c) in.set(x, y, c, full);
  const auto m = maskValues(in, withIntensity<T>(50, 0, 4, 4));
  ASSERT_EQ(m.size(), 2u);
  EXPECT_EQ(m[0], 32768);  // 8-bit: 765 * 32768 / 765
  EXPECT_EQ(m[1], 0);
}

TYPED_TEST(MaskValues, OneFullChannelOfThreeIsAThirdInRGBA) {
  using T = TypeParam;
  World<T> in(4, 4);
  in.fillPixel(T(0), Depth<T>::full(), T(0), T(0));
  const auto m = maskValues(in, withIntensity<T>(50, 0, 4, 4));
  // 8-bit 255 * 32768 / 765, 16-bit 32768 / 3, float 1.0 * 10922.667: all 10922.
  EXPECT_EQ(m[0], 10922);
}

TYPED_TEST(MaskValues, SingleGreenChannelAtFullIsFull) {
  using T = TypeParam;
  World<T> in(4, 4);
  in.fillPixel(T(0), T(0), Depth<T>::full(), T(0));
  EXPECT_EQ(maskValues(in, withIntensity<T>(50, 2, 4, 4))[0], 32768);
  // The other channels of the same pixels are black.
  EXPECT_EQ(maskValues(in, withIntensity<T>(50, 1, 4, 4))[0], 0);
  EXPECT_EQ(maskValues(in, withIntensity<T>(50, 3, 4, 4))[0], 0);
  EXPECT_EQ(maskValues(in, withIntensity<T>(50, 4, 4, 4))[0], 0);
}

TYPED_TEST(MaskValues, AlphaChannelIsPositionZero) {
  using T = TypeParam;
  World<T> in(4, 4);
  in.fillPixel(Depth<T>::full(), T(0), T(0), T(0));
  EXPECT_EQ(maskValues(in, withIntensity<T>(50, 4, 4, 4))[0], 32768);
  EXPECT_EQ(maskValues(in, withIntensity<T>(50, 0, 4, 4))[0], 0);
}

TEST(MaskValuesDepth, IntegerSingleChannelIsTheAverage) {
  World<uint8_t> in8(2, 1);
  in8.fillPixel(0, 0, 0, 0);
  in8.set(0, 0, 1, 100);
  in8.set(1, 0, 1, 30);  // average 65: 65 * 32768 / 255 = 8352
  EXPECT_EQ(maskValues(in8, withIntensity<uint8_t>(50, 1, 2, 1))[0], 8352);

  World<uint16_t> in16(2, 1);
  in16.fillPixel(0, 0, 0, 0);
  in16.set(0, 0, 1, 1000);
  in16.set(1, 0, 1, 2001);  // average 1500 (integer division)
  EXPECT_EQ(maskValues(in16, withIntensity<uint16_t>(50, 1, 2, 1))[0], 1500);

  // RGBA at 8 bits: three truncating averages, then scaled.
  World<uint8_t> rgb(2, 1);
  rgb.fillPixel(0, 0, 0, 0);
  rgb.set(0, 0, 1, 1);   // red average 0 (1 / 2)
  rgb.set(0, 0, 2, 11);  // green average 5
  rgb.set(1, 0, 3, 51);  // blue average 25; a = 30; 30 * 32768 / 765 = 1285
  EXPECT_EQ(maskValues(rgb, withIntensity<uint8_t>(50, 0, 2, 1))[0], 1285);
}

TEST(MaskValuesDepth, SixteenBitValuesAboveFullSaturate) {
  World<uint16_t> in(1, 1);
  in.fillPixel(0, 40000, 0, 0);
  EXPECT_EQ(maskValues(in, withIntensity<uint16_t>(50, 1, 1, 1))[0], 32768);
  in.set(0, 0, 1, 32767);
  EXPECT_EQ(maskValues(in, withIntensity<uint16_t>(50, 1, 1, 1))[0], 32767);
}

TEST(MaskValuesDepth, FloatSingleChannelIsTheSumTimesAThirdOfFullAndSaturates) {
  // One pixel at 0.5: 0.5 * 10922.667 = 5461, not the 16384 an average would give.
  World<float> one(1, 1);
  one.fillPixel(0, 0.5f, 0, 0);
  EXPECT_EQ(maskValues(one, withIntensity<float>(50, 1, 1, 1))[0], 5461);
  // 16 pixels at 0.25 sum to 4: 43690 before saturation, stored as 32768.
  World<float> block(4, 4);
  block.fillPixel(0, 0.25f, 0, 0);
  EXPECT_EQ(maskValues(block, withIntensity<float>(50, 1, 4, 4))[0], 32768);
  // The same block in 8 bits (64 of 255) is a plain average.
  World<uint8_t> block8(4, 4);
  block8.fillPixel(0, 64, 0, 0);
  EXPECT_EQ(maskValues(block8, withIntensity<uint8_t>(50, 1, 4, 4))[0], 64 * 32768 / 255);
  // RGBA float is averaged: 0.25 in all three channels gives trunc(0.75 * 10922.667).
  block.fillPixel(0, 0.25f, 0.25f, 0.25f);
  EXPECT_EQ(maskValues(block, withIntensity<float>(50, 0, 4, 4))[0], 8192);
}

TEST(MaskValuesDepth, FloatNegativeAndOverRangeSumsAreClamped) {
  World<float> in(2, 1);
  in.fillPixel(0, -1.0f, -1.0f, -1.0f);
  in.set(1, 0, 1, 3.0f);
  in.set(1, 0, 2, 3.0f);
  in.set(1, 0, 3, 3.0f);
  const auto m = maskValues(in, withIntensity<float>(50, 0, 1, 1));
  EXPECT_EQ(m[0], 0);
  EXPECT_EQ(m[1], 32768);
}

TYPED_TEST(MaskValues, PartialLastColumnAndRowUseTheirOwnPixelCounts) {
  using T = TypeParam;
  // 6 x 6 with 4 x 4 blocks: the last column and row are 2 pixels.
  World<T> in(6, 6);
  in.fillPixel(T(0), T(0), T(0), T(0));
  for (int y = 0; y < 6; ++y)
    for (int x = 0; x < 6; ++x)
      if (x >= 4 || y >= 4) in.set(x, y, 1, Depth<T>::full());
  const auto m = maskValues(in, withIntensity<T>(50, 1, 4, 4));
  ASSERT_EQ(m.size(), 4u);
  EXPECT_EQ(m[0], 0);
  // Full average over 2 x 4, 4 x 2 and 2 x 2 pixels (float saturates anyway).
  EXPECT_EQ(m[1], 32768);
  EXPECT_EQ(m[2], 32768);
  EXPECT_EQ(m[3], 32768);
  if (!std::is_same<T, float>::value) {
    // Half of a partial block full: the average of its own pixels is half.
    for (int y = 0; y < 4; ++y) in.set(5, y, 1, T(0));
    const auto h = maskValues(in, withIntensity<T>(50, 1, 4, 4));
    const int expected = std::is_same<T, uint8_t>::value ? 127 * 32768 / 255 : 16384;
    EXPECT_EQ(h[1], expected);
  }
}

TYPED_TEST(MaskValues, NoMaskSourceUsesTheInputAndANullMaskWorldToo) {
  using T = TypeParam;
  World<T> in(8, 4);
  in.fillPixel(T(0), T(0), T(0), T(0));
  for (int y = 0; y < 4; ++y)
    for (int x = 4; x < 8; ++x) in.set(x, y, 3, Depth<T>::full());
  auto m = maskValues(in, withIntensity<T>(50, 3, 4, 4));
  EXPECT_EQ(m[0], 0);
  EXPECT_EQ(m[1], 32768);

  World<T> blank(8, 4);
  blank.fillPixel(T(0), T(0), T(0), Depth<T>::full());
  blank.def.data = nullptr;
  m = maskValues(in, withIntensity<T>(50, 3, 4, 4), &blank.def);
  EXPECT_EQ(m[0], 0);
  EXPECT_EQ(m[1], 32768);
}

// A mask whose pixel (x, y) holds value x + 16 * y in the blue channel, so a
// 1-pixel block reveals which mask pixel it sampled.
template <typename T>
World<T> coordinateMask(int w, int h, int ox, int oy) {
  World<T> m(w, h, 1, ox, oy);
  m.fillPixel(T(0), T(0), T(0), T(0));
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) m.set(x, y, 3, static_cast<T>(x + 16 * y));
  return m;
}

// Which mask pixel block (x, y) read, recovered from its value.
template <typename T>
int sampled(A_u_short value) {
  if (std::is_same<T, uint8_t>::value) {
    for (int v = 0; v < 256; ++v)
      if (v * 32768 / 255 == value) return v;
    return -1;
  }
  if (std::is_same<T, uint16_t>::value) return value;
  for (int v = 0; v < 256; ++v)
    if (static_cast<A_u_short>(static_cast<float>(v) * 10922.667f >= 32768.0f ? 32768 : static_cast<int>(static_cast<float>(v) * 10922.667f)) == value)
      return v;
  return -1;
}

template <typename T>
void expectSamples(World<T>& in, World<T>& mask, int outOx, int outOy, int expectedSx, int expectedSy) {
  const auto m = maskValues(in, withIntensity<T>(50, 3, 1, 1), &mask.def, outOx, outOy);
  const int W = in.def.width;
  for (int y = 0; y < in.def.height; ++y)
    for (int x = 0; x < W; ++x) {
      const long long mx = static_cast<long long>(x) * expectedSx >> 16, my = static_cast<long long>(y) * expectedSy >> 16;
      if (std::is_same<T, float>::value && mx + 16 * my > 3) continue;  // larger values saturate
      EXPECT_EQ(sampled<T>(m[y * W + x]), mx + 16 * my) << "pixel " << x << "," << y;
    }
}

TYPED_TEST(MaskValues, MaskLargeEnoughWithNonNegativeOriginIsReadOneToOneFromItsTopLeft) {
  using T = TypeParam;
  World<T> in(6, 5);
  in.fillPixel(T(0), T(0), T(0), T(0));
  World<T> mask = coordinateMask<T>(9, 8, 0, 0);
  expectSamples(in, mask, 0, 0, 65536, 65536);
  // An origin that keeps the output inside the mask does not offset the samples.
  expectSamples(in, mask, 3, 3, 65536, 65536);
  // Exactly the output's size.
  World<T> exact = coordinateMask<T>(6, 5, 0, 0);
  expectSamples(in, exact, 0, 0, 65536, 65536);
}

TYPED_TEST(MaskValues, SmallerMaskOrNegativeOriginStretchesTheMask) {
  using T = TypeParam;
  World<T> in(8, 6);
  in.fillPixel(T(0), T(0), T(0), T(0));
  // Smaller mask: 4 x 3 over 8 x 6, factors 32768 (every mask pixel twice).
  World<T> small = coordinateMask<T>(4, 3, 0, 0);
  expectSamples(in, small, 0, 0, 4 * 65536 / 8, 3 * 65536 / 6);
  // A mask larger than the output but with a negative origin is stretched too:
  // 12 x 9 over 8 x 6 gives factors 98304.
  World<T> large = coordinateMask<T>(12, 9, 0, 0);
  expectSamples(in, large, -1, 0, 12 * 65536 / 8, 9 * 65536 / 6);
  expectSamples(in, large, 0, -2, 12 * 65536 / 8, 9 * 65536 / 6);
  // An origin that pushes the output past the mask's right edge stretches.
  expectSamples(in, large, 5, 0, 12 * 65536 / 8, 9 * 65536 / 6);
  // A mask narrower than the output but taller is stretched in both directions.
  World<T> narrow = coordinateMask<T>(5, 7, 0, 0);
  expectSamples(in, narrow, 0, 0, 5 * 65536 / 8, 7 * 65536 / 6);
}

TYPED_TEST(MaskValues, StretchedMaskBlocksAverageTheirSamples) {
  using T = TypeParam;
  if (std::is_same<T, float>::value) return;  // float single channel saturates; covered above
  // 2 x 1 mask (0 and full) stretched over a 4 x 1 output with one 4-pixel
  // block: samples 0, 0, full, full -> half.
  World<T> in(4, 1);
  in.fillPixel(T(0), T(0), T(0), T(0));
  World<T> mask(2, 1);
  mask.fillPixel(T(0), T(0), T(0), T(0));
  mask.set(1, 0, 1, Depth<T>::full());
  const auto m = maskValues(in, withIntensity<T>(50, 1, 4, 1), &mask.def);
  const int expected = std::is_same<T, uint8_t>::value ? 127 * 32768 / 255 : 16384;
  EXPECT_EQ(m[0], expected);
}

}  // namespace

namespace {

// Blocks far larger than the summing loops' internal lane limits: the totals
// must still be exact.
template <typename T>
void expectLargeBlockAverage(int w, int h, int channel) {
  std::mt19937 rng(123);
  World<T> in(w, h);
  rt::fillRandom(in, rng);
  uint64_t sums[4] = {0, 0, 0, 0};
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      for (int c = 0; c < 4; ++c) sums[c] += in.get(x, y, c);
  const uint64_t n = static_cast<uint64_t>(w) * h;
  ParamValues v = withIntensity<T>(50, channel, w, h);
  const auto m = maskValues(in, v);
  uint64_t expected;
  if (std::is_same<T, uint8_t>::value) {
    expected = channel == 0 ? (sums[1] / n + sums[2] / n + sums[3] / n) * 32768 / 765
                            : (sums[channel % 4] / n) * 32768 / 255;
  } else {
    expected = channel == 0 ? (sums[1] / n + sums[2] / n + sums[3] / n) / 3 : sums[channel % 4] / n;
  }
  EXPECT_EQ(m[0], expected > 32767 ? 32768u : expected) << w << "x" << h << " channel " << channel;
}

TEST(MaskValuesDepth, LargeBlocksSumExactly) {
  for (int channel = 0; channel <= 4; ++channel) {
    expectLargeBlockAverage<uint8_t>(301, 257, channel);   // 77357 pixels, odd width
    expectLargeBlockAverage<uint16_t>(203, 181, channel);  // 36743 pixels, past 16384 two-pixel steps
  }
}

// Blocks summed a whole block row at a time keep 32-bit lanes per block
// column, emptied before they could overflow. Rows of the largest channel
// value over half the block, zero over the other half: a lane that wrapped
// would move the average off 32767.5 (8-bit: 127.5).
template <typename T>
void expectHalfFullBlock(int w, int h, T high) {
  World<T> in(w, h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      for (int c = 0; c < 4; ++c) in.set(x, y, c, y < h / 2 ? high : T(0));
  for (int channel = 0; channel <= 4; ++channel) {
    const auto m = maskValues(in, withIntensity<T>(50, channel, w, h));
    ASSERT_EQ(m.size(), 1u);
    const unsigned expected = sizeof(T) == 1 ? (channel == 0 ? 127u * 3 * 32768 / 765 : 127u * 32768 / 255) : 32767u;
    EXPECT_EQ(m[0], expected) << w << "x" << h << " channel " << channel;
  }
}

TEST(MaskValuesDepth, WideBlocksOfExtremeValuesSumExactly) {
  // 8-bit: 1024 four-pixel steps per row, more than a 16-bit lane holds.
  expectHalfFullBlock<uint8_t>(4096, 8, 255);
  // 16-bit: a row adds up to 4096 * 65535 to a lane, so 40 rows pass 2^32.
  expectHalfFullBlock<uint16_t>(4096, 40, 65535);
}

// The 8-bit row sums come in a portable, a 128-bit and, where the processor
// has it, a 256-bit version; each must give the plain sums for every block
// width (eight-, four- and single-pixel steps, up to and past the widest the
// 256-bit version takes), a narrower last block, row padding, lanes carried
// over many rows, and the largest values everywhere.
TEST(RowSums, EightBitVersionsAgreeWithPlainSums) {
  std::mt19937 rng(5);
  const int widths[] = {1, 3, 4, 5, 7, 8, 9, 12, 13, 16, 31, 32, 33, 64, 100, 1029, 2040, 2041, 2100};
  for (int bw : widths) {
    for (int columns : {1, 2, 5}) {
      const int lastCols = bw > 2 ? bw - 2 : bw;
      const int rows = columns == 1 ? 3 + static_cast<int>(rng() % 5) : 263;
      const ptrdiff_t rowbytes = static_cast<ptrdiff_t>(bw * (columns - 1) + lastCols + 3) * 4;
      std::vector<unsigned char> px(static_cast<size_t>(rowbytes) * rows);
      // All 255 for one column count: the lanes then fill as far as they may.
      for (auto& b : px) b = columns == 5 ? 255 : static_cast<unsigned char>(rng());
      uint64_t expected[5][4] = {};
      for (int c = 0; c < columns; ++c) {
        const int cols = c == columns - 1 ? lastCols : bw;
        for (int y = 0; y < rows; ++y)
          for (int x = 0; x < cols; ++x)
            for (int k = 0; k < 4; ++k) expected[c][k] += px[static_cast<size_t>(y * rowbytes + (c * bw + x) * 4 + k)];
      }
      for (const tesselux_kernel::KernelDsp& dsp : rt::everyDsp()) {
        uint64_t got[tesselux_kernel::kSumColumns][4];
        dsp.sumBlockRow8(px.data(), rowbytes, rows, bw, columns, lastCols, got);
        for (int c = 0; c < columns; ++c)
          for (int k = 0; k < 4; ++k)
            EXPECT_EQ(got[c][k], expected[c][k]) << "width " << bw << " column " << c << " channel " << k << " ("
                                                 << dsp.name << ")";
      }
    }
  }
}

}  // namespace
