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

#include "params/param_values.h"
#include "render/block_sums.h"
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

// Per-block channel sums and values. A 1:1 mask (or the input) is read as
// contiguous rows; a stretched mask maps each output pixel to a mask pixel
// through the 16.16 factors sx and sy.
template <class Tr, bool Stretched>
void fillMaskValues(A_u_short* maskval, const Grid& g, const unsigned char* data, ptrdiff_t rowbytes,
                    long long sx, long long sy, int channel) {
  typedef typename Tr::Channel T;
  constexpr ptrdiff_t pix = 4 * sizeof(T);
  const int pos = channel & 3;
  for (A_long br = 0; br < g.rows; ++br) {
    const A_long y0 = br * g.bh;
    const A_long rows = g.blockRows(br);
    for (A_long bc = 0; bc < g.columns; ++bc) {
      const A_long x0 = bc * g.bw;
      const A_long cols = g.blockCols(bc);
      typename Tr::BlockSum sums[4] = {0, 0, 0, 0};
      if (!Stretched) {
        Tr::sumBlock(data + static_cast<ptrdiff_t>(y0) * rowbytes + static_cast<ptrdiff_t>(x0) * pix, rowbytes, cols,
                     rows, sums);
      } else {
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
      }
      const uint64_t count = static_cast<uint64_t>(rows) * static_cast<uint64_t>(cols);
      maskval[static_cast<long long>(br) * g.columns + bc] =
          channel == 0 ? Tr::maskRGB(sums[1], sums[2], sums[3], count) : Tr::maskSingle(sums[pos], count);
    }
  }
}

// Per-block brightness of the mask layer, or of the input when there is none.
template <class Tr>
void computeMaskValues(A_u_short* maskval, const Grid& g, const KernelInput& in) {
  if (g.blocks == 0) return;
  if (!in.maskData) {
    fillMaskValues<Tr, false>(maskval, g, in.inData, in.inRowbytes, 65536, 65536, in.channel);
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
    fillMaskValues<Tr, false>(maskval, g, in.maskData, in.maskRowbytes, 65536, 65536, in.channel);
    return;
  }
  // mask size * 65536 passes 2^31 for masks of 32768 pixels and more.
  const long long sx = (static_cast<long long>(in.maskWidth) * 65536) / g.width;
  const long long sy = (static_cast<long long>(in.maskHeight) * 65536) / g.height;
  fillMaskValues<Tr, true>(maskval, g, in.maskData, in.maskRowbytes, sx, sy, in.channel);
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
  const A_u_long* idx;
  const A_u_char* frame;
  const A_u_char* flag;
};

// One stretch of an output block row that comes from one stretch of one
// source row: a block, or neighbouring blocks that stayed neighbours.
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

// Block order: each drawn block is copied row by row to its destination.
template <typename T>
void blockPassByBlocks(const Grid& g, const BlockPass& p) {
  constexpr ptrdiff_t pix = 4 * sizeof(T);
  for (A_long r = 0; r < g.rows; ++r) {
    const A_long rows = g.blockRows(r);
    for (A_long c = 0; c < g.columns; ++c) {
      const size_t i = static_cast<size_t>(r) * g.columns + c;
      if (!p.flag[i]) continue;
      const A_long cols = g.blockCols(c);
      const unsigned k = p.frame[i];
      const ptrdiff_t stride = p.strides[k];
      // Byte offsets are ptrdiff_t: rows times rowbytes exceeds 2^31 on big frames.
      const unsigned char* src =
          p.sources[k] + static_cast<ptrdiff_t>(r) * g.bh * stride + static_cast<ptrdiff_t>(c) * g.bw * pix;
      const A_u_long dest = p.idx[i];
      unsigned char* dst = p.out + static_cast<ptrdiff_t>(dest >> 16) * g.bh * p.outRowbytes +
                           static_cast<ptrdiff_t>(dest & 0xFFFF) * g.bw * pix;
      const size_t bytes = static_cast<size_t>(cols) * pix;
      for (A_long y = 0; y < rows; ++y) copyRun<T>(dst + y * p.outRowbytes, src + y * stride, bytes, cols, p.channel);
    }
  }
}

