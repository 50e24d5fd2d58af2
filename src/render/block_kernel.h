// The block shuffle kernel, one body for all three pixel depths. A depth is
// described by a small traits record (channel type, how block sums are held
// and added up, how a sum becomes a 0..32768 mask value); everything else -
// the grid, the three random streams, the pairing rules and the block pass -
// is shared.
// Internal to the renderer: included by render.cpp only.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <type_traits>

#include "params/param_values.h"
#include "render/block_sums.h"
#include "render/cpu_features.h"
#include "render/fast_divide.h"
#include "render/pairs.h"
#include "render/random.h"
#include "render/render_internal.h"

namespace tesselux_kernel {

// Mask values live on 0..32768; anything above 32767 counts as full.
inline A_u_short saturateMask(uint64_t v) { return v > 32767 ? 32768 : static_cast<A_u_short>(v); }

// Float sums may be negative, over-range or NaN; the truncated value is
// clamped to 0..32768 so the conversion never leaves the integer range.
inline A_u_short saturateMask(float f) {
  if (!(f >= 0.0f)) return 0;
  if (f >= 32768.0f) return 32768;
  return static_cast<A_u_short>(static_cast<A_long>(f));
}

struct Argb8Traits {
  typedef A_u_char Channel;
  typedef uint64_t BlockSum;  // a 4096 x 4096 block of 255s passes 2^32
  static A_u_char depthValue() { return 8; }
  static void sumBlock(const unsigned char* p, ptrdiff_t rowbytes, A_long cols, A_long rows, BlockSum* sums) {
    sumBlock8(p, rowbytes, cols, rows, sums);
  }
  static void sumRow(const unsigned char* p, ptrdiff_t rowbytes, A_long rows, A_long bw, A_long columns,
                     A_long lastCols, BlockSum (*sums)[4]) {
    sumBlockRow8(p, rowbytes, rows, bw, columns, lastCols, sums);
  }
  static A_u_short maskRGB(BlockSum r, BlockSum g, BlockSum b, uint64_t n) {
    return saturateMask((r / n + g / n + b / n) * 32768 / 765);
  }
  static A_u_short maskSingle(BlockSum s, uint64_t n) { return saturateMask((s / n) * 32768 / 255); }
};

struct Argb16Traits {
  typedef A_u_short Channel;
  typedef uint64_t BlockSum;
  static A_u_short depthValue() { return 16; }
  static void sumBlock(const unsigned char* p, ptrdiff_t rowbytes, A_long cols, A_long rows, BlockSum* sums) {
    sumBlock16(p, rowbytes, cols, rows, sums);
  }
  static void sumRow(const unsigned char* p, ptrdiff_t rowbytes, A_long rows, A_long bw, A_long columns,
                     A_long lastCols, BlockSum (*sums)[4]) {
    sumBlockRow16(p, rowbytes, rows, bw, columns, lastCols, sums);
  }
  static A_u_short maskRGB(BlockSum r, BlockSum g, BlockSum b, uint64_t n) {
    return saturateMask((r / n + g / n + b / n) / 3);
  }
  static A_u_short maskSingle(BlockSum s, uint64_t n) { return saturateMask(s / n); }
};

struct Argb32Traits {
  typedef float Channel;
  typedef float BlockSum;  // single precision, summed pixel by pixel in row-major order
  static float depthValue() { return 32.0f; }
  static void sumBlock(const unsigned char* p, ptrdiff_t rowbytes, A_long cols, A_long rows, BlockSum* sums) {
    sumBlock32(p, rowbytes, cols, rows, sums);
  }
  static void sumRow(const unsigned char* p, ptrdiff_t rowbytes, A_long rows, A_long bw, A_long columns,
                     A_long lastCols, BlockSum (*sums)[4]) {
    sumBlockRow32(p, rowbytes, rows, bw, columns, lastCols, sums);
  }
  static A_u_short maskRGB(BlockSum r, BlockSum g, BlockSum b, uint64_t n) {
    return saturateMask((r + g + b) * 10922.667f / static_cast<float>(n));
  }
  // Deliberately neither divided by the pixel count nor scaled for a single
  // channel: most blocks saturate at 32768. This is the float look and is kept.
  static A_u_short maskSingle(BlockSum s, uint64_t /*n*/) { return saturateMask(s * 10922.667f); }
};

// Everything the kernel needs, already converted by the entry point.
struct KernelInput {
  unsigned char* outData;
  ptrdiff_t outRowbytes;
  A_long width, height;
  const unsigned char* inData;
  ptrdiff_t inRowbytes;
  A_long blockWidth, blockHeight;
  A_long strength, spread, direction, shuffleSeed, channel;
  void* const* frames;   // time frame k is entry k - 1
  const A_long* strides; // in channel elements
  A_long nframes;
  A_long probability, timeSeed, exclusive, composite;
  A_u_short intensity;
  A_long maskType, maskSeed;
  const unsigned char* maskData;  // null: the input is its own mask
  A_long maskWidth, maskHeight;
  ptrdiff_t maskRowbytes;
  A_long originX, originY;
};

// Everything the kernel keeps per block, in one record: an attempt then
// touches one cache line per block instead of one per array.
struct BlockRecord {
  A_u_long idx;       // destination, (row << 16) | column
  A_u_short maskval;  // 0..32768
  A_u_char frame;     // 0 the current frame, k time frame k
  A_u_char flag;      // 1 drawn
};

template <typename T>
inline T loadChannel(const unsigned char* p) {
  T v;
  memcpy(&v, p, sizeof v);  // rows are addressed in bytes; no alignment is assumed
  return v;
}

// Block geometry shared by the mask pass and the block pass.
struct Grid {
  A_long width, height, bw, bh;
  A_long partialW, partialH;  // width % bw, height % bh
  A_long columns, rows;
  long long blocks;
  A_long blockCols(A_long c) const { return (partialW && c == columns - 1) ? partialW : bw; }
  A_long blockRows(A_long r) const { return (partialH && r == rows - 1) ? partialH : bh; }
};

template <class Tr>
inline A_u_short maskValue(const typename Tr::BlockSum* sums, uint64_t count, int channel) {
  return channel == 0 ? Tr::maskRGB(sums[1], sums[2], sums[3], count) : Tr::maskSingle(sums[channel & 3], count);
}

// Per-block channel sums and values of a mask read 1:1 (or of the input).
// Block rows are summed a whole row of blocks at a time, so the frame is
// read front to back once; only blocks too wide for the row sums' lanes are
// summed one block at a time.
template <class Tr>
void fillMaskValuesDirect(BlockRecord* rec, const Grid& g, const unsigned char* data, ptrdiff_t rowbytes,
                          int channel) {
  typedef typename Tr::Channel T;
  constexpr ptrdiff_t pix = 4 * sizeof(T);
  typename Tr::BlockSum sums[kSumColumns][4];
  for (A_long br = 0; br < g.rows; ++br) {
    const A_long y0 = br * g.bh;
    const A_long rows = g.blockRows(br);
    const unsigned char* rowBase = data + static_cast<ptrdiff_t>(y0) * rowbytes;
    BlockRecord* out = rec + static_cast<long long>(br) * g.columns;
    if (g.bw > kRowSumMaxWidth) {
      for (A_long bc = 0; bc < g.columns; ++bc) {
        const A_long cols = g.blockCols(bc);
        typename Tr::BlockSum s[4] = {0, 0, 0, 0};
        Tr::sumBlock(rowBase + static_cast<ptrdiff_t>(bc) * g.bw * pix, rowbytes, cols, rows, s);
        out[bc].maskval = maskValue<Tr>(s, static_cast<uint64_t>(rows) * static_cast<uint64_t>(cols), channel);
      }
      continue;
    }
    for (A_long c0 = 0; c0 < g.columns; c0 += kSumColumns) {
      const A_long count = g.columns - c0 < kSumColumns ? g.columns - c0 : kSumColumns;
      const A_long lastCols = g.blockCols(c0 + count - 1);
      Tr::sumRow(rowBase + static_cast<ptrdiff_t>(c0) * g.bw * pix, rowbytes, rows, g.bw, count, lastCols, sums);
      for (A_long k = 0; k < count; ++k) {
        const uint64_t n = static_cast<uint64_t>(rows) * static_cast<uint64_t>(g.blockCols(c0 + k));
        out[c0 + k].maskval = maskValue<Tr>(sums[k], n, channel);
      }
    }
  }
}

// A stretched mask maps each output pixel to a mask pixel through the 16.16
// factors sx and sy.
template <class Tr>
void fillMaskValuesStretched(BlockRecord* rec, const Grid& g, const unsigned char* data, ptrdiff_t rowbytes,
                             long long sx, long long sy, int channel) {
  typedef typename Tr::Channel T;
  constexpr ptrdiff_t pix = 4 * sizeof(T);
  for (A_long br = 0; br < g.rows; ++br) {
    const A_long y0 = br * g.bh;
    const A_long rows = g.blockRows(br);
    for (A_long bc = 0; bc < g.columns; ++bc) {
      const A_long x0 = bc * g.bw;
      const A_long cols = g.blockCols(bc);
      typename Tr::BlockSum sums[4] = {0, 0, 0, 0};
      for (A_long y = 0; y < rows; ++y) {
        // x * sx and y * sy need 64 bits: coordinates beyond 32767 times
        // factors of 65536 and more pass 2^31.
        const long long my = (static_cast<long long>(y0 + y) * sy) >> 16;
        const unsigned char* row = data + static_cast<ptrdiff_t>(my) * rowbytes;
        for (A_long x = 0; x < cols; ++x) {
          const long long mx = (static_cast<long long>(x0 + x) * sx) >> 16;
          const unsigned char* p = row + static_cast<ptrdiff_t>(mx) * pix;
          for (int c = 0; c < 4; ++c) sums[c] += loadChannel<T>(p + c * sizeof(T));
        }
      }
      const uint64_t count = static_cast<uint64_t>(rows) * static_cast<uint64_t>(cols);
      rec[static_cast<long long>(br) * g.columns + bc].maskval = maskValue<Tr>(sums, count, channel);
    }
  }
}

// Per-block brightness of the mask layer, or of the input when there is none.
template <class Tr>
void computeMaskValues(BlockRecord* rec, const Grid& g, const KernelInput& in) {
  if (g.blocks == 0) return;
  if (!in.maskData) {
    fillMaskValuesDirect<Tr>(rec, g, in.inData, in.inRowbytes, in.channel);
    return;
  }
  // Read 1:1 from the mask's top-left pixel when the output fits inside it at
  // its origin; otherwise stretch the mask over the output. The origin never
  // offsets the samples. Sums are wide so that origin + size cannot overflow.
  const bool inside = in.originX >= 0 && in.originY >= 0 && g.width <= in.maskWidth &&
                      g.height <= in.maskHeight &&
                      static_cast<long long>(in.originX) + g.width <= in.maskWidth &&
                      static_cast<long long>(in.originY) + g.height <= in.maskHeight;
  if (inside) {
    fillMaskValuesDirect<Tr>(rec, g, in.maskData, in.maskRowbytes, in.channel);
    return;
  }
  // mask size * 65536 passes 2^31 for masks of 32768 pixels and more.
  const long long sx = (static_cast<long long>(in.maskWidth) * 65536) / g.width;
  const long long sy = (static_cast<long long>(in.maskHeight) * 65536) / g.height;
  fillMaskValuesStretched<Tr>(rec, g, in.maskData, in.maskRowbytes, sx, sy, in.channel);
}

// The three streams, as (w, z) pairs.
struct Streams {
  long long sw, sz, tw, tz, mw, mz;
};

// What decides an attempt beyond its pair.
struct Decisions {
  A_u_short intensity;
  uint32_t thresholdRange;  // intensity + 1
  bool swapping;            // false: exclusive mode with time frames
  long long probability;
  uint32_t choices;         // nframes + 1
};

// The destination of a block: in its record, or alone in an array of
// destinations when nothing else of the record is read.
inline A_u_long& destinationOf(BlockRecord& r) { return r.idx; }
inline A_u_long& destinationOf(A_u_long& r) { return r; }

// The attempt loop, compiled once per combination of what it must do:
// kMask is the mask type whose test reads the mask values (-1: every pair is
// affected, as with intensity 0), kFlag whether drawn blocks must be marked
// (composite off), kTime whether affected pairs take time draws.
//
// The shuffle stream alone decides which blocks pair up, so attempts are
// taken in chunks: first the chunk's draws (in bulk, several stretches of
// the stream at once), then its pairs, then the decisions in attempt order,
// each pair's records prefetched kAhead attempts before they are decided:
// with small blocks the records far exceed the caches and land anywhere,
// and this keeps that many misses in flight.
template <int kMask, bool kFlag, bool kTime, typename Rec>
void attemptLoop(Rec* rec, long long attempts, const ShuffleSetup& s, const Decisions& d, Streams& st) {
  static_assert(std::is_same<Rec, BlockRecord>::value || (kMask == -1 && !kFlag && !kTime),
                "an array of destinations serves only attempts that only swap");
  constexpr long long kChunk = 1024;
  constexpr long long kAhead = 64;
  uint32_t draws[3 * kChunk];
  uint32_t pairs[kChunk][2];
  long long sw = st.sw, sz = st.sz, tw = st.tw, tz = st.tz, mw = st.mw, mz = st.mz;
  const A_u_short I = d.intensity;
  for (long long c0 = 0; c0 < attempts; c0 += kChunk) {
    const long long n = attempts - c0 < kChunk ? attempts - c0 : kChunk;
    z_fill(&sw, &sz, draws, static_cast<size_t>(3 * n));
    pairsFromDraws(s, draws, pairs, n);
    for (long long t = 0; t < n && t < kAhead; ++t) {
      __builtin_prefetch(rec + pairs[t][0], 1);
      __builtin_prefetch(rec + pairs[t][1], 1);
    }
    for (long long t = 0; t < n; ++t) {
      if (t + kAhead < n) {
        __builtin_prefetch(rec + pairs[t + kAhead][0], 1);
        __builtin_prefetch(rec + pairs[t + kAhead][1], 1);
      }
      const uint32_t a = pairs[t][0], b = pairs[t][1];
      bool affected = true;
      if constexpr (kMask == 0) {
        affected = rec[a].maskval >= I && rec[b].maskval >= I;
      } else if constexpr (kMask == 1) {
        const uint32_t da = z_random(&mw, &mz), db = z_random(&mw, &mz);
        affected = da % d.thresholdRange <= rec[a].maskval && db % d.thresholdRange <= rec[b].maskval;
      } else if constexpr (kMask == 2) {
        const uint32_t da = z_random(&mw, &mz), db = z_random(&mw, &mz);
        affected = da % (static_cast<uint32_t>(rec[a].maskval) + 1) >= I &&
                   db % (static_cast<uint32_t>(rec[b].maskval) + 1) >= I;
      }

      if (affected) {
        if constexpr (kFlag) {
          rec[a].flag = 1;
          rec[b].flag = 1;
        }
        if (a != b && d.swapping) {
          const A_u_long x = destinationOf(rec[a]);
          destinationOf(rec[a]) = destinationOf(rec[b]);
          destinationOf(rec[b]) = x;
        }
      }

      // The time stream moves four steps per attempt whatever happens, so a
      // pair's time choice does not depend on the decisions of earlier pairs.
      if constexpr (kTime) {
        if (affected) {
          z_random(&tw, &tz);
          if ((tw & 1023) < d.probability) rec[a].frame = static_cast<A_u_char>(z_random(&tw, &tz) % d.choices);
          else z_random(&tw, &tz);
          z_random(&tw, &tz);
          if ((tw & 1023) < d.probability) rec[b].frame = static_cast<A_u_char>(z_random(&tw, &tz) % d.choices);
          else z_random(&tw, &tz);
        } else {
          z_random(&tw, &tz);
          z_random(&tw, &tz);
          z_random(&tw, &tz);
          z_random(&tw, &tz);
        }
      }
    }
  }
  st.sw = sw;
  st.sz = sz;
  st.tw = tw;
  st.tz = tz;
  st.mw = mw;
  st.mz = mz;
}

template <int kMask>
void attemptLoopFor(bool flag, bool time, BlockRecord* rec, long long attempts, const ShuffleSetup& s,
                    const Decisions& d, Streams& st) {
  if (flag) {
    if (time) attemptLoop<kMask, true, true>(rec, attempts, s, d, st);
    else attemptLoop<kMask, true, false>(rec, attempts, s, d, st);
  } else {
    if (time) attemptLoop<kMask, false, true>(rec, attempts, s, d, st);
    else attemptLoop<kMask, false, false>(rec, attempts, s, d, st);
  }
}

// Attempts that only swap destinations (composite on, every pair affected,
// no time draws) read nothing of a record but its destination. They run on
// an array of destinations alone, half the records' size: with small
// blocks on large frames the records exceed the caches, and every attempt
// is two misses at random places, which then fall in a smaller span. The
// array is the block pass's scratch, which it overwrites afterwards; without
// scratch memory the records serve.
inline void swapOnly(BlockRecord* rec, A_u_long* dest, size_t n, long long attempts, const ShuffleSetup& s,
                     const Decisions& d, Streams& st) {
  if (!dest) {
    attemptLoop<-1, false, false>(rec, attempts, s, d, st);
    return;
  }
  for (size_t i = 0; i < n; ++i) dest[i] = rec[i].idx;
  attemptLoop<-1, false, false>(dest, attempts, s, d, st);
  for (size_t i = 0; i < n; ++i) rec[i].idx = dest[i];
}

// Copies one channel of `count` pixels; the other three are left as they are.
template <typename T>
inline void copyChannel(unsigned char* dst, const unsigned char* src, A_long count, ptrdiff_t offset) {
  constexpr ptrdiff_t pix = 4 * sizeof(T);
  dst += offset;
  src += offset;
  for (A_long x = 0; x < count; ++x) memcpy(dst + x * pix, src + x * pix, sizeof(T));
}

// Inputs of the block pass: where each block goes, which frame it comes
// from, and the source of each frame (0 the input, k time frame k).
struct BlockPass {
  const unsigned char* sources[MAX_TIME_FRAMES + 1];
  ptrdiff_t strides[MAX_TIME_FRAMES + 1];  // bytes
  unsigned char* out;
  ptrdiff_t outRowbytes;
  int channel;
  const BlockRecord* rec;
  FastDivisor byColumns;
};

// One stretch of an output block row that comes from one stretch of one
// source row (a block, or neighbouring blocks that stayed neighbours).
struct Run {
  ptrdiff_t dstOffset;  // bytes from the start of the output row
  const unsigned char* src;
  ptrdiff_t stride;
  size_t bytes;
  A_long pixels;
  unsigned frameIndex;
};

// Whole pixels. Tiny blocks make millions of runs of a few bytes, for which
// a library call costs more than the copy; they are moved inline in 8-byte
// words (run lengths are whole pixels, so multiples of 4 bytes).
inline void copyBytes(unsigned char* dst, const unsigned char* src, size_t bytes) {
  if (bytes > 32) {
    memcpy(dst, src, bytes);
    return;
  }
  for (; bytes >= 8; bytes -= 8, dst += 8, src += 8) memcpy(dst, src, 8);
  if (bytes) memcpy(dst, src, 4);
}

template <typename T>
inline void copyRun(unsigned char* dst, const unsigned char* src, size_t bytes, A_long pixels, int channel) {
  if (channel == 0) copyBytes(dst, src, bytes);
  else copyChannel<T>(dst, src, pixels, (channel & 3) * static_cast<ptrdiff_t>(sizeof(T)));
}

// Frames at least this large, with every block drawn, are written in source
// order with streaming stores (blockPassStreamed) where the processor has
// AVX2. Smaller frames keep the output in the cache for whoever reads it
// next. On the 2-core virtualised EPYC the benchmarks run on, whose memcpy
// stores through the cache up to 240 MB, a plain 256-bit streaming copy took
// 0.6x of memcpy's time from 16 MB up and 0.76x at 8 MB, and the streamed
// pass was faster than the cached one from 1920x1080 8-bit (8.3 MB) up.
constexpr size_t kStreamingMinBytes = size_t(4) << 20;

// Frames at least this large, with every block drawn, are copied band by
// band before the moved blocks are written over them (see blockPassByRows).
// Smaller frames stay in the cache between the input and the output, where
// writing each pixel once is cheaper: on the 2-core virtualised EPYC the
// benchmarks run on, 1920x1080 8-bit (8.3 MB) was faster without the band
// copy and 1920x1080 16-bit (16.6 MB) with it.
constexpr size_t kBandCopyMinBytes = size_t(12) << 20;

// Block order: each drawn block is copied row by row to its destination.
// Used only when the scratch memory of the row-ordered pass is missing.
template <typename T>
void blockPassByBlocks(const Grid& g, const BlockPass& p) {
  constexpr ptrdiff_t pix = 4 * sizeof(T);
  for (A_long r = 0; r < g.rows; ++r) {
    const A_long rows = g.blockRows(r);
    for (A_long c = 0; c < g.columns; ++c) {
      const size_t i = static_cast<size_t>(r) * g.columns + c;
      if (!p.rec[i].flag) continue;
      const A_long cols = g.blockCols(c);
      const unsigned k = p.rec[i].frame;
      const ptrdiff_t stride = p.strides[k];
      // Byte offsets are ptrdiff_t: rows times rowbytes exceeds 2^31 on big frames.
      const unsigned char* src =
          p.sources[k] + static_cast<ptrdiff_t>(r) * g.bh * stride + static_cast<ptrdiff_t>(c) * g.bw * pix;
      const A_u_long dest = p.rec[i].idx;
      unsigned char* dst = p.out + static_cast<ptrdiff_t>(dest >> 16) * g.bh * p.outRowbytes +
                           static_cast<ptrdiff_t>(dest & 0xFFFF) * g.bw * pix;
      const size_t bytes = static_cast<size_t>(cols) * pix;
      for (A_long y = 0; y < rows; ++y) copyRun<T>(dst + y * p.outRowbytes, src + y * stride, bytes, cols, p.channel);
    }
  }
}

#if TESSELUX_AVX2
// Pieces of 32 or 64 bytes (small blocks) down `rows` rows, in whole 256-bit
// moves: cheaper than a library call per piece and row.
__attribute__((target("avx2"))) inline void copyShortRowsAvx2(unsigned char* dst, ptrdiff_t dstStride,
                                                              const unsigned char* src, ptrdiff_t srcStride,
                                                              size_t bytes, A_long rows) {
  for (A_long y = 0; y < rows; ++y, dst += dstStride, src += srcStride)
    for (size_t q = 0; q < bytes; q += 32)
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + q),
                          _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + q)));
}
#endif

