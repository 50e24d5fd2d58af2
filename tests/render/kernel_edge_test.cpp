// The block shuffle kernel's documented edge cases, at all three depths.
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "reference.h"
#include "render_support.h"

namespace {

using rt::Depth;
using rt::World;

template <typename T>
class Kernel : public ::testing::Test {};
using Depths = ::testing::Types<uint8_t, uint16_t, float>;
TYPED_TEST_SUITE(Kernel, Depths);

// Channel values that are exact at every depth: small integers, and in float
// the same integers divided by 256.
template <typename T>
T code(int v) {
  return std::is_same<T, float>::value ? static_cast<T>(static_cast<float>(v) / 256.0f) : static_cast<T>(v);
}
template <typename T>
int decode(T v) {
  return std::is_same<T, float>::value ? static_cast<int>(static_cast<float>(v) * 256.0f) : static_cast<int>(v);
}

// Every pixel names its own coordinates: A = 200, R = x, G = y, B = tag.
template <typename T>
World<T> coordinates(int w, int h, int tag = 7, int ox = 0, int oy = 0) {
  World<T> world(w, h, 2, ox, oy);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      world.set(x, y, 0, code<T>(200));
      world.set(x, y, 1, code<T>(x));
      world.set(x, y, 2, code<T>(y));
      world.set(x, y, 3, code<T>(tag));
    }
  return world;
}

// Pixel content equality over the frame (padding ignored).
template <typename T>
bool samePixels(const World<T>& a, const World<T>& b) {
  for (int y = 0; y < a.def.height; ++y)
    if (memcmp(a.at(0, y, 0), b.at(0, y, 0), static_cast<size_t>(a.def.width) * 4 * sizeof(T)) != 0) return false;
  return true;
}

template <typename T>
bool allZero(const World<T>& a) {
  for (int y = 0; y < a.def.height; ++y)
    for (int x = 0; x < a.def.width; ++x)
      for (int c = 0; c < 4; ++c)
        if (a.get(x, y, c) != T(0)) return false;
  return true;
}

template <typename T>
rt::Captured render(World<T>& in, World<T>& out, const ParamValues& v, float ds = 1.0f) {
  rt::Captured cap;
  EXPECT_EQ(Depth<T>::render(&in.def, &out.def, v, ds, rt::captureHooks(&cap)), PF_Err_NONE);
  EXPECT_TRUE(cap.seen);
  return cap;
}

// Strength value that gives S = s exactly.
double strengthFor(int s) { return s / 1024.0; }

TYPED_TEST(Kernel, NoAttemptBelow256LeavesInputOrClearsFrame) {
  using T = TypeParam;
  // 85 one-pixel blocks: S = 3 gives 255, no attempt.
  World<T> in = coordinates<T>(85, 1);
  ParamValues v = rt::defaultValues();
  v.blockWidth = v.blockHeight = 1;
  v.shuffleStrength = strengthFor(3);
  v.shuffleSpread = 1.0;
  World<T> out(85, 1);
  std::mt19937 rng(1);
  out.fillBytes(rng);
  rt::Captured cap = render(in, out, v);
  EXPECT_EQ(cap.s.strength, 3);
  EXPECT_EQ(cap.s.attempts, 0);
  EXPECT_TRUE(samePixels(out, in));

  v.compositeOnOriginal = 0;
  out.fillBytes(rng);
  cap = render(in, out, v);
  EXPECT_EQ(cap.s.attempts, 0);
  EXPECT_TRUE(allZero(out));

  // 64 blocks at S = 4 reach 256 exactly: one attempt.
  World<T> in64 = coordinates<T>(64, 1), out64(64, 1);
  v.shuffleStrength = strengthFor(4);
  cap = render(in64, out64, v);
  EXPECT_EQ(cap.s.attempts, 1);
  v.shuffleStrength = strengthFor(3);
  cap = render(in64, out64, v);
  EXPECT_EQ(cap.s.attempts, 0);
  // Full strength makes 4n attempts.
  v.shuffleStrength = 1.0;
  cap = render(in64, out64, v);
  EXPECT_EQ(cap.s.attempts, 4 * 64);
}

