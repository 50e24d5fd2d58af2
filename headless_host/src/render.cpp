// Rendering: clips and images, the worlds the host lends, the render commands
// on one command record, and the RenderHost that renders many frames at once.
#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <new>
#include <ostream>
#include <stdexcept>

#include "impl.h"

namespace thost {

// ---------------------------------------------------------------- Image, clips, time

Image::Image(int w, int h, Depth d)
    : width(w),
      height(h),
      depth(d),
      rowbytes(static_cast<std::ptrdiff_t>(w) * bytesPerPixel(d)),
      pixels(static_cast<size_t>(rowbytes) * static_cast<size_t>(h > 0 ? h : 0), uint8_t{0}) {}

Image Image::unfilled(int w, int h, Depth d, std::shared_ptr<PixelPool> pool) {
  Image img;
  if (pool) img.pixels = PixelStore(PixelAllocator<uint8_t>(std::move(pool)));
  img.width = w;
  img.height = h;
  img.depth = d;
  img.rowbytes = static_cast<std::ptrdiff_t>(w) * bytesPerPixel(d);
  img.pixels.resize(static_cast<size_t>(img.rowbytes) * static_cast<size_t>(h > 0 ? h : 0));
  return img;
}

bool Image::operator==(const Image& o) const {
  if (width != o.width || height != o.height || depth != o.depth || originX != o.originX ||
      originY != o.originY)
    return false;
  const size_t used = static_cast<size_t>(width) * static_cast<size_t>(bytesPerPixel(depth));
  for (int y = 0; y < height; ++y)
    if (std::memcmp(row(y), o.row(y), used) != 0) return false;
  return true;
}

MemoryClip::MemoryClip(int frames, Maker maker) : frames_(frames), maker_(std::move(maker)) {}

std::shared_ptr<const Image> MemoryClip::frame(int k, Depth depth) const {
  std::lock_guard<std::mutex> lock(mutex_);
  auto& slot = cache_[{k, depth}];
  if (!slot) slot = std::make_shared<const Image>(maker_(k, depth));
  return slot;
}

TimeBase TimeBase::fromRate(int num, int den) {
  if (num <= 0 || den <= 0) throw std::invalid_argument("frame rate must be positive");
  int a = num, b = den;
  while (b) {
    const int t = a % b;
    a = b;
    b = t;
  }
  const long n = num / a, d = den / a;
  long m = 1;
  while (n * m < 24000) ++m;
  return TimeBase{static_cast<A_u_long>(n * m), static_cast<A_long>(d * m)};
}

void PrintTo(const LayerCheckout& c, std::ostream* os) {
  *os << "{id " << c.checkoutId << ", layer " << c.layerIndex << ", time " << c.time << "/"
      << c.step << "/" << c.scale << ", frame " << c.frame << "}";
}

// ---------------------------------------------------------------- lent worlds

std::unique_ptr<uint8_t[]> BlockPool::take(size_t bytes) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = free_.find(bytes);
    if (it != free_.end()) {
      std::unique_ptr<uint8_t[]> block = std::move(it->second);
      free_.erase(it);
      kept_ -= bytes;
      return block;
    }
  }
  return std::unique_ptr<uint8_t[]>(new (std::nothrow) uint8_t[bytes == 0 ? 1 : bytes]);
}

void BlockPool::give(std::unique_ptr<uint8_t[]> block, size_t bytes) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (kept_ + bytes > kMaxKeptBytes) return;  // freed here instead
  free_.emplace(bytes, std::move(block));
  kept_ += bytes;
}

namespace {

constexpr size_t kGuardBytes = 64;

std::string describe(const LentWorldInfo& info) {
  switch (info.kind) {
    case LentWorldInfo::Kind::Output:
      return "the output world";
    case LentWorldInfo::Kind::LayerPixels:
      return "the world of checkout id " + std::to_string(info.checkoutId) + " (layer " +
             std::to_string(info.layerIndex) + ", frame " + std::to_string(info.frame) + ")";
    case LentWorldInfo::Kind::LayerParam:
      return "the world of layer parameter " + std::to_string(info.layerIndex) + " (frame " +
             std::to_string(info.frame) + ")";
    case LentWorldInfo::Kind::InputParam:
      return "the input world params[0] (frame " + std::to_string(info.frame) + ")";
  }
  return "a lent world";
}

bool allGuard(const uint8_t* p, size_t n) {
  for (size_t i = 0; i < n; ++i)
    if (p[i] != LentWorld::kGuard) return false;
  return true;
}

}  // namespace

const std::shared_ptr<const Clip>& Host::Impl::clipOf(PF_ParamIndex index) const {
  static const std::shared_ptr<const Clip> none;
  auto it = render.clips.find(index);
  return it == render.clips.end() ? none : it->second;
}