// Moved blocks come from anywhere within the spread, cache misses that the
// processor does not see coming; the source lines of the run this many
// places ahead are requested before each copy, so that the misses overlap.
constexpr int kRunsAhead = 4;

inline void prefetchBytes(const unsigned char* p, size_t bytes) {
  for (size_t q = 0; q < bytes; q += 64) __builtin_prefetch(p + q);
}

#if TESSELUX_AVX2
// Source order with streaming stores, for large frames with every block
// drawn (composite on, whole pixels; see kStreamingMinBytes). The input is read
// row after row, front to back, as a copy reads it, and each piece goes to
// wherever its block moved. Whole output lines are written with
// non-temporal stores: they go to memory from the write-combining buffers
// without first being read into the cache, so the scattered destinations
// cost no reads, and the output costs a third less traffic than a copy that
// stores through the cache. The partial lines at either end of a piece (a
// line shared with a neighbouring piece) take ordinary stores, so no line
// is ever written partly by streaming stores, which would make the memory
// controller read it. Reading in output order instead scatters the reads,
// which no store trick recovers.
struct SourceRun {
  const unsigned char* src;  // first source pixel row of the run
  ptrdiff_t stride;          // bytes
  unsigned char* dst;        // first output pixel row of the run
  size_t bytes;
};