TYPED_TEST(Kernel, BlockLargerThanFrameIsOnePartialBlockPairedWithItself) {
  using T = TypeParam;
  World<T> in = coordinates<T>(10, 7);
  ParamValues v = rt::defaultValues();
  v.blockWidth = 32;
  v.blockHeight = 64;
  v.shuffleStrength = 1.0;
  v.shuffleSpread = 1.0;
  v.compositeOnOriginal = 0;
  World<T> out(10, 7);
  rt::Captured cap = render(in, out, v);
  EXPECT_EQ(cap.s.columns, 1);
  EXPECT_EQ(cap.s.rows, 1);
  EXPECT_EQ(cap.s.attempts, 4);
  EXPECT_EQ(cap.idx[0], 0u);
  EXPECT_EQ(cap.flag[0], 1);
  EXPECT_TRUE(samePixels(out, in));  // drawn in place

  // When no attempt passes the mask decision nothing is drawn: a black block
  // under Threshold with a non-zero intensity.
  World<T> black(10, 7);
  black.fillPixel(T(0), T(0), T(0), T(0));
  v.maskIntensity = 10;
  std::mt19937 rng(2);
  out.fillBytes(rng);
  cap = render(black, out, v);
  EXPECT_EQ(cap.flag[0], 0);
  EXPECT_TRUE(allZero(out));

  // Randomized Threshold against a mid-grey block: drawn once an attempt passes.
  World<T> grey(10, 7);
  const T mid = std::is_same<T, float>::value ? static_cast<T>(0.5f) : static_cast<T>(Depth<T>::full() / 2);
  grey.fillPixel(mid, mid, mid, mid);
  v.maskType = 1;
  v.maskIntensity = 100;
  int drawn = 0, skipped = 0;
  for (int seed = 1; seed <= 60; ++seed) {
    v.maskSeed = seed;
    out.fillBytes(rng);
    cap = render(grey, out, v);
    EXPECT_EQ(cap.idx[0], 0u);
    if (cap.flag[0]) {
      ++drawn;
      EXPECT_TRUE(samePixels(out, grey));
    } else {
      ++skipped;
      EXPECT_TRUE(allZero(out));
    }
  }
  EXPECT_GT(drawn, 0);
  EXPECT_GT(skipped, 0);
}

TYPED_TEST(Kernel, PartialLastColumnAndRowKeepTheirBlocks) {
  using T = TypeParam;
  // 10 x 11 with 4 x 4 blocks: columns 0,1 full and 2 partial (2 wide);
  // rows 0,1 full and 2 partial (3 high).
  World<T> in = coordinates<T>(10, 11);
  ParamValues v = rt::defaultValues();
  v.blockWidth = v.blockHeight = 4;
  v.shuffleStrength = 1.0;
  v.shuffleSpread = 1.0;
  int moved = 0;
  for (int seed = 0; seed < 200; ++seed) {
    v.shuffleSeed = seed;
    v.shuffleDirection = seed % 3;
    World<T> out(10, 11);
    rt::Captured cap = render(in, out, v);
    for (int i = 0; i < 9; ++i) {
      const int col = i % 3, row = i / 3;
      const int dcol = cap.idx[i] & 0xFFFF, drow = cap.idx[i] >> 16;
      // Partial column blocks never move sideways, full ones never into it;
      // likewise for the partial row.
      EXPECT_EQ(col == 2, dcol == 2) << "seed " << seed << " block " << i;
      EXPECT_EQ(row == 2, drow == 2) << "seed " << seed << " block " << i;
      if (col == 2) {
        EXPECT_EQ(dcol, 2);
      }
      moved += dcol != col || drow != row;
      // The pixels say the same: the block's top-left source lands at its destination.
      EXPECT_EQ(decode(out.get(dcol * 4, drow * 4, 1)), col * 4);
      EXPECT_EQ(decode(out.get(dcol * 4, drow * 4, 2)), row * 4);
    }
  }
  EXPECT_GT(moved, 0);
}

