// What the processor offers beyond the instruction set the plug-in is built
// for. x86 builds carry 256-bit versions of a few inner loops (mask sums,
// short block copies), compiled with the target attribute and chosen at run
// time: the plug-in itself runs on any x86-64.
#pragma once

#if defined(__SSE2__) && (defined(__GNUC__) || defined(__clang__))
#define TESSELUX_AVX2 1
#include <immintrin.h>
#else
#define TESSELUX_AVX2 0
#endif

namespace tesselux_kernel {

// Declared on every platform so that a pass choice can ask without its own
// #if; off x86 (the arm64 slice) the answer is always no.
#if TESSELUX_AVX2
inline bool cpuHasAvx2() {
  static const bool has = __builtin_cpu_supports("avx2");
  return has;
}
#else
// Off x86 there is no AVX2 to find; the portable loops run.
inline bool cpuHasAvx2() { return false; }
#endif

}  // namespace tesselux_kernel