int Host::Impl::frameAt(const Clip& clip, A_long time, A_long /*step*/, A_u_long scale) {
  const int n = clip.frameCount();
  if (n <= 0) return -1;
  // time / scale seconds, in frames of the host's time base, rounded down.
  const int64_t num = static_cast<int64_t>(time) * static_cast<int64_t>(in.time_scale);
  const int64_t den = static_cast<int64_t>(scale) * static_cast<int64_t>(in.time_step);
  if (den <= 0) return 0;
  int64_t k = num / den;
  if (num % den != 0 && num < 0) --k;
  return static_cast<int>(std::clamp<int64_t>(k, 0, n - 1));
}

PF_ParamIndex Host::Impl::maskIndex() const {
  for (size_t i = 1; i < live.size(); ++i)
    if (live[i].param_type == PF_Param_LAYER) return static_cast<PF_ParamIndex>(i);
  return -1;
}

namespace {

// The Premiere Pro format of a depth as the effect announced it: the ARGB
// code when announced, else any announced 4444 code of that size.
A_long announcedFormat(const std::vector<PrPixelFormat>& announced, Depth depth) {
  const A_long argb = premiereArgbFormat(depth);
  for (PrPixelFormat f : announced)
    if (f == argb) return argb;
  for (PrPixelFormat f : announced)
    if (premiereBytesPerPixel(f) == bytesPerPixel(depth)) return f;
  return argb;
}

}  // namespace

// A world of its own memory, or (with `borrowed`, guards off only) one over
// memory the caller keeps alive for the render.
static LentWorld* makeLent(Host::Impl& h, int width, int height, A_long originX, A_long originY,
                           const LentWorldInfo& info, uint8_t* borrowed = nullptr,
                           std::ptrdiff_t borrowedRowbytes = 0) {
  const Depth depth = h.render.depth;
  const int bpp = bytesPerPixel(depth);
  auto w = std::make_unique<LentWorld>();
  const bool guard = h.render.guardWorlds;
  w->depth = depth;
  w->rowUsed = static_cast<size_t>(width) * static_cast<size_t>(bpp);
  // Rows padded by three pixels: a stride taken from width instead of rowbytes shows.
  size_t rowbytes = w->rowUsed + (guard ? 3u * static_cast<size_t>(bpp) : 0u);
  uint8_t* data = borrowed;
  if (borrowed) {
    rowbytes = static_cast<size_t>(borrowedRowbytes);
    w->borrowed = true;
  } else {
    w->lead = guard ? kGuardBytes : 0;
    w->blockBytes = 2 * w->lead + rowbytes * static_cast<size_t>(height);
    w->pool = h.blockPool;
    w->block = h.blockPool->take(w->blockBytes);
    if (!w->block) return nullptr;
    // Guards and row padding get the guard pattern; the caller writes every pixel.
    uint8_t* const b = w->block.get();
    std::memset(b, LentWorld::kGuard, w->lead);
    std::memset(b + w->blockBytes - w->lead, LentWorld::kGuard, w->lead);
    if (rowbytes > w->rowUsed)
      for (int y = 0; y < height; ++y)
        std::memset(b + w->lead + static_cast<size_t>(y) * rowbytes + w->rowUsed, LentWorld::kGuard,
                    rowbytes - w->rowUsed);
    data = b + w->lead;
  }
  PF_EffectWorld& world = w->world;
  world.data = reinterpret_cast<PF_PixelPtr>(data);
  world.rowbytes = static_cast<A_long>(rowbytes);
  world.width = width;
  world.height = height;
  world.extent_hint = PF_LRect{0, 0, width, height};
  world.world_flags = depth == Depth::Bits16 ? PF_WorldFlag_DEEP : 0;
  if (info.kind == LentWorldInfo::Kind::Output) world.world_flags |= PF_WorldFlag_WRITEABLE;
  world.pix_aspect_ratio = PF_RationalScale{1, 1};
  world.origin_x = originX;
  world.origin_y = originY;
  w->info = info;
  w->info.world = &w->world;
  WorldRecord& rec = h.worlds[&w->world];
  rec.format = aePixelFormat(depth);
  rec.prFormat = announcedFormat(h.pixelFormats, depth);
  if (info.kind == LentWorldInfo::Kind::Output && h.render.premiereFormat)
    rec.prFormat = *h.render.premiereFormat;
  rec.byEffect = false;
  rec.width = width;
  rec.height = height;
  h.render.lent.push_back(std::move(w));
  return h.render.lent.back().get();
}

