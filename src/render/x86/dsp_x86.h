// The x86 versions of the renderer's inner loops (see dsp.h): SSE2, which
// every x86-64 processor has, and AVX2, compiled with the target attribute
// so that the plug-in still loads on processors without it. Only the x86
// part of the table's init (dsp_init_x86.cpp) names them; everything else
// reaches them through the table.
#pragma once

#include "render/dsp.h"

#if TESSELUX_X86_SIMD

#define TESSELUX_AVX2_FN __attribute__((target("avx2")))
// Helpers of an AVX2 function, inlined into it.
#define TESSELUX_AVX2_INLINE __attribute__((target("avx2"), always_inline)) inline

namespace tesselux_kernel {

// Mask sums (block_sums_x86.cpp).
void sumBlock8Sse2(const unsigned char* base, ptrdiff_t rowbytes, A_long cols, A_long rows, uint64_t* sums);
void sumBlock16Sse2(const unsigned char* base, ptrdiff_t rowbytes, A_long cols, A_long rows, uint64_t* sums);
void sumBlock32Sse2(const unsigned char* base, ptrdiff_t rowbytes, A_long cols, A_long rows, float* sums);
void sumBlockRow8Sse2(const unsigned char* base, ptrdiff_t rowbytes, A_long rows, A_long bw, A_long columns,
                      A_long lastCols, uint64_t (*sums)[4]);
void sumBlockRow16Sse2(const unsigned char* base, ptrdiff_t rowbytes, A_long rows, A_long bw, A_long columns,
                       A_long lastCols, uint64_t (*sums)[4]);
void sumBlockRow32Sse2(const unsigned char* base, ptrdiff_t rowbytes, A_long rows, A_long bw, A_long columns,
                       A_long lastCols, float (*sums)[4]);
TESSELUX_AVX2_FN void sumBlockRow8Avx2(const unsigned char* base, ptrdiff_t rowbytes, A_long rows, A_long bw,
                                       A_long columns, A_long lastCols, uint64_t (*sums)[4]);

// Short copies and the streamed pass's rows (block_copies_x86.cpp).
TESSELUX_AVX2_FN void copyShortRowsAvx2(unsigned char* dst, ptrdiff_t dstStride, const unsigned char* src,
                                        ptrdiff_t srcStride, size_t bytes, A_long rows);
TESSELUX_AVX2_FN void streamBlockRowAvx2(const SourceRun* runs, int count, A_long rows, ptrdiff_t outRowbytes,
                                         A_long bandRows);
void endStreamingSse2();

// Pairs, eight attempts at a time (pairs_x86.cpp).
TESSELUX_AVX2_FN void pairsFromDrawsAvx2(const ShuffleSetup& s, const uint32_t* draws, uint32_t (*pairs)[2],
                                         long long count);

// The shuffle stream's chains (random_x86.cpp).
void z_chains_sse2(uint32_t* cz, uint32_t* cw, uint32_t* out, size_t len);
TESSELUX_AVX2_FN void z_chains_avx2(uint32_t* cz, uint32_t* cw, uint32_t* out, size_t len);

}  // namespace tesselux_kernel

#endif  // TESSELUX_X86_SIMD
