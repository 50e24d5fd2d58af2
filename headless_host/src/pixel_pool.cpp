#include <new>

#include "thost/render.h"

namespace thost {

PixelPool::~PixelPool() {
  for (auto& [bytes, block] : kept_) ::operator delete(block);
}

void* PixelPool::take(std::size_t bytes) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = kept_.find(bytes);
    if (it != kept_.end()) {
      void* block = it->second;
      kept_.erase(it);
      keptBytes_ -= bytes;
      ++reused_;
      return block;
    }
  }
  return ::operator new(bytes);
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
  ::operator delete(block);
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