// n bytes, sizeof(Word) <= n <= 2 * sizeof(Word), as two moves of a Word
// that overlap in the middle.
template <typename Word>
__attribute__((target("avx2"))) inline void moveOverlapping(unsigned char* d, const unsigned char* s, size_t n) {
  Word a, b;
  memcpy(&a, s, sizeof a);
  memcpy(&b, s + n - sizeof b, sizeof b);
  memcpy(d, &a, sizeof a);
  memcpy(d + n - sizeof b, &b, sizeof b);
}

// Up to 64 bytes with ordinary stores: small blocks make millions of such
// pieces, for which a library call costs more than the copy.
__attribute__((target("avx2"))) inline void copySmallAvx2(unsigned char* d, const unsigned char* s, size_t n) {
  if (n >= 32) moveOverlapping<__m256i>(d, s, n);
  else if (n >= 16) moveOverlapping<__m128i>(d, s, n);
  else if (n >= 8) moveOverlapping<uint64_t>(d, s, n);
  else if (n >= 4) moveOverlapping<uint32_t>(d, s, n);
  else
    for (size_t k = 0; k < n; ++k) d[k] = s[k];  // an output not aligned to whole pixels
}

// One row of a piece: ordinary stores for the partial lines at its ends,
// streaming stores for the whole lines between them.
__attribute__((target("avx2"))) inline void streamPieceAvx2(unsigned char* d, const unsigned char* s, size_t bytes) {
  const size_t head = (0 - reinterpret_cast<uintptr_t>(d)) & 63;
  if (head >= bytes) {
    copySmallAvx2(d, s, bytes);
    return;
  }
  if (head) {
    copySmallAvx2(d, s, head);
    d += head;
    s += head;
    bytes -= head;
  }
  const size_t body = bytes & ~size_t(63);
  for (size_t q = 0; q < body; q += 64) {
    const __m256i v0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + q));
    const __m256i v1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + q + 32));
    _mm256_stream_si256(reinterpret_cast<__m256i*>(d + q), v0);
    _mm256_stream_si256(reinterpret_cast<__m256i*>(d + q + 32), v1);
  }
  if (body < bytes) copySmallAvx2(d + body, s + body, bytes - body);
}

