// The SmartFX callbacks: checkout_layer in pre-render, the pixel checkouts
// and the output in smart render. They find their render through effect_ref.
#include <algorithm>
#include <string>

#include "impl.h"

namespace thost {

using Impl = Host::Impl;

namespace {

constexpr char kPreRender[] = "PF_PreRenderCallbacks";
constexpr char kSmartRender[] = "PF_SmartRenderCallbacks";

bool inCommand(Impl& h, PF_Cmd cmd, const char* fn) {
  if (h.currentCmd == cmd) return true;
  h.addBreak(std::string(fn) + " called outside " + commandName(cmd));
  return false;
}

PF_LRect frameRect(const Image& image) {
  return PF_LRect{image.originX, image.originY, image.originX + image.width,
                  image.originY + image.height};
}

PF_LRect intersect(const PF_LRect& a, const PF_LRect& b) {
  PF_LRect r{std::max(a.left, b.left), std::max(a.top, b.top), std::min(a.right, b.right),
             std::min(a.bottom, b.bottom)};
  if (r.left >= r.right || r.top >= r.bottom) r = PF_LRect{0, 0, 0, 0};
  return r;
}

PF_Err checkoutLayer(PF_ProgPtr ref, PF_ParamIndex index, A_long checkoutId,
                     const PF_RenderRequest* request, A_long time, A_long step, A_u_long scale,
                     PF_CheckoutResult* result) {
  Impl* h = Impl::fromRef(ref, "checkout_layer");
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  auto fail = h->enter("checkout_layer",
                       std::to_string(index) + "," + std::to_string(checkoutId) + "," +
                           std::to_string(time) + "," + std::to_string(step) + "," +
                           std::to_string(scale),
                       kPreRender);
  if (!inCommand(*h, PF_Cmd_SMART_PRE_RENDER, "checkout_layer")) return PF_Err_BAD_CALLBACK_PARAM;
  if (!request || !result) {
    h->addBreak("checkout_layer without a request or a result record");
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  if (fail) return *fail;
  if (!h->validIndex(index) || h->live[static_cast<size_t>(index)].param_type != PF_Param_LAYER) {
    h->addBreak("checkout_layer of parameter " + std::to_string(index) + ", which is not a layer");
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  if (scale == 0 || step <= 0) {
    h->addBreak("checkout_layer with time step " + std::to_string(step) + " and time scale " +
                std::to_string(scale));
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  RenderState& r = h->render;
  if (r.requested.count(checkoutId)) {
    h->addBreak("checkout_layer: checkout id " + std::to_string(checkoutId) +
                " asked for twice in one pre-render");
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  *result = PF_CheckoutResult{};
  result->par = PF_RationalScale{1, 1};
  PixelCheckout pc;
  pc.layer = index;
  const std::shared_ptr<const Clip>& clip = h->clipOf(index);
  if (clip) {
    pc.frame = h->frameAt(*clip, time, step, scale);
    if (pc.frame >= 0) {
      const auto image = clip->frame(pc.frame, r.depth);
      const PF_LRect whole = frameRect(*image);
      result->result_rect = intersect(whole, request->rect);
      result->max_result_rect = whole;
      result->ref_width = image->width;
      result->ref_height = image->height;
    }
  }
  r.requested[checkoutId] = pc;
  r.checkouts.push_back(LayerCheckout{checkoutId, index, time, step, scale, pc.frame});
  return PF_Err_NONE;
}

PF_Err guidMixIn(PF_ProgPtr ref, A_u_long bytes, const void*) {
  Impl* h = Impl::fromRef(ref, "GuidMixInPtr");
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  if (auto f = h->enter("GuidMixInPtr", std::to_string(bytes), kPreRender)) return *f;
  inCommand(*h, PF_Cmd_SMART_PRE_RENDER, "GuidMixInPtr");
  return PF_Err_NONE;
}

PF_Err checkoutLayerPixels(PF_ProgPtr ref, A_long checkoutId, PF_EffectWorld** pixels) {
  Impl* h = Impl::fromRef(ref, "checkout_layer_pixels");
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  auto fail = h->enter("checkout_layer_pixels", std::to_string(checkoutId), kSmartRender);
  if (!inCommand(*h, PF_Cmd_SMART_RENDER, "checkout_layer_pixels")) return PF_Err_BAD_CALLBACK_PARAM;
  if (!pixels) {
    h->addBreak("checkout_layer_pixels without a world pointer to fill");
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  *pixels = nullptr;
  if (fail) return *fail;
  RenderState& r = h->render;
  auto it = r.requested.find(checkoutId);
  if (it == r.requested.end()) {
    h->addBreak("checkout_layer_pixels of checkout id " + std::to_string(checkoutId) +
                ", which the pre-render did not ask for");
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  PixelCheckout& pc = it->second;
  if (pc.out > 0) {
    h->addBreak("checkout_layer_pixels of checkout id " + std::to_string(checkoutId) +
                " while its pixels are still checked out");
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  ++pc.out;
  if (pc.frame < 0) return PF_Err_NONE;  // the parameter names no layer: no pixels, no error
  if (!pc.world) {
    LentWorldInfo info;
    info.kind = LentWorldInfo::Kind::LayerPixels;
    info.layerIndex = pc.layer;
    info.checkoutId = checkoutId;
    info.frame = pc.frame;
    pc.world = h->lendFrame(*h->clipOf(pc.layer), pc.frame, info);
    if (!pc.world) {
      --pc.out;
      return PF_Err_OUT_OF_MEMORY;
    }
    if (checkoutId == 0 && pc.layer == 0) r.input = pc.world;
  }
  *pixels = &pc.world->world;
  return PF_Err_NONE;
}

PF_Err checkinLayerPixels(PF_ProgPtr ref, A_long checkoutId) {
  Impl* h = Impl::fromRef(ref, "checkin_layer_pixels");
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  auto fail = h->enter("checkin_layer_pixels", std::to_string(checkoutId), kSmartRender);
  if (!inCommand(*h, PF_Cmd_SMART_RENDER, "checkin_layer_pixels")) return PF_Err_BAD_CALLBACK_PARAM;
  auto it = h->render.requested.find(checkoutId);
  if (it == h->render.requested.end() || it->second.out == 0) {
    h->addBreak("checkin_layer_pixels of checkout id " + std::to_string(checkoutId) +
                ", whose pixels are not checked out");
    return fail ? *fail : PF_Err_BAD_CALLBACK_PARAM;
  }
  // The effect has given the layer back even when the host then reports an error.
  --it->second.out;
  return fail ? *fail : PF_Err_NONE;
}

PF_Err checkoutOutput(PF_ProgPtr ref, PF_EffectWorld** output) {
  Impl* h = Impl::fromRef(ref, "checkout_output");
  if (!h) return PF_Err_BAD_CALLBACK_PARAM;
  auto fail = h->enter("checkout_output", "", kSmartRender);
  if (!inCommand(*h, PF_Cmd_SMART_RENDER, "checkout_output")) return PF_Err_BAD_CALLBACK_PARAM;
  if (!output) {
    h->addBreak("checkout_output without a world pointer to fill");
    return PF_Err_BAD_CALLBACK_PARAM;
  }
  *output = nullptr;
  if (fail) return *fail;
  if (!h->render.output) return PF_Err_OUT_OF_MEMORY;
  ++h->render.outputCheckouts;
  *output = &h->render.output->world;
  return PF_Err_NONE;
}

}  // namespace

void fillPreRenderCallbacks(PF_PreRenderCallbacks& cb) {
  cb.checkout_layer = checkoutLayer;
  cb.GuidMixInPtr = guidMixIn;
}

void fillSmartRenderCallbacks(PF_SmartRenderCallbacks& cb) {
  cb.checkout_layer_pixels = checkoutLayerPixels;
  cb.checkin_layer_pixels = checkinLayerPixels;
  cb.checkout_output = checkoutOutput;
}

}  // namespace thost