LentWorld* Host::Impl::lendFrame(const Clip& clip, int frame, LentWorldInfo info) {
  const std::shared_ptr<const Image> image = clip.frame(frame, render.depth);
  if (!image || image->depth != render.depth || image->width < 0 || image->height < 0 ||
      image->rowbytes < static_cast<std::ptrdiff_t>(image->width) * bytesPerPixel(render.depth) ||
      image->pixels.size() < static_cast<size_t>(image->rowbytes) * static_cast<size_t>(image->height))
    throw std::runtime_error("clip frame " + std::to_string(frame) +
                             " is missing, malformed or not in the render depth");
  if (!render.guardWorlds) {
    // Nothing checks what the effect does to a layer world here: lend the
    // frame itself, read-only by contract, instead of a copy.
    LentWorld* w = makeLent(*this, image->width, image->height, image->originX, image->originY, info,
                            const_cast<uint8_t*>(image->pixels.data()), image->rowbytes);
    w->source = image;
    return w;
  }
  LentWorld* w = makeLent(*this, image->width, image->height, image->originX, image->originY, info);
  if (!w) return nullptr;
  auto* base = reinterpret_cast<uint8_t*>(w->world.data);
  for (int y = 0; y < image->height; ++y)
    std::memcpy(base + static_cast<size_t>(y) * static_cast<size_t>(w->world.rowbytes),
                image->row(y), w->rowUsed);
  w->source = image;
  return w;
}

LentWorld* Host::Impl::lendOutput(int width, int height, A_long originX, A_long originY) {
  LentWorldInfo info;
  info.kind = LentWorldInfo::Kind::Output;
  if (!render.guardWorlds) {
    // Unchecked: the effect renders straight into the caller's image, or into
    // one the result takes over, with no fill and no copy on the way out.
    if (!render.into) {
      render.ownOutput =
          std::make_unique<Image>(Image::unfilled(width, height, render.depth, render.outputPool));
      render.ownOutput->originX = originX;
      render.ownOutput->originY = originY;
    }
    Image& target = render.into ? *render.into : *render.ownOutput;
    LentWorld* w = makeLent(*this, width, height, originX, originY, info, target.pixels.data(),
                            target.rowbytes);
    render.output = w;
    return w;
  }
  LentWorld* w = makeLent(*this, width, height, originX, originY, info);
  if (!w) return nullptr;
  auto* base = reinterpret_cast<uint8_t*>(w->world.data);
  for (int y = 0; y < height; ++y) {
    uint8_t* row = base + static_cast<size_t>(y) * static_cast<size_t>(w->world.rowbytes);
    // Never zero, so pixels the effect leaves unwritten show up.
    if (render.into)
      std::memcpy(row, render.into->row(y), w->rowUsed);
    else
      std::memset(row, HandleStore::kFill, w->rowUsed);
  }
  render.output = w;
  return w;
}

PF_Err Host::Impl::lendLayerParam(PF_ParamIndex index, A_long time, A_long step, A_u_long scale,
                                  PF_ParamDef& def) {
  const A_long dephault = def.u.ld.dephault;
  std::memset(&def.u.ld, 0, sizeof def.u.ld);
  def.u.ld.dephault = dephault;
  const std::shared_ptr<const Clip>& clip = clipOf(index);
  LayerCheckout rec{LayerCheckout::kParamCheckout, index, time, step, scale, -1};
  if (clip && scale > 0) rec.frame = frameAt(*clip, time, step, scale);
  render.checkouts.push_back(rec);
  if (rec.frame < 0) return PF_Err_NONE;  // no layer: a world without pixels
  LentWorldInfo info;
  info.kind = LentWorldInfo::Kind::LayerParam;
  info.layerIndex = index;
  info.frame = rec.frame;
  LentWorld* w = lendFrame(*clip, rec.frame, info);
  if (!w) return PF_Err_OUT_OF_MEMORY;
  def.u.ld = w->world;
  def.u.ld.dephault = dephault;
  return PF_Err_NONE;
}

const WorldRecord* Host::Impl::findWorld(const PF_EffectWorld* world) const {
  if (!world) return nullptr;
  auto it = worlds.find(world);
  if (it != worlds.end()) return &it->second;
  // A copy of a lent world's record (a layer parameter's u.ld) is the same world.
  for (const auto& w : render.lent)
    if (world->data && w->world.data == world->data) {
      auto found = worlds.find(&w->world);
      if (found != worlds.end()) return &found->second;
    }
  return nullptr;
}

