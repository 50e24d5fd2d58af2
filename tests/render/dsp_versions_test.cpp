// Every version of the renderer's inner loops on the same random inputs, in
// the manner of FFmpeg's checkasm: the portable version against a plain
// model, then each version this processor has (on x86 the SSE2 and AVX2
// tables, forced in turn) against the portable one, at every depth and at
// sizes that are not multiples of the vector width, 0, 1 and odd. Buffers
// carry guard bytes around what a routine may write, which must stay as
// they were. Off x86 only the portable versions exist, and they meet the
// models alone.
#include <gtest/gtest.h>

#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <limits>
#include <random>
#include <vector>

#include "dsp_versions.h"
#include "render/block_pass.h"
#include "render/block_sums.h"
#include "render/pairs.h"
#include "render/random.h"
#include "render/streamed_pass.h"
#include "render_support.h"

namespace {

using tesselux_kernel::KernelDsp;

constexpr unsigned char kGuard = 0xA5;

TEST(DspVersions, EveryVersionOfThisProcessorIsTested) {
  using namespace tesselux_kernel;
  const std::vector<KernelDsp> tables = rt::everyDsp();
  ASSERT_FALSE(tables.empty());
  EXPECT_STREQ(tables.front().name, "portable");
  EXPECT_EQ(tables.front().flags, 0u);
#if TESSELUX_X86_SIMD
  const bool avx2 = (cpuFlags() & kCpuAvx2) != 0;
  ASSERT_EQ(tables.size(), avx2 ? 3u : 2u);
  EXPECT_STREQ(tables[1].name, "sse2");
  // A forced table really holds other code than the portable one.
  EXPECT_NE(tables[1].sumBlockRow16, tables[0].sumBlockRow16);
  EXPECT_NE(tables[1].zChains, tables[0].zChains);
  if (avx2) {
    EXPECT_STREQ(tables[2].name, "avx2");
    EXPECT_NE(tables[2].sumBlockRow8, tables[1].sumBlockRow8);
    EXPECT_NE(tables[2].pairsFromDraws, tables[0].pairsFromDraws);
    EXPECT_NE(tables[2].streamBlockRow, tables[0].streamBlockRow);
    EXPECT_NE(tables[2].copyShortRows, tables[0].copyShortRows);
  }
#else
  EXPECT_EQ(tables.size(), 1u);
#endif
  // The process renders with the widest table, made once.
  EXPECT_STREQ(kernelDsp().name, tables.back().name);
  EXPECT_EQ(kernelDsp().flags, tables.back().flags);
  EXPECT_EQ(&kernelDsp(), &kernelDsp());
}

// ---- mask sums -------------------------------------------------------------

// Rows of `cols` pixels of `chan`-byte channels, with row padding and guard
// bytes after the last row. `kind` 0 random, 1 every channel at its largest
// (lanes fill as far as they may), 2 floats with NaN, infinities and huge values.
struct Pixels {
  std::vector<unsigned char> bytes;
  ptrdiff_t rowbytes = 0;
};

void putChannel(unsigned char* p, int chan, std::mt19937& rng, int kind) {
  if (chan == 1) {
    *p = kind == 1 ? 255 : static_cast<unsigned char>(rng());
  } else if (chan == 2) {
    const uint16_t v = kind == 1 ? 65535 : static_cast<uint16_t>(rng());
    memcpy(p, &v, 2);
  } else {
    const uint32_t r = rng();
    float v = static_cast<float>(r >> 8) / 16777216.0f * 3.0f - 1.0f;
    if (kind == 1) v = 1.0f;
    if (kind == 2 && (r & 31) == 0) {
      const float specials[] = {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
                                -std::numeric_limits<float>::infinity(), 3.0e38f, -3.0e38f, 1.0e-40f, -0.0f, 1.0e7f};
      v = specials[(r >> 5) & 7];
    }
    memcpy(p, &v, 4);
  }
}

Pixels randomPixels(std::mt19937& rng, int chan, A_long cols, A_long rows, int kind) {
  Pixels px;
  px.rowbytes = (static_cast<ptrdiff_t>(cols) + 1 + rng() % 3) * 4 * chan;
  px.bytes.assign(static_cast<size_t>(px.rowbytes) * (rows > 0 ? rows : 0) + 64, kGuard);
  for (A_long y = 0; y < rows; ++y)
    for (A_long x = 0; x < cols; ++x)
      for (int c = 0; c < 4; ++c)
        putChannel(px.bytes.data() + y * px.rowbytes + (x * 4 + c) * chan, chan, rng, kind);
  return px;
}

double channelAt(const Pixels& px, int chan, A_long x, A_long y, int c) {
  const unsigned char* p = px.bytes.data() + y * px.rowbytes + (x * 4 + c) * chan;
  if (chan == 1) return *p;
  uint16_t v;
  memcpy(&v, p, 2);
  return v;
}

// Integer totals of one block, the plain way.
void modelSums(const Pixels& px, int chan, A_long x0, A_long cols, A_long rows, uint64_t* sums) {
  for (A_long y = 0; y < rows; ++y)
    for (A_long x = x0; x < x0 + cols; ++x)
      for (int c = 0; c < 4; ++c) sums[c] += static_cast<uint64_t>(channelAt(px, chan, x, y, c));
}

// Float totals of one block: one running sum per channel in row-major order.
void modelSums(const Pixels& px, A_long x0, A_long cols, A_long rows, float* sums) {
  for (A_long y = 0; y < rows; ++y)
    for (A_long x = x0; x < x0 + cols; ++x)
      for (int c = 0; c < 4; ++c) {
        float v;
        memcpy(&v, px.bytes.data() + y * px.rowbytes + (x * 4 + c) * 4, 4);
        sums[c] += v;
      }
}

// Float results agree when their bits do, or when both are NaN.
bool sameFloat(float a, float b) {
  if (a != a && b != b) return true;
  return memcmp(&a, &b, sizeof a) == 0;
}

const A_long kWidths[] = {0, 1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 33, 63, 64, 65, 127, 129, 513, 1029};
const A_long kRows[] = {0, 1, 2, 3, 5};

TEST(DspVersions, BlockSumsAtEveryDepthAndWidth) {
  std::mt19937 rng(31);
  const std::vector<KernelDsp> tables = rt::everyDsp();
  for (int chan : {1, 2, 4})
    for (A_long cols : kWidths)
      for (A_long rows : kRows)
        for (int kind : {0, 1, 2}) {
          const Pixels px = randomPixels(rng, chan, cols, rows, kind);
          const Pixels before = px;
          for (const KernelDsp& d : tables) {
            SCOPED_TRACE(testing::Message() << d.name << " depth " << 8 * chan << " " << cols << "x" << rows
                                            << " kind " << kind);
            if (chan == 4) {
              float model[4] = {0.5f, -1.0f, 2.0f, 0.0f}, got[4] = {0.5f, -1.0f, 2.0f, 0.0f};
              modelSums(px, 0, cols, rows, model);
              d.sumBlock32(px.bytes.data(), px.rowbytes, cols, rows, got);
              for (int c = 0; c < 4; ++c) EXPECT_TRUE(sameFloat(got[c], model[c])) << got[c] << " " << model[c];
            } else {
              // The sums are added to what the totals held.
              uint64_t model[4] = {7, 0, 1u << 20, 3}, got[4] = {7, 0, 1u << 20, 3};
              modelSums(px, chan, 0, cols, rows, model);
              (chan == 1 ? d.sumBlock8 : d.sumBlock16)(px.bytes.data(), px.rowbytes, cols, rows, got);
              for (int c = 0; c < 4; ++c) EXPECT_EQ(got[c], model[c]) << "channel " << c;
            }
            ASSERT_TRUE(px.bytes == before.bytes);
          }
        }
}

// 16-bit lanes are emptied every 16384 two-pixel steps and 8-bit ones folded
// every 128 four-pixel steps: rows long enough to pass both, at the largest values.
TEST(DspVersions, BlockSumsPastTheirLaneLimits) {
  std::mt19937 rng(32);
  for (int chan : {1, 2, 4}) {
    const Pixels px = randomPixels(rng, chan, 40001, 3, 1);
    for (const KernelDsp& d : rt::everyDsp()) {
      SCOPED_TRACE(testing::Message() << d.name << " depth " << 8 * chan);
      if (chan == 4) {
        float model[4] = {0, 0, 0, 0}, got[4] = {0, 0, 0, 0};
        modelSums(px, 0, 40001, 3, model);
        d.sumBlock32(px.bytes.data(), px.rowbytes, 40001, 3, got);
        for (int c = 0; c < 4; ++c) EXPECT_TRUE(sameFloat(got[c], model[c]));
      } else {
        uint64_t model[4] = {0, 0, 0, 0}, got[4] = {0, 0, 0, 0};
        modelSums(px, chan, 0, 40001, 3, model);
        (chan == 1 ? d.sumBlock8 : d.sumBlock16)(px.bytes.data(), px.rowbytes, 40001, 3, got);
        for (int c = 0; c < 4; ++c) EXPECT_EQ(got[c], model[c]);
      }
    }
  }
}

struct RowShape {
  A_long bw, columns, lastCols, rows;
};

// Row sums of one shape by one version, against the model block by block;
// totals past `columns` must stay untouched.
void expectRowSums(const KernelDsp& d, int chan, const RowShape& s, const Pixels& px) {
  constexpr uint64_t kUntouched = 0x5A5A5A5A5A5A5A5Aull;
  std::vector<uint64_t> got(4 * (tesselux_kernel::kSumColumns + 1), kUntouched);
  std::vector<float> gotF(4 * (tesselux_kernel::kSumColumns + 1), -7.0f);
  auto* sums = reinterpret_cast<uint64_t(*)[4]>(got.data());
  auto* sumsF = reinterpret_cast<float(*)[4]>(gotF.data());
  if (chan == 1) d.sumBlockRow8(px.bytes.data(), px.rowbytes, s.rows, s.bw, s.columns, s.lastCols, sums);
  if (chan == 2) d.sumBlockRow16(px.bytes.data(), px.rowbytes, s.rows, s.bw, s.columns, s.lastCols, sums);
  if (chan == 4) d.sumBlockRow32(px.bytes.data(), px.rowbytes, s.rows, s.bw, s.columns, s.lastCols, sumsF);
  for (A_long c = 0; c < s.columns; ++c) {
    const A_long cols = c == s.columns - 1 ? s.lastCols : s.bw;
    if (chan == 4) {
      float model[4] = {0, 0, 0, 0};
      modelSums(px, c * s.bw, cols, s.rows, model);
      for (int k = 0; k < 4; ++k) ASSERT_TRUE(sameFloat(sumsF[c][k], model[k])) << "block " << c << " channel " << k;
    } else {
      uint64_t model[4] = {0, 0, 0, 0};
      modelSums(px, chan, c * s.bw, cols, s.rows, model);
      for (int k = 0; k < 4; ++k) ASSERT_EQ(sums[c][k], model[k]) << "block " << c << " channel " << k;
    }
  }
  for (size_t i = 4 * static_cast<size_t>(s.columns); i < got.size(); ++i) {
    ASSERT_EQ(got[i], kUntouched) << "past the last block";
    ASSERT_EQ(gotF[i], -7.0f) << "past the last block";
  }
}

std::vector<RowShape> rowShapes() {
  std::vector<RowShape> shapes;
  const A_long widths[] = {1, 2, 3, 4, 5, 7, 8, 9, 16, 17, 31, 33, 64, 100, 2040, 2041};
  for (A_long bw : widths)
    for (A_long columns : {0, 1, 2, 5})
      for (A_long rows : {0, 1, 3, 17}) {
        shapes.push_back({bw, columns, bw, rows});
        if (bw > 1) shapes.push_back({bw, columns, bw - 1, rows});
        if (bw > 2) shapes.push_back({bw, columns, 1, rows});
      }
  // As many blocks as one call takes, and the widest block the row sums take.
  shapes.push_back({3, tesselux_kernel::kSumColumns, 2, 5});
  shapes.push_back({tesselux_kernel::kRowSumMaxWidth, 1, tesselux_kernel::kRowSumMaxWidth, 2});
  return shapes;
}

TEST(DspVersions, RowSumsAtEveryDepthAndWidth) {
  std::mt19937 rng(33);
  const std::vector<KernelDsp> tables = rt::everyDsp();
  for (int chan : {1, 2, 4})
    for (const RowShape& s : rowShapes()) {
      const int kind = rng() % 4 == 0 ? 1 : chan == 4 ? 2 : 0;
      const A_long width = s.columns > 0 ? (s.columns - 1) * s.bw + s.lastCols : 0;
      const Pixels px = randomPixels(rng, chan, width, s.rows, kind);
      for (const KernelDsp& d : tables) {
        SCOPED_TRACE(testing::Message() << d.name << " depth " << 8 * chan << " block " << s.bw << " columns "
                                        << s.columns << " last " << s.lastCols << " rows " << s.rows);
        expectRowSums(d, chan, s, px);
      }
    }
}

// Many rows of the largest values: 8-bit lanes are widened and emptied
// across rows, 16-bit ones emptied before they pass 2^32.
TEST(DspVersions, RowSumsCarriedOverManyRows) {
  std::mt19937 rng(34);
  for (int chan : {1, 2})
    for (A_long bw : {8, 255, 2040, 4097}) {
      const RowShape s{bw, 3, bw - 3, chan == 1 ? 263 : 40};
      const Pixels px = randomPixels(rng, chan, 2 * bw + s.lastCols, s.rows, 1);
      for (const KernelDsp& d : rt::everyDsp()) {
        SCOPED_TRACE(testing::Message() << d.name << " depth " << 8 * chan << " block " << bw);
        expectRowSums(d, chan, s, px);
      }
    }
}

// ---- short copies and the streamed rows ------------------------------------

std::vector<unsigned char> randomBytes(std::mt19937& rng, size_t n) {
  std::vector<unsigned char> b(n);
  for (auto& v : b) v = static_cast<unsigned char>(rng());
  return b;
}

TEST(DspVersions, ShortCopiesAtEveryDepth) {
  std::mt19937 rng(35);
  for (int pix : {4, 8, 16})
    for (size_t bytes : {size_t(32), size_t(64)})
      for (A_long rows : {0, 1, 2, 3, 7})
        for (int round = 0; round < 4; ++round) {
          // Strides of whole pixels plus an odd lead, neither aligned.
          const ptrdiff_t srcStride = static_cast<ptrdiff_t>(bytes) + pix * (1 + rng() % 5);
          const ptrdiff_t dstStride = static_cast<ptrdiff_t>(bytes) + pix * (rng() % 5);
          const size_t srcLead = rng() % 7, dstLead = rng() % 7;
          const std::vector<unsigned char> src = randomBytes(rng, srcLead + srcStride * 8);
          std::vector<unsigned char> model(dstLead + dstStride * 8 + 64, kGuard);
          for (A_long y = 0; y < rows; ++y)
            memcpy(model.data() + dstLead + y * dstStride, src.data() + srcLead + y * srcStride, bytes);
          for (const KernelDsp& d : rt::everyDsp()) {
            std::vector<unsigned char> dst(model.size(), kGuard);
            d.copyShortRows(dst.data() + dstLead, dstStride, src.data() + srcLead, srcStride, bytes, rows);
            ASSERT_TRUE(dst == model) << d.name << " pixel " << pix << " bytes " << bytes << " rows " << rows;
          }
        }
}

// One block row of the streamed pass: pieces of whole pixels that tile the
// output row in a shuffled order, each from its own place in one of two
// sources with their own strides; the output starts anywhere in its line.
struct StreamCase {
  std::vector<unsigned char> srcA, srcB;
  std::vector<unsigned char> outStart;  // the output buffer before the pass
  size_t outLead = 0;
  ptrdiff_t outRowbytes = 0;
  A_long rows = 0;
  std::vector<tesselux_kernel::SourceRun> runs;  // pointers into a copy of outStart, filled by place()
  std::vector<ptrdiff_t> dstOffsets;
};

StreamCase makeStreamCase(std::mt19937& rng, int pix, A_long widthPixels, A_long rows) {
  StreamCase c;
  c.rows = rows;
  c.outLead = rng() % 2 ? 0 : pix * (rng() % 17);
  c.outRowbytes = static_cast<ptrdiff_t>(widthPixels + rng() % 3) * pix;
  c.outStart = randomBytes(rng, c.outLead + c.outRowbytes * (rows + 1) + 64);
  const ptrdiff_t strideA = static_cast<ptrdiff_t>(widthPixels + 5) * pix, strideB = strideA + 3 * pix;
  c.srcA = randomBytes(rng, strideA * (rows + 1));
  c.srcB = randomBytes(rng, strideB * (rows + 1));
  A_long x = 0;
  while (x < widthPixels) {
    const A_long w = std::min<A_long>(widthPixels - x, 1 + rng() % (rng() % 4 == 0 ? 300 : 20));
    const bool fromB = rng() % 3 == 0;
    const ptrdiff_t stride = fromB ? strideB : strideA;
    const A_long sx = static_cast<A_long>(rng() % static_cast<uint32_t>(widthPixels + 5 - w + 1));
    const unsigned char* src = (fromB ? c.srcB : c.srcA).data() + sx * pix;
    c.runs.push_back({src, stride, nullptr, static_cast<size_t>(w) * pix});
    c.dstOffsets.push_back(static_cast<ptrdiff_t>(x) * pix);
    x += w;
  }
  for (size_t i = c.runs.size(); i > 1; --i) {  // source order scatters the destinations
    const size_t j = rng() % i;
    std::swap(c.runs[i - 1], c.runs[j]);
    std::swap(c.dstOffsets[i - 1], c.dstOffsets[j]);
  }
  return c;
}

std::vector<unsigned char> runStream(const StreamCase& c, const KernelDsp& d, A_long bandRows) {
  std::vector<unsigned char> out = c.outStart;
  std::vector<tesselux_kernel::SourceRun> runs = c.runs;
  for (size_t i = 0; i < runs.size(); ++i) runs[i].dst = out.data() + c.outLead + c.dstOffsets[i];
  d.streamBlockRow(runs.data(), static_cast<int>(runs.size()), c.rows, c.outRowbytes, bandRows);
  d.endStreaming();
  return out;
}

std::vector<unsigned char> modelStream(const StreamCase& c) {
  std::vector<unsigned char> out = c.outStart;
  for (size_t i = 0; i < c.runs.size(); ++i)
    for (A_long y = 0; y < c.rows; ++y)
      memcpy(out.data() + c.outLead + c.dstOffsets[i] + y * c.outRowbytes, c.runs[i].src + y * c.runs[i].stride,
             c.runs[i].bytes);
  return out;
}

TEST(DspVersions, StreamedRowsAtEveryDepthAndWidth) {
  std::mt19937 rng(36);
  for (int pix : {4, 8, 16})
    for (A_long width : {1, 2, 3, 7, 16, 17, 33, 129, 1000})
      for (A_long rows : {0, 1, 3, 8, 9, 17})
        for (A_long bandRows : {1, 8}) {
          const StreamCase c = makeStreamCase(rng, pix, width, rows);
          const std::vector<unsigned char> model = modelStream(c);
          for (const KernelDsp& d : rt::everyDsp())
            ASSERT_TRUE(runStream(c, d, bandRows) == model)
                << d.name << " pixel " << pix << " width " << width << " rows " << rows << " band " << bandRows
                << " runs " << c.runs.size() << " lead " << c.outLead;
        }
}

// ---- pairs and the shuffle stream ------------------------------------------

TEST(DspVersions, PairsOfEveryCountOnRandomGrids) {
  using namespace tesselux_kernel;
  std::mt19937 rng(37);
  const long long counts[] = {0, 1, 7, 8, 9, 15, 16, 17, 100, 1023, 1024};
  for (int round = 0; round < 300; ++round) {
    const uint32_t reach = round % 10 == 0 ? 65536 : round % 3 == 0 ? 600 : 9;
    const A_long columns = static_cast<A_long>(rng() % reach) + 1;
    A_long rows = static_cast<A_long>(rng() % reach) + 1;
    if (static_cast<long long>(columns) * rows > 0x7FFFFFFFLL) rows = 0x7FFFFFFF / columns;
    const A_long spread = round % 4 == 0 ? 0 : round % 4 == 1 ? 1024 : static_cast<A_long>(rng() % 1025);
    const ShuffleSetup s = makeShuffleSetup(columns, rows, rng() % 2 != 0, rng() % 2 != 0, spread, round % 3);
    const long long count = counts[round % 11];
    std::vector<uint32_t> draws(static_cast<size_t>(3 * count) + 1);
    for (auto& v : draws) v = rng();
    std::vector<uint32_t> model(2 * count + 2, 0xDEADBEEFu);
    for (long long t = 0; t < count; ++t) pairFromDraws(s, draws.data() + 3 * t, &model[2 * t], &model[2 * t + 1]);
    for (const KernelDsp& d : rt::everyDsp()) {
      std::vector<uint32_t> got(2 * count + 2, 0xDEADBEEFu);
      d.pairsFromDraws(s, draws.data(), reinterpret_cast<uint32_t(*)[2]>(got.data()), count);
      ASSERT_TRUE(got == model) << d.name << " grid " << columns << "x" << rows << " count " << count;
    }
  }
}

TEST(DspVersions, ShuffleStreamChainsOfEveryLength) {
  std::mt19937 rng(38);
  constexpr uint32_t pz = 36969u * 65536u - 1, pw = 18000u * 65536u - 1;
  for (size_t len : {size_t(0), size_t(8), size_t(16), size_t(24), size_t(64), size_t(1000), size_t(4096)})
    for (int round = 0; round < 6; ++round) {
      uint32_t cz0[kZChains], cw0[kZChains];
      for (int k = 0; k < kZChains; ++k) {
        // Any state at most p, the fixed points p and 0 among them.
        cz0[k] = round == 0 ? (k % 2 ? pz : 0) : static_cast<uint32_t>(rng() % (pz + 1ull));
        cw0[k] = round == 0 ? (k % 3 ? pw : 0) : static_cast<uint32_t>(rng() % (pw + 1ull));
      }
      // Each chain against single steps of the generator.
      std::vector<uint32_t> model(kZChains * len + 1, 0xDEADBEEFu);
      long long endZ[kZChains], endW[kZChains];
      for (int k = 0; k < kZChains; ++k) {
        long long w = cw0[k], z = cz0[k];
        for (size_t j = 0; j < len; ++j) model[k * len + j] = z_random(&w, &z);
        endZ[k] = z;
        endW[k] = w;
      }
      for (const KernelDsp& d : rt::everyDsp()) {
        uint32_t cz[kZChains], cw[kZChains];
        memcpy(cz, cz0, sizeof cz);
        memcpy(cw, cw0, sizeof cw);
        std::vector<uint32_t> out(kZChains * len + 1, 0xDEADBEEFu);
        d.zChains(cz, cw, out.data(), len);
        ASSERT_TRUE(out == model) << d.name << " length " << len << " round " << round;
        for (int k = 0; k < kZChains; ++k) {
          ASSERT_EQ(cz[k], endZ[k]) << d.name << " chain " << k;
          ASSERT_EQ(cw[k], endW[k]) << d.name << " chain " << k;
        }
      }
    }
}

// ---- whole renders -----------------------------------------------------------

// One random frame with its controls: any size from 0 up, blocks that do
// and do not divide it, a mask layer or none, time frames or none. Filled in
// place: the controls point at its worlds.
template <typename T>
struct RenderCase {
  rt::World<T> input, mask;
  std::vector<rt::World<T>> times;
  ParamValues v;
};

template <typename T>
void fillRenderCase(std::mt19937& rng, RenderCase<T>& c) {
  auto pick = [&](std::initializer_list<int> list) { return *(list.begin() + rng() % list.size()); };
  const int w = pick({0, 1, 2, 3, 5, 7, 8, 9, 16, 17, 31, 33, 64, 65, 130});
  const int h = pick({1, 2, 3, 5, 8, 9, 17, 33, 70});
  c.input = rt::World<T>(w, h, static_cast<int>(rng() % 3));
  rt::fillRandom(c.input, rng);
  c.mask = rt::World<T>(w + static_cast<int>(rng() % 3), h, 1);
  rt::fillRandom(c.mask, rng);
  for (int i = 0; i < 3; ++i) {
    c.times.emplace_back(w, h, 2);
    rt::fillRandom(c.times.back(), rng);
  }
  ParamValues& v = c.v;
  v = rt::defaultValues();
  v.blockWidth = pick({1, 2, 3, 4, 5, 8, 16, 70});
  v.blockHeight = pick({1, 2, 3, 4, 7, 8, 16});
  v.shuffleStrength = pick({0, 30, 100}) / 100.0;
  v.shuffleSpread = pick({0, 10, 50, 100}) / 100.0;
  v.shuffleDirection = pick({0, 1, 2});
  v.shuffleSeed = static_cast<int>(rng());
  v.maskSeed = static_cast<int>(rng());
  v.timeSeed = static_cast<int>(rng());
  v.channels = pick({0, 0, 0, 1, 4});
  v.compositeOnOriginal = pick({0, 1, 1});
  v.maskIntensity = pick({0, 0, 5, 50, 100});
  v.maskType = pick({0, 1, 2});
  if (rng() % 2) v.maskLayer = &c.mask.def;
  if (rng() % 2) {
    v.timeFrames = 3;
    v.timeProbability = 50.0;
    v.timeStepFrames = 1.0;
    v.timeStepSeconds = 0.04;
    for (int i = 0; i < 3; ++i) v.timeLayers[i] = &c.times[i].def;
  }
}

template <typename T>
class DspVersionsRender : public ::testing::Test {};
using Depths = ::testing::Types<uint8_t, uint16_t, float>;
TYPED_TEST_SUITE(DspVersionsRender, Depths);

// Every table renders the same bytes and decides the same blocks as the
// portable one, by each pass: the renderer's choice, the band copy and the
// streamed pass forced on these small frames.
TYPED_TEST(DspVersionsRender, EveryVersionRendersThePortableBytes) {
  using T = TypeParam;
  std::mt19937 rng(40 + sizeof(T));
  const std::vector<KernelDsp> tables = rt::everyDsp();
  for (int n = 0; n < 60; ++n) {
    RenderCase<T> c;
    fillRenderCase(rng, c);
    rt::World<T> start(c.input.def.width, c.input.def.height, 1);
    start.fillBytes(rng);
    for (ForcedPass pass : {ForcedPass::chosen, ForcedPass::bandCopy, ForcedPass::streamed}) {
      rt::World<T> portable = start;
      rt::Captured portableCap;
      for (const KernelDsp& d : tables) {
        rt::World<T> out = start;
        rt::Captured cap;
        RenderHooks hooks = rt::captureHooks(&cap);
        forcePass(hooks, pass);
        hooks.dsp = &d;
        ASSERT_EQ(rt::Depth<T>::render(&c.input.def, &out.def, c.v, 1.0f, hooks), PF_Err_NONE);
        if (&d == &tables.front()) {
          portable = out;
          portableCap = cap;
          continue;
        }
        EXPECT_TRUE(rt::sameBytes(out, portable)) << d.name << " case " << n << " pass " << static_cast<int>(pass);
        EXPECT_TRUE(cap.idx == portableCap.idx && cap.flag == portableCap.flag && cap.frame == portableCap.frame &&
                    cap.maskval == portableCap.maskval && cap.s.shuffleW == portableCap.s.shuffleW &&
                    cap.s.shuffleZ == portableCap.s.shuffleZ && cap.s.maskW == portableCap.s.maskW &&
                    cap.s.timeW == portableCap.s.timeW)
            << d.name << " case " << n << " pass " << static_cast<int>(pass);
      }
    }
  }
}

// A render through hooks takes the table handed in, for every routine: a
// table of the portable versions that count their calls.
struct Calls {
  int sumBlock = 0, sumRow = 0, copyShort = 0, streamRow = 0, endStreaming = 0, pairs = 0, chains = 0;
};
Calls calls;

KernelDsp countingDsp() {
  KernelDsp d = tesselux_kernel::makeKernelDsp(0);
  d.name = "counting";
  d.sumBlock8 = [](const unsigned char* b, ptrdiff_t rb, A_long c, A_long r, uint64_t* s) {
    ++calls.sumBlock;
    tesselux_kernel::sumBlock8Portable(b, rb, c, r, s);
  };
  d.sumBlockRow8 = [](const unsigned char* b, ptrdiff_t rb, A_long r, A_long bw, A_long c, A_long l,
                      uint64_t (*s)[4]) {
    ++calls.sumRow;
    tesselux_kernel::sumBlockRow8Portable(b, rb, r, bw, c, l, s);
  };
  d.copyShortRows = [](unsigned char* dst, ptrdiff_t ds, const unsigned char* src, ptrdiff_t ss, size_t n,
                       A_long r) {
    ++calls.copyShort;
    tesselux_kernel::copyShortRowsPortable(dst, ds, src, ss, n, r);
  };
  d.streamBlockRow = [](const tesselux_kernel::SourceRun* runs, int n, A_long r, ptrdiff_t rb, A_long band) {
    ++calls.streamRow;
    tesselux_kernel::streamBlockRowPortable(runs, n, r, rb, band);
  };
  d.endStreaming = [] { ++calls.endStreaming; };
  d.pairsFromDraws = [](const tesselux_kernel::ShuffleSetup& s, const uint32_t* draws, uint32_t (*p)[2],
                        long long n) {
    ++calls.pairs;
    tesselux_kernel::pairsFromDrawsPortable(s, draws, p, n);
  };
  d.zChains = [](uint32_t* cz, uint32_t* cw, uint32_t* out, size_t len) {
    ++calls.chains;
    z_chains_plain(cz, cw, out, len);
  };
  return d;
}

TEST(DspVersions, RendersTakeTheTableTheHooksHandIn) {
  std::mt19937 rng(41);
  const KernelDsp counting = countingDsp();
  auto render = [&](rt::World<uint8_t>& in, ParamValues v, ForcedPass pass) {
    rt::World<uint8_t> out(in.def.width, in.def.height, 1);
    RenderHooks hooks{};
    forcePass(hooks, pass);
    hooks.dsp = &counting;
    ASSERT_EQ(renderARGB8WithHooks(&in.def, &out.def, v, 1.0f, hooks), PF_Err_NONE);
  };
  // 8x8 blocks are 32-byte pieces; every block drawn, moved and summed.
  rt::World<uint8_t> frame(64, 64, 1);
  rt::fillRandom(frame, rng);
  ParamValues v = rt::defaultValues();
  v.blockWidth = v.blockHeight = 8;
  v.shuffleStrength = 1.0;
  v.maskIntensity = 50.0;
  render(frame, v, ForcedPass::bandCopy);
  EXPECT_GT(calls.sumRow, 0);
  EXPECT_GT(calls.copyShort, 0);
  EXPECT_GT(calls.pairs, 0);
  EXPECT_GT(calls.chains, 0);
  EXPECT_EQ(calls.streamRow, 0);
  render(frame, v, ForcedPass::streamed);
  EXPECT_GT(calls.streamRow, 0);
  EXPECT_EQ(calls.endStreaming, 1);
  // Blocks wider than the row sums take are summed one at a time.
  rt::World<uint8_t> wide(tesselux_kernel::kRowSumMaxWidth + 1, 2, 1);
  rt::fillRandom(wide, rng);
  v.blockWidth = tesselux_kernel::kRowSumMaxWidth + 1;
  render(wide, v, ForcedPass::chosen);
  EXPECT_GT(calls.sumBlock, 0);
}

}  // namespace
