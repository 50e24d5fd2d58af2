// Fills the renderer's table (dsp.h) with the x86 versions the flags allow:
// SSE2 first, then AVX2 over it, so each routine gets the widest version
// there is.
#include "render/x86/dsp_x86.h"

#if TESSELUX_X86_SIMD

#include "render/block_pass.h"

namespace tesselux_kernel {

void initKernelDspX86(KernelDsp& d, unsigned flags) {
  if (flags & kCpuSse2) {
    d.name = "sse2";
    d.flags |= kCpuSse2;
    d.sumBlock8 = sumBlock8Sse2;
    d.sumBlock16 = sumBlock16Sse2;
    d.sumBlock32 = sumBlock32Sse2;
    d.sumBlockRow8 = sumBlockRow8Sse2;
    d.sumBlockRow16 = sumBlockRow16Sse2;
    d.sumBlockRow32 = sumBlockRow32Sse2;
    d.zChains = z_chains_sse2;
  }
  if ((flags & kCpuSse2) && (flags & kCpuAvx2)) {
    d.name = "avx2";
    d.flags |= kCpuAvx2;
    d.sumBlockRow8 = sumBlockRow8Avx2;
    d.copyShortRows = copyShortRowsAvx2;
    d.streamBlockRow = streamBlockRowAvx2;
    d.endStreaming = endStreamingSse2;
    d.streamingMinBytes = kStreamingMinBytes;
    d.pairsFromDraws = pairsFromDrawsAvx2;
    d.zChains = z_chains_avx2;
  }
}

}  // namespace tesselux_kernel

#endif  // TESSELUX_X86_SIMD
