// The block shuffle kernel, one body for all three pixel depths. A depth is
// described by a small traits record (channel type, how block sums are held,
// how a sum becomes a 0..32768 mask value); everything else - the grid, the
// three random streams, the pairing rules and the block pass - is shared.
// Internal to the renderer: included by render.cpp only.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "params/param_values.h"
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
  typedef uint32_t RowSum;    // one row stays far below 2^32
  static constexpr bool kExactSums = true;
  static A_u_char depthValue() { return 8; }
  static A_u_short maskRGB(BlockSum r, BlockSum g, BlockSum b, uint64_t n) {
    return saturateMask((r / n + g / n + b / n) * 32768 / 765);
  }
  static A_u_short maskSingle(BlockSum s, uint64_t n) { return saturateMask((s / n) * 32768 / 255); }
};

struct Argb16Traits {
  typedef A_u_short Channel;
  typedef uint64_t BlockSum;
  typedef uint64_t RowSum;  // a row of 65535s passes 2^32 beyond 65537 pixels
  static constexpr bool kExactSums = true;
  static A_u_short depthValue() { return 16; }
  static A_u_short maskRGB(BlockSum r, BlockSum g, BlockSum b, uint64_t n) {
    return saturateMask((r / n + g / n + b / n) / 3);
  }
  static A_u_short maskSingle(BlockSum s, uint64_t n) { return saturateMask(s / n); }
};

struct Argb32Traits {
  typedef float Channel;
  typedef float BlockSum;  // single precision, summed pixel by pixel in row-major order
  typedef float RowSum;
  static constexpr bool kExactSums = false;
  static float depthValue() { return 32.0f; }
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

// Adds one row of `count` block pixels to the sums. Stretched rows map each
// output column to a mask column through the 16.16 factor sx.
template <class Tr, bool Stretched>
inline void sumRow(const unsigned char* row, A_long x0, A_long count, long long sx, int channel,
                   typename Tr::BlockSum* sums) {
  typedef typename Tr::Channel T;
  constexpr ptrdiff_t pix = 4 * sizeof(T);
  auto pixelAt = [&](A_long x) -> const unsigned char* {
    // x * sx needs 64 bits: columns beyond 32767 times a factor of 65536 or more.
    if (Stretched) return row + static_cast<ptrdiff_t>((static_cast<long long>(x0 + x) * sx) >> 16) * pix;
    return row + static_cast<ptrdiff_t>(x0 + x) * pix;
  };
  if (channel == 0) {
    if constexpr (Tr::kExactSums) {
      typename Tr::RowSum r = 0, g = 0, b = 0;
      for (A_long x = 0; x < count; ++x) {
        const unsigned char* p = pixelAt(x);
        r += loadChannel<T>(p + 1 * sizeof(T));
        g += loadChannel<T>(p + 2 * sizeof(T));
        b += loadChannel<T>(p + 3 * sizeof(T));
      }
      sums[0] += r;
      sums[1] += g;
      sums[2] += b;
    } else {
      for (A_long x = 0; x < count; ++x) {
        const unsigned char* p = pixelAt(x);
        sums[0] += loadChannel<T>(p + 1 * sizeof(T));
        sums[1] += loadChannel<T>(p + 2 * sizeof(T));
        sums[2] += loadChannel<T>(p + 3 * sizeof(T));
      }
    }
  } else {
    const ptrdiff_t off = (channel & 3) * static_cast<ptrdiff_t>(sizeof(T));
    if constexpr (Tr::kExactSums) {
      typename Tr::RowSum s = 0;
      for (A_long x = 0; x < count; ++x) s += loadChannel<T>(pixelAt(x) + off);
      sums[0] += s;
    } else {
      for (A_long x = 0; x < count; ++x) sums[0] += loadChannel<T>(pixelAt(x) + off);
    }
  }
}

template <class Tr, bool Stretched>
void fillMaskValues(A_u_short* maskval, const Grid& g, const unsigned char* data, ptrdiff_t rowbytes,
                    long long sx, long long sy, int channel) {
  for (A_long br = 0; br < g.rows; ++br) {
    const A_long y0 = br * g.bh;
    const A_long rows = g.blockRows(br);
    for (A_long bc = 0; bc < g.columns; ++bc) {
      const A_long x0 = bc * g.bw;
      const A_long cols = g.blockCols(bc);
      typename Tr::BlockSum sums[3] = {0, 0, 0};
      for (A_long y = 0; y < rows; ++y) {
        // y * sy needs 64 bits for the same reason as x * sx.
        const long long my = Stretched ? (static_cast<long long>(y0 + y) * sy) >> 16 : y0 + y;
        sumRow<Tr, Stretched>(data + static_cast<ptrdiff_t>(my) * rowbytes, x0, cols, sx, channel, sums);
      }
      const uint64_t count = static_cast<uint64_t>(rows) * static_cast<uint64_t>(cols);
      maskval[static_cast<long long>(br) * g.columns + bc] =
          channel == 0 ? Tr::maskRGB(sums[0], sums[1], sums[2], count) : Tr::maskSingle(sums[0], count);
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

    for (long long attempt = 0; attempt < attempts; ++attempt) {
      const uint32_t a = z_random(&sw, &sz) % un;
      const A_long ax = static_cast<A_long>(a % cols), ay = static_cast<A_long>(a / cols);

      // A block of a partial last column or row stays in it; full blocks never
      // reach it. Pairs are therefore always of equal size.
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
  const unsigned char* sources[MAX_TIME_FRAMES + 1];
  ptrdiff_t sourceStrides[MAX_TIME_FRAMES + 1];
  sources[0] = in.inData;
  sourceStrides[0] = in.inRowbytes;
  for (A_long k = 1; k <= nframes; ++k) {
    sources[k] = static_cast<const unsigned char*>(in.frames[k - 1]);
    sourceStrides[k] = static_cast<ptrdiff_t>(in.strides[k - 1]) * static_cast<ptrdiff_t>(sizeof(T));
  }
  const ptrdiff_t channelOffset = (channel & 3) * static_cast<ptrdiff_t>(sizeof(T));
  const ptrdiff_t orb = in.outRowbytes;

  for (A_long r = 0; r < g.rows; ++r) {
    const A_long rows = g.blockRows(r);
    for (A_long c = 0; c < g.columns; ++c) {
      const size_t i = static_cast<size_t>(r) * g.columns + c;
      if (!flag[i]) continue;
      const A_long cols = g.blockCols(c);
      const unsigned k = frame[i];
      const ptrdiff_t stride = sourceStrides[k];
      // Byte offsets are ptrdiff_t: rows times rowbytes exceeds 2^31 on big frames.
      const unsigned char* src = sources[k] + static_cast<ptrdiff_t>(r) * g.bh * stride +
                                 static_cast<ptrdiff_t>(c) * g.bw * pix;
      const A_u_long dest = idx[i];
      unsigned char* dst = out + static_cast<ptrdiff_t>(dest >> 16) * g.bh * orb +
                           static_cast<ptrdiff_t>(dest & 0xFFFF) * g.bw * pix;
      if (channel == 0) {
        const size_t bytes = static_cast<size_t>(cols) * pix;
        for (A_long y = 0; y < rows; ++y) memcpy(dst + y * orb, src + y * stride, bytes);
      } else {
        for (A_long y = 0; y < rows; ++y) copyChannel<T>(dst + y * orb, src + y * stride, cols, channelOffset);
      }
    }
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
