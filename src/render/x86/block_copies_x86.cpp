// The block passes' copies in 256-bit registers: short pieces down a band of
// rows, and the streamed pass's rows with non-temporal stores. Twins of
// copyShortRowsPortable (block_pass.h) and streamBlockRowPortable
// (streamed_pass.h): the same bytes end up in the output.
#include "render/x86/dsp_x86.h"

#if TESSELUX_X86_SIMD

#include <immintrin.h>
#include <string.h>

#include "render/streamed_pass.h"

namespace tesselux_kernel {

// Pieces of 32 or 64 bytes down `rows` rows, in whole 256-bit moves.
TESSELUX_AVX2_FN void copyShortRowsAvx2(unsigned char* dst, ptrdiff_t dstStride, const unsigned char* src,
                                        ptrdiff_t srcStride, size_t bytes, A_long rows) {
  for (A_long y = 0; y < rows; ++y, dst += dstStride, src += srcStride)
    for (size_t q = 0; q < bytes; q += 32)
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + q),
                          _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + q)));
}

namespace {

// n bytes, sizeof(Word) <= n <= 2 * sizeof(Word), as two moves of a Word
// that overlap in the middle.
template <typename Word>
TESSELUX_AVX2_FN inline void moveOverlapping(unsigned char* d, const unsigned char* s, size_t n) {
  Word a, b;
  memcpy(&a, s, sizeof a);
  memcpy(&b, s + n - sizeof b, sizeof b);
  memcpy(d, &a, sizeof a);
  memcpy(d + n - sizeof b, &b, sizeof b);
}

// Up to 64 bytes with ordinary stores: small blocks make millions of such
// pieces, for which a library call costs more than the copy.
TESSELUX_AVX2_FN inline void copySmallAvx2(unsigned char* d, const unsigned char* s, size_t n) {
  if (n >= 32) moveOverlapping<__m256i>(d, s, n);
  else if (n >= 16) moveOverlapping<__m128i>(d, s, n);
  else if (n >= 8) moveOverlapping<uint64_t>(d, s, n);
  else if (n >= 4) moveOverlapping<uint32_t>(d, s, n);
  else
    for (size_t k = 0; k < n; ++k) d[k] = s[k];  // an output not aligned to whole pixels
}

// One row of a piece: ordinary stores for the partial lines at its ends,
// streaming stores for the whole lines between them.
TESSELUX_AVX2_FN inline void streamPieceAvx2(unsigned char* d, const unsigned char* s, size_t bytes) {
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

}  // namespace

// A block row in bands (see kStreamBandRows), each band run by run.
TESSELUX_AVX2_FN void streamBlockRowAvx2(const SourceRun* runs, int count, A_long rows, ptrdiff_t outRowbytes,
                                         A_long bandRows) {
  for (A_long y0 = 0; y0 < rows; y0 += bandRows) {
    const A_long y1 = y0 + bandRows < rows ? y0 + bandRows : rows;
    for (int k = 0; k < count; ++k) {
      if (k + kRunsAheadStreamed < count) requestPartialLines(runs[k + kRunsAheadStreamed], y0, y1, outRowbytes);
      const SourceRun& run = runs[k];
      for (A_long y = y0; y < y1; ++y) streamPieceAvx2(run.dst + y * outRowbytes, run.src + y * run.stride, run.bytes);
    }
  }
}

// Streaming stores are weakly ordered: a fence after the pass.
void endStreamingSse2() { _mm_sfence(); }

}  // namespace tesselux_kernel

#endif  // TESSELUX_X86_SIMD
