// The headless host's render side: clips held by the host, and a set-up effect
// instance that renders frames of them, many at once, as After Effects'
// multi-frame rendering or Premiere Pro's render threads do.
//
// Pixels are ARGB in memory in both hosts (channel 0 alpha, 1 red, 2 green,
// 3 blue): 8-bit 0..255, 16-bit 0..32768, float with 1.0 full.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "thost/host.h"

namespace thost {

enum class Depth { Bits8 = 8, Bits16 = 16, Float32 = 32 };

inline int bytesPerPixel(Depth d) { return d == Depth::Bits8 ? 4 : d == Depth::Bits16 ? 8 : 16; }

// Frame memory kept for reuse. A stream of frames that allocates each one
// afresh pays the system for every page of it (a 1920x1080 8-bit frame is
// two thousand page faults, each a trip through the hypervisor on a virtual
// machine); blocks given back here are kept, up to `keepBytes`, and handed to
// the next request of the same size. Thread-safe.
class PixelPool {
 public:
  explicit PixelPool(std::size_t keepBytes) : limit_(keepBytes) {}
  ~PixelPool();
  PixelPool(const PixelPool&) = delete;
  PixelPool& operator=(const PixelPool&) = delete;
  void* take(std::size_t bytes);                  // throws std::bad_alloc
  void give(void* block, std::size_t bytes) noexcept;
  std::size_t keptBytes() const;
  std::size_t reused() const;                     // takes served from kept blocks

 private:
  mutable std::mutex mutex_;
  std::multimap<std::size_t, void*> kept_;
  std::size_t keptBytes_ = 0;
  std::size_t reused_ = 0;
  const std::size_t limit_;
};

// Pixel memory that is not cleared when it grows (a frame about to be written
// in full is not zero-filled first), that owns kPixelTailRoom bytes past its
// end (vector code such as swscale's reads and writes whole vectors beyond the
// last row of a tightly packed picture), and that comes from a PixelPool when
// it is given one.
inline constexpr std::size_t kPixelTailRoom = 128;
template <typename T>
struct PixelAllocator {
  using value_type = T;
  using propagate_on_container_copy_assignment = std::true_type;
  using propagate_on_container_move_assignment = std::true_type;
  using propagate_on_container_swap = std::true_type;

  PixelAllocator() = default;
  explicit PixelAllocator(std::shared_ptr<PixelPool> p) : pool(std::move(p)) {}
  template <typename U>
  PixelAllocator(const PixelAllocator<U>& o) : pool(o.pool) {}

  T* allocate(std::size_t n) {
    if (n > static_cast<std::size_t>(-1) / sizeof(T) - room()) throw std::bad_array_new_length();
    const std::size_t bytes = (n + room()) * sizeof(T);
    return static_cast<T*>(pool ? pool->take(bytes) : ::operator new(bytes));
  }
  void deallocate(T* p, std::size_t n) noexcept {
    const std::size_t bytes = (n + room()) * sizeof(T);
    if (pool)
      pool->give(p, bytes);
    else
      ::operator delete(p);
  }
  template <typename U>
  void construct(U* p) noexcept {
    ::new (static_cast<void*>(p)) U;
  }
  template <typename U, typename... Args>
  void construct(U* p, Args&&... args) {
    ::new (static_cast<void*>(p)) U(std::forward<Args>(args)...);
  }
  template <typename U>
  bool operator==(const PixelAllocator<U>& o) const { return pool == o.pool; }
  template <typename U>
  bool operator!=(const PixelAllocator<U>& o) const { return pool != o.pool; }

  std::shared_ptr<PixelPool> pool;  // null: operator new