// Output order: the destinations of drawn blocks never overlap, so the same
// pixels can be written one output row at a time. Each output block row is
// described once as a list of runs, merging neighbours that came from
// neighbouring source pixels; then every pixel row is a handful of memcpys
// written front to back, which keeps the stores streaming.
template <typename T>
void blockPassByRows(const Grid& g, const BlockPass& p, A_u_long* drawnAt, Run* runs) {
  constexpr ptrdiff_t pix = 4 * sizeof(T);
  constexpr A_u_long kNone = 0xFFFFFFFFu;
  const size_t n = static_cast<size_t>(g.blocks);
  for (size_t j = 0; j < n; ++j) drawnAt[j] = kNone;
  for (size_t i = 0; i < n; ++i)
    if (p.flag[i]) drawnAt[static_cast<size_t>(p.idx[i] >> 16) * g.columns + (p.idx[i] & 0xFFFF)] = static_cast<A_u_long>(i);

  for (A_long r = 0; r < g.rows; ++r) {
    int count = 0;
    for (A_long c = 0; c < g.columns; ++c) {
      const A_u_long i = drawnAt[static_cast<size_t>(r) * g.columns + c];
      if (i == kNone) continue;
      const A_long sr = static_cast<A_long>(i / static_cast<A_u_long>(g.columns));
      const A_long sc = static_cast<A_long>(i % static_cast<A_u_long>(g.columns));
      const unsigned k = p.frame[i];
      const ptrdiff_t stride = p.strides[k];
      const unsigned char* src =
          p.sources[k] + static_cast<ptrdiff_t>(sr) * g.bh * stride + static_cast<ptrdiff_t>(sc) * g.bw * pix;
      const ptrdiff_t dstOffset = static_cast<ptrdiff_t>(c) * g.bw * pix;
      const A_long cols = g.blockCols(c);  // equal to the source block's width
      const size_t bytes = static_cast<size_t>(cols) * pix;
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
    if (count == 0) continue;
    const A_long rows = g.blockRows(r);
    unsigned char* dstRow = p.out + static_cast<ptrdiff_t>(r) * g.bh * p.outRowbytes;
    for (A_long y = 0; y < rows; ++y, dstRow += p.outRowbytes)
      for (int k = 0; k < count; ++k)
        copyRun<T>(dstRow + runs[k].dstOffset, runs[k].src + y * runs[k].stride, runs[k].bytes, runs[k].pixels,
                   p.channel);
  }
}

template <class Tr>
void runBlockKernel(const KernelInput& in, const RenderHooks* hooks) {
  typedef typename Tr::Channel T;
  constexpr ptrdiff_t pix = 4 * sizeof(T);
  const RenderAllocator* allocator = hooks ? &hooks->allocator : nullptr;

  Grid g;
  g.width = in.width > 0 ? in.width : 0;
  g.height = in.height > 0 ? in.height : 0;
  // A block size of 0 (a tiny block at a low resolution) becomes 1.
  g.bw = in.blockWidth < 1 ? 1 : in.blockWidth;
  g.bh = in.blockHeight < 1 ? 1 : in.blockHeight;
  g.partialW = g.width % g.bw;
  g.partialH = g.height % g.bh;
  g.columns = g.width / g.bw + (g.partialW ? 1 : 0);
  g.rows = g.height / g.bh + (g.partialH ? 1 : 0);
  g.blocks = static_cast<long long>(g.columns) * g.rows;
  const size_t rowBytes = static_cast<size_t>(g.width) * pix;
  unsigned char* const out = in.outData;

  // Grid positions are packed as (row << 16) | column and drawn modulo the
  // block count in 32 bits; a grid beyond that (far larger than any legal
  // frame) is treated like a failed allocation.
  const bool packable = g.columns <= 65536 && g.rows <= 65536 && g.blocks <= 0x7FFFFFFFLL;
  const size_t n = packable ? static_cast<size_t>(g.blocks) : 0;
  const size_t m = n ? n : 1;
  A_u_long* idx = nullptr;
  A_u_char* frame = nullptr;
  A_u_short* maskval = nullptr;
  A_u_char* flag = nullptr;
  if (packable) {
    idx = static_cast<A_u_long*>(renderAllocate(allocator, m * sizeof(A_u_long)));
    frame = static_cast<A_u_char*>(renderAllocate(allocator, m));
    maskval = static_cast<A_u_short*>(renderAllocate(allocator, m * sizeof(A_u_short)));
    flag = static_cast<A_u_char*>(renderAllocate(allocator, m));
  }
  if (!idx || !frame || !maskval || !flag) {
    // No memory for the per-block arrays: the frame passes through unchanged.
    free(idx);
    free(frame);
    free(maskval);
    free(flag);
    for (A_long y = 0; y < g.height; ++y)
      memcpy(out + y * in.outRowbytes, in.inData + y * in.inRowbytes, rowBytes);
    return;
  }

  const bool composite = in.composite != 0;
  memset(frame, 0, m);
  memset(maskval, 0, m * sizeof(A_u_short));
  memset(flag, composite ? 1 : 0, m);
  for (A_long r = 0; r < g.rows; ++r)
    for (A_long c = 0; c < g.columns; ++c)
      idx[static_cast<size_t>(r) * g.columns + c] = (static_cast<A_u_long>(r) << 16) | static_cast<A_u_long>(c);

  const A_u_short I = in.intensity;
  if (I != 0) computeMaskValues<Tr>(maskval, g, in);

  A_long nframes = in.nframes < 0 ? 0 : in.nframes;
  if (nframes > MAX_TIME_FRAMES) nframes = MAX_TIME_FRAMES;  // frame[] entries index the table below

  long long sw, sz, tw, tz, mw, mz;
  z_seed(&sw, &sz, in.shuffleSeed);
  z_seed(&tw, &tz, in.timeSeed);
  z_seed(&mw, &mz, in.maskSeed);

  // Strength times block count passes 2^31 on large frames with 1-pixel
  // blocks, so the attempt count is computed in 64 bits.
  const long long weighted = static_cast<long long>(in.strength) * g.blocks;
  const long long attempts = weighted >= 256 ? weighted >> 8 : 0;
  if (attempts > 0) {
    const uint32_t un = static_cast<uint32_t>(n);
    const uint32_t cols = static_cast<uint32_t>(g.columns);
    const A_long lastCol = g.columns - 1, lastRow = g.rows - 1;
    const A_long spanX = ((g.columns * in.spread) >> 9) + 2;
    const A_long spanY = ((g.rows * in.spread) >> 9) + 2;
    const uint32_t uSpanX = static_cast<uint32_t>(spanX), uSpanY = static_cast<uint32_t>(spanY);
    const bool alongX = in.direction == 0 || in.direction == 1;
    const bool alongY = in.direction == 0 || in.direction == 2;
    // With exclusive mode and time frames, blocks only change time, not place.
    const bool swapping = !(in.exclusive != 0 && nframes != 0);
    const bool timing = in.probability != 0 && nframes != 0;
    const long long Q = in.probability;
    const uint32_t choices = static_cast<uint32_t>(nframes) + 1;
    const uint32_t thresholdRange = static_cast<uint32_t>(I) + 1;

    // The shuffle stream alone decides which blocks pair up, so the pairs of
    // the next few attempts are drawn ahead and their array entries
    // prefetched: with small blocks the arrays are large and the pairs land
    // anywhere in them. The decisions below still run in attempt order.
    constexpr int kAhead = 16;
    uint32_t pairA[kAhead], pairB[kAhead];
    int ready = 0, next = 0;
    for (long long attempt = 0; attempt < attempts; ++attempt) {
      if (next == ready) {
        const long long left = attempts - attempt;
        ready = left < kAhead ? static_cast<int>(left) : kAhead;
        next = 0;
        for (int j = 0; j < ready; ++j) {
          const uint32_t a = z_random(&sw, &sz) % un;
          const A_long ax = static_cast<A_long>(a % cols), ay = static_cast<A_long>(a / cols);

          // A block of a partial last column or row stays in it; full blocks
          // never reach it. Pairs are therefore always of equal size.
          uint32_t d = z_random(&sw, &sz);
          A_long tx = ax;
          if (alongX && !(g.partialW && ax == lastCol)) {
            tx = ax + static_cast<A_long>(d % uSpanX) - (spanX >> 1);
            if (tx >= lastCol) tx = g.partialW ? lastCol - 1 : lastCol;
            if (tx < 0) tx = 0;
          }
          d = z_random(&sw, &sz);
          A_long ty = ay;
          if (alongY && !(g.partialH && ay == lastRow)) {
            ty = ay + static_cast<A_long>(d % uSpanY) - (spanY >> 1);
            if (ty >= lastRow) ty = g.partialH ? lastRow - 1 : lastRow;
            if (ty < 0) ty = 0;
          }
          const uint32_t b = static_cast<uint32_t>(ty) * cols + static_cast<uint32_t>(tx);
          pairA[j] = a;
          pairB[j] = b;
          __builtin_prefetch(idx + a, 1);
          __builtin_prefetch(idx + b, 1);
          __builtin_prefetch(flag + a, 1);
          __builtin_prefetch(flag + b, 1);
          __builtin_prefetch(maskval + a);
          __builtin_prefetch(maskval + b);
        }
      }
      const uint32_t a = pairA[next], b = pairB[next];
      ++next;

      bool affected;
      switch (in.maskType) {
        case 0:
          affected = maskval[a] >= I && maskval[b] >= I;
          break;
        case 1: {
          const uint32_t da = z_random(&mw, &mz), db = z_random(&mw, &mz);
          affected = da % thresholdRange <= maskval[a] && db % thresholdRange <= maskval[b];
          break;
        }
        case 2: {
          const uint32_t da = z_random(&mw, &mz), db = z_random(&mw, &mz);
          affected = I == 0 || (da % (static_cast<uint32_t>(maskval[a]) + 1) >= I &&
                                db % (static_cast<uint32_t>(maskval[b]) + 1) >= I);
          break;
        }
        default:
          affected = false;
          break;
      }

      if (affected) {
        flag[a] = 1;
        flag[b] = 1;
        if (a != b && swapping) {
          const A_u_long t = idx[a];
          idx[a] = idx[b];
          idx[b] = t;
        }
      }

      // The time stream moves four steps per attempt whatever happens, so a
      // pair's time choice does not depend on the decisions of earlier pairs.
      if (affected && timing) {
        z_random(&tw, &tz);
        if ((tw & 1023) < Q) frame[a] = static_cast<A_u_char>(z_random(&tw, &tz) % choices);
        else z_random(&tw, &tz);
        z_random(&tw, &tz);
        if ((tw & 1023) < Q) frame[b] = static_cast<A_u_char>(z_random(&tw, &tz) % choices);
        else z_random(&tw, &tz);
      } else {
        z_random(&tw, &tz);
        z_random(&tw, &tz);
        z_random(&tw, &tz);
        z_random(&tw, &tz);
      }
    }
  }

  const int channel = in.channel;
  if (!composite) {
    for (A_long y = 0; y < g.height; ++y) memset(out + y * in.outRowbytes, 0, rowBytes);
  } else if (channel != 0) {
    // The prefill only has to supply the three unchosen channels. With
    // composite on every block is drawn and the drawn blocks tile the frame,
    // so the chosen channel is overwritten everywhere by the block pass:
    // copying whole rows gives the same result in one memcpy per row.
    for (A_long y = 0; y < g.height; ++y)
      memcpy(out + y * in.outRowbytes, in.inData + y * in.inRowbytes, rowBytes);
  }

  // Source of frame k: entry 0 is the input, entries 1..nframes the time
  // frames, each with its own stride in bytes.
  BlockPass pass;
  pass.sources[0] = in.inData;
  pass.strides[0] = in.inRowbytes;
  for (A_long k = 1; k <= nframes; ++k) {
    pass.sources[k] = static_cast<const unsigned char*>(in.frames[k - 1]);
    pass.strides[k] = static_cast<ptrdiff_t>(in.strides[k - 1]) * static_cast<ptrdiff_t>(sizeof(T));
  }
  pass.out = out;
  pass.outRowbytes = in.outRowbytes;
  pass.channel = channel;
  pass.idx = idx;
  pass.frame = frame;
  pass.flag = flag;

  // The row-ordered pass needs a little scratch memory; without it the
  // block-ordered pass writes the same pixels.
  const size_t runsOffset = (m * sizeof(A_u_long) + alignof(Run) - 1) / alignof(Run) * alignof(Run);
  void* scratch = renderAllocate(allocator, runsOffset + static_cast<size_t>(g.columns) * sizeof(Run));
  if (scratch) {
    blockPassByRows<T>(g, pass, static_cast<A_u_long*>(scratch),
                       reinterpret_cast<Run*>(static_cast<unsigned char*>(scratch) + runsOffset));
    free(scratch);
  } else {
    blockPassByBlocks<T>(g, pass);
  }

  if (hooks && hooks->observe) {
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
    s.intensity = I;
    s.idx = idx;
    s.frame = frame;
    s.maskval = maskval;
    s.flag = flag;
    s.shuffleW = sw;
    s.shuffleZ = sz;
    s.maskW = mw;
    s.maskZ = mz;
    s.timeW = tw;
    s.timeZ = tz;
    hooks->observe(s, hooks->observeContext);
  }

  free(idx);
  free(frame);
  free(maskval);
  free(flag);
}

}  // namespace tesselux_kernel