// Lines that take ordinary stores (the partial ones at a piece's ends) are
// requested this many runs ahead: they are read before they are written.
// Requesting a line that streaming stores fill whole would read it for
// nothing.
constexpr int kRunsAheadStreamed = 2;

inline void requestPartialLines(const SourceRun& run, A_long y0, A_long y1, ptrdiff_t outRowbytes) {
  for (A_long y = y0; y < y1; ++y) {
    unsigned char* a = run.dst + y * outRowbytes;
    unsigned char* e = a + run.bytes;
    if (reinterpret_cast<uintptr_t>(a) & 63) __builtin_prefetch(a, 1);
    if (reinterpret_cast<uintptr_t>(e) & 63) __builtin_prefetch(e - 1, 1);
  }
}

// A block row in bands of up to 8 pixel rows, each band run by run: a run's
// rows are written one after another. Against whole pixel rows one after
// another this was 10 to 25% faster for pieces of whole lines (8x8 blocks at
// 16 bits and float, 32x32 at every depth): fewer places are open at once
// in memory. Pieces shorter than a line keep whole rows, which was faster
// for them (8x8 at 8 bits: 3.8x of memcpy against 4.9x).
constexpr A_long kStreamBandRows = 8;

__attribute__((target("avx2"))) void streamBlockRowAvx2(const SourceRun* runs, int count, A_long rows,
                                                        ptrdiff_t outRowbytes, A_long bandRows) {
  for (A_long y0 = 0; y0 < rows; y0 += bandRows) {
    const A_long y1 = y0 + bandRows < rows ? y0 + bandRows : rows;
    for (int k = 0; k < count; ++k) {
      if (k + kRunsAheadStreamed < count) requestPartialLines(runs[k + kRunsAheadStreamed], y0, y1, outRowbytes);
      const SourceRun& run = runs[k];
      for (A_long y = y0; y < y1; ++y) streamPieceAvx2(run.dst + y * outRowbytes, run.src + y * run.stride, run.bytes);
    }
  }
}

