// The time-shifted frames of one render, lined up so that the renderer can
// address each of them with the source world's own pixel coordinates.
#pragma once

#include "aesdk/aesdk.h"
#include "render/allocator.h"

enum { TIME_FRAMES_CAPACITY = 256 };

// Lives on the caller's stack for one render; PrepareTimeFrames fills it and
// CleanUpTimeFrames releases what it owns.
struct TimeFrames {
  // Usable frame j: the channel element (of the render's channel type) that
  // lines up with the source world's top-left pixel.
  void* frames[TIME_FRAMES_CAPACITY];
  // Usable frame j: the padded heap copy owned by the set (when ownsCopies).
  void* buffers[TIME_FRAMES_CAPACITY];
  // Usable frame j: row stride in channel elements, not bytes.
  A_long strides[TIME_FRAMES_CAPACITY];
  // Input slot i: 1 if a layer was supplied, 0 if the slot was null.
  A_long present[TIME_FRAMES_CAPACITY];
  A_long missingCount;  // number of null input slots
  A_long ownsCopies;    // 1 if buffers[0 .. count-1] are copies to free
  A_long count;         // number of usable frames
};

// Fills `set` from `n` time layers (any of which may be null) for channel type
// T (unsigned char, unsigned short or float). With sharedMode non-zero every
// entry is the source world itself. Layers whose rectangle differs from the
// source's are padded into zero-filled copies over the union rectangle.
// depthValue only selects T. Returns the number of usable frames; 0 when a
// supplied layer has no pixels, or when a padded copy cannot be allocated.
template <typename T>
int PrepareTimeFrames(TimeFrames* set, int n, const PF_LayerDef* source, PF_LayerDef* const* layers,
                      int sharedMode, T depthValue, const RenderAllocator* allocator = nullptr);

// Frees the copies the set owns; safe after any outcome of PrepareTimeFrames.
void CleanUpTimeFrames(TimeFrames* set);

extern template int PrepareTimeFrames<unsigned char>(TimeFrames*, int, const PF_LayerDef*,
                                                     PF_LayerDef* const*, int, unsigned char,
                                                     const RenderAllocator*);
extern template int PrepareTimeFrames<unsigned short>(TimeFrames*, int, const PF_LayerDef*,
                                                      PF_LayerDef* const*, int, unsigned short,
                                                      const RenderAllocator*);
extern template int PrepareTimeFrames<float>(TimeFrames*, int, const PF_LayerDef*, PF_LayerDef* const*,
                                             int, float, const RenderAllocator*);