// Pair offsets of single-attempt renders. The first shuffle draw names block a
// (worked out with the test's own generator); the swap shows block b.
template <typename T>
std::map<int, std::set<int>> singleAttemptOffsets(int columns, int rows, int direction, double spread, bool alongX,
                                                  int seeds) {
  const int n = columns * rows;
  World<T> in = coordinates<T>(columns, rows);
  ParamValues v = rt::defaultValues();
  v.blockWidth = v.blockHeight = 1;
  v.shuffleDirection = direction;
  v.shuffleSpread = spread;
  v.shuffleStrength = strengthFor((256 + n - 1) / n);  // S * n in 256..511: one attempt
  std::map<int, std::set<int>> offsets;                  // by a's column (or row)
  // Seeds spread over the whole range: for small seeds the first output's low
  // bits hardly vary, so a would almost always be the same block.
  std::mt19937 seedRng(4711);
  for (int s = 0; s < seeds; ++s) {
    const int seed = static_cast<int>(seedRng());
    v.shuffleSeed = seed;
    World<T> out(columns, rows);
    rt::Captured cap = render(in, out, v);
    EXPECT_EQ(cap.s.attempts, 1);
    ref::Gen g(seed);
    const int a = static_cast<int>(g.next() % static_cast<uint32_t>(n));
    const int b = static_cast<int>(((cap.idx[a] >> 16) * columns) + (cap.idx[a] & 0xFFFF));
    // Exactly a and b changed places (or nothing moved when b is a).
    for (int i = 0; i < n; ++i) {
      const uint32_t home = (static_cast<uint32_t>(i / columns) << 16) | static_cast<uint32_t>(i % columns);
      if (i != a && i != b) {
        EXPECT_EQ(cap.idx[i], home);
      }
    }
    if (alongX) {
      EXPECT_EQ(b / columns, a / columns);
      offsets[a % columns].insert(b % columns - a % columns);
    } else {
      EXPECT_EQ(b % columns, a % columns);
      offsets[a / columns].insert(b / columns - a / columns);
    }
  }
  return offsets;
}

TYPED_TEST(Kernel, SpreadZeroReachesOneBlockLeftOrUpAndNeverRightOrDown) {
  using T = TypeParam;
  // Horizontal: 8 columns, spanX = 2, offsets -1 or 0 before clamping.
  auto h = singleAttemptOffsets<T>(8, 1, 1, 0.0, true, 400);
  for (auto& [col, set] : h) {
    for (int o : set) {
      EXPECT_TRUE(o == -1 || o == 0) << "column " << col << " offset " << o;
    }
  }
  EXPECT_EQ(h[0], std::set<int>{0});  // the left edge clamps -1 to 0
  EXPECT_EQ(h[4], (std::set<int>{-1, 0}));
  // Vertical: 8 rows.
  auto vert = singleAttemptOffsets<T>(1, 8, 2, 0.0, false, 400);
  for (auto& [row, set] : vert) {
    for (int o : set) {
      EXPECT_TRUE(o == -1 || o == 0) << "row " << row << " offset " << o;
    }
  }
  EXPECT_EQ(vert[5], (std::set<int>{-1, 0}));
}

TYPED_TEST(Kernel, EvenSpanReachesOneBlockFurtherLeftThanRight) {
  using T = TypeParam;
  // 8 columns, P = 128: spanX = ((8 * 128) >> 9) + 2 = 4, offsets -2..1.
  auto h = singleAttemptOffsets<T>(8, 1, 1, 0.125, true, 600);
  EXPECT_EQ(h[3], (std::set<int>{-2, -1, 0, 1}));
  EXPECT_EQ(h[0], (std::set<int>{0, 1}));       // -2 and -1 clamp to 0
  EXPECT_EQ(h[7], (std::set<int>{-2, -1, 0}));  // +1 clamps back to the last column
  auto vert = singleAttemptOffsets<T>(1, 8, 2, 0.125, false, 600);
  EXPECT_EQ(vert[4], (std::set<int>{-2, -1, 0, 1}));
}

// Solid time frames: frame k has B = 20 + k in every pixel.
template <typename T>
std::vector<World<T>> solidFrames(int count, int w, int h) {
  std::vector<World<T>> frames;
  for (int k = 1; k <= count; ++k) {
    frames.emplace_back(w, h);
    frames.back().fillPixel(code<T>(100), code<T>(k), code<T>(k), code<T>(20 + k));
  }
  return frames;
}

