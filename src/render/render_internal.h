// Internal seams of the renderer, for tests and benchmarks: the same entry
// points with a substitute allocator and an observer that sees the kernel's
// per-block arrays before they are freed. The public entry points pass no
// hooks; the cost is one null check per call.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "aesdk/aesdk.h"
#include "params/param_values.h"
#include "render/allocator.h"

namespace tesselux_kernel {
struct KernelDsp;
}

// What the kernel decided for one render, valid only during the observe call.
struct KernelSnapshot {
  // Grid after the downsample and the 0-becomes-1 rule.
  A_long width, height, blockWidth, blockHeight, columns, rows;
  long long blocks;
  long long attempts;
  // Kernel inputs after conversion.
  A_long strength, spread, probability, nframes;
  A_u_short intensity;
  // Per-block arrays, `blocks` entries each.
  const A_u_long* idx;      // destination, (row << 16) | column
  const A_u_char* frame;    // 0 current frame, k time frame k
  const A_u_short* maskval; // 0..32768
  const A_u_char* flag;     // 1 drawn
  // Stream states (w-half, z-half) after the shuffle loop.
  long long shuffleW, shuffleZ, maskW, maskZ, timeW, timeZ;
};

struct RenderHooks {
  RenderAllocator allocator;  // also used for the time frame copies
  void (*observe)(const KernelSnapshot& snapshot, void* context);
  void* observeContext;
  // Smallest frame, in bytes, whose block pass (every block drawn) runs in
  // source order with streaming stores; 0 keeps the renderer's own
  // threshold, SIZE_MAX turns the pass off. Lets tests reach each pass of
  // large frames with small ones.
  size_t streamingMinBytes;
  // Smallest frame, in bytes, whose block pass copies bands of the input
  // before writing the moved blocks over them (composite on); 0 keeps the
  // renderer's own threshold.
  size_t bandCopyMinBytes;
  // The versions of the inner loops (dsp.h); null takes the process's own.
  // Lets tests and the fuzzer render through every version in turn.
  const tesselux_kernel::KernelDsp* dsp;
};

// The block pass a render takes when every block is drawn: the renderer's
// own choice for the frame's size, or one that large frames take, forced on
// a frame of any size. The band copy is taken only with streaming off.
enum class ForcedPass { chosen, bandCopy, streamed };

inline void forcePass(RenderHooks& hooks, ForcedPass pass) {
  hooks.streamingMinBytes = pass == ForcedPass::bandCopy ? SIZE_MAX : pass == ForcedPass::streamed ? 1 : 0;
  hooks.bandCopyMinBytes = pass == ForcedPass::bandCopy ? 1 : 0;
}

PF_Err renderARGB8WithHooks(PF_LayerDef* input, PF_LayerDef* output, ParamValues values, float downsample,
                            const RenderHooks& hooks);
PF_Err renderARGB16WithHooks(PF_LayerDef* input, PF_LayerDef* output, ParamValues values, float downsample,
                             const RenderHooks& hooks);
PF_Err renderARGB32WithHooks(PF_LayerDef* input, PF_LayerDef* output, ParamValues values, float downsample,
                             const RenderHooks& hooks);
