// The block shuffle kernel, one body for all three pixel depths. A depth is
// described by a small traits record (channel type, how block sums are held
// and added up, how a sum becomes a 0..32768 mask value); everything else -
// the grid, the three random streams, the pairing rules and the block pass -
// is shared.
// Internal to the renderer: included by render.cpp only.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <type_traits>

#include "params/param_values.h"
#include "render/attempt_loops.h"
#include "render/block_pass.h"
#include "render/block_sums.h"
#include "render/dsp.h"
#include "render/fast_divide.h"
#include "render/kernel_types.h"
#include "render/mask_values.h"
#include "render/pairs.h"
#include "render/random.h"
#include "render/render_internal.h"
#include "render/streamed_pass.h"

namespace tesselux_kernel {

// The kernel's arrays as the observer expects them, one array per field.
inline void observeRecords(const RenderHooks* hooks, KernelSnapshot& s, const BlockRecord* rec, size_t n) {
  const size_t m = n ? n : 1;
  A_u_long* idx = static_cast<A_u_long*>(malloc(m * sizeof(A_u_long)));
  A_u_char* frame = static_cast<A_u_char*>(malloc(m));
  A_u_short* maskval = static_cast<A_u_short*>(malloc(m * sizeof(A_u_short)));
  A_u_char* flag = static_cast<A_u_char*>(malloc(m));
  if (idx && frame && maskval && flag) {
    for (size_t i = 0; i < n; ++i) {
      idx[i] = rec[i].idx;
      frame[i] = rec[i].frame;
      maskval[i] = rec[i].maskval;
      flag[i] = rec[i].flag;
    }
    s.idx = idx;
    s.frame = frame;
    s.maskval = maskval;
    s.flag = flag;
    hooks->observe(s, hooks->observeContext);
  }
  free(idx);
  free(frame);
  free(maskval);
  free(flag);
}

// The block grid of a frame. A block size of 0 (a tiny block at a low
// resolution) becomes 1.
inline Grid makeGrid(const KernelInput& in) {
  Grid g;
  g.width = in.width > 0 ? in.width : 0;
  g.height = in.height > 0 ? in.height : 0;
  g.bw = in.blockWidth < 1 ? 1 : in.blockWidth;
  g.bh = in.blockHeight < 1 ? 1 : in.blockHeight;
  g.partialW = g.width % g.bw;
  g.partialH = g.height % g.bh;
  g.columns = g.width / g.bw + (g.partialW ? 1 : 0);
  g.rows = g.height / g.bh + (g.partialH ? 1 : 0);
  g.blocks = static_cast<long long>(g.columns) * g.rows;
  return g;
}

// Copies the input's rows to the output unchanged.
inline void copyRows(const KernelInput& in, const Grid& g, size_t rowBytes) {
  for (A_long y = 0; y < g.height; ++y)
    memcpy(in.outData + y * in.outRowbytes, in.inData + y * in.inRowbytes, rowBytes);
}

// Every block starts at its own place, from the input, with its mask value
// still 0 and drawn exactly when composite is on.
inline void initRecords(BlockRecord* rec, const Grid& g, bool composite) {
  BlockRecord fresh;
  fresh.idx = 0;
  fresh.maskval = 0;
  fresh.frame = 0;
  fresh.flag = composite ? 1 : 0;
  size_t i = 0;
  for (A_long r = 0; r < g.rows; ++r)
    for (A_long c = 0; c < g.columns; ++c, ++i) {
      fresh.idx = (static_cast<A_u_long>(r) << 16) | static_cast<A_u_long>(c);
      rec[i] = fresh;
    }
}

// Where the row-ordered pass's scratch arrays sit in one allocation: one
// destination per block, then one frame entry per block (with time frames),
// then one run per column.
struct ScratchLayout {
  size_t frameAtOffset, runsOffset, bytes;
};

inline ScratchLayout scratchLayout(size_t m, const Grid& g, A_long nframes) {
  ScratchLayout l;
  l.frameAtOffset = m * sizeof(A_u_long);
  const size_t frameAtBytes = nframes ? m : 0;
  l.runsOffset = (l.frameAtOffset + frameAtBytes + alignof(Run) - 1) / alignof(Run) * alignof(Run);
  l.bytes = l.runsOffset + static_cast<size_t>(g.columns) * sizeof(Run);
  return l;
}

// The swap attempts: how many there are, and the loop that runs them for the
// mask type, intensity, flagging and timing at hand. Returns the count.
inline long long runAttempts(const KernelInput& in, const Grid& g, A_long nframes, BlockRecord* rec, size_t n,
                             void* scratch, Streams& st, const KernelDsp& dsp) {
  // Strength times block count passes 2^31 on large frames with 1-pixel
  // blocks, so the attempt count is computed in 64 bits.
  const long long weighted = static_cast<long long>(in.strength) * g.blocks;
  const long long attempts = weighted >= 256 ? weighted >> 8 : 0;
  if (attempts <= 0) return attempts;
  const A_u_short I = in.intensity;
  const ShuffleSetup s = makeShuffleSetup(g.columns, g.rows, g.partialW != 0, g.partialH != 0, in.spread, in.direction);

  Decisions d;
  d.intensity = I;
  d.thresholdRange = static_cast<uint32_t>(I) + 1;
  // With exclusive mode and time frames, blocks only change time, not place.
  d.swapping = !(in.exclusive != 0 && nframes != 0);
  d.probability = in.probability;
  d.choices = static_cast<uint32_t>(nframes) + 1;
  const bool timing = in.probability != 0 && nframes != 0;
  const bool flagging = in.composite == 0;  // with composite on every flag is 1 already
  const unsigned long long count = static_cast<unsigned long long>(attempts);

  // With intensity 0 every known mask type affects every pair and the mask
  // values are never read; the mask stream of types 1 and 2 still moves
  // two steps per attempt, which is taken at once at the end. An unknown
  // type affects nothing, so only the stream positions change.
  const bool knownType = in.maskType >= 0 && in.maskType <= 2;
  if (!knownType) {
    z_skip(&st.sw, &st.sz, 3 * count);
  } else if (I == 0) {
    if (!flagging && !timing) swapOnly(rec, static_cast<A_u_long*>(scratch), n, attempts, s, d, st, dsp);
    else attemptLoopFor<-1>(flagging, timing, rec, attempts, s, d, st, dsp);
    if (in.maskType != 0) z_skip(&st.mw, &st.mz, 2 * count);
  } else if (in.maskType == 0) {
    attemptLoopFor<0>(flagging, timing, rec, attempts, s, d, st, dsp);
  } else if (in.maskType == 1) {
    attemptLoopFor<1>(flagging, timing, rec, attempts, s, d, st, dsp);
  } else {
    attemptLoopFor<2>(flagging, timing, rec, attempts, s, d, st, dsp);
  }
  // Without time draws the time stream still ends four steps per attempt on.
  if (!timing || !knownType) z_skip(&st.tw, &st.tz, 4 * count);
  return attempts;
}

// The block pass's sources: entry 0 is the input, entries 1..nframes the
// time frames, each with its own stride in bytes.
template <typename T>
BlockPass makeBlockPass(const KernelInput& in, const Grid& g, A_long nframes, const BlockRecord* rec,
                        const KernelDsp& dsp) {
  BlockPass pass;
  pass.sources[0] = in.inData;
  pass.strides[0] = in.inRowbytes;
  for (A_long k = 1; k <= nframes; ++k) {
    pass.sources[k] = static_cast<const unsigned char*>(in.frames[k - 1]);
    pass.strides[k] = static_cast<ptrdiff_t>(in.strides[k - 1]) * static_cast<ptrdiff_t>(sizeof(T));
  }
  pass.out = in.outData;
  pass.outRowbytes = in.outRowbytes;
  pass.channel = in.channel;
  pass.rec = rec;
  pass.byColumns = makeDivisor(static_cast<uint32_t>(g.columns ? g.columns : 1));
  pass.dsp = &dsp;
  return pass;
}

// What the output holds before the block pass: transparent black with
// composite off; with one channel chosen, the input, since the prefill only
// has to supply the three unchosen channels and with composite on the drawn
// blocks tile the frame, so the chosen channel is overwritten everywhere:
// copying whole rows gives the same result in one memcpy per row.
inline void prefillOutput(const KernelInput& in, const Grid& g, size_t rowBytes) {
  if (in.composite == 0) {
    for (A_long y = 0; y < g.height; ++y) memset(in.outData + y * in.outRowbytes, 0, rowBytes);
  } else if (in.channel != 0) {
    copyRows(in, g, rowBytes);
  }
}

// Draws the blocks: the streamed pass for large whole-pixel composites where
// the table streams, else the row-ordered pass (as a band copy above its
// threshold), and the block-ordered pass when there is no scratch memory.
// Frees the scratch.
template <typename T>
void runBlockPass(const KernelInput& in, const Grid& g, const BlockPass& pass, A_long nframes, void* scratch,
                  const ScratchLayout& layout, const RenderHooks* hooks) {
  const bool composite = in.composite != 0;
  const size_t frameBytes = static_cast<size_t>(g.width) * 4 * sizeof(T) * static_cast<size_t>(g.height);
  const bool streaming =
      composite && in.channel == 0 && scratch &&
      frameBytes >= (hooks && hooks->streamingMinBytes ? hooks->streamingMinBytes : pass.dsp->streamingMinBytes);
  const bool bandCopy = !streaming && composite && in.channel == 0 &&
                        frameBytes >= (hooks && hooks->bandCopyMinBytes ? hooks->bandCopyMinBytes : kBandCopyMinBytes);
  if (!scratch) {
    blockPassByBlocks<T>(g, pass);
    return;
  }
  unsigned char* base = static_cast<unsigned char*>(scratch);
  A_u_long* drawnAt = reinterpret_cast<A_u_long*>(base);
  A_u_char* frameAt = nframes ? base + layout.frameAtOffset : nullptr;
  Run* runs = reinterpret_cast<Run*>(base + layout.runsOffset);
  static_assert(sizeof(SourceRun) <= sizeof(Run) && alignof(SourceRun) <= alignof(Run), "runs share scratch");
  if (streaming) blockPassStreamed<T>(g, pass, reinterpret_cast<SourceRun*>(runs));
  else blockPassByRows<T>(g, pass, composite, bandCopy, drawnAt, frameAt, runs);
  free(scratch);
}

// Hands the grid, counts, stream ends and records to the observer hook.
inline void snapshotKernel(const RenderHooks* hooks, const KernelInput& in, const Grid& g, long long attempts,
                           A_long nframes, const Streams& st, const BlockRecord* rec, size_t n) {
  KernelSnapshot s;
  s.width = g.width;
  s.height = g.height;
  s.blockWidth = g.bw;
  s.blockHeight = g.bh;
  s.columns = g.columns;
  s.rows = g.rows;
  s.blocks = g.blocks;
  s.attempts = attempts;
  s.strength = in.strength;
  s.spread = in.spread;
  s.probability = in.probability;
  s.nframes = nframes;
  s.intensity = in.intensity;
  s.shuffleW = st.sw;
  s.shuffleZ = st.sz;
  s.maskW = st.mw;
  s.maskZ = st.mz;
  s.timeW = st.tw;
  s.timeZ = st.tz;
  observeRecords(hooks, s, rec, n);
}

template <class Tr>
void runBlockKernel(const KernelInput& in, const RenderHooks* hooks) {
  typedef typename Tr::Channel T;
  const RenderAllocator* allocator = hooks ? &hooks->allocator : nullptr;
  const KernelDsp& dsp = hooks && hooks->dsp ? *hooks->dsp : kernelDsp();
  const Grid g = makeGrid(in);
  const size_t rowBytes = static_cast<size_t>(g.width) * 4 * sizeof(T);

  // Grid positions are packed as (row << 16) | column and drawn modulo the
  // block count in 32 bits; a grid beyond that (far larger than any legal
  // frame) is treated like a failed allocation.
  const bool packable = g.columns <= 65536 && g.rows <= 65536 && g.blocks <= 0x7FFFFFFFLL;
  const size_t n = packable ? static_cast<size_t>(g.blocks) : 0;
  const size_t m = n ? n : 1;
  BlockRecord* rec = nullptr;
  if (packable) rec = static_cast<BlockRecord*>(renderAllocate(allocator, m * sizeof(BlockRecord)));
  if (!rec) {
    copyRows(in, g, rowBytes);  // no memory for the per-block records: the frame passes through
    return;
  }
  initRecords(rec, g, in.composite != 0);
  if (in.intensity != 0) computeMaskValues<Tr>(rec, g, in, dsp);

  A_long nframes = in.nframes < 0 ? 0 : in.nframes;
  if (nframes > MAX_TIME_FRAMES) nframes = MAX_TIME_FRAMES;  // frame entries index the pass's table

  // The row-ordered pass needs a little scratch memory; without it the
  // block-ordered pass writes the same pixels. Its array of one destination
  // per block first serves attempts that only swap (see swapOnly).
  const ScratchLayout layout = scratchLayout(m, g, nframes);
  void* scratch = renderAllocate(allocator, layout.bytes);

  Streams st;
  z_seed(&st.sw, &st.sz, in.shuffleSeed);
  z_seed(&st.tw, &st.tz, in.timeSeed);
  z_seed(&st.mw, &st.mz, in.maskSeed);
  const long long attempts = runAttempts(in, g, nframes, rec, n, scratch, st, dsp);

  const BlockPass pass = makeBlockPass<T>(in, g, nframes, rec, dsp);
  prefillOutput(in, g, rowBytes);
  runBlockPass<T>(in, g, pass, nframes, scratch, layout, hooks);
  if (hooks && hooks->observe) snapshotKernel(hooks, in, g, attempts, nframes, st, rec, n);
  free(rec);
}

}  // namespace tesselux_kernel