TYPED_TEST(Kernel, ExclusiveModeWithTimeFramesOnlyShiftsInTime) {
  using T = TypeParam;
  World<T> in = coordinates<T>(24, 20);
  std::vector<World<T>> frames = solidFrames<T>(16, 24, 20);
  ParamValues v = rt::defaultValues();
  v.blockWidth = v.blockHeight = 4;
  v.shuffleStrength = 1.0;
  v.shuffleSpread = 1.0;
  v.exclusiveMode = 1;
  v.timeFrames = 16;
  v.timeProbability = 100;
  for (int k = 0; k < 16; ++k) v.timeLayers[k] = &frames[k].def;
  World<T> out(24, 20);
  rt::Captured cap = render(in, out, v);
  EXPECT_EQ(cap.s.nframes, 16);
  int shifted = 0;
  for (size_t i = 0; i < cap.idx.size(); ++i) {
    const uint32_t home = (static_cast<uint32_t>(i / 6) << 16) | static_cast<uint32_t>(i % 6);
    EXPECT_EQ(cap.idx[i], home);
    shifted += cap.frame[i] != 0;
  }
  EXPECT_GT(shifted, 0);
  // Each block shows its own place, from the input or from its time frame.
  for (int y = 0; y < 20; ++y)
    for (int x = 0; x < 24; ++x) {
      const int k = cap.frame[(y / 4) * 6 + x / 4];
      if (k == 0) {
        EXPECT_EQ(decode(out.get(x, y, 1)), x);
        EXPECT_EQ(decode(out.get(x, y, 2)), y);
      } else {
        EXPECT_EQ(decode(out.get(x, y, 3)), 20 + k);
      }
    }

  // Without time frames exclusive mode does not hold blocks in place.
  v.timeFrames = 0;
  cap = render(in, out, v);
  int moved = 0;
  for (size_t i = 0; i < cap.idx.size(); ++i)
    moved += cap.idx[i] != ((static_cast<uint32_t>(i / 6) << 16) | static_cast<uint32_t>(i % 6));
  EXPECT_GT(moved, 0);
  // Nor does exclusive off with time frames.
  v.timeFrames = 16;
  v.exclusiveMode = 0;
  cap = render(in, out, v);
  moved = 0;
  for (size_t i = 0; i < cap.idx.size(); ++i)
    moved += cap.idx[i] != ((static_cast<uint32_t>(i / 6) << 16) | static_cast<uint32_t>(i % 6));
  EXPECT_GT(moved, 0);
}

TYPED_TEST(Kernel, RandomizedMaskAtIntensityOneNeverAffectsABlackBlock) {
  using T = TypeParam;
  // 4 x 4 blocks of 2 x 2 pixels, all white except block 5.
  World<T> in(8, 8);
  const T full = Depth<T>::full();
  in.fillPixel(full, full, full, full);
  for (int y = 2; y < 4; ++y)
    for (int x = 2; x < 4; ++x)
      for (int c = 0; c < 4; ++c) in.set(x, y, c, T(0));
  ParamValues v = rt::defaultValues();
  v.blockWidth = v.blockHeight = 2;
  v.shuffleStrength = 1.0;
  v.shuffleSpread = 1.0;
  v.compositeOnOriginal = 0;
  v.maskType = 2;
  v.maskIntensity = 0.004;  // trunc(0.004 * 327.68) = 1
  int affected = 0;
  for (int seed = 0; seed < 50; ++seed) {
    v.shuffleSeed = seed;
    v.maskSeed = seed + 1000;
    World<T> out(8, 8);
    rt::Captured cap = render(in, out, v);
    EXPECT_EQ(cap.s.intensity, 1);
    EXPECT_EQ(cap.maskval[5], 0);
    EXPECT_EQ(cap.flag[5], 0);
    EXPECT_EQ(cap.idx[5], (1u << 16) | 1u);
    for (size_t i = 0; i < cap.flag.size(); ++i) {
      affected += cap.flag[i];
      // No other block was sent to its place either.
      if (i != 5) {
        EXPECT_NE(cap.idx[i], (1u << 16) | 1u);
      }
    }
    // Its place stays transparent black.
    for (int y = 2; y < 4; ++y)
      for (int x = 2; x < 4; ++x)
        for (int c = 0; c < 4; ++c) EXPECT_EQ(out.get(x, y, c), T(0));
  }
  EXPECT_GT(affected, 0);
}

