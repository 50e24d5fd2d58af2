// The tables of inner-loop versions a test can run on this processor: the
// portable one everywhere, and on x86 the SSE2 and AVX2 ones it has. Tests
// run each in turn by handing it to the routine or to a render's hooks.
#pragma once

#include <string.h>

#include <vector>

#include "render/dsp.h"

namespace rt {

inline std::vector<tesselux_kernel::KernelDsp> everyDsp() {
  using namespace tesselux_kernel;
  std::vector<KernelDsp> tables;
  const unsigned have = cpuFlags();
  for (unsigned flags : {0u, unsigned(kCpuSse2), unsigned(kCpuSse2 | kCpuAvx2)}) {
    if ((flags & have) != flags) continue;
    KernelDsp d = makeKernelDsp(flags);
    if (!tables.empty() && strcmp(tables.back().name, d.name) == 0) continue;  // nothing wider in this build
    tables.push_back(d);
  }
  return tables;
}

}  // namespace rt
