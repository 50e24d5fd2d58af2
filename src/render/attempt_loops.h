// The swap attempts: the three random streams, the per-attempt decisions and
// the loops that make and apply pairs. Internal to the renderer.
#pragma once

#include "render/kernel_types.h"

namespace tesselux_kernel {

struct Streams {
  long long sw, sz, tw, tz, mw, mz;
};

// What decides an attempt beyond its pair.
struct Decisions {
  A_u_short intensity;
  uint32_t thresholdRange;  // intensity + 1
  bool swapping;            // false: exclusive mode with time frames
  long long probability;
  uint32_t choices;         // nframes + 1
};

// The destination of a block: in its record, or alone in an array of
// destinations when nothing else of the record is read.
inline A_u_long& destinationOf(BlockRecord& r) { return r.idx; }
inline A_u_long& destinationOf(A_u_long& r) { return r; }

// The attempt loop, compiled once per combination of what it must do:
// kMask is the mask type whose test reads the mask values (-1: every pair is
// affected, as with intensity 0), kFlag whether drawn blocks must be marked
// (composite off), kTime whether affected pairs take time draws.
//
// The shuffle stream alone decides which blocks pair up, so attempts are
// taken in chunks: first the chunk's draws (in bulk, several stretches of
// the stream at once), then its pairs, then the decisions in attempt order,
// each pair's records prefetched kAhead attempts before they are decided:
// with small blocks the records far exceed the caches and land anywhere,
// and this keeps that many misses in flight.
template <int kMask, bool kFlag, bool kTime, typename Rec>
void attemptLoop(Rec* rec, long long attempts, const ShuffleSetup& s, const Decisions& d, Streams& st,
                 const KernelDsp& dsp) {
  static_assert(std::is_same<Rec, BlockRecord>::value || (kMask == -1 && !kFlag && !kTime),
                "an array of destinations serves only attempts that only swap");
  constexpr long long kChunk = 1024;
  constexpr long long kAhead = 64;
  uint32_t draws[3 * kChunk];
  uint32_t pairs[kChunk][2];
  long long sw = st.sw, sz = st.sz, tw = st.tw, tz = st.tz, mw = st.mw, mz = st.mz;
  const A_u_short I = d.intensity;
  for (long long c0 = 0; c0 < attempts; c0 += kChunk) {
    const long long n = attempts - c0 < kChunk ? attempts - c0 : kChunk;
    z_fill(&sw, &sz, draws, static_cast<size_t>(3 * n), dsp.zChains);
    dsp.pairsFromDraws(s, draws, pairs, n);
    for (long long t = 0; t < n && t < kAhead; ++t) {
      __builtin_prefetch(rec + pairs[t][0], 1);
      __builtin_prefetch(rec + pairs[t][1], 1);
    }
    for (long long t = 0; t < n; ++t) {
      if (t + kAhead < n) {
        __builtin_prefetch(rec + pairs[t + kAhead][0], 1);
        __builtin_prefetch(rec + pairs[t + kAhead][1], 1);
      }
      const uint32_t a = pairs[t][0], b = pairs[t][1];
      bool affected = true;
      if constexpr (kMask == 0) {
        affected = rec[a].maskval >= I && rec[b].maskval >= I;
      } else if constexpr (kMask == 1) {
        const uint32_t da = z_random(&mw, &mz), db = z_random(&mw, &mz);
        affected = da % d.thresholdRange <= rec[a].maskval && db % d.thresholdRange <= rec[b].maskval;
      } else if constexpr (kMask == 2) {
        const uint32_t da = z_random(&mw, &mz), db = z_random(&mw, &mz);
        affected = da % (static_cast<uint32_t>(rec[a].maskval) + 1) >= I &&
                   db % (static_cast<uint32_t>(rec[b].maskval) + 1) >= I;
      }

      if (affected) {
        if constexpr (kFlag) {
          rec[a].flag = 1;
          rec[b].flag = 1;
        }
        if (a != b && d.swapping) {
          const A_u_long x = destinationOf(rec[a]);
          destinationOf(rec[a]) = destinationOf(rec[b]);
          destinationOf(rec[b]) = x;
        }
      }

      // The time stream moves four steps per attempt whatever happens, so a
      // pair's time choice does not depend on the decisions of earlier pairs.
      if constexpr (kTime) {
        if (affected) {
          z_random(&tw, &tz);
          if ((tw & 1023) < d.probability) rec[a].frame = static_cast<A_u_char>(z_random(&tw, &tz) % d.choices);
          else z_random(&tw, &tz);
          z_random(&tw, &tz);
          if ((tw & 1023) < d.probability) rec[b].frame = static_cast<A_u_char>(z_random(&tw, &tz) % d.choices);
          else z_random(&tw, &tz);
        } else {
          z_random(&tw, &tz);
          z_random(&tw, &tz);
          z_random(&tw, &tz);
          z_random(&tw, &tz);
        }
      }
    }
  }
  st.sw = sw;
  st.sz = sz;
  st.tw = tw;
  st.tz = tz;
  st.mw = mw;
  st.mz = mz;
}

template <int kMask>
void attemptLoopFor(bool flag, bool time, BlockRecord* rec, long long attempts, const ShuffleSetup& s,
                    const Decisions& d, Streams& st, const KernelDsp& dsp) {
  if (flag) {
    if (time) attemptLoop<kMask, true, true>(rec, attempts, s, d, st, dsp);
    else attemptLoop<kMask, true, false>(rec, attempts, s, d, st, dsp);
  } else {
    if (time) attemptLoop<kMask, false, true>(rec, attempts, s, d, st, dsp);
    else attemptLoop<kMask, false, false>(rec, attempts, s, d, st, dsp);
  }
}

// Attempts that only swap destinations (composite on, every pair affected,
// no time draws) read nothing of a record but its destination. They run on
// an array of destinations alone, half the records' size: with small
// blocks on large frames the records exceed the caches, and every attempt
// is two misses at random places, which then fall in a smaller span. The
// array is the block pass's scratch, which it overwrites afterwards; without
// scratch memory the records serve.
inline void swapOnly(BlockRecord* rec, A_u_long* dest, size_t n, long long attempts, const ShuffleSetup& s,
                     const Decisions& d, Streams& st, const KernelDsp& dsp) {
  if (!dest) {
    attemptLoop<-1, false, false>(rec, attempts, s, d, st, dsp);
    return;
  }
  for (size_t i = 0; i < n; ++i) dest[i] = rec[i].idx;
  attemptLoop<-1, false, false>(dest, attempts, s, d, st, dsp);
  for (size_t i = 0; i < n; ++i) rec[i].idx = dest[i];
}

}  // namespace tesselux_kernel