TYPED_TEST(Kernel, IntensityZeroAffectsEveryPairAndStillAdvancesTheMaskStream) {
  using T = TypeParam;
  std::mt19937 rng(5);
  World<T> in(30, 20);
  rt::fillRandom(in, rng);
  ParamValues v = rt::defaultValues();
  v.blockWidth = v.blockHeight = 3;
  v.shuffleStrength = 0.3;
  v.shuffleSpread = 0.5;
  v.compositeOnOriginal = 0;
  v.maskIntensity = 0;
  v.maskSeed = -4242;
  World<T> first(30, 20);
  rt::Captured base;
  for (int type = 0; type <= 2; ++type) {
    v.maskType = type;
    World<T> out(30, 20);
    rt::Captured cap = render(in, out, v);
    ASSERT_GT(cap.s.attempts, 0);
    // Mask stream: untouched by Threshold, two steps per attempt otherwise.
    ref::Gen g(v.maskSeed);
    if (type != 0)
      for (long long k = 0; k < 2 * cap.s.attempts; ++k) g.next();
    EXPECT_EQ(cap.s.maskW, g.w) << "type " << type;
    EXPECT_EQ(cap.s.maskZ, g.z) << "type " << type;
    for (A_u_short m : cap.maskval) EXPECT_EQ(m, 0);
    if (type == 0) {
      first = out;
      base = cap;
    } else {
      EXPECT_TRUE(samePixels(out, first)) << "type " << type;
      EXPECT_EQ(cap.idx, base.idx);
      EXPECT_EQ(cap.flag, base.flag);
    }
  }
  // Every attempt's pair is flagged: replay the shuffle draws and check that
  // both blocks of each pair are drawn.
  ref::Gen s(v.shuffleSeed);
  const int n = static_cast<int>(base.s.blocks);
  for (long long t = 0; t < base.s.attempts; ++t) {
    const int a = static_cast<int>(s.next() % static_cast<uint32_t>(n));
    s.next();
    s.next();
    EXPECT_EQ(base.flag[a], 1) << "attempt " << t;
  }
  // An unknown mask type affects nothing and draws nothing from the mask stream.
  v.maskType = 3;
  World<T> out(30, 20);
  rt::Captured cap = render(in, out, v);
  for (A_u_char f : cap.flag) EXPECT_EQ(f, 0);
  EXPECT_TRUE(allZero(out));
  EXPECT_EQ(cap.s.maskW, -4242);
  EXPECT_EQ(cap.s.maskZ, 987654321);
}

TYPED_TEST(Kernel, TimeStreamAlwaysMovesFourStepsPerAttempt) {
  using T = TypeParam;
  std::mt19937 rng(6);
  World<T> in(20, 20);
  rt::fillRandom(in, rng);
  std::vector<World<T>> frames = solidFrames<T>(4, 20, 20);
  ParamValues v = rt::defaultValues();
  v.blockWidth = v.blockHeight = 2;
  v.shuffleStrength = 0.5;
  v.maskIntensity = 60;
  v.maskType = 0;
  for (int withFrames = 0; withFrames <= 1; ++withFrames) {
    v.timeFrames = withFrames ? 4 : 0;
    for (int k = 0; k < 4; ++k) v.timeLayers[k] = &frames[k].def;
    World<T> out(20, 20);
    rt::Captured cap = render(in, out, v);
    ref::Gen g(v.timeSeed);
    for (long long k = 0; k < 4 * cap.s.attempts; ++k) g.next();
    EXPECT_EQ(cap.s.timeW, g.w);
    EXPECT_EQ(cap.s.timeZ, g.z);
    ref::Gen s(v.shuffleSeed);
    for (long long k = 0; k < 3 * cap.s.attempts; ++k) s.next();
    EXPECT_EQ(cap.s.shuffleW, s.w);
    EXPECT_EQ(cap.s.shuffleZ, s.z);
  }
}

