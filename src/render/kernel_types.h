// The kernel's plain records: the per-depth traits, the kernel's input, a
// block's record and the block grid. Internal to the renderer.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <type_traits>

#include "params/param_values.h"
#include "render/block_sums.h"
#include "render/dsp.h"
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
  // This depth's block sums and row sums in a table of versions.
  static SumBlockFn sumBlock(const KernelDsp& d) { return d.sumBlock8; }
  static SumBlockRowFn sumRow(const KernelDsp& d) { return d.sumBlockRow8; }
  static A_u_short maskRGB(BlockSum r, BlockSum g, BlockSum b, uint64_t n) {
    return saturateMask((r / n + g / n + b / n) * 32768 / 765);
  }
  static A_u_short maskSingle(BlockSum s, uint64_t n) { return saturateMask((s / n) * 32768 / 255); }
};

struct Argb16Traits {
  typedef A_u_short Channel;
  typedef uint64_t BlockSum;
  static A_u_short depthValue() { return 16; }
  static SumBlockFn sumBlock(const KernelDsp& d) { return d.sumBlock16; }
  static SumBlockRowFn sumRow(const KernelDsp& d) { return d.sumBlockRow16; }
  static A_u_short maskRGB(BlockSum r, BlockSum g, BlockSum b, uint64_t n) {
    return saturateMask((r / n + g / n + b / n) / 3);
  }
  static A_u_short maskSingle(BlockSum s, uint64_t n) { return saturateMask(s / n); }
};

struct Argb32Traits {
  typedef float Channel;
  typedef float BlockSum;  // single precision, summed pixel by pixel in row-major order
  static float depthValue() { return 32.0f; }
  static SumBlockFloatFn sumBlock(const KernelDsp& d) { return d.sumBlock32; }
  static SumBlockRowFloatFn sumRow(const KernelDsp& d) { return d.sumBlockRow32; }
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

}  // namespace tesselux_kernel
