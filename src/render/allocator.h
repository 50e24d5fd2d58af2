// Where the renderer takes its per-call memory from. Production renders use
// plain malloc; tests hand in a function that fails on demand so that the
// out-of-memory paths are reachable. Passed explicitly, never stored globally,
// so concurrent renders cannot disturb each other.
#pragma once

#include <stddef.h>
#include <stdlib.h>

struct RenderAllocator {
  void* (*allocate)(size_t bytes, void* context);  // null means malloc
  void* context;
};

inline void* renderAllocate(const RenderAllocator* allocator, size_t bytes) {
  if (allocator && allocator->allocate) return allocator->allocate(bytes, allocator->context);
  return malloc(bytes);
}