TYPED_TEST(Kernel, CompositeOffDrawsOnlyAffectedBlocksAtTheirNewPlaces) {
  using T = TypeParam;
  std::mt19937 rng(7);
  World<T> in(33, 27);
  rt::fillRandom(in, rng);
  ParamValues v = rt::defaultValues();
  v.blockWidth = 4;
  v.blockHeight = 5;
  v.shuffleStrength = 0.4;
  v.shuffleSpread = 0.6;
  v.compositeOnOriginal = 0;
  v.maskIntensity = 45;  // Threshold vetoes the darker blocks
  World<T> out(33, 27);
  out.fillBytes(rng);
  rt::Captured cap = render(in, out, v);
  const int cols = cap.s.columns;
  std::vector<bool> covered(33 * 27, false);
  int flagged = 0, unflagged = 0;
  for (int i = 0; i < static_cast<int>(cap.s.blocks); ++i) {
    if (!cap.flag[i]) {
      ++unflagged;
      continue;
    }
    ++flagged;
    const int sc = i % cols, sr = i / cols, dc = cap.idx[i] & 0xFFFF, dr = cap.idx[i] >> 16;
    const int bw = sc == cols - 1 ? 33 - 4 * (cols - 1) : 4, bh = sr == cap.s.rows - 1 ? 27 - 5 * (cap.s.rows - 1) : 5;
    for (int y = 0; y < bh; ++y)
      for (int x = 0; x < bw; ++x) {
        covered[(dr * 5 + y) * 33 + dc * 4 + x] = true;
        for (int c = 0; c < 4; ++c)
          EXPECT_EQ(out.get(dc * 4 + x, dr * 5 + y, c), in.get(sc * 4 + x, sr * 5 + y, c));
      }
  }
  EXPECT_GT(flagged, 0);
  EXPECT_GT(unflagged, 0);
  for (int y = 0; y < 27; ++y)
    for (int x = 0; x < 33; ++x)
      if (!covered[y * 33 + x]) {
        for (int c = 0; c < 4; ++c) EXPECT_EQ(out.get(x, y, c), T(0)) << x << "," << y;
      }
}

TYPED_TEST(Kernel, SingleChannelWithCompositeOffLeavesEverythingElseZero) {
  using T = TypeParam;
  std::mt19937 rng(8);
  World<T> in(19, 17);
  rt::fillRandom(in, rng);
  for (int y = 0; y < 17; ++y)
    for (int x = 0; x < 19; ++x)
      for (int c = 0; c < 4; ++c)
        if (in.get(x, y, c) == T(0)) in.set(x, y, c, code<T>(1));  // no accidental zeros
  for (int channel = 1; channel <= 4; ++channel) {
    ParamValues v = rt::defaultValues();
    v.blockWidth = 3;
    v.blockHeight = 4;
    v.shuffleStrength = 0.5;
    v.shuffleSpread = 0.5;
    v.compositeOnOriginal = 0;
    v.maskIntensity = 40;
    v.channels = channel;
    World<T> out(19, 17);
    out.fillBytes(rng);
    rt::Captured cap = render(in, out, v);
    const int pos = channel % 4;
    std::vector<int> source(19 * 17, -1);  // source pixel index per output pixel
    const int cols = cap.s.columns;
    for (int i = 0; i < static_cast<int>(cap.s.blocks); ++i) {
      if (!cap.flag[i]) continue;
      const int sc = i % cols, sr = i / cols, dc = cap.idx[i] & 0xFFFF, dr = cap.idx[i] >> 16;
      for (int y = 0; y < 4 && sr * 4 + y < 17; ++y)
        for (int x = 0; x < 3 && sc * 3 + x < 19; ++x) source[(dr * 4 + y) * 19 + dc * 3 + x] = (sr * 4 + y) * 19 + sc * 3 + x;
    }
    int drawn = 0;
    for (int y = 0; y < 17; ++y)
      for (int x = 0; x < 19; ++x)
        for (int c = 0; c < 4; ++c) {
          const int s = source[y * 19 + x];
          if (c == pos && s >= 0) {
            ++drawn;
            EXPECT_EQ(out.get(x, y, c), in.get(s % 19, s / 19, c));
          } else {
            EXPECT_EQ(out.get(x, y, c), T(0)) << "channel " << channel << " at " << x << "," << y << "," << c;
          }
        }
    EXPECT_GT(drawn, 0);
  }
}

