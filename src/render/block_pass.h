// The block passes that draw the blocks into the output: block order, and
// output row order with its band copy. Internal to the renderer.
#pragma once

#include "render/dsp.h"
#include "render/kernel_types.h"

namespace tesselux_kernel {

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
  const KernelDsp* dsp;  // the versions of the short copies and the streamed rows
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
// order with streaming stores (blockPassStreamed) where the table has them
// (the AVX2 one; see KernelDsp::streamingMinBytes). Smaller frames keep the output in the cache for whoever reads it
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

// Pieces of 32 or 64 bytes (small blocks) down `rows` rows; the x86 table
// has a version in whole 256-bit moves, cheaper than a call per piece and row.
inline void copyShortRowsPortable(unsigned char* dst, ptrdiff_t dstStride, const unsigned char* src,
                                  ptrdiff_t srcStride, size_t bytes, A_long rows) {
  for (A_long y = 0; y < rows; ++y, dst += dstStride, src += srcStride) copyBytes(dst, src, bytes);
}

// Moved blocks come from anywhere within the spread, cache misses that the
// processor does not see coming; the source lines of the run this many
// places ahead are requested before each copy, so that the misses overlap.
constexpr int kRunsAhead = 4;

inline void prefetchBytes(const unsigned char* p, size_t bytes) {
  for (size_t q = 0; q < bytes; q += 64) __builtin_prefetch(p + q);
}

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
void writeBandsInPlace(const Grid& g, const BlockPass& p, A_long r, const Run* runs, int count, A_long band) {
  const size_t rowBytes = static_cast<size_t>(g.width) * 4 * sizeof(T);
  const A_long rows = g.blockRows(r);
  unsigned char* dstRow = p.out + static_cast<ptrdiff_t>(r) * g.bh * p.outRowbytes;
  const unsigned char* srcRow = p.sources[0] + static_cast<ptrdiff_t>(r) * g.bh * p.strides[0];
  for (A_long y0 = 0; y0 < rows; y0 += band) {
    const A_long y1 = y0 + band < rows ? y0 + band : rows;
    for (A_long y = y0; y < y1; ++y) memcpy(dstRow + y * p.outRowbytes, srcRow + y * p.strides[0], rowBytes);
    for (int k = 0; k < count; ++k) {
      if (k + kRunsAhead < count) {
        const Run& a = runs[k + kRunsAhead];
        for (A_long y = y0; y < y1; ++y) prefetchBytes(a.src + y * a.stride, a.bytes);
      }
      const Run& run = runs[k];
      if (run.bytes == 32 || run.bytes == 64) {
        p.dsp->copyShortRows(dstRow + y0 * p.outRowbytes + run.dstOffset, p.outRowbytes,
                             run.src + y0 * run.stride, run.stride, run.bytes, y1 - y0);
        continue;
      }
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
  recordDestinations(g, p, allDrawn, drawnAt, frameAt);
  for (A_long r = 0; r < g.rows; ++r) {
    const int count = describeRuns<T>(g, p, r, inPlace, drawnAt, frameAt, runs);
    if (inPlace) writeBandsInPlace<T>(g, p, r, runs, count, band);
    else if (count > 0) writeRuns<T>(g, p, r, runs, count);
  }
}

}  // namespace tesselux_kernel