// Source order needs every block drawn: the destinations are then a
// permutation of the grid and tile the output.
template <typename T>
void blockPassStreamed(const Grid& g, const BlockPass& p, SourceRun* runs) {
  constexpr ptrdiff_t pix = 4 * sizeof(T);
  const A_long bandRows = static_cast<size_t>(g.bw) * pix >= 64 ? kStreamBandRows : 1;  // see kStreamBandRows
  const BlockRecord* rec = p.rec;
  for (A_long r = 0; r < g.rows; ++r, rec += g.columns) {
    int count = 0;
    for (A_long c = 0; c < g.columns; ++c) {
      const A_u_long dest = rec[c].idx;
      const unsigned k = rec[c].frame;
      const ptrdiff_t stride = p.strides[k];
      const unsigned char* src =
          p.sources[k] + static_cast<ptrdiff_t>(r) * g.bh * stride + static_cast<ptrdiff_t>(c) * g.bw * pix;
      unsigned char* dst = p.out + static_cast<ptrdiff_t>(dest >> 16) * g.bh * p.outRowbytes +
                           static_cast<ptrdiff_t>(dest & 0xFFFF) * g.bw * pix;
      const size_t bytes = static_cast<size_t>(g.blockCols(c)) * pix;
      // Neighbours that stayed neighbours, from the same frame, are one piece.
      if (count > 0) {
        SourceRun& last = runs[count - 1];
        if (last.dst + last.bytes == dst && last.src + last.bytes == src && last.stride == stride) {
          last.bytes += bytes;
          continue;
        }
      }
      runs[count++] = SourceRun{src, stride, dst, bytes};
    }
    streamBlockRowAvx2(runs, count, g.blockRows(r), p.outRowbytes, bandRows);
  }
  // Streaming stores are weakly ordered; the host reads the frame after the
  // render returns, possibly on another thread.
  _mm_sfence();
}
#endif

// Output order: the destinations of drawn blocks never overlap, so the same
// pixels can be written one output row at a time. Each output block row is
// described once as a list of runs, merging neighbours that came from
// neighbouring source pixels; then every pixel row is a handful of copies
// written front to back.
//
// drawnAt holds, per output block, the source block, and frameAt (only when
// there are time frames) its frame, both written in one pass over the
// records in block order: reading a moved block's record later, from the
// output side, would be a cache miss per block whose result every
// following run's merge test waits for.
constexpr A_u_long kNotDrawn = 0xFFFFFFFFu;

// drawnAt and frameAt in one pass over the records in block order.
inline void recordDestinations(const Grid& g, const BlockPass& p, bool allDrawn, A_u_long* drawnAt,
                               A_u_char* frameAt) {
  const size_t n = static_cast<size_t>(g.blocks);
  // With composite on every block is drawn and the destinations are a
  // permutation, so every entry is written below.
  if (!allDrawn)
    for (size_t j = 0; j < n; ++j) drawnAt[j] = kNotDrawn;
  for (size_t i = 0; i < n; ++i) {
    const BlockRecord b = p.rec[i];
    if (!b.flag) continue;
    const size_t j = static_cast<size_t>(b.idx >> 16) * g.columns + (b.idx & 0xFFFF);
    drawnAt[j] = static_cast<A_u_long>(i);
    if (frameAt) frameAt[j] = b.frame;
  }
}