TYPED_TEST(Kernel, AlphaWithCompositeOnKeepsColourAndShufflesAlpha) {
  using T = TypeParam;
  World<T> in = coordinates<T>(20, 16);
  for (int y = 0; y < 16; ++y)
    for (int x = 0; x < 20; ++x) in.set(x, y, 0, code<T>((x / 4) + 10 * (y / 4)));  // alpha names the block
  ParamValues v = rt::defaultValues();
  v.blockWidth = v.blockHeight = 4;
  v.shuffleStrength = 1.0;
  v.shuffleSpread = 1.0;
  v.channels = 4;
  World<T> out(20, 16);
  std::mt19937 rng(9);
  out.fillBytes(rng);
  rt::Captured cap = render(in, out, v);
  int moved = 0;
  for (int i = 0; i < 20; ++i) {
    const int sc = i % 5, sr = i / 5, dc = cap.idx[i] & 0xFFFF, dr = cap.idx[i] >> 16;
    moved += sc != dc || sr != dr;
    for (int y = 0; y < 4; ++y)
      for (int x = 0; x < 4; ++x) {
        const int ox = dc * 4 + x, oy = dr * 4 + y;
        EXPECT_EQ(decode(out.get(ox, oy, 0)), sc + 10 * sr);  // alpha from the moved block
        for (int c = 1; c < 4; ++c) EXPECT_EQ(out.get(ox, oy, c), in.get(ox, oy, c));  // colour unchanged
      }
  }
  EXPECT_GT(moved, 0);
}

TYPED_TEST(Kernel, ProbabilityHundredStillLeavesSomeAffectedBlocksInTheirTime) {
  using T = TypeParam;
  // 2 x 2 blocks, one attempt per render, exclusive so that places stay put.
  World<T> in(8, 8);
  in.fillPixel(code<T>(100), code<T>(0), code<T>(0), code<T>(5));
  std::vector<World<T>> frames = solidFrames<T>(16, 8, 8);
  ParamValues v = rt::defaultValues();
  v.blockWidth = v.blockHeight = 4;
  v.shuffleStrength = strengthFor(64);  // 64 * 4 = 256: one attempt
  v.shuffleSpread = 1.0;
  v.shuffleSeed = 3;
  v.exclusiveMode = 1;
  v.compositeOnOriginal = 0;
  v.timeFrames = 16;
  v.timeProbability = 100;
  for (int k = 0; k < 16; ++k) v.timeLayers[k] = &frames[k].def;

  ref::Gen shuffle(v.shuffleSeed);
  const int a = static_cast<int>(shuffle.next() % 4u);
  const int seeds = 6000;
  int noDraw = 0, drewZero = 0, drewFrame = 0;
  std::mt19937 seedRng(815);  // seeds over the whole range, not just small ones
  for (int s = 0; s < seeds; ++s) {
    const int seed = static_cast<int>(seedRng());
    v.timeSeed = seed;
    World<T> out(8, 8);
    rt::Captured cap = render(in, out, v);
    ASSERT_EQ(cap.s.attempts, 1);
    ASSERT_EQ(cap.s.probability, 1000);
    ASSERT_EQ(cap.flag[a], 1);
    // Block a's time decision: step 1's w-half against 1000, step 2's output.
    ref::Gen t(seed);
    t.next();
    const bool draws = (t.w & 1023) < 1000;
    const int drawn = static_cast<int>(t.next() % 17u);
    t.next();
    const bool drawsB = (t.w & 1023) < 1000;
    const int drawnB = static_cast<int>(t.next() % 17u);
    const int b = [&] {
      for (int i = 0; i < 4; ++i)
        if (i != a && cap.flag[i]) return i;
      return a;
    }();
    int expected = draws ? drawn : 0;
    if (b == a && drawsB) expected = drawnB;  // the later setting wins
    EXPECT_EQ(cap.frame[a], expected) << "seed " << seed;
    const int shown = decode(out.get((a % 2) * 4, (a / 2) * 4, 3));
    EXPECT_EQ(shown, expected == 0 ? 5 : 20 + expected);
    if (b != a) {
      noDraw += !draws;
      drewZero += draws && drawn == 0;
      drewFrame += draws && drawn != 0;
    }
  }
  // About 24 in 1024 get no draw and keep the current time; some draw 0.
  const int total = noDraw + drewZero + drewFrame;
  ASSERT_GT(total, 1000);
  EXPECT_GT(noDraw, 0);
  EXPECT_GT(drewZero, 0);
  EXPECT_NEAR(static_cast<double>(noDraw) / total, 24.0 / 1024.0, 0.012);
}

