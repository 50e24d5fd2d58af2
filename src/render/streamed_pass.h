// The streamed block pass: source order, for large composites, with
// streaming stores where the table has them (x86/block_copies_x86.cpp).
// Internal to the renderer.
#pragma once

#include "render/block_pass.h"

namespace tesselux_kernel {

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

// A block row in bands of up to 8 pixel rows, each band run by run: a run's
// rows are written one after another. Against whole pixel rows one after
// another this was 10 to 25% faster for pieces of whole lines (8x8 blocks at
// 16 bits and float, 32x32 at every depth): fewer places are open at once
// in memory. Pieces shorter than a line keep whole rows, which was faster
// for them (8x8 at 8 bits: 3.8x of memcpy against 4.9x).
constexpr A_long kStreamBandRows = 8;

// The same order with ordinary stores: what processors without streaming
// stores in the table run when the pass is forced on them.
inline void streamBlockRowPortable(const SourceRun* runs, int count, A_long rows, ptrdiff_t outRowbytes,
                                   A_long bandRows) {
  for (A_long y0 = 0; y0 < rows; y0 += bandRows) {
    const A_long y1 = y0 + bandRows < rows ? y0 + bandRows : rows;
    for (int k = 0; k < count; ++k) {
      const SourceRun& run = runs[k];
      for (A_long y = y0; y < y1; ++y) copyBytes(run.dst + y * outRowbytes, run.src + y * run.stride, run.bytes);
    }
  }
}

// Nothing to order after ordinary stores.
inline void endStreamingPortable() {}

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
    p.dsp->streamBlockRow(runs, count, g.blockRows(r), p.outRowbytes, bandRows);
  }
  // Streaming stores are weakly ordered; the host reads the frame after the
  // render returns, possibly on another thread.
  p.dsp->endStreaming();
}

}  // namespace tesselux_kernel