void Host::Impl::checkLentWorlds() {
  if (!render.guardWorlds) return;
  for (const auto& w : render.lent) {
    const uint8_t* block = w->block.get();
    const std::string what = describe(w->info);
    const size_t rowbytes = static_cast<size_t>(w->world.rowbytes);
    const size_t body = rowbytes * static_cast<size_t>(w->world.height);
    if (!allGuard(block, w->lead))
      addBreak("write before the first row of " + what);
    if (!allGuard(block + w->lead + body, w->lead))
      addBreak("write after the last row of " + what);
    for (int y = 0; y < w->world.height; ++y)
      if (!allGuard(block + w->lead + static_cast<size_t>(y) * rowbytes + w->rowUsed,
                    rowbytes - w->rowUsed)) {
        addBreak("write into the row padding beyond width of " + what + " (row " +
                 std::to_string(y) + ")");
        break;
      }
    if (!w->source) continue;  // the output
    for (int y = 0; y < w->world.height; ++y)
      if (std::memcmp(block + w->lead + static_cast<size_t>(y) * rowbytes, w->source->row(y),
                      w->rowUsed) != 0) {
        addBreak(what + " was written to (row " + std::to_string(y) +
                 "); layer worlds are read-only");
        break;
      }
  }
}

// ---------------------------------------------------------------- a render on one record

void Host::Impl::discardPreRenderData() {
  RenderState& r = render;
  if (r.preRenderPointer && r.deletePreRenderData) {
    CurrentHost::Scope scope(this);
    r.deletePreRenderData(r.preRenderPointer);
  }
  r.preRenderPointer = nullptr;
  r.deletePreRenderData = nullptr;
  if (r.preRenderData && handles.find(r.preRenderData)) handles.dispose(r.preRenderData);
  r.preRenderData = nullptr;
}

void Host::Impl::beginRender() {
  discardPreRenderData();
  RenderState& r = render;
  for (const auto& w : r.lent) worlds.erase(&w->world);
  r.lent.clear();
  r.checkouts.clear();
  r.requested.clear();
  r.notices.clear();
  r.output = nullptr;
  r.ownOutput.reset();
  r.input = nullptr;
  r.outputCheckouts = 0;
  r.preRendered = false;
  r.preIn = PF_PreRenderInput{};
  r.preOut = PF_PreRenderOutput{};
  if (!live.empty()) {
    const A_long dephault = live[0].u.ld.dephault;
    std::memset(&live[0].u.ld, 0, sizeof live[0].u.ld);
    live[0].u.ld.dephault = dephault;
  }
}

void Host::Impl::setLayerGeometry() {
  const std::shared_ptr<const Clip>& layer = clipOf(0);
  if (!layer || layer->frameCount() <= 0)
    throw std::logic_error("a render needs a clip with frames for the effect's layer (index 0)");
  const int k = frameAt(*layer, in.current_time, in.time_step, in.time_scale);
  const auto image = layer->frame(k, render.depth);
  in.width = image->width;
  in.height = image->height;
  in.extent_hint = PF_LRect{0, 0, image->width, image->height};
  // A layer longer than 32-bit host time can say ends at its largest value.
  const int64_t total = static_cast<int64_t>(layer->frameCount()) * in.time_step;
  in.total_time = static_cast<A_long>(std::clamp<int64_t>(total, INT32_MIN, INT32_MAX));
}

PF_RenderRequest Host::Impl::wholeFrameRequest() {
  const std::shared_ptr<const Clip>& layer = clipOf(0);
  const auto image =
      layer->frame(frameAt(*layer, in.current_time, in.time_step, in.time_scale), render.depth);
  PF_RenderRequest req{};
  req.rect = PF_LRect{image->originX, image->originY, image->originX + image->width,
                      image->originY + image->height};
  req.field = PF_Field_FRAME;
  req.channel_mask = PF_ChannelMask_ARGB;
  return req;
}

PF_Err Host::Impl::preRender(const PF_RenderRequest* request) {
  beginRender();
  setLayerGeometry();
  RenderState& r = render;
  r.preIn.output_request = request ? *request : wholeFrameRequest();
  r.preIn.bitdepth = static_cast<short>(render.depth);
  fillPreRenderCallbacks(r.preCb);
  r.preExtra = PF_PreRenderExtra{&r.preIn, &r.preOut, &r.preCb};
  r.preRendered = true;
  r.preTime = in.current_time;
  r.preStep = in.time_step;
  r.preScale = in.time_scale;
  r.preDepth = r.depth;
  return run(PF_Cmd_SMART_PRE_RENDER, &r.preExtra);
}

std::string rectText(const PF_LRect& r) {
  return "(" + std::to_string(r.left) + "," + std::to_string(r.top) + ")-(" +
         std::to_string(r.right) + "," + std::to_string(r.bottom) + ")";
}

// After Effects sizes its buffers by the maximum result rectangle: a result
// rectangle reaching beyond it would be drawn into memory it never set aside.
void Host::Impl::checkResultRects() {
  const PF_LRect& res = render.preOut.result_rect;
  const PF_LRect& max = render.preOut.max_result_rect;
  if (res.left >= res.right || res.top >= res.bottom) return;
  if (res.left < max.left || res.top < max.top || res.right > max.right || res.bottom > max.bottom)
    addBreak("pre-render result_rect " + rectText(res) + " reaches beyond max_result_rect " +
             rectText(max));
}