TYPED_TEST(Kernel, ParameterConversions) {
  using T = TypeParam;
  World<T> in = coordinates<T>(40, 40), out(40, 40);
  ParamValues v = rt::defaultValues();
  v.maskIntensity = 50;
  rt::Captured cap = render(in, out, v);
  EXPECT_EQ(cap.s.strength, 102);  // 0.1 * 1024 = 102.4
  EXPECT_EQ(cap.s.spread, 102);
  EXPECT_EQ(cap.s.probability, 250);
  EXPECT_EQ(cap.s.intensity, 16384);
  EXPECT_EQ(cap.s.blockWidth, 32);
  v.maskIntensity = 100;
  v.timeProbability = 33.33;
  cap = render(in, out, v);
  EXPECT_EQ(cap.s.intensity, 32768);
  EXPECT_EQ(cap.s.probability, 333);
  // Block sizes follow the downsample factor, truncated; 0 becomes 1.
  v.blockWidth = 3;
  v.blockHeight = 33;
  cap = render(in, out, v, 0.25f);
  EXPECT_EQ(cap.s.blockWidth, 1);
  EXPECT_EQ(cap.s.blockHeight, 8);
  v.blockWidth = 32;
  cap = render(in, out, v, 0.5f);
  EXPECT_EQ(cap.s.blockWidth, 16);
  EXPECT_EQ(cap.s.columns, 3);
}

TYPED_TEST(Kernel, ZeroStepSelectedByTheSteppingUnitSharesTheInput) {
  using T = TypeParam;
  World<T> in = coordinates<T>(16, 16);
  ParamValues v = rt::defaultValues();
  v.timeFrames = 5;  // no time layers supplied at all
  v.blockWidth = v.blockHeight = 4;
  v.shuffleStrength = 1.0;
  World<T> out(16, 16);
  v.steppingUnit = 0;
  v.timeStepSeconds = 0.0;
  v.timeStepFrames = 2.0;
  EXPECT_EQ(render(in, out, v).s.nframes, 5);
  v.steppingUnit = 1;
  EXPECT_EQ(render(in, out, v).s.nframes, 0);  // frame step 2 selected: layers looked at, all null
  v.timeStepFrames = 0.0;
  v.timeStepSeconds = 0.05;
  EXPECT_EQ(render(in, out, v).s.nframes, 5);
  // Sharing the input, a time-shifted block shows the input's own pixels.
  rt::Captured a = render(in, out, v);
  bool anyShift = false;
  for (A_u_char f : a.frame) anyShift = anyShift || f != 0;
  EXPECT_TRUE(anyShift);
  World<T> expected(16, 16);
  ref::render<T>(in.def, expected.def, v, 1.0f);
  EXPECT_TRUE(samePixels(out, expected));
}

TYPED_TEST(Kernel, NullWorldsAreRefusedWithoutWriting) {
  using T = TypeParam;
  World<T> in(4, 4), out(4, 4);
  out.fillPixel(code<T>(9), code<T>(9), code<T>(9), code<T>(9));
  const World<T> before = out;
  ParamValues v = rt::defaultValues();
  EXPECT_NE(Depth<T>::render(nullptr, &out.def, v, 1.0f), PF_Err_NONE);
  EXPECT_NE(Depth<T>::render(&in.def, nullptr, v, 1.0f), PF_Err_NONE);
  PF_LayerDef noPixels = in.def;
  noPixels.data = nullptr;
  EXPECT_NE(Depth<T>::render(&noPixels, &out.def, v, 1.0f), PF_Err_NONE);
  EXPECT_TRUE(rt::sameBytes(out, before));
}

TYPED_TEST(Kernel, RowPaddingIsNeverWritten) {
  using T = TypeParam;
  std::mt19937 rng(10);
  World<T> in(13, 9, 5);
  rt::fillRandom(in, rng);
  for (int composite = 0; composite <= 1; ++composite)
    for (int channel = 0; channel <= 4; ++channel) {
      ParamValues v = rt::defaultValues();
      v.blockWidth = 4;
      v.blockHeight = 2;
      v.shuffleStrength = 1.0;
      v.compositeOnOriginal = composite;
      v.channels = channel;
      World<T> out(13, 9, 5);
      out.fillBytes(rng);
      const World<T> before = out;
      render(in, out, v);
      for (int y = 0; y < 9; ++y)
        EXPECT_EQ(memcmp(out.at(13, y, 0), before.at(13, y, 0), 5 * 4 * sizeof(T)), 0);
    }
}

}  // namespace
