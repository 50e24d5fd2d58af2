// The streamed block pass: source order with streaming stores, for large
// composites on AVX2. Internal to the renderer.
#pragma once

#include "render/block_pass.h"

namespace tesselux_kernel {

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

}  // namespace tesselux_kernel