 private:
  static constexpr std::size_t room() { return (kPixelTailRoom + sizeof(T) - 1) / sizeof(T); }
};
using PixelStore = std::vector<uint8_t, PixelAllocator<uint8_t>>;

// One picture in host pixels: `height` rows of `rowbytes` bytes each (at least
// width * bytesPerPixel), ARGB, with its origin in layer coordinates.
struct Image {
  int width = 0, height = 0;
  Depth depth = Depth::Bits8;
  A_long originX = 0, originY = 0;
  std::ptrdiff_t rowbytes = 0;
  PixelStore pixels;

  Image() = default;
  Image(int w, int h, Depth d);  // tightly packed, zero-filled
  // Tightly packed and not cleared: for a picture that is written in full
  // next; its memory from `pool` when one is given.
  static Image unfilled(int w, int h, Depth d, std::shared_ptr<PixelPool> pool = nullptr);
  uint8_t* row(int y) { return pixels.data() + y * rowbytes; }
  const uint8_t* row(int y) const { return pixels.data() + y * rowbytes; }
  bool operator==(const Image& o) const;  // same geometry and the same pixels (row padding ignored)
};

// A layer as the host holds it: frames served by random access. frame() is
// called concurrently from render threads and must be thread-safe. Frames of
// one clip may differ in size and origin.
class Clip {
 public:
  virtual ~Clip() = default;
  virtual int frameCount() const = 0;
  // Frame k (0 <= k < frameCount()) in the given depth. Shared, so a cache may keep it.
  virtual std::shared_ptr<const Image> frame(int k, Depth depth) const = 0;
};

// A clip of frames held in memory, made per depth by a callback (tests).
class MemoryClip : public Clip {
 public:
  using Maker = std::function<Image(int k, Depth depth)>;
  MemoryClip(int frames, Maker maker);
  int frameCount() const override { return frames_; }
  std::shared_ptr<const Image> frame(int k, Depth depth) const override;

 private:
  int frames_;
  Maker maker_;
  // Each frame is made once per depth and then shared by every render.
  mutable std::mutex mutex_;
  mutable std::map<std::pair<int, Depth>, std::shared_ptr<const Image>> cache_;
};

// A clip's frames at a reduced resolution, as After Effects lends layers when
// it renders at a downsample: each frame rounded up to ceil(width * x) by
// ceil(height * y) pixels (at least one), its origin scaled and rounded down,
// each pixel the plain average of the source pixels its box covers (box
// filter; boxes start at floor(i / x) and end at floor((i + 1) / x), at least
// one pixel wide), channel by channel as stored, to the nearest for 8 and 16
// bits. Frames are made afresh on each call.
class ScaledClip : public Clip {
 public:
  ScaledClip(std::shared_ptr<const Clip> source, PF_RationalScale x, PF_RationalScale y);
  int frameCount() const override { return source_->frameCount(); }
  std::shared_ptr<const Image> frame(int k, Depth depth) const override;
  // Whether a factor makes frames smaller (num < den).
  static bool reduces(const PF_RationalScale& f);