void Host::Impl::adoptPreRenderData() {
  RenderState& r = render;
  checkResultRects();
  if (!r.preOut.pre_render_data) return;
  if (r.preOut.delete_pre_render_data_func) {
    r.preRenderPointer = r.preOut.pre_render_data;
    r.deletePreRenderData = r.preOut.delete_pre_render_data_func;
    return;
  }
  auto storeLock = handles.guard();
  const auto h = static_cast<PF_Handle>(r.preOut.pre_render_data);
  HandleStore::Block* b = handles.find(h);
  if (!b) {
    addBreak("pre_render_data is not a live host handle and comes without a delete function");
    return;
  }
  b->byHost = true;  // handed over: the host disposes it after the render
  r.preRenderData = h;
  if (b->locks > 0)
    addBreak("pre-render data handle " + handleLabel(*this, h) + " left locked (lock count " +
             std::to_string(b->locks) + ")");
}

PF_Err Host::Impl::smartRender() {
  RenderState& r = render;
  if (!r.preRendered) throw std::logic_error("smartRender() needs a preRender() first");
  // A smart render is of the frame its pre-render prepared, whatever was set since.
  in.current_time = r.preTime;
  in.time_step = r.preStep;
  in.time_scale = r.preScale;
  r.depth = r.preDepth;
  // After Effects lends an output the size and place of the result rectangle
  // the pre-render reported, so a wrong rectangle shows in the pixels.
  const PF_LRect rr = r.preOut.result_rect;
  const int width = rr.right > rr.left ? rr.right - rr.left : 0;
  const int height = rr.bottom > rr.top ? rr.bottom - rr.top : 0;
  if (r.into && (r.into->width != width || r.into->height != height ||
                 r.into->originX != rr.left || r.into->originY != rr.top)) {
    addBreak("the pre-render's result_rect " + rectText(rr) +
             " is not the frame the host asked for; the output is lent at that rectangle");
    r.into = nullptr;  // the caller's picture keeps what it had
  }
  if (!lendOutput(width, height, rr.left, rr.top)) throw std::bad_alloc();
  r.smartIn = PF_SmartRenderInput{};
  r.smartIn.output_request = r.preIn.output_request;
  r.smartIn.bitdepth = r.preIn.bitdepth;
  r.smartIn.pre_render_data = r.preOut.pre_render_data;
  fillSmartRenderCallbacks(r.smartCb);
  r.smartExtra = PF_SmartRenderExtra{&r.smartIn, &r.smartCb};
  return run(PF_Cmd_SMART_RENDER, &r.smartExtra);
}

PF_Err Host::Impl::legacyRender() {
  beginRender();
  setLayerGeometry();
  RenderState& r = render;
  const std::shared_ptr<const Clip>& layer = clipOf(0);
  const int k = frameAt(*layer, in.current_time, in.time_step, in.time_scale);
  LentWorldInfo info;
  info.kind = LentWorldInfo::Kind::InputParam;
  info.frame = k;
  LentWorld* input = lendFrame(*layer, k, info);
  if (!input) throw std::bad_alloc();
  r.input = input;
  const A_long dephault = live[0].u.ld.dephault;
  live[0].u.ld = input->world;
  live[0].u.ld.dephault = dephault;
  LentWorld* output =
      lendOutput(input->world.width, input->world.height, input->world.origin_x, input->world.origin_y);
  if (!output) throw std::bad_alloc();
  return run(PF_Cmd_RENDER, nullptr, &output->world);
}

void Host::Impl::afterPixels(PF_Cmd cmd) {
  checkLentWorlds();
  if (cmd != PF_Cmd_SMART_RENDER) return;
  for (const auto& [id, pc] : render.requested)
    if (pc.out > 0)
      addBreak("pixels of checkout id " + std::to_string(id) + " not checked in");
  if (render.preRenderData) {
    auto storeLock = handles.guard();
    const HandleStore::Block* b = handles.find(render.preRenderData);
    if (b && b->locks > 0)
      addBreak("pre-render data handle " + handleLabel(*this, render.preRenderData) +
               " left locked at the end of the smart render (lock count " +
               std::to_string(b->locks) + ")");
  }
}

void Host::Impl::endRender() {
  context = "end of render";
  discardPreRenderData();
  auto storeLock = handles.guard();
  for (HandleStore::Block* b : handles.live()) {
    if (b->maker != this) continue;
    if (!b->byHost && !b->leakReported)
      addBreak("handle #" + std::to_string(b->id) + " (" + std::to_string(b->size) +
               " bytes) made by the effect was never disposed");
    handles.dispose(&b->master);
  }
  for (auto& [world, rec] : worlds)
    if (rec.byEffect)
      addBreak("world " + std::to_string(rec.width) + "x" + std::to_string(rec.height) +
               " made by the effect was never disposed");
  if (!blocks.empty())
    addBreak(std::to_string(blocks.size()) + " SPBasic block(s) allocated and never freed");
  context = "outside any command";
}