// Output block row r as a list of runs, neighbours from neighbouring source
// pixels merged. Returns the number of runs.
template <typename T>
int describeRuns(const Grid& g, const BlockPass& p, A_long r, bool inPlace, const A_u_long* drawnAt,
                 const A_u_char* frameAt, Run* runs) {
  constexpr ptrdiff_t pix = 4 * sizeof(T);
  int count = 0;
  const A_u_long* at = drawnAt + static_cast<size_t>(r) * g.columns;
  const A_u_char* frameRow = frameAt ? frameAt + static_cast<size_t>(r) * g.columns : nullptr;
  for (A_long c = 0; c < g.columns; ++c) {
    const A_u_long i = at[c];
    const ptrdiff_t dstOffset = static_cast<ptrdiff_t>(c) * g.bw * pix;
    const A_long cols = g.blockCols(c);  // equal to the source block's width
    const size_t bytes = static_cast<size_t>(cols) * pix;
    if (i == kNotDrawn) continue;
    const unsigned k = frameRow ? frameRow[c] : 0;
    // Blocks that stay where they are come with the band copy.
    if (inPlace && k == 0 && i == static_cast<A_u_long>(static_cast<size_t>(r) * g.columns + c)) continue;
    const A_long sr = static_cast<A_long>(fastDiv(i, p.byColumns));
    const A_long sc = static_cast<A_long>(i - static_cast<uint32_t>(sr) * static_cast<uint32_t>(g.columns));
    const ptrdiff_t stride = p.strides[k];
    const unsigned char* src =
        p.sources[k] + static_cast<ptrdiff_t>(sr) * g.bh * stride + static_cast<ptrdiff_t>(sc) * g.bw * pix;
    if (count > 0) {
      Run& last = runs[count - 1];
      if (last.frameIndex == k && last.src + last.bytes == src &&
          last.dstOffset + static_cast<ptrdiff_t>(last.bytes) == dstOffset) {
        last.bytes += bytes;
        last.pixels += cols;
        continue;
      }
    }
    runs[count++] = Run{dstOffset, src, stride, bytes, cols, k};
  }
  return count;
}

// One block row in bands: each band of rows copied from the input, then the
// runs of moved blocks written over it while it is still in the cache.
template <typename T>
void writeBandsInPlace(const Grid& g, const BlockPass& p, A_long r, const Run* runs, int count, A_long band,
                       bool avx2) {
  const size_t rowBytes = static_cast<size_t>(g.width) * 4 * sizeof(T);
  const A_long rows = g.blockRows(r);
  unsigned char* dstRow = p.out + static_cast<ptrdiff_t>(r) * g.bh * p.outRowbytes;
  const unsigned char* srcRow = p.sources[0] + static_cast<ptrdiff_t>(r) * g.bh * p.strides[0];
  (void)avx2;  // only read where the vector short copy is compiled
  for (A_long y0 = 0; y0 < rows; y0 += band) {
    const A_long y1 = y0 + band < rows ? y0 + band : rows;
    for (A_long y = y0; y < y1; ++y) memcpy(dstRow + y * p.outRowbytes, srcRow + y * p.strides[0], rowBytes);
    for (int k = 0; k < count; ++k) {
      if (k + kRunsAhead < count) {
        const Run& a = runs[k + kRunsAhead];
        for (A_long y = y0; y < y1; ++y) prefetchBytes(a.src + y * a.stride, a.bytes);
      }
      const Run& run = runs[k];
#if TESSELUX_AVX2
      if (avx2 && (run.bytes == 32 || run.bytes == 64)) {
        copyShortRowsAvx2(dstRow + y0 * p.outRowbytes + run.dstOffset, p.outRowbytes, run.src + y0 * run.stride,
                          run.stride, run.bytes, y1 - y0);
        continue;
      }
#endif
      for (A_long y = y0; y < y1; ++y)
        copyBytes(dstRow + y * p.outRowbytes + run.dstOffset, run.src + y * run.stride, run.bytes);
    }
  }
}

// One block row's runs, every pixel row written front to back.
template <typename T>
void writeRuns(const Grid& g, const BlockPass& p, A_long r, const Run* runs, int count) {
  const A_long rows = g.blockRows(r);
  unsigned char* dstRow = p.out + static_cast<ptrdiff_t>(r) * g.bh * p.outRowbytes;
  for (A_long y = 0; y < rows; ++y, dstRow += p.outRowbytes) {
    for (int k = 0; k < count; ++k) {
      if (k + kRunsAhead < count)
        prefetchBytes(runs[k + kRunsAhead].src + y * runs[k + kRunsAhead].stride, runs[k + kRunsAhead].bytes);
      copyRun<T>(dstRow + runs[k].dstOffset, runs[k].src + y * runs[k].stride, runs[k].bytes, runs[k].pixels,
                 p.channel);
    }
  }
}

template <typename T>
void blockPassByRows(const Grid& g, const BlockPass& p, bool allDrawn, bool inPlace, A_u_long* drawnAt,
                     A_u_char* frameAt, Run* runs) {
  // inPlace (every block drawn, whole pixels, a frame larger than the
  // caches): each band of rows is first copied from the input as it stands,
  // and only the blocks that moved are then written over it. A long row copy
  // runs at memory speed; dozens of short pieces per row written to lines
  // that are not in the cache cost about twice that, while the same pieces
  // written over a band that was just copied, and is still in the cache,
  // cost only their reads. Bands of about 256 KB stay in a core's cache.
  const size_t rowBytes = static_cast<size_t>(g.width) * 4 * sizeof(T);
  const size_t bandRows = (size_t(256) << 10) / (rowBytes ? rowBytes : 1);
  const A_long band = bandRows < 4 ? 4 : bandRows > 1024 ? 1024 : static_cast<A_long>(bandRows);
#if TESSELUX_AVX2
  const bool avx2 = inPlace && cpuHasAvx2();
#else
  const bool avx2 = false;
#endif
  recordDestinations(g, p, allDrawn, drawnAt, frameAt);
  for (A_long r = 0; r < g.rows; ++r) {
    const int count = describeRuns<T>(g, p, r, inPlace, drawnAt, frameAt, runs);
    if (inPlace) writeBandsInPlace<T>(g, p, r, runs, count, band, avx2);
    else if (count > 0) writeRuns<T>(g, p, r, runs, count);
  }
}

