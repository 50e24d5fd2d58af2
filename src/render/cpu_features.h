// What the processor offers beyond the instruction set the plug-in is built
// for. x86 builds carry 128- and 256-bit versions of a few inner loops
// (src/render/x86/), compiled with the target attribute and chosen once per
// process from these flags (see dsp.h): the plug-in itself runs on any
// x86-64, and every other processor runs the portable versions.
#pragma once

// The x86 versions need SSE2 as the build's baseline and GNU-style target
// attributes. A universal macOS build compiles the x86 files for its arm64
// slice too, where this is 0 and they are empty.
#if defined(__SSE2__) && (defined(__GNUC__) || defined(__clang__))
#define TESSELUX_X86_SIMD 1
#else
#define TESSELUX_X86_SIMD 0
#endif

namespace tesselux_kernel {

// Instruction sets a version may need, as bits.
enum CpuFlag : unsigned {
  kCpuSse2 = 1u << 0,
  kCpuAvx2 = 1u << 1,
};

// The flags this processor has, probed on the first call; 0 off x86.
unsigned cpuFlags();

}  // namespace tesselux_kernel