void Host::Impl::applyControls(const ControlValues& values) {
  for (const auto& [id, value] : values) {
    PF_ParamDef* def = nullptr;
    for (size_t i = 1; i < live.size(); ++i)
      if (live[i].uu.id == id) def = &live[i];
    if (!def) throw std::invalid_argument("no control with id " + std::to_string(id));
    switch (def->param_type) {
      case PF_Param_FIX_SLIDER:
      case PF_Param_ANGLE:
        // 16.16, to the nearest step, halves away from zero.
        def->u.fd.value = static_cast<PF_Fixed>(std::llround(value * 65536.0));
        break;
      case PF_Param_FLOAT_SLIDER:
        def->u.fs_d.value = value;
        break;
      case PF_Param_SLIDER:
        def->u.sd.value = static_cast<A_long>(std::lround(value));
        break;
      case PF_Param_POPUP:
        def->u.pd.value = static_cast<A_long>(std::lround(value));
        break;
      case PF_Param_CHECKBOX:
        def->u.bd.value = value != 0.0;
        break;
      default:
        throw std::invalid_argument("control " + std::to_string(id) +
                                    " takes no value (layer, button, group or custom)");
    }
  }
}

// ---------------------------------------------------------------- Host: one command at a time

void Host::setLayerClip(PF_ParamIndex index, std::shared_ptr<const Clip> clip) {
  if (!impl_->validIndex(index) || impl_->live[static_cast<size_t>(index)].param_type != PF_Param_LAYER)
    throw std::invalid_argument("parameter " + std::to_string(index) + " is not a layer");
  impl_->render.clips[index] = std::move(clip);
}

void Host::setMaskClip(std::shared_ptr<const Clip> clip) {
  const PF_ParamIndex index = impl_->maskIndex();
  if (index < 0) throw std::logic_error("the effect added no layer parameter");
  impl_->render.clips[index] = std::move(clip);
}

PF_ParamIndex Host::maskParamIndex() const { return impl_->maskIndex(); }
void Host::setRenderDepth(Depth depth) { impl_->render.depth = depth; }
void Host::setGuardWorlds(bool on) { impl_->render.guardWorlds = on; }
void Host::setPremiereOutputFormat(std::optional<A_long> format) {
  impl_->render.premiereFormat = format;
}

PF_Err Host::preRender() { return impl_->preRender(nullptr); }
PF_Err Host::preRender(const PF_RenderRequest& request) { return impl_->preRender(&request); }
PF_Err Host::smartRender() { return impl_->smartRender(); }
PF_Err Host::legacyRender() { return impl_->legacyRender(); }

const std::vector<LayerCheckout>& Host::layerCheckouts() const { return impl_->render.checkouts; }
int Host::toleratedNotices() const { return static_cast<int>(impl_->render.notices.size()); }
const std::vector<std::string>& Host::toleratedNoticeTexts() const { return impl_->render.notices; }
PF_Handle Host::preRenderData() const { return impl_->render.preRenderData; }
const PF_PreRenderOutput& Host::preRenderOutput() const { return impl_->render.preOut; }

PF_EffectWorld* Host::outputWorld() {
  return impl_->render.output ? &impl_->render.output->world : nullptr;
}

PF_EffectWorld* Host::inputWorld() {
  return impl_->render.input ? &impl_->render.input->world : nullptr;
}

PF_EffectWorld* Host::checkoutWorld(A_long checkoutId) {
  auto it = impl_->render.requested.find(checkoutId);
  if (it == impl_->render.requested.end() || !it->second.world) return nullptr;
  return &it->second.world->world;
}

PF_EffectWorld* Host::maskWorld() {
  const PF_ParamIndex mask = impl_->maskIndex();
  if (mask < 0) return nullptr;
  PF_EffectWorld* found = nullptr;
  for (const auto& w : impl_->render.lent)
    if (w->info.layerIndex == mask && w->info.kind != LentWorldInfo::Kind::Output) found = &w->world;
  return found;
}

std::vector<LentWorldInfo> Host::lentWorlds() const {
  std::vector<LentWorldInfo> out;
  for (const auto& w : impl_->render.lent) out.push_back(w->info);
  return out;
}

// ---------------------------------------------------------------- RenderHost

struct RenderHost::Impl {
  explicit Impl(const Options& o) : options(o), host(o.pluginPath, o.app, o.version) {}
  Options options;
  Host host;
  PF_OutData globalOut{};
  bool setDown = false;
  std::atomic<int> inFlight{0};
  std::mutex alignMutex;
  std::vector<std::string> alignBreaks;
};

