#include "time/time_frames.h"

#include <stdlib.h>
#include <string.h>

namespace {

// Not "Rect": macOS declares a global Rect, and an unqualified use of this one
// would be ambiguous there.
struct WideRect {
  long long left, top, right, bottom;  // wide so that origin + size cannot overflow
};

WideRect worldRect(const PF_LayerDef* w) {
  return WideRect{w->origin_x, w->origin_y, static_cast<long long>(w->origin_x) + w->width,
                  static_cast<long long>(w->origin_y) + w->height};
}

bool sameRect(const WideRect& a, const WideRect& b) {
  return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

// Row stride in channel elements; rowbytes is divided by an arithmetic shift.
template <typename T>
A_long elementStride(const PF_LayerDef* w) {
  constexpr int shift = sizeof(T) == 1 ? 0 : sizeof(T) == 2 ? 1 : 2;
  return w->rowbytes >> shift;
}

// A zero time step samples the current frame every time: no layer is looked
// at, every entry is the source itself.
template <typename T>
int shareSourceFrame(TimeFrames* set, int n, const PF_LayerDef* source) {
  for (int i = 0; i < n; ++i) {
    set->present[i] = 1;
    set->frames[i] = source->data;
    set->strides[i] = elementStride<T>(source);
  }
  set->count = n;
  return n;
}

// Records which slots have a layer and points each present slot at the host's
// pixels. Returns the number of missing slots, or -1 for a layer without
// pixels (the caller then renders without time frames).
template <typename T>
int recordLayers(TimeFrames* set, int n, PF_LayerDef* const* layers) {
  int missing = 0;
  for (int i = 0; i < n; ++i) {
    const PF_LayerDef* layer = layers[i];
    if (!layer) {
      set->present[i] = 0;
      ++missing;
      continue;
    }
    set->present[i] = 1;
    set->frames[i] = layer->data;
    set->strides[i] = elementStride<T>(layer);
    if (!layer->data) return -1;
  }
  return missing;
}

// The rectangle covering the source and every present layer.
WideRect unionRect(const TimeFrames* set, int n, const PF_LayerDef* source, PF_LayerDef* const* layers) {
  WideRect u = worldRect(source);
  for (int i = 0; i < n; ++i) {
    if (!set->present[i]) continue;
    const WideRect r = worldRect(layers[i]);
    if (r.left < u.left) u.left = r.left;
    if (r.top < u.top) u.top = r.top;
    if (r.right > u.right) u.right = r.right;
    if (r.bottom > u.bottom) u.bottom = r.bottom;
  }
  return u;
}

// Copies are needed unless the source and every present layer share one rectangle.
bool needsCopies(const TimeFrames* set, int n, const WideRect& u, const WideRect& src,
                 PF_LayerDef* const* layers) {
  if (!sameRect(u, src)) return true;
  for (int i = 0; i < n; ++i) {
    if (set->present[i] && !sameRect(worldRect(layers[i]), u)) return true;
  }
  return false;
}

// Every present layer has the source's rectangle: borrow the host's pixels and
// close up the gaps left by missing slots.
int borrowLayers(TimeFrames* set, int n, int missing) {
  int absent = 0;
  if (missing > 0 && n >= 0) {
    int offset = 0;
    for (int i = 0; i <= n && i < TIME_FRAMES_CAPACITY; ++i) {
      if (set->present[i]) {
        set->frames[i + offset] = set->frames[i];
        set->strides[i + offset] = set->strides[i];
      } else {
        --offset;
        if (i < n) ++absent;
      }
    }
  }
  set->count = n - absent;
  return set->count;
}

// One layer's rows into a zeroed copy laid out over the union rectangle.
template <typename T>
void copyIntoUnion(T* copy, long long copyStride, const PF_LayerDef* layer, const WideRect& u) {
  const WideRect r = worldRect(layer);
  const unsigned char* rowIn = static_cast<const unsigned char*>(static_cast<const void*>(layer->data));
  const size_t rowBytesCopied = layer->width > 0 ? static_cast<size_t>(layer->width) * 4 * sizeof(T) : 0;
  for (A_long row = 0; row < layer->height; ++row) {
    // Offsets are computed in 64 bits: rows times rowbytes can exceed 2^31.
    T* dst = copy + (r.top - u.top + row) * copyStride + 4 * (r.left - u.left);
    memcpy(dst, rowIn + static_cast<ptrdiff_t>(row) * layer->rowbytes, rowBytesCopied);
  }
}

// Padded copies over the union rectangle, transparent black outside each
// frame's own rectangle.
template <typename T>
int makePaddedCopies(TimeFrames* set, int n, int missing, const WideRect& u, const WideRect& src,
                     PF_LayerDef* const* layers, const RenderAllocator* allocator) {
  const long long unionW = u.right - u.left;
  const long long unionH = u.bottom - u.top;
  const long long copyStride = 4 * unionW;  // in elements
  const size_t copyBytes = static_cast<size_t>(unionH) * static_cast<size_t>(copyStride) * sizeof(T);
  int j = 0;
  for (int i = 0; i < n; ++i) {
    if (!set->present[i]) continue;
    T* copy = static_cast<T*>(renderAllocate(allocator, copyBytes ? copyBytes : 1));
    if (!copy) {
      // Out of memory: give back what was made and render without time frames.
      for (int k = 0; k < j; ++k) free(set->buffers[k]);
      set->count = 0;
      return 0;
    }
    memset(copy, 0, copyBytes);
    set->buffers[j] = copy;
    copyIntoUnion(copy, copyStride, layers[i], u);
    set->frames[j] = copy + (src.top - u.top) * copyStride + 4 * (src.left - u.left);
    set->strides[j] = static_cast<A_long>(copyStride);
    ++j;
  }
  set->ownsCopies = 1;
  set->count = n - missing;
  return set->count;
}

}  // namespace

template <typename T>
int PrepareTimeFrames(TimeFrames* set, int n, const PF_LayerDef* source, PF_LayerDef* const* layers,
                      int sharedMode, T /*depthValue*/, const RenderAllocator* allocator) {
  // The set is not zeroed by its owner. Clearing these first means that an
  // early exit leaves nothing for CleanUpTimeFrames to free.
  set->ownsCopies = 0;
  set->count = 0;
  set->missingCount = 0;
  if (n > TIME_FRAMES_CAPACITY) n = TIME_FRAMES_CAPACITY;
  if (sharedMode) return shareSourceFrame<T>(set, n, source);

  const int missing = recordLayers<T>(set, n, layers);
  if (missing < 0) return 0;  // a frame without pixels: render without time frames
  set->missingCount = missing;
  // The compaction walks one slot past the last input slot; marking it
  // absent keeps that walk on initialised entries.
  if (n >= 0 && n < TIME_FRAMES_CAPACITY) set->present[n] = 0;

  const WideRect src = worldRect(source);
  const WideRect u = unionRect(set, n, source, layers);
  if (!needsCopies(set, n, u, src, layers)) return borrowLayers(set, n, missing);
  return makePaddedCopies<T>(set, n, missing, u, src, layers, allocator);
}

void CleanUpTimeFrames(TimeFrames* set) {
  if (set->ownsCopies && set->count > 0) {
    for (A_long j = 0; j < set->count; ++j) free(set->buffers[j]);
  }
  set->ownsCopies = 0;  // a second clean-up frees nothing
}

template int PrepareTimeFrames<unsigned char>(TimeFrames*, int, const PF_LayerDef*, PF_LayerDef* const*,
                                              int, unsigned char, const RenderAllocator*);
template int PrepareTimeFrames<unsigned short>(TimeFrames*, int, const PF_LayerDef*, PF_LayerDef* const*,
                                               int, unsigned short, const RenderAllocator*);
template int PrepareTimeFrames<float>(TimeFrames*, int, const PF_LayerDef*, PF_LayerDef* const*, int, float,
                                      const RenderAllocator*);
