#include <cstdlib>
#if defined(_WIN32)
#include <malloc.h>
#endif
#include <iterator>
#include <new>

#include "thost/render.h"

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace thost {

namespace {

// Frame-sized blocks are aligned to 2 MiB and advised for transparent huge
// pages (the usual "madvise" policy): first touched, a 1920x1080 frame is a
// handful of faults instead of two thousand, each a trip through the
// hypervisor on a virtual machine. Kept blocks are never touched afresh.
constexpr std::size_t kHugePage = std::size_t{2} << 20;
constexpr std::size_t kHugeFrom = 2 * kHugePage;

void* newBlock(std::size_t bytes) {
  if (bytes < kHugeFrom) return ::operator new(bytes);
  const std::size_t rounded = (bytes + kHugePage - 1) / kHugePage * kHugePage;
  if (rounded < bytes) throw std::bad_alloc();
#if defined(_WIN32)
  void* p = _aligned_malloc(rounded, kHugePage);  // the C runtime there has no aligned_alloc
#else
  void* p = std::aligned_alloc(kHugePage, rounded);
#endif
  if (!p) throw std::bad_alloc();
#if defined(__linux__) && defined(MADV_HUGEPAGE)
  (void)madvise(p, rounded, MADV_HUGEPAGE);  // advice: refused is fine
#endif
  return p;
}

void deleteBlock(void* p, std::size_t bytes) noexcept {
  if (bytes < kHugeFrom)
    ::operator delete(p);
  else
#if defined(_WIN32)
    _aligned_free(p);
#else
    std::free(p);
#endif
}

}  // namespace

PixelPool::~PixelPool() {
  for (auto& [bytes, block] : kept_) deleteBlock(block, bytes);
}

void* PixelPool::take(std::size_t bytes) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    // The block given back last: the likeliest to be in the cache still.
    const auto range = kept_.equal_range(bytes);
    if (range.first != range.second) {
      const auto it = std::prev(range.second);
      void* block = it->second;
      kept_.erase(it);
      keptBytes_ -= bytes;
      ++reused_;
      return block;
    }
  }
  return newBlock(bytes);
}

void PixelPool::give(void* block, std::size_t bytes) noexcept {
  if (!block) return;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (keptBytes_ + bytes <= limit_) {
      try {
        kept_.emplace(bytes, block);
        keptBytes_ += bytes;
        return;
      } catch (const std::bad_alloc&) {
        // no room to note it: free it instead
      }
    }
  }
  deleteBlock(block, bytes);
}

std::size_t PixelPool::keptBytes() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return keptBytes_;
}

std::size_t PixelPool::reused() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return reused_;
}

}  // namespace thost