 private:
  std::shared_ptr<const Clip> source_;
  PF_RationalScale x_, y_;
};

// The host's time base for a clip: time_scale units a second, one frame lasts
// time_step; the layer lasts frames * time_step. A host time t shows frame
// floor(t / time_step), clamped to 0..frames-1.
struct TimeBase {
  A_u_long timeScale = 30000;
  A_long timeStep = 1000;
  // From a frame rate num/den: reduced, then scaled by the smallest m >= 1
  // with num * m >= 24000 (time_scale = num * m, time_step = den * m).
  static TimeBase fromRate(int num, int den);
};

// A control value in the host's units, by control id. Fixed sliders take the
// value as shown (stored as 16.16, rounded to nearest, halves away from zero);
// float sliders as shown; popups 1-based; checkboxes 0/1. Absent controls keep
// their defaults from parameter setup.
using ControlValues = std::map<int, double>;

struct RenderRequest {
  int frame = 0;  // output frame k: current_time = k * time_step
  Depth depth = Depth::Bits8;
  PF_RationalScale downsampleX{1, 1}, downsampleY{1, 1};
  ControlValues controls;
  std::shared_ptr<const Clip> layer;  // the effect's own layer (required)
  std::shared_ptr<const Clip> mask;   // "Mask Source"; null: none
  // Below 1/1 the host lends the layer's and the mask's frames at that
  // resolution (ScaledClip), as After Effects does, and tells the effect the
  // factors through in_data; the output is the reduced frame's size.
  TimeBase time;
  // Where the output goes: null lets the host make it the size and origin of
  // the layer's frame k (reduced, at a downsample). A caller-provided image must match that size and depth;
  // an effect whose result_rect differs leaves it untouched (a contract break)
  // and the result carries the output it drew instead.
  // With world guards off the host lends the effect the clip frames' and this
  // image's own memory instead of copies.
  Image* into = nullptr;
  // Memory for an output the host makes (no `into`); null: operator new.
  std::shared_ptr<PixelPool> outputPool;
};

struct RenderResult {
  PF_Err err = PF_Err_NONE;            // of the pre-render, else the smart render (or PF_Cmd_RENDER)
  Image output;                        // empty when the request named `into`
  std::vector<std::string> breaks;     // contract breaks found in this render
  // Checkouts the effect leaves by design: values read through checkout_param
  // in the SmartFX commands, and its own layer in PF_Cmd_RENDER.
  int toleratedNotices = 0;
  std::vector<HostCall> calls;         // every call the effect made in this render
};

// Load, register, global setup, parameter setup and sequence setup once; then
// render any frame from any thread. After Effects renders with
// PF_Cmd_SMART_PRE_RENDER and PF_Cmd_SMART_RENDER (PF_Cmd_RENDER for an effect
// without PF_OutFlag2_SUPPORTS_SMART_RENDER), Premiere Pro with PF_Cmd_RENDER
// (in a pixel format the effect announced; others throw std::invalid_argument).
// A frame that starts while others render is a contract break unless the
// effect declared PF_OutFlag2_SUPPORTS_THREADED_RENDERING. Every render has command records of its own: in_data,
// out_data, extras, effect_ref, call log, suite balance, worlds; the handle
// store is shared and locked. finalBreaks() (or destruction) sends sequence
// setdown and global setdown and returns the breaks of the set-up host, its
// setdown and of align().
class RenderHost {
 public:
  struct Options {
    std::string pluginPath = Host::defaultPluginPath();
    App app = App::AfterEffects;
    ApiVersion version{13, 28};
    // Guard bytes around every world and row padding beyond width, checked
    // after each render. Off only where speed matters more than checking.
    bool guardWorlds = true;
    bool recordCalls = true;  // fill RenderResult::calls
  };
  explicit RenderHost(Options options);  // throws std::runtime_error with the reason
  ~RenderHost();
  RenderHost(const RenderHost&) = delete;
  RenderHost& operator=(const RenderHost&) = delete;

  // Thread-safe: each call builds its own command records and worlds. Throws
  // std::invalid_argument for a request the host cannot serve (no layer, an
  // unknown control id, a mismatched `into`), std::logic_error once set down.
  RenderResult render(const RenderRequest& request) const;

  // Presses "Align" (PF_Cmd_USER_CHANGED_PARAM) for a layer of width x height
  // with "Block Width" and "Block Height" as given (as shown); returns the
  // block width and height the effect set. Leaves the set-up host unchanged.
  std::pair<double, double> align(double blockWidth, double blockHeight, A_long width,
                                  A_long height);

  // The controls as parameter setup added them (index 0, the layer, excluded).
  const std::vector<AddedParam>& controls() const;
  const Registration& registration() const;
  A_long version() const;  // out_data->my_version of global setup
  PF_OutFlags outFlags() const;
  PF_OutFlags2 outFlags2() const;
  std::vector<std::string> finalBreaks();

  struct Impl;

 private:
  std::unique_ptr<Impl> impl_;
};

}  // namespace thost