namespace {

void mustSucceed(PF_Err err, const char* what) {
  if (err != PF_Err_NONE)
    throw std::runtime_error(std::string(what) + " failed with error " + std::to_string(err));
}

Image imageOf(const PF_EffectWorld& world, Depth depth) {
  Image img(world.width, world.height, depth);
  img.originX = world.origin_x;
  img.originY = world.origin_y;
  const size_t used = static_cast<size_t>(world.width) * static_cast<size_t>(bytesPerPixel(depth));
  const auto* base = reinterpret_cast<const uint8_t*>(world.data);
  for (int y = 0; y < world.height; ++y)
    std::memcpy(img.row(y), base + static_cast<size_t>(y) * static_cast<size_t>(world.rowbytes),
                used);
  return img;
}

}  // namespace

RenderHost::RenderHost(Options options) : impl_(std::make_unique<Impl>(options)) {
  Host& h = impl_->host;
  h.setGuardWorlds(options.guardWorlds);
  if (h.registerPlugin() != A_Err_NONE) throw std::runtime_error("registration failed");
  mustSucceed(h.globalSetup(), "global setup");
  impl_->globalOut = h.outData();
  mustSucceed(h.paramsSetup(), "parameter setup");
  mustSucceed(h.sequenceSetup(), "sequence setup");
  h.clearCalls();
}

RenderHost::~RenderHost() {
  if (!impl_->setDown) finalBreaks();
}

namespace {

// A render record's clips, time, factors and controls from the request; its
// output goes into the caller's image when one is named.
void setUpRecord(Host::Impl& d, const RenderRequest& request) {
  RenderState& r = d.render;
  // At a reduced resolution every layer is lent at that resolution.
  const bool reduced =
      ScaledClip::reduces(request.downsampleX) || ScaledClip::reduces(request.downsampleY);
  auto atResolution = [&](const std::shared_ptr<const Clip>& clip) -> std::shared_ptr<const Clip> {
    if (!reduced) return clip;
    return std::make_shared<ScaledClip>(clip, request.downsampleX, request.downsampleY);
  };
  r.clips[0] = atResolution(request.layer);
  if (request.mask) {
    const PF_ParamIndex mask = d.maskIndex();
    if (mask < 0) throw std::invalid_argument("the effect has no layer parameter for a mask");
    r.clips[mask] = atResolution(request.mask);
  }
  d.in.time_scale = request.time.timeScale;
  d.in.time_step = request.time.timeStep;
  d.in.local_time_step = request.time.timeStep;
  d.in.current_time = static_cast<A_long>(request.frame) * request.time.timeStep;
  d.in.downsample_x = request.downsampleX;
  d.in.downsample_y = request.downsampleY;
  d.applyControls(request.controls);
  if (!request.into) return;
  const Clip& layer = *r.clips[0];
  const auto first =
      layer.frame(d.frameAt(layer, d.in.current_time, d.in.time_step, d.in.time_scale), r.depth);
  const Image& into = *request.into;
  if (into.width != first->width || into.height != first->height || into.depth != r.depth ||
      into.rowbytes < static_cast<std::ptrdiff_t>(into.width) * bytesPerPixel(r.depth))
    throw std::invalid_argument("the output image must match the layer frame's size and depth");
  r.into = request.into;
}

// What the effect drew, into the caller's image or the result.
void takeOutput(RenderState& r, const RenderRequest& request, RenderResult& result) {
  if (r.output && r.output->borrowed) {
    // The effect wrote into the caller's image or the one made for the result.
    if (r.ownOutput) result.output = std::move(*r.ownOutput);
  } else if (r.output) {
    if (r.into) {
      Image out = imageOf(r.output->world, r.depth);
      for (int y = 0; y < out.height; ++y)
        std::memcpy(request.into->row(y), out.row(y),
                    static_cast<size_t>(out.width) * static_cast<size_t>(bytesPerPixel(r.depth)));
    } else {
      result.output = imageOf(r.output->world, r.depth);
    }
  }
}

}  // namespace