// The kernel's arrays as the observer expects them, one array per field.
inline void observeRecords(const RenderHooks* hooks, KernelSnapshot& s, const BlockRecord* rec, size_t n) {
  const size_t m = n ? n : 1;
  A_u_long* idx = static_cast<A_u_long*>(malloc(m * sizeof(A_u_long)));
  A_u_char* frame = static_cast<A_u_char*>(malloc(m));
  A_u_short* maskval = static_cast<A_u_short*>(malloc(m * sizeof(A_u_short)));
  A_u_char* flag = static_cast<A_u_char*>(malloc(m));
  if (idx && frame && maskval && flag) {
    for (size_t i = 0; i < n; ++i) {
      idx[i] = rec[i].idx;
      frame[i] = rec[i].frame;
      maskval[i] = rec[i].maskval;
      flag[i] = rec[i].flag;
    }
    s.idx = idx;
    s.frame = frame;
    s.maskval = maskval;
    s.flag = flag;
    hooks->observe(s, hooks->observeContext);
  }
  free(idx);
  free(frame);
  free(maskval);
  free(flag);
}

// The block grid of a frame. A block size of 0 (a tiny block at a low
// resolution) becomes 1.
inline Grid makeGrid(const KernelInput& in) {
  Grid g;
  g.width = in.width > 0 ? in.width : 0;
  g.height = in.height > 0 ? in.height : 0;
  g.bw = in.blockWidth < 1 ? 1 : in.blockWidth;
  g.bh = in.blockHeight < 1 ? 1 : in.blockHeight;
  g.partialW = g.width % g.bw;
  g.partialH = g.height % g.bh;
  g.columns = g.width / g.bw + (g.partialW ? 1 : 0);
  g.rows = g.height / g.bh + (g.partialH ? 1 : 0);
  g.blocks = static_cast<long long>(g.columns) * g.rows;
  return g;
}

// Copies the input's rows to the output unchanged.
inline void copyRows(const KernelInput& in, const Grid& g, size_t rowBytes) {
  for (A_long y = 0; y < g.height; ++y)
    memcpy(in.outData + y * in.outRowbytes, in.inData + y * in.inRowbytes, rowBytes);
}

// Every block starts at its own place, from the input, with its mask value
// still 0 and drawn exactly when composite is on.
inline void initRecords(BlockRecord* rec, const Grid& g, bool composite) {
  BlockRecord fresh;
  fresh.idx = 0;
  fresh.maskval = 0;
  fresh.frame = 0;
  fresh.flag = composite ? 1 : 0;
  size_t i = 0;
  for (A_long r = 0; r < g.rows; ++r)
    for (A_long c = 0; c < g.columns; ++c, ++i) {
      fresh.idx = (static_cast<A_u_long>(r) << 16) | static_cast<A_u_long>(c);
      rec[i] = fresh;
    }
}

// Where the row-ordered pass's scratch arrays sit in one allocation: one
// destination per block, then one frame entry per block (with time frames),
// then one run per column.
struct ScratchLayout {
  size_t frameAtOffset, runsOffset, bytes;
};

inline ScratchLayout scratchLayout(size_t m, const Grid& g, A_long nframes) {
  ScratchLayout l;
  l.frameAtOffset = m * sizeof(A_u_long);
  const size_t frameAtBytes = nframes ? m : 0;
  l.runsOffset = (l.frameAtOffset + frameAtBytes + alignof(Run) - 1) / alignof(Run) * alignof(Run);
  l.bytes = l.runsOffset + static_cast<size_t>(g.columns) * sizeof(Run);
  return l;
}

// The swap attempts: how many there are, and the loop that runs them for the
// mask type, intensity, flagging and timing at hand. Returns the count.
inline long long runAttempts(const KernelInput& in, const Grid& g, A_long nframes, BlockRecord* rec, size_t n,
                             void* scratch, Streams& st) {
  // Strength times block count passes 2^31 on large frames with 1-pixel
  // blocks, so the attempt count is computed in 64 bits.
  const long long weighted = static_cast<long long>(in.strength) * g.blocks;
  const long long attempts = weighted >= 256 ? weighted >> 8 : 0;
  if (attempts <= 0) return attempts;
  const A_u_short I = in.intensity;
  const ShuffleSetup s = makeShuffleSetup(g.columns, g.rows, g.partialW != 0, g.partialH != 0, in.spread, in.direction);

  Decisions d;
  d.intensity = I;
  d.thresholdRange = static_cast<uint32_t>(I) + 1;
  // With exclusive mode and time frames, blocks only change time, not place.
  d.swapping = !(in.exclusive != 0 && nframes != 0);
  d.probability = in.probability;
  d.choices = static_cast<uint32_t>(nframes) + 1;
  const bool timing = in.probability != 0 && nframes != 0;
  const bool flagging = in.composite == 0;  // with composite on every flag is 1 already
  const unsigned long long count = static_cast<unsigned long long>(attempts);

  // With intensity 0 every known mask type affects every pair and the mask
  // values are never read; the mask stream of types 1 and 2 still moves
  // two steps per attempt, which is taken at once at the end. An unknown
  // type affects nothing, so only the stream positions change.
  const bool knownType = in.maskType >= 0 && in.maskType <= 2;
  if (!knownType) {
    z_skip(&st.sw, &st.sz, 3 * count);
  } else if (I == 0) {
    if (!flagging && !timing) swapOnly(rec, static_cast<A_u_long*>(scratch), n, attempts, s, d, st);
    else attemptLoopFor<-1>(flagging, timing, rec, attempts, s, d, st);
    if (in.maskType != 0) z_skip(&st.mw, &st.mz, 2 * count);
  } else if (in.maskType == 0) {
    attemptLoopFor<0>(flagging, timing, rec, attempts, s, d, st);
  } else if (in.maskType == 1) {
    attemptLoopFor<1>(flagging, timing, rec, attempts, s, d, st);
  } else {
    attemptLoopFor<2>(flagging, timing, rec, attempts, s, d, st);
  }
  // Without time draws the time stream still ends four steps per attempt on.
  if (!timing || !knownType) z_skip(&st.tw, &st.tz, 4 * count);
  return attempts;
}

