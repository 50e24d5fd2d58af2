// The renderer's table of inner-loop versions: the processor's flags, the
// portable table with the x86 versions laid over it, and the process's own
// table, made once.
#include "render/dsp.h"

#include "render/block_pass.h"
#include "render/block_sums.h"
#include "render/pairs.h"
#include "render/random.h"
#include "render/streamed_pass.h"

namespace tesselux_kernel {

unsigned cpuFlags() {
#if TESSELUX_X86_SIMD
  // SSE2 is the x86-64 baseline; AVX2 also needs the system to save the
  // 256-bit registers, which the compiler's probe checks.
  static const unsigned flags = kCpuSse2 | (__builtin_cpu_supports("avx2") ? kCpuAvx2 : 0u);
  return flags;
#else
  return 0;
#endif
}

KernelDsp makeKernelDsp(unsigned flags) {
  KernelDsp d;
  d.name = "portable";
  d.flags = 0;
  d.sumBlock8 = sumBlock8Portable;
  d.sumBlock16 = sumBlock16Portable;
  d.sumBlock32 = sumBlock32Portable;
  d.sumBlockRow8 = sumBlockRow8Portable;
  d.sumBlockRow16 = sumBlockRow16Portable;
  d.sumBlockRow32 = sumBlockRow32Portable;
  d.copyShortRows = copyShortRowsPortable;
  d.streamBlockRow = streamBlockRowPortable;
  d.endStreaming = endStreamingPortable;
  d.streamingMinBytes = SIZE_MAX;
  d.pairsFromDraws = pairsFromDrawsPortable;
  d.zChains = z_chains_plain;
#if TESSELUX_X86_SIMD
  initKernelDspX86(d, flags);
#else
  (void)flags;
#endif
  return d;
}

const KernelDsp& kernelDsp() {
  static const KernelDsp d = makeKernelDsp(cpuFlags());
  return d;
}

}  // namespace tesselux_kernel
