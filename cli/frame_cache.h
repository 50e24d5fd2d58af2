// A clip read from a file, served to the host by random access through a
// bounded cache of decoded frames, so memory follows the cache size and the
// frames in flight, never the clip's length.
#pragma once

#include <atomic>
#include <cstddef>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "io/media.h"
#include "thost/render.h"

namespace cli {

class SourceClip : public thost::Clip {
 public:
  // Reads go through the source one at a time (a video has one decoder);
  // cached frames are served to any number of threads at once.
  SourceClip(std::unique_ptr<FrameSource> source, size_t cacheBytes);
  int frameCount() const override { return frames_; }
  std::shared_ptr<const thost::Image> frame(int k, thost::Depth depth) const override;

  const FrameSource& source() const { return *source_; }
  size_t cachedBytes() const;
  size_t cachedFrames() const;
  size_t decodes() const { return decodes_.load(); }

 private:
  using Key = std::pair<int, int>;  // frame, depth
  struct Entry {
    std::shared_ptr<const thost::Image> image;
    std::list<Key>::iterator order;
  };
  std::shared_ptr<const thost::Image> lookup(const Key& key) const;
  void insert(const Key& key, std::shared_ptr<const thost::Image> image) const;

  std::unique_ptr<FrameSource> source_;
  int frames_;
  size_t capacity_;
  mutable std::mutex sourceMutex_;
  mutable std::mutex cacheMutex_;
  mutable std::map<Key, Entry> entries_;
  mutable std::list<Key> order_;  // most recently used first
  mutable size_t bytes_ = 0;
  mutable std::atomic<size_t> decodes_{0};
  mutable thost::Depth sideDepth_ = thost::Depth::Bits8;
};

}  // namespace cli