// The block pass's sources: entry 0 is the input, entries 1..nframes the
// time frames, each with its own stride in bytes.
template <typename T>
BlockPass makeBlockPass(const KernelInput& in, const Grid& g, A_long nframes, const BlockRecord* rec) {
  BlockPass pass;
  pass.sources[0] = in.inData;
  pass.strides[0] = in.inRowbytes;
  for (A_long k = 1; k <= nframes; ++k) {
    pass.sources[k] = static_cast<const unsigned char*>(in.frames[k - 1]);
    pass.strides[k] = static_cast<ptrdiff_t>(in.strides[k - 1]) * static_cast<ptrdiff_t>(sizeof(T));
  }
  pass.out = in.outData;
  pass.outRowbytes = in.outRowbytes;
  pass.channel = in.channel;
  pass.rec = rec;
  pass.byColumns = makeDivisor(static_cast<uint32_t>(g.columns ? g.columns : 1));
  return pass;
}

// What the output holds before the block pass: transparent black with
// composite off; with one channel chosen, the input, since the prefill only
// has to supply the three unchosen channels and with composite on the drawn
// blocks tile the frame, so the chosen channel is overwritten everywhere:
// copying whole rows gives the same result in one memcpy per row.
inline void prefillOutput(const KernelInput& in, const Grid& g, size_t rowBytes) {
  if (in.composite == 0) {
    for (A_long y = 0; y < g.height; ++y) memset(in.outData + y * in.outRowbytes, 0, rowBytes);
  } else if (in.channel != 0) {
    copyRows(in, g, rowBytes);
  }
}

// Draws the blocks: the streamed pass for large whole-pixel composites on
// AVX2, else the row-ordered pass (as a band copy above its threshold), and
// the block-ordered pass when there is no scratch memory. Frees the scratch.
template <typename T>
void runBlockPass(const KernelInput& in, const Grid& g, const BlockPass& pass, A_long nframes, void* scratch,
                  const ScratchLayout& layout, const RenderHooks* hooks) {
  const bool composite = in.composite != 0;
  const size_t frameBytes = static_cast<size_t>(g.width) * 4 * sizeof(T) * static_cast<size_t>(g.height);
  const bool streaming =
      TESSELUX_AVX2 && composite && in.channel == 0 && scratch && cpuHasAvx2() &&
      frameBytes >= (hooks && hooks->streamingMinBytes ? hooks->streamingMinBytes : kStreamingMinBytes);
  const bool bandCopy = !streaming && composite && in.channel == 0 &&
                        frameBytes >= (hooks && hooks->bandCopyMinBytes ? hooks->bandCopyMinBytes : kBandCopyMinBytes);
  if (!scratch) {
    blockPassByBlocks<T>(g, pass);
    return;
  }
  unsigned char* base = static_cast<unsigned char*>(scratch);
  A_u_long* drawnAt = reinterpret_cast<A_u_long*>(base);
  A_u_char* frameAt = nframes ? base + layout.frameAtOffset : nullptr;
  Run* runs = reinterpret_cast<Run*>(base + layout.runsOffset);
#if TESSELUX_AVX2
  static_assert(sizeof(SourceRun) <= sizeof(Run) && alignof(SourceRun) <= alignof(Run), "runs share scratch");
  if (streaming) blockPassStreamed<T>(g, pass, reinterpret_cast<SourceRun*>(runs));
  else
#endif
    blockPassByRows<T>(g, pass, composite, bandCopy, drawnAt, frameAt, runs);
  free(scratch);
}

// Hands the grid, counts, stream ends and records to the observer hook.
inline void snapshotKernel(const RenderHooks* hooks, const KernelInput& in, const Grid& g, long long attempts,
                           A_long nframes, const Streams& st, const BlockRecord* rec, size_t n) {
  KernelSnapshot s;
  s.width = g.width;
  s.height = g.height;
  s.blockWidth = g.bw;
  s.blockHeight = g.bh;
  s.columns = g.columns;
  s.rows = g.rows;
  s.blocks = g.blocks;
  s.attempts = attempts;
  s.strength = in.strength;
  s.spread = in.spread;
  s.probability = in.probability;
  s.nframes = nframes;
  s.intensity = in.intensity;
  s.shuffleW = st.sw;
  s.shuffleZ = st.sz;
  s.maskW = st.mw;
  s.maskZ = st.mz;
  s.timeW = st.tw;
  s.timeZ = st.tz;
  observeRecords(hooks, s, rec, n);
}

template <class Tr>
void runBlockKernel(const KernelInput& in, const RenderHooks* hooks) {
  typedef typename Tr::Channel T;
  const RenderAllocator* allocator = hooks ? &hooks->allocator : nullptr;
  const Grid g = makeGrid(in);
  const size_t rowBytes = static_cast<size_t>(g.width) * 4 * sizeof(T);

  // Grid positions are packed as (row << 16) | column and drawn modulo the
  // block count in 32 bits; a grid beyond that (far larger than any legal
  // frame) is treated like a failed allocation.
  const bool packable = g.columns <= 65536 && g.rows <= 65536 && g.blocks <= 0x7FFFFFFFLL;
  const size_t n = packable ? static_cast<size_t>(g.blocks) : 0;
  const size_t m = n ? n : 1;
  BlockRecord* rec = nullptr;
  if (packable) rec = static_cast<BlockRecord*>(renderAllocate(allocator, m * sizeof(BlockRecord)));
  if (!rec) {
    copyRows(in, g, rowBytes);  // no memory for the per-block records: the frame passes through
    return;
  }
  initRecords(rec, g, in.composite != 0);
  if (in.intensity != 0) computeMaskValues<Tr>(rec, g, in);

  A_long nframes = in.nframes < 0 ? 0 : in.nframes;
  if (nframes > MAX_TIME_FRAMES) nframes = MAX_TIME_FRAMES;  // frame entries index the pass's table

  // The row-ordered pass needs a little scratch memory; without it the
  // block-ordered pass writes the same pixels. Its array of one destination
  // per block first serves attempts that only swap (see swapOnly).
  const ScratchLayout layout = scratchLayout(m, g, nframes);
  void* scratch = renderAllocate(allocator, layout.bytes);

  Streams st;
  z_seed(&st.sw, &st.sz, in.shuffleSeed);
  z_seed(&st.tw, &st.tz, in.timeSeed);
  z_seed(&st.mw, &st.mz, in.maskSeed);
  const long long attempts = runAttempts(in, g, nframes, rec, n, scratch, st);

  const BlockPass pass = makeBlockPass<T>(in, g, nframes, rec);
  prefillOutput(in, g, rowBytes);
  runBlockPass<T>(in, g, pass, nframes, scratch, layout, hooks);
  if (hooks && hooks->observe) snapshotKernel(hooks, in, g, attempts, nframes, st, rec, n);
  free(rec);
}

}  // namespace tesselux_kernel
