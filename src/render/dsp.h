// The renderer's vectorised inner loops behind one table of function
// pointers: the mask sums, the short block copies, the streamed pass's rows,
// pair making and the shuffle stream's stepping. Every routine has a
// portable version, which fills the table first; the x86 versions then
// replace the ones the processor's flags allow, as FFmpeg's init functions
// do. The table a render uses is chosen once per process (kernelDsp), so no
// hot loop tests the processor; tests hand in a table made for fewer flags
// (makeKernelDsp) to run each version in turn. Every version of a routine
// gives the same bytes as its portable twin.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "aesdk/aesdk.h"
#include "render/cpu_features.h"
#include "render/random.h"

namespace tesselux_kernel {

struct ShuffleSetup;
struct SourceRun;

// Channel sums over one block: sums[0..3] += A, R, G, B of `rows` rows of
// `cols` pixels (8- and 16-bit exact, float added pixel by pixel in
// row-major order).
typedef void (*SumBlockFn)(const unsigned char* base, ptrdiff_t rowbytes, A_long cols, A_long rows, uint64_t* sums);
typedef void (*SumBlockFloatFn)(const unsigned char* base, ptrdiff_t rowbytes, A_long cols, A_long rows,
                                float* sums);
// Channel sums of `columns` neighbouring blocks of `bw` pixels (the last
// one `lastCols` wide) over `rows` rows: sums[c] receives block c's totals.
typedef void (*SumBlockRowFn)(const unsigned char* base, ptrdiff_t rowbytes, A_long rows, A_long bw,
                              A_long columns, A_long lastCols, uint64_t (*sums)[4]);
typedef void (*SumBlockRowFloatFn)(const unsigned char* base, ptrdiff_t rowbytes, A_long rows, A_long bw,
                                   A_long columns, A_long lastCols, float (*sums)[4]);
// A piece of 32 or 64 bytes copied down `rows` rows.
typedef void (*CopyShortRowsFn)(unsigned char* dst, ptrdiff_t dstStride, const unsigned char* src,
                                ptrdiff_t srcStride, size_t bytes, A_long rows);
// One block row of the streamed pass: `count` runs down `rows` rows, in
// bands of `bandRows`.
typedef void (*StreamBlockRowFn)(const SourceRun* runs, int count, A_long rows, ptrdiff_t outRowbytes,
                                 A_long bandRows);
// Pairs of `count` attempts: pairs[t] from draws[3t, 3t + 3).
typedef void (*PairsFromDrawsFn)(const ShuffleSetup& s, const uint32_t* draws, uint32_t (*pairs)[2],
                                 long long count);

struct KernelDsp {
  const char* name;  // the widest instruction set in the table: "portable", "sse2", "avx2"
  unsigned flags;    // the CpuFlag bits it was made for
  SumBlockFn sumBlock8, sumBlock16;
  SumBlockFloatFn sumBlock32;
  SumBlockRowFn sumBlockRow8, sumBlockRow16;
  SumBlockRowFloatFn sumBlockRow32;
  CopyShortRowsFn copyShortRows;
  StreamBlockRowFn streamBlockRow;
  void (*endStreaming)();  // orders the streamed pass's stores before the host reads the frame
  // Smallest frame, in bytes, whose block pass (every block drawn) the
  // renderer streams by itself: where the stores are ordinary ones the
  // streamed pass saves nothing, and it is never chosen (SIZE_MAX).
  size_t streamingMinBytes;
  PairsFromDrawsFn pairsFromDraws;
  ZChainsFn zChains;
};

// The versions for a processor with `flags`: the portable ones, each
// replaced by the widest version those flags allow. Flags the processor
// lacks must not be passed; fewer may, to force older versions.
KernelDsp makeKernelDsp(unsigned flags);

// The table of this process, made from cpuFlags() on the first call.
const KernelDsp& kernelDsp();

#if TESSELUX_X86_SIMD
// Fills in the x86 versions that `flags` allow (src/render/x86/).
void initKernelDspX86(KernelDsp& d, unsigned flags);
#endif

}  // namespace tesselux_kernel
