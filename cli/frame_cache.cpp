#include "frame_cache.h"

#include <algorithm>

namespace cli {

SourceClip::SourceClip(std::unique_ptr<FrameSource> source, size_t cacheBytes)
    : source_(std::move(source)), frames_(source_->frameCount()), capacity_(cacheBytes) {
  // Frames a video decodes on its way to another are kept: a sequential
  // render asks for them next.
  source_->onSideFrame = [this](int k, thost::Image&& image) {
    if (k < 0 || k >= frames_ || image.depth != sideDepth_) return;
    const Key key{k, static_cast<int>(sideDepth_)};
    if (lookup(key)) return;
    ++decodes_;
    insert(key, std::make_shared<const thost::Image>(std::move(image)));
  };
}

std::shared_ptr<const thost::Image> SourceClip::lookup(const Key& key) const {
  std::lock_guard<std::mutex> lock(cacheMutex_);
  auto it = entries_.find(key);
  if (it == entries_.end()) return nullptr;
  order_.splice(order_.begin(), order_, it->second.order);
  return it->second.image;
}

void SourceClip::insert(const Key& key, std::shared_ptr<const thost::Image> image) const {
  std::lock_guard<std::mutex> lock(cacheMutex_);
  if (entries_.count(key)) return;
  const size_t size = image->pixels.size();
  order_.push_front(key);
  entries_.emplace(key, Entry{std::move(image), order_.begin()});
  bytes_ += size;
  // Evict least recently used frames; the newest always stays, so a cache
  // smaller than one frame still serves repeated requests.
  while (bytes_ > capacity_ && order_.size() > 1) {
    const Key victim = order_.back();
    order_.pop_back();
    auto it = entries_.find(victim);
    bytes_ -= it->second.image->pixels.size();
    entries_.erase(it);
  }
}

std::shared_ptr<const thost::Image> SourceClip::frame(int k, thost::Depth depth) const {
  k = std::clamp(k, 0, frames_ - 1);
  const Key key{k, static_cast<int>(depth)};
  if (auto hit = lookup(key)) return hit;
  std::lock_guard<std::mutex> lock(sourceMutex_);
  if (auto hit = lookup(key)) return hit;  // decoded while this thread waited
  sideDepth_ = depth;
  auto image = std::make_shared<const thost::Image>(source_->readHost(k, depth));
  ++decodes_;
  insert(key, image);
  return image;
}

size_t SourceClip::cachedBytes() const {
  std::lock_guard<std::mutex> lock(cacheMutex_);
  return bytes_;
}

size_t SourceClip::cachedFrames() const {
  std::lock_guard<std::mutex> lock(cacheMutex_);
  return entries_.size();
}

}  // namespace cli
