// The renderer against the slow reference over a few hundred random parameter
// sets per depth: identical output bytes and identical per-block decisions.
#include <gtest/gtest.h>

#include <limits.h>
#include <stdint.h>

#include <memory>
#include <sstream>

#include "reference.h"
#include "render_support.h"

namespace {

using rt::Depth;
using rt::World;

template <typename T>
struct Case {
  World<T> input, output;
  std::unique_ptr<World<T>> mask;
  std::vector<std::unique_ptr<World<T>>> times;
  ParamValues v;
  float downsample = 1.0f;
  std::string text;
};

// Which features the generated cases reached; checked after the run so that
// the random generator cannot silently stop covering something.
struct Coverage {
  int oneByOne = 0, primeSize = 0, blockLargerThanFrame = 0, partialColumn = 0, partialRow = 0;
  int channel[5] = {0, 0, 0, 0, 0};
  int maskType[4] = {0, 0, 0, 0};
  int compositeOn = 0, compositeOff = 0, exclusiveOn = 0, exclusiveOff = 0;
  int noTimeFrames = 0, sixteenTimeFrames = 0, missingTimeFrames = 0, differingRects = 0, sharedStep = 0,
      nullDataFrame = 0;
  int maskLayer = 0, maskStretched = 0, noMaskLayer = 0, maskNullData = 0;
  int withAttempts = 0, downsampled = 0, intensityOn = 0;
};

bool isPrime(int v) {
  if (v < 2) return false;
  for (int d = 2; d * d <= v; ++d)
    if (v % d == 0) return false;
  return true;
}

template <typename T>
Case<T> makeCase(std::mt19937& rng, Coverage& cov) {
  auto pick = [&](std::initializer_list<int> list) { return *(list.begin() + rng() % list.size()); };
  auto uniform = [&](int lo, int hi) { return lo + static_cast<int>(rng() % static_cast<uint32_t>(hi - lo + 1)); };
  auto chance = [&](int percent) { return static_cast<int>(rng() % 100) < percent; };

  Case<T> c;
  int W = chance(60) ? pick({1, 2, 3, 5, 7, 11, 13, 17, 31, 37, 41, 61, 64}) : uniform(1, 48);
  int H = chance(60) ? pick({1, 2, 3, 5, 7, 11, 13, 17, 31, 37, 41, 61, 64}) : uniform(1, 48);
  if (chance(5)) W = H = 1;
  const int inOx = uniform(-3, 3), inOy = uniform(-3, 3);
  c.input = World<T>(W, H, uniform(0, 3), inOx, inOy);
  rt::fillRandom(c.input, rng);
  c.output = World<T>(W, H, uniform(0, 3), uniform(-3, 3), uniform(-3, 3));
  c.output.fillBytes(rng);  // whatever the host left there

  ParamValues& v = c.v;
  v = rt::defaultValues();
  v.blockWidth = chance(70) ? pick({1, 2, 3, 4, 5, 6, 8, 16, 32, 70}) : uniform(1, W + 8);
  v.blockHeight = chance(70) ? pick({1, 2, 3, 4, 5, 6, 8, 16, 32, 70}) : uniform(1, H + 8);
  c.downsample = chance(70) ? 1.0f : static_cast<float>(pick({1, 2, 3})) / 4.0f + (chance(50) ? 0.1f : 0.0f);
  const double strengths[] = {0.0, 1.0, 0.1, 0.5, 0.01, 0.25};
  v.shuffleStrength = chance(60) ? strengths[rng() % 6] : (rng() % 1025) / 1024.0;
  const double spreads[] = {0.0, 1.0, 0.1, 0.5};
  v.shuffleSpread = chance(50) ? spreads[rng() % 4] : (rng() % 1001) / 1000.0;
  v.shuffleDirection = uniform(0, 2);
  const int seeds[] = {0, 1, 777, -1, -777, INT_MIN, INT_MAX, 32767, -65536};
  v.shuffleSeed = chance(40) ? seeds[rng() % 9] : static_cast<int>(rng());
  v.timeSeed = chance(40) ? seeds[rng() % 9] : static_cast<int>(rng());
  v.maskSeed = chance(40) ? seeds[rng() % 9] : static_cast<int>(rng());
  v.channels = uniform(0, 4);
  v.compositeOnOriginal = chance(50);
  v.exclusiveMode = chance(35);
  const double intensities[] = {0.0, 100.0, 50.0, 0.004, 10.0, 90.0};
  v.maskIntensity = chance(60) ? intensities[rng() % 6] : (rng() % 10001) / 100.0;
  v.maskType = chance(95) ? uniform(0, 2) : 3;

  // Mask layer: none, one that covers the output, a smaller one, or one
  // without pixels.
  const int maskKind = uniform(0, 4);
  if (maskKind >= 1) {
    int mw = W, mh = H;
    if (maskKind == 2) {
      mw = W + uniform(0, 6);
      mh = H + uniform(0, 6);
    } else if (maskKind == 3) {
      mw = uniform(1, W + 3);
      mh = uniform(1, H + 3);
    }
    c.mask.reset(new World<T>(mw, mh, uniform(0, 2), uniform(-2, 2), uniform(-2, 2)));
    rt::fillRandom(*c.mask, rng);
    if (maskKind == 4 && chance(50)) c.mask->def.data = nullptr;
    v.maskLayer = &c.mask->def;
  }

  // Time frames.
  v.timeFrames = chance(35) ? 0 : chance(50) ? 16 : uniform(1, 16);
  const double probabilities[] = {0.0, 100.0, 25.0, 50.0};
  v.timeProbability = chance(60) ? probabilities[rng() % 4] : (rng() % 10001) / 100.0;
  v.steppingUnit = uniform(0, 1);
  v.timeStepSeconds = chance(15) ? 0.0 : 0.05;
  v.timeStepFrames = chance(15) ? 0.0 : 2.0;
  const bool differing = chance(50);
  const bool withMissing = chance(50);
  bool nullData = false;
  for (int i = 0; i < v.timeFrames; ++i) {
    if (withMissing && chance(30)) continue;
    int lw = W, lh = H, lx = inOx, ly = inOy;
    if (differing && chance(60)) {
      lw = std::max(1, W + uniform(-3, 3));
      lh = std::max(1, H + uniform(-3, 3));
      lx = inOx + uniform(-3, 3);
      ly = inOy + uniform(-3, 3);
    }
    c.times.emplace_back(new World<T>(lw, lh, uniform(0, 2), lx, ly));
    rt::fillRandom(*c.times.back(), rng);
    if (chance(1)) {
      c.times.back()->def.data = nullptr;
      nullData = true;
    }
    v.timeLayers[i] = &c.times.back()->def;
  }

  // Bookkeeping.
  const int bw = std::max(1, static_cast<int>(static_cast<float>(v.blockWidth) * c.downsample));
  const int bh = std::max(1, static_cast<int>(static_cast<float>(v.blockHeight) * c.downsample));
  const double step = v.steppingUnit == 1 ? v.timeStepFrames : v.timeStepSeconds;
  int present = 0;
  bool differs = false;
  for (int i = 0; i < v.timeFrames; ++i) {
    if (!v.timeLayers[i]) continue;
    ++present;
    const PF_LayerDef& l = *v.timeLayers[i];
    if (l.width != W || l.height != H || l.origin_x != inOx || l.origin_y != inOy) differs = true;
  }
  cov.oneByOne += W == 1 && H == 1;
  cov.primeSize += isPrime(W) && isPrime(H);
  cov.blockLargerThanFrame += bw > W && bh > H;
  cov.partialColumn += W % bw != 0;
  cov.partialRow += H % bh != 0;
  cov.channel[v.channels]++;
  cov.maskType[v.maskType]++;
  (v.compositeOnOriginal ? cov.compositeOn : cov.compositeOff)++;
  (v.exclusiveMode ? cov.exclusiveOn : cov.exclusiveOff)++;
  cov.noTimeFrames += v.timeFrames == 0;
  cov.sixteenTimeFrames += v.timeFrames == 16 && step != 0.0;
  cov.missingTimeFrames += step != 0.0 && present < v.timeFrames;
  cov.differingRects += step != 0.0 && differs;
  cov.sharedStep += v.timeFrames > 0 && step == 0.0;
  cov.nullDataFrame += nullData && step != 0.0;
  const bool maskUsable = c.mask && c.mask->def.data;
  cov.maskLayer += maskUsable;
  cov.maskStretched += maskUsable && (c.mask->def.width < W || c.mask->def.height < H);
  cov.noMaskLayer += !c.mask;
  cov.maskNullData += c.mask && !c.mask->def.data;
  cov.withAttempts += static_cast<int>(v.shuffleStrength * 1024.0) * (long long)((W + bw - 1) / bw) * ((H + bh - 1) / bh) >= 256;
  cov.downsampled += c.downsample != 1.0f;
  cov.intensityOn += static_cast<int>(v.maskIntensity * 327.68) != 0;

  std::ostringstream os;
  os << W << "x" << H << " in-origin " << inOx << "," << inOy << " out-origin " << c.output.def.origin_x << ","
     << c.output.def.origin_y << " block " << v.blockWidth << "x" << v.blockHeight << " ds " << c.downsample
     << " S " << v.shuffleStrength << " P " << v.shuffleSpread << " dir " << v.shuffleDirection << " seeds "
     << v.shuffleSeed << "/" << v.timeSeed << "/" << v.maskSeed << " ch " << v.channels << " comp "
     << v.compositeOnOriginal << " excl " << v.exclusiveMode << " I " << v.maskIntensity << " type " << v.maskType
     << " mask " << maskKind << " frames " << v.timeFrames << " present " << present << " Q " << v.timeProbability
     << " step " << step;
  c.text = os.str();
  return c;
}

template <typename T>
class ReferenceCompare : public ::testing::Test {};
using Depths = ::testing::Types<uint8_t, uint16_t, float>;
TYPED_TEST_SUITE(ReferenceCompare, Depths);

TYPED_TEST(ReferenceCompare, KernelMatchesReferenceOverRandomParameterSets) {
  using T = TypeParam;
  std::mt19937 rng(20240611u + sizeof(T));
  Coverage cov;
  const int kCases = 320;
  int mismatches = 0;
  for (int n = 0; n < kCases && mismatches < 5; ++n) {
    Case<T> c = makeCase<T>(rng, cov);
    World<T> expected = c.output;
    const ref::Decisions d = ref::render<T>(c.input.def, expected.def, c.v, c.downsample);

    // Each case three times: as the renderer chooses for a frame this small,
    // and with each pass that large frames take when every block is drawn:
    // the band copy (streaming off) and the streamed source-order pass.
    static const char* const kPassNames[] = {"", " (band copy)", " (streamed)"};
    const ForcedPass passes[] = {ForcedPass::chosen, ForcedPass::bandCopy, ForcedPass::streamed};
    for (int pass = 0; pass < 3; ++pass) {
      World<T> output = c.output;
      rt::Captured cap;
      RenderHooks hooks = rt::captureHooks(&cap);
      forcePass(hooks, passes[pass]);
      ASSERT_EQ(Depth<T>::render(&c.input.def, &output.def, c.v, c.downsample, hooks), PF_Err_NONE);
      ASSERT_TRUE(cap.seen) << c.text;

      bool same = rt::sameBytes(output, expected);
      same = same && cap.idx == d.idx && cap.flag == d.flag && cap.frame == d.frame && cap.maskval == d.maskval &&
             cap.s.attempts == d.attempts && cap.s.nframes == d.nframes;
      if (!same) {
        ++mismatches;
        ADD_FAILURE() << "case " << n << kPassNames[pass] << ": " << c.text << "\n  bytes "
                      << rt::sameBytes(output, expected) << " idx " << (cap.idx == d.idx) << " flag "
                      << (cap.flag == d.flag) << " frame " << (cap.frame == d.frame) << " maskval "
                      << (cap.maskval == d.maskval) << " attempts " << cap.s.attempts << "/" << d.attempts
                      << " nframes " << cap.s.nframes << "/" << d.nframes;
      }
    }
  }

  // The random sets must reach every feature the comparison is meant to cover.
  EXPECT_GT(cov.oneByOne, 0);
  EXPECT_GT(cov.primeSize, 0);
  EXPECT_GT(cov.blockLargerThanFrame, 0);
  EXPECT_GT(cov.partialColumn, 0);
  EXPECT_GT(cov.partialRow, 0);
  for (int ch = 0; ch < 5; ++ch) EXPECT_GT(cov.channel[ch], 0) << "channel " << ch;
  for (int t = 0; t < 4; ++t) EXPECT_GT(cov.maskType[t], 0) << "mask type " << t;
  EXPECT_GT(cov.compositeOn, 0);
  EXPECT_GT(cov.compositeOff, 0);
  EXPECT_GT(cov.exclusiveOn, 0);
  EXPECT_GT(cov.exclusiveOff, 0);
  EXPECT_GT(cov.noTimeFrames, 0);
  EXPECT_GT(cov.sixteenTimeFrames, 0);
  EXPECT_GT(cov.missingTimeFrames, 0);
  EXPECT_GT(cov.differingRects, 0);
  EXPECT_GT(cov.sharedStep, 0);
  EXPECT_GT(cov.nullDataFrame, 0);
  EXPECT_GT(cov.maskLayer, 0);
  EXPECT_GT(cov.maskStretched, 0);
  EXPECT_GT(cov.noMaskLayer, 0);
  EXPECT_GT(cov.maskNullData, 0);
  EXPECT_GT(cov.withAttempts, kCases / 2);
  EXPECT_GT(cov.downsampled, 0);
  EXPECT_GT(cov.intensityOn, kCases / 3);
}

}  // namespace
