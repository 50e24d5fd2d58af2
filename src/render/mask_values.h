// Each block's mask value, from the block sums of the mask layer over the
// block, directly or through the layer's stretch. Internal to the renderer.
#pragma once

#include "render/kernel_types.h"

namespace tesselux_kernel {

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
                          int channel, const KernelDsp& dsp) {
  typedef typename Tr::Channel T;
  const auto sumBlock = Tr::sumBlock(dsp);
  const auto sumRow = Tr::sumRow(dsp);
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
        sumBlock(rowBase + static_cast<ptrdiff_t>(bc) * g.bw * pix, rowbytes, cols, rows, s);
        out[bc].maskval = maskValue<Tr>(s, static_cast<uint64_t>(rows) * static_cast<uint64_t>(cols), channel);
      }
      continue;
    }
    for (A_long c0 = 0; c0 < g.columns; c0 += kSumColumns) {
      const A_long count = g.columns - c0 < kSumColumns ? g.columns - c0 : kSumColumns;
      const A_long lastCols = g.blockCols(c0 + count - 1);
      sumRow(rowBase + static_cast<ptrdiff_t>(c0) * g.bw * pix, rowbytes, rows, g.bw, count, lastCols, sums);
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
void computeMaskValues(BlockRecord* rec, const Grid& g, const KernelInput& in, const KernelDsp& dsp) {
  if (g.blocks == 0) return;
  if (!in.maskData) {
    fillMaskValuesDirect<Tr>(rec, g, in.inData, in.inRowbytes, in.channel, dsp);
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
    fillMaskValuesDirect<Tr>(rec, g, in.maskData, in.maskRowbytes, in.channel, dsp);
    return;
  }
  // mask size * 65536 passes 2^31 for masks of 32768 pixels and more.
  const long long sx = (static_cast<long long>(in.maskWidth) * 65536) / g.width;
  const long long sy = (static_cast<long long>(in.maskHeight) * 65536) / g.height;
  fillMaskValuesStretched<Tr>(rec, g, in.maskData, in.maskRowbytes, sx, sy, in.channel);
}

}  // namespace tesselux_kernel