RenderResult RenderHost::render(const RenderRequest& request) const {
  if (impl_->setDown) throw std::logic_error("the render host was set down");
  if (!request.layer) throw std::invalid_argument("a render request needs the effect's layer");
  if (request.time.timeScale == 0 || request.time.timeStep <= 0)
    throw std::invalid_argument("time base needs a positive time scale and time step");
  const Options& o = impl_->options;
  auto record = std::make_unique<Host::Impl>(*impl_->host.impl_, o.recordCalls);
  Host::Impl& d = *record;
  RenderState& r = d.render;
  r.depth = request.depth;
  r.guardWorlds = o.guardWorlds;
  r.outputPool = request.outputPool;
  setUpRecord(d, request);

  // Several frames at once only for an effect that says it can take them.
  struct InFlight {
    std::atomic<int>& n;
    int others;
    explicit InFlight(std::atomic<int>& count) : n(count), others(count.fetch_add(1)) {}
    ~InFlight() { n.fetch_sub(1); }
  } inFlight(impl_->inFlight);
  if (inFlight.others > 0 &&
      !(impl_->globalOut.out_flags2 & PF_OutFlag2_SUPPORTS_THREADED_RENDERING))
    d.addBreak("a frame rendered while " + std::to_string(inFlight.others) +
               " other(s) were rendering, but the effect does not declare "
               "PF_OutFlag2_SUPPORTS_THREADED_RENDERING");

  RenderResult result;
  if (o.app == App::PremierePro ||
      !(impl_->globalOut.out_flags2 & PF_OutFlag2_SUPPORTS_SMART_RENDER)) {
    if (o.app == App::PremierePro) {
      const A_long wanted = premiereArgbFormat(r.depth);
      bool announced = false;
      for (PrPixelFormat f : d.pixelFormats) announced = announced || f == wanted;
      if (!announced)
        throw std::invalid_argument("Premiere Pro renders only in pixel formats the effect announced");
    }
    // Without SmartFX, After Effects too renders with PF_Cmd_RENDER.
    result.err = d.legacyRender();
  } else {
    result.err = d.preRender(nullptr);
    if (result.err == PF_Err_NONE) result.err = d.smartRender();
  }
  takeOutput(r, request, result);
  d.endRender();
  result.breaks = d.breaks;
  result.toleratedNotices = static_cast<int>(r.notices.size());
  result.calls = d.log.calls();
  return result;
}

std::pair<double, double> RenderHost::align(double blockWidth, double blockHeight, A_long width,
                                            A_long height) {
  if (impl_->setDown) throw std::logic_error("the render host was set down");
  auto record = std::make_unique<Host::Impl>(*impl_->host.impl_, false);
  Host::Impl& d = *record;
  PF_ParamIndex button = -1, bw = -1, bh = -1;
  for (size_t i = 1; i < d.live.size(); ++i) {
    const PF_ParamDef& def = d.live[i];
    const std::string name = def.name;
    if (def.param_type == PF_Param_BUTTON && d.added[i - 1].namesText == "Align") button = static_cast<PF_ParamIndex>(i);
    if (def.param_type == PF_Param_FIX_SLIDER && name == "Block Width") bw = static_cast<PF_ParamIndex>(i);
    if (def.param_type == PF_Param_FIX_SLIDER && name == "Block Height") bh = static_cast<PF_ParamIndex>(i);
  }
  if (button < 0 || bw < 0 || bh < 0)
    throw std::logic_error("the effect has no \"Align\" button with block width and height");
  d.in.width = width;
  d.in.height = height;
  d.in.extent_hint = PF_LRect{0, 0, width, height};
  d.live[static_cast<size_t>(bw)].u.fd.value = static_cast<PF_Fixed>(std::llround(blockWidth * 65536.0));
  d.live[static_cast<size_t>(bh)].u.fd.value = static_cast<PF_Fixed>(std::llround(blockHeight * 65536.0));
  PF_UserChangedParamExtra extra{button};
  const PF_Err err = d.run(PF_Cmd_USER_CHANGED_PARAM, &extra);
  d.endRender();
  {
    std::lock_guard<std::mutex> lock(impl_->alignMutex);
    impl_->alignBreaks.insert(impl_->alignBreaks.end(), d.breaks.begin(), d.breaks.end());
  }
  mustSucceed(err, "Align");
  return {d.live[static_cast<size_t>(bw)].u.fd.value / 65536.0,
          d.live[static_cast<size_t>(bh)].u.fd.value / 65536.0};
}

const std::vector<AddedParam>& RenderHost::controls() const { return impl_->host.addedParams(); }
const Registration& RenderHost::registration() const { return impl_->host.registration(); }
A_long RenderHost::version() const { return impl_->globalOut.my_version; }
PF_OutFlags RenderHost::outFlags() const { return impl_->globalOut.out_flags; }
PF_OutFlags2 RenderHost::outFlags2() const { return impl_->globalOut.out_flags2; }

std::vector<std::string> RenderHost::finalBreaks() {
  Host& h = impl_->host;
  if (!impl_->setDown) {
    impl_->setDown = true;
    h.sequenceSetdown();
    h.globalSetdown();
    h.finish();
  }
  std::vector<std::string> all = h.contractBreaks();
  std::lock_guard<std::mutex> lock(impl_->alignMutex);
  all.insert(all.end(), impl_->alignBreaks.begin(), impl_->alignBreaks.end());
  return all;
}

}  // namespace thost
