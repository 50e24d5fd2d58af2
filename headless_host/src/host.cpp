// The Host: composition settings, command sending, and the contract checks
// made around every command.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "impl.h"

#ifndef THOST_DEFAULT_PLUGIN
#define THOST_DEFAULT_PLUGIN "tesselux.so"
#endif

namespace thost {

std::string commandName(PF_Cmd cmd) {
  static const char* const kNames[] = {"PF_Cmd_ABOUT",
                                       "PF_Cmd_GLOBAL_SETUP",
                                       "PF_Cmd_UNUSED_0",
                                       "PF_Cmd_GLOBAL_SETDOWN",
                                       "PF_Cmd_PARAMS_SETUP",
                                       "PF_Cmd_SEQUENCE_SETUP",
                                       "PF_Cmd_SEQUENCE_RESETUP",
                                       "PF_Cmd_SEQUENCE_FLATTEN",
                                       "PF_Cmd_SEQUENCE_SETDOWN",
                                       "PF_Cmd_DO_DIALOG",
                                       "PF_Cmd_FRAME_SETUP",
                                       "PF_Cmd_RENDER",
                                       "PF_Cmd_FRAME_SETDOWN",
                                       "PF_Cmd_USER_CHANGED_PARAM",
                                       "PF_Cmd_UPDATE_PARAMS_UI",
                                       "PF_Cmd_EVENT",
                                       "PF_Cmd_GET_EXTERNAL_DEPENDENCIES",
                                       "PF_Cmd_COMPLETELY_GENERAL",
                                       "PF_Cmd_QUERY_DYNAMIC_FLAGS",
                                       "PF_Cmd_AUDIO_RENDER",
                                       "PF_Cmd_AUDIO_SETUP",
                                       "PF_Cmd_AUDIO_SETDOWN",
                                       "PF_Cmd_ARBITRARY_CALLBACK",
                                       "PF_Cmd_SMART_PRE_RENDER",
                                       "PF_Cmd_SMART_RENDER",
                                       "PF_Cmd_RESERVED1",
                                       "PF_Cmd_RESERVED2",
                                       "PF_Cmd_RESERVED3",
                                       "PF_Cmd_GET_FLATTENED_SEQUENCE_DATA",
                                       "PF_Cmd_TRANSLATE_PARAMS_TO_PREFS",
                                       "PF_Cmd_RESERVED4",
                                       "PF_Cmd_SMART_RENDER_GPU",
                                       "PF_Cmd_GPU_DEVICE_SETUP",
                                       "PF_Cmd_GPU_DEVICE_SETDOWN"};
  if (cmd >= 0 && static_cast<size_t>(cmd) < sizeof kNames / sizeof kNames[0]) return kNames[cmd];
  return "PF_Cmd_" + std::to_string(cmd);
}

// ---------------------------------------------------------------- Impl

Host::Impl::Impl(std::shared_ptr<PluginModule> m, App a, ApiVersion v)
    : token{kTokenMagic, this},
      module(std::move(m)),
      app(a),
      handleStore(std::make_shared<HandleStore>()),
      handles(*handleStore),
      blockPool(std::make_shared<BlockPool>()) {
  fillUtilCallbacks(utils);
  fillInteractCallbacks(in.inter);
  fillBasicSuite(basic);
  in.utils = &utils;
  in.effect_ref = effectRef();
  in.quality = PF_Quality_HI;
  in.version.major = v.major;
  in.version.minor = v.minor;
  in.serial_num = 1;
  in.appl_id = a == App::PremierePro ? PF_APPL_ID_PREMIERE : PF_APPL_ID_AFTER_EFFECTS;
  in.num_params = 1;
  in.current_time = 0;
  in.time_step = 100;
  in.local_time_step = 100;
  in.total_time = 30000;
  in.time_scale = 3000;
  in.field = PF_Field_FRAME;
  in.shutter_angle = 180 << 16;
  in.width = 1920;
  in.height = 1080;
  in.extent_hint = PF_LRect{0, 0, 1920, 1080};
  in.downsample_x = PF_RationalScale{1, 1};
  in.downsample_y = PF_RationalScale{1, 1};
  in.pixel_aspect_ratio = PF_RationalScale{1, 1};
  in.pica_basicP = &basic;

  ctx.magic = PF_CONTEXT_MAGIC;
  ctx.w_type = PF_Window_EFFECT;
  ctx.reserved_drawref = drawRef();

  resetParams();
  surface.width = 320;
  surface.height = 40;
  clearSurface();
}

Host::Impl::Impl(const Impl& setUp, bool recordCalls)
    : token{kTokenMagic, this},
      module(setUp.module),
      app(setUp.app),
      renderRecord(true),
      in(setUp.in),
      handleStore(setUp.handleStore),
      handles(*handleStore),
      blockPool(setUp.blockPool),
      sequence(setUp.sequence),
      numParams(setUp.numParams),
      suites(setUp.suites.forRender()),
      added(setUp.added),
      live(setUp.live),
      ui(setUp.ui),
      pixelFormats(setUp.pixelFormats) {
  fillUtilCallbacks(utils);
  fillInteractCallbacks(in.inter);
  fillBasicSuite(basic);
  in.utils = &utils;
  in.effect_ref = effectRef();
  in.pica_basicP = &basic;
  log.copyFailures(setUp.log);
  log.setRecording(recordCalls);
  render.guardWorlds = setUp.render.guardWorlds;
  ctx.magic = PF_CONTEXT_MAGIC;
  ctx.w_type = PF_Window_EFFECT;
  ctx.reserved_drawref = drawRef();
  rebuildParamPointers();
  // The popup and label strings of `live` stay those of the set-up host.
}

Host::Impl::~Impl() {
  for (void* b : blocks) std::free(b);
}

Host::Impl* Host::Impl::fromRef(PF_ProgPtr ref, const char* fn) {
  Impl* cur = CurrentHost::get();
  if (cur) {
    if (ref == cur->effectRef()) return cur;
    cur->addBreak(std::string(fn) + ": effect_ref is not the one the host passed");
    return nullptr;
  }
  const auto* tok = reinterpret_cast<const Token*>(ref);
  if (!tok || tok->magic != kTokenMagic) {
    std::fprintf(stderr, "thost: %s called outside any command with an unknown effect_ref\n", fn);
    return nullptr;
  }
  tok->impl->addBreak(std::string(fn) + " called outside any command");
  return tok->impl;
}

Host::Impl* Host::Impl::current(const char* fn) {
  Impl* cur = CurrentHost::get();
  if (!cur) std::fprintf(stderr, "thost: %s called outside any command of a host; refused\n", fn);
  return cur;
}

std::optional<PF_Err> Host::Impl::enter(const char* fn, std::string args, const char* via) {
  log.record(fn, std::move(args), via);
  return log.failure(fn);
}

void Host::Impl::addBreak(const std::string& text) { breaks.push_back(context + ": " + text); }

void Host::Impl::resetParams() {
  added.clear();
  live.clear();
  ownedStrings.clear();
  ui.clear();
  numParams = 0;
  PF_ParamDef layer{};
  layer.param_type = PF_Param_LAYER;
  live.push_back(layer);
  rebuildParamPointers();
}

void Host::Impl::rebuildParamPointers() {
  livePointers.clear();
  for (PF_ParamDef& def : live) livePointers.push_back(&def);
}

bool Host::Impl::ownsHandle(PF_Handle h) const { return h && (h == sequence || h == flatCopy); }

void Host::Impl::disposeFlatCopy() {
  if (flatCopy && handles.find(flatCopy)) handles.dispose(flatCopy);
  flatCopy = nullptr;
}

void Host::Impl::clearSurface() {
  surface.bgra.assign(static_cast<size_t>(surface.width) * surface.height * 4, Host::kPanelGrey);
  for (size_t i = 3; i < surface.bgra.size(); i += 4) surface.bgra[i] = 255;
}

void Host::Impl::beforeCommand(PF_Cmd cmd, void* extra) {
  ++commandSerial;
  currentCmd = cmd;
  inCommand = true;
  context = commandName(cmd);
  if (cmd == PF_Cmd_PARAMS_SETUP) resetParams();
  if (cmd == PF_Cmd_EVENT && extra && static_cast<PF_EventExtra*>(extra)->e_type == PF_Event_DRAW)
    clearSurface();
  disposeFlatCopy();
  if (cmd == PF_Cmd_GET_FLATTENED_SEQUENCE_DATA) flattened.clear();
  in.sequence_data = sequence;
  in.num_params = numParams > 0 ? numParams : static_cast<A_long>(live.size());
  std::memset(&out, 0, sizeof out);
  out.sequence_data = outSequencePreset;
  rebuildParamPointers();
}

void Host::Impl::takeSequenceData(PF_Cmd cmd) {
  PF_Handle returned = out.sequence_data;
  if (outSequencePreset && returned == outSequencePreset) returned = nullptr;  // left alone
  outSequencePreset = nullptr;
  switch (cmd) {
    case PF_Cmd_SEQUENCE_SETUP:
    case PF_Cmd_SEQUENCE_RESETUP:
    case PF_Cmd_SEQUENCE_FLATTEN:
      if (returned && returned != sequence) {
        if (handles.find(returned))
          sequence = returned;
        else
          addBreak("out_data->sequence_data is not a live host handle; ignored");
      }
      break;
    case PF_Cmd_GET_FLATTENED_SEQUENCE_DATA:
      if (returned && returned != sequence) {
        HandleStore::Block* b = handles.find(returned);
        if (!b) {
          addBreak("out_data->sequence_data is not a live host handle; ignored");
          break;
        }
        if (b->locks > 0)
          addBreak("flattened sequence handle " + handleLabel(*this, returned) +
                   " left locked (lock count " + std::to_string(b->locks) + ")");
        if (b->master) flattened.assign(b->master, b->master + b->size);
        flatCopy = returned;
      }
      break;
    case PF_Cmd_SEQUENCE_SETDOWN:
      sequence = nullptr;
      break;
    default:
      break;
  }
  if (sequence && !handles.find(sequence)) {
    addBreak("the instance's sequence handle was disposed and not replaced");
    sequence = nullptr;
  }
  if (sequence) {
    auto storeLock = handles.guard();
    const HandleStore::Block* b = handles.find(sequence);
    if (b->locks > 0)
      addBreak("sequence handle " + handleLabel(*this, sequence) + " left locked (lock count " +
               std::to_string(b->locks) + ")");
  }
}

void Host::Impl::endOfCommandChecks() {
  for (const auto& [key, n] : suites.takeHeld())
    addBreak("suite \"" + key.first + "\" version " + std::to_string(key.second) +
             " still acquired at the end of the command (" + std::to_string(n) +
             (n == 1 ? " acquisition" : " acquisitions") + " not released)");
  // Two checkouts are left out by design and only counted: values read
  // through checkout_param in the SmartFX commands (there is no parameter
  // array), and the effect's own layer (index 0) in PF_Cmd_RENDER.
  for (const auto& checkout : checkouts) {
    const PF_ParamIndex index = checkout.second;
    const bool layer = validIndex(index) && live[static_cast<size_t>(index)].param_type == PF_Param_LAYER;
    const bool smart = currentCmd == PF_Cmd_SMART_PRE_RENDER || currentCmd == PF_Cmd_SMART_RENDER;
    if ((smart && !layer) || (currentCmd == PF_Cmd_RENDER && index == 0))
      render.notices.push_back(context + ": parameter " + std::to_string(index) +
                               " checked out and not checked in (tolerated)");
    else
      addBreak("parameter " + std::to_string(index) + " checked out and not checked in");
  }
  checkouts.clear();
  for (const auto& [ref, image] : images)
    addBreak("Drawbot image " + std::to_string(image->width) + "x" + std::to_string(image->height) +
             " not released");
  images.clear();
  for (const auto& [ref, n] : hostObjectRetains) {
    if (n <= 0) continue;
    const char* kind = ref == static_cast<const void*>(&drawTag)       ? "draw reference"
                       : ref == static_cast<const void*>(&supplierTag) ? "supplier"
                                                                        : "surface";
    addBreak(std::string("Drawbot ") + kind + " retained and not released (" + std::to_string(n) +
             (n == 1 ? " time)" : " times)"));
  }
  hostObjectRetains.clear();
}

void Host::Impl::reportLeaks() {
  for (HandleStore::Block* b : handles.live()) {
    if (b->byHost || b->leakReported || ownsHandle(&b->master)) continue;
    b->leakReported = true;
    addBreak("handle #" + std::to_string(b->id) + " (" + std::to_string(b->size) +
             " bytes) made by the effect was never disposed");
  }
}

// Render commands keep nothing the effect made: a handle made in one of them
// and still alive at its end is a leak (the pre-render data was handed over).
void Host::Impl::reportCommandLeaks() {
  auto storeLock = handles.guard();
  for (HandleStore::Block* b : handles.live()) {
    if (b->maker != this || b->command != commandSerial || b->byHost || b->leakReported) continue;
    b->leakReported = true;
    addBreak("handle #" + std::to_string(b->id) + " (" + std::to_string(b->size) +
             " bytes) made by the effect in this command was never disposed");
  }
}

void Host::Impl::afterCommand(PF_Cmd cmd, void* extra, PF_Err err, bool threw) {
  if (cmd == PF_Cmd_PARAMS_SETUP) {
    numParams = out.num_params;
    if (!threw && err == PF_Err_NONE && out.num_params != static_cast<A_long>(live.size()))
      addBreak("out_data->num_params is " + std::to_string(out.num_params) + " but the effect added " +
               std::to_string(live.size() - 1) + " parameters (plus the input layer)");
  }
  if (cmd == PF_Cmd_GLOBAL_SETUP && !threw && err == PF_Err_NONE) checkPiPLFlags();
  takeSequenceData(cmd);
  if (cmd == PF_Cmd_EVENT && extra) lastEvent = *static_cast<PF_EventExtra*>(extra);
  if (cmd == PF_Cmd_SMART_PRE_RENDER) adoptPreRenderData();
  if (cmd == PF_Cmd_SMART_RENDER || cmd == PF_Cmd_RENDER) afterPixels(cmd);
  endOfCommandChecks();
  if (cmd == PF_Cmd_SMART_PRE_RENDER || cmd == PF_Cmd_SMART_RENDER || cmd == PF_Cmd_RENDER)
    reportCommandLeaks();
  if (cmd == PF_Cmd_SEQUENCE_SETDOWN) reportLeaks();
  inCommand = false;
  currentCmd = -1;
  context = "outside any command";
}

// ---------------------------------------------------------------- Host

std::string Host::defaultPluginPath() {
  const char* env = std::getenv("TESSELUX_PLUGIN");
  if (env && *env) return env;
  return THOST_DEFAULT_PLUGIN;
}

Host::Host(const std::string& pluginPath, App app, ApiVersion version)
    : impl_(std::make_unique<Impl>(std::make_shared<PluginModule>(pluginPath), app, version)) {}

Host::~Host() {
  finish();
  for (const std::string& line : impl_->breaks)
    std::fprintf(stderr, "thost: contract break: %s\n", line.c_str());
}

void Host::setApp(App app) {
  impl_->app = app;
  impl_->in.appl_id = app == App::PremierePro ? PF_APPL_ID_PREMIERE : PF_APPL_ID_AFTER_EFFECTS;
}

void Host::setApiVersion(A_short major, A_short minor) {
  impl_->in.version.major = major;
  impl_->in.version.minor = minor;
}

App Host::app() const { return impl_->app; }

void Host::setLayerSize(A_long width, A_long height) {
  impl_->in.width = width;
  impl_->in.height = height;
  impl_->in.extent_hint = PF_LRect{0, 0, width, height};
}

void Host::setTime(A_long current, A_long step, A_long total, A_u_long scale) {
  impl_->in.current_time = current;
  impl_->in.time_step = step;
  impl_->in.local_time_step = step;
  impl_->in.total_time = total;
  impl_->in.time_scale = scale;
}

void Host::setDownsample(PF_RationalScale x, PF_RationalScale y) {
  impl_->in.downsample_x = x;
  impl_->in.downsample_y = y;
}

A_Err Host::registerPlugin() {
  Impl& d = *impl_;
  d.context = "registration";
  d.inCommand = true;
  const std::string hostName = d.app == App::PremierePro ? "Premiere Pro" : "After Effects";
  const std::string hostVersion =
      std::to_string(d.in.version.major) + "." + std::to_string(d.in.version.minor);
  auto done = [&d] {
    d.checkPiPLRegistration();
    d.endOfCommandChecks();
    d.inCommand = false;
    d.context = "outside any command";
  };
  A_Err err = A_Err_NONE;
  try {
    CurrentHost::Scope scope(&d);
    err = d.module->dataEntry()(reinterpret_cast<PF_PluginDataPtr>(&d.token), registrationCallback,
                               &d.basic, hostName.c_str(), hostVersion.c_str());
  } catch (...) {
    done();
    throw;
  }
  done();
  return err;
}

const Registration& Host::registration() const { return impl_->registration; }

PF_Err Host::Impl::run(PF_Cmd cmd, void* extra, PF_LayerDef* output, PF_FilterProc entry) {
  if (!entry) entry = module->effectMain();
  beforeCommand(cmd, extra);
  const bool smart = cmd == PF_Cmd_SMART_PRE_RENDER || cmd == PF_Cmd_SMART_RENDER;
  PF_ParamDef** params = smart ? nullptr : livePointers.data();
  PF_Err err = PF_Err_NONE;
  try {
    CurrentHost::Scope scope(this);
    err = entry(cmd, &in, &out, params, output, extra);
  } catch (...) {
    afterCommand(cmd, extra, PF_Err_NONE, true);
    throw;
  }
  afterCommand(cmd, extra, err, false);
  return err;
}

PF_Err Host::send(PF_Cmd cmd, void* extra) { return impl_->run(cmd, extra); }

PF_Err Host::sendTo(PF_FilterProc entry, PF_Cmd cmd, void* extra) {
  if (!entry) throw std::invalid_argument("sendTo: no entry function");
  return impl_->run(cmd, extra, nullptr, entry);
}

PF_Err Host::about() { return send(PF_Cmd_ABOUT); }
PF_Err Host::globalSetup() { return send(PF_Cmd_GLOBAL_SETUP); }
PF_Err Host::globalSetdown() { return send(PF_Cmd_GLOBAL_SETDOWN); }
PF_Err Host::paramsSetup() { return send(PF_Cmd_PARAMS_SETUP); }
PF_Err Host::sequenceSetup() { return send(PF_Cmd_SEQUENCE_SETUP); }
PF_Err Host::sequenceResetup() { return send(PF_Cmd_SEQUENCE_RESETUP); }
PF_Err Host::sequenceFlatten() { return send(PF_Cmd_SEQUENCE_FLATTEN); }
PF_Err Host::getFlattenedSequenceData() { return send(PF_Cmd_GET_FLATTENED_SEQUENCE_DATA); }
PF_Err Host::sequenceSetdown() { return send(PF_Cmd_SEQUENCE_SETDOWN); }
PF_Err Host::updateParamsUI() { return send(PF_Cmd_UPDATE_PARAMS_UI); }

PF_Err Host::userChangedParam(PF_ParamIndex index) {
  PF_UserChangedParamExtra extra{index};
  return send(PF_Cmd_USER_CHANGED_PARAM, &extra);
}

PF_Err Host::click(PF_ParamIndex index, A_u_long when, PF_EffectArea area) {
  PF_EventExtra e{};
  e.contextH = contextHandle();
  e.e_type = PF_Event_DO_CLICK;
  e.u.do_click.when = when;
  e.u.do_click.num_clicks = 1;
  e.effect_win.index = index;
  e.effect_win.area = area;
  e.effect_win.current_frame = PF_LRect{0, 20, 320, 37};
  e.effect_win.param_title_frame = PF_LRect{0, 0, 320, 17};
  return send(PF_Cmd_EVENT, &e);
}

PF_Err Host::draw(PF_ParamIndex index, PF_EffectArea area, PF_LRect currentFrame,
                  PF_LRect titleFrame) {
  PF_EventExtra e{};
  e.contextH = contextHandle();
  e.e_type = PF_Event_DRAW;
  e.u.draw.update_rect = area == PF_EA_CONTROL ? currentFrame : titleFrame;
  e.u.draw.depth = 32;
  e.effect_win.index = index;
  e.effect_win.area = area;
  e.effect_win.current_frame = currentFrame;
  e.effect_win.param_title_frame = titleFrame;
  return send(PF_Cmd_EVENT, &e);
}

PF_Err Host::event(PF_EventExtra& extra) { return send(PF_Cmd_EVENT, &extra); }

const PF_EventExtra& Host::lastEvent() const { return impl_->lastEvent; }

PF_ContextH Host::contextHandle() { return &impl_->ctxPointer; }

PF_InData& Host::inData() { return impl_->in; }
PF_OutData& Host::outData() { return impl_->out; }
const PF_InData& Host::inData() const { return impl_->in; }
const PF_OutData& Host::outData() const { return impl_->out; }

std::string Host::returnMessage() const {
  const char* msg = impl_->out.return_msg;
  return std::string(msg, strnlen(msg, sizeof impl_->out.return_msg));
}

PF_Handle Host::sequenceData() const { return impl_->sequence; }

void Host::setSequenceData(PF_Handle h) {
  if (h && !impl_->handles.find(h))
    throw std::invalid_argument("setSequenceData: not a live host handle");
  impl_->sequence = h;
}

const std::vector<char>& Host::flattenedSequenceData() const { return impl_->flattened; }

void Host::presetOutSequenceData(PF_Handle sentinel) { impl_->outSequencePreset = sentinel; }

const std::vector<AddedParam>& Host::addedParams() const { return impl_->added; }
std::vector<PF_CustomUIInfo> Host::registeredUI() const { return impl_->ui; }

PF_ParamDef& Host::param(PF_ParamIndex index) {
  if (!impl_->validIndex(index))
    throw std::out_of_range("no parameter at index " + std::to_string(index));
  return impl_->live[static_cast<size_t>(index)];
}

A_long Host::numParams() const { return impl_->numParams; }
const std::vector<ParamUIUpdate>& Host::paramUIUpdates() const { return impl_->uiUpdates; }
void Host::clearParamUIUpdates() { impl_->uiUpdates.clear(); }

const std::vector<PrPixelFormat>& Host::supportedPixelFormats() const {
  return impl_->pixelFormats;
}

void Host::setWorldPixelFormat(const PF_EffectWorld* world, A_long format) {
  impl_->worlds[world].format = format;
  impl_->worlds[world].prFormat = format;
}

PF_Handle Host::newHandle(A_u_longlong size) { return impl_->handles.create(size, true); }
PF_Handle Host::newEmptyHandle() { return impl_->handles.createEmpty(true); }
bool Host::isLiveHandle(PF_Handle h) const { return impl_->handles.find(h) != nullptr; }

A_u_longlong Host::handleSize(PF_Handle h) const {
  const HandleStore::Block* b = impl_->handles.find(h);
  return b ? b->size : 0;
}

int Host::lockCount(PF_Handle h) const {
  const HandleStore::Block* b = impl_->handles.find(h);
  return b ? b->locks : 0;
}

size_t Host::liveHandleCount() const { return impl_->handles.count(); }

A_long Host::handleId(PF_Handle h) const {
  const HandleStore::Block* b = impl_->handles.find(h);
  return b ? b->id : 0;
}

std::vector<char> Host::handleBytes(PF_Handle h) const {
  const HandleStore::Block* b = impl_->handles.find(h);
  if (!b || !b->master) return {};
  return std::vector<char>(b->master, b->master + b->size);
}

int Host::acquireCount(const std::string& name, int version) const {
  return impl_->suites.acquired({name, version});
}
int Host::releaseCount(const std::string& name, int version) const {
  return impl_->suites.released({name, version});
}
void Host::clearSuiteCounts() { impl_->suites.clearCounts(); }

void Host::removeSuite(const std::string& name, int version) {
  impl_->suites.remove({name, version});
}
void Host::restoreSuite(const std::string& name, int version) {
  impl_->suites.restore({name, version});
}
void Host::failCall(const std::string& fn, PF_Err err, int nth) {
  impl_->log.failCall(fn == "PluginDataCB" ? "PF_PluginDataCB" : fn, err, nth);
}
void Host::clearFailures() { impl_->log.clearFailures(); }
int Host::failuresFired() const { return impl_->log.fired(); }

const std::vector<HostCall>& Host::calls() const { return impl_->log.calls(); }

std::vector<HostCall> Host::callsTo(const std::string& fn) const {
  std::vector<HostCall> out;
  for (const HostCall& c : impl_->log.calls())
    if (c.fn == fn) out.push_back(c);
  return out;
}

void Host::clearCalls() { impl_->log.clear(); }

const std::vector<std::string>& Host::contractBreaks() const { return impl_->breaks; }
void Host::clearContractBreaks() { impl_->breaks.clear(); }

void Host::finish() {
  Impl& d = *impl_;
  d.context = "end of session";
  d.discardPreRenderData();
  d.disposeFlatCopy();
  if (d.sequence) {
    d.handles.dispose(d.sequence);
    d.sequence = nullptr;
  }
  for (HandleStore::Block* b : d.handles.live())
    if (b->byHost) d.handles.dispose(&b->master);
  d.reportLeaks();
  d.handles.clear();
  for (auto& [world, rec] : d.worlds)
    if (rec.byEffect)
      d.addBreak("world " + std::to_string(rec.width) + "x" + std::to_string(rec.height) +
                 " made by the effect was never disposed");
  d.worlds.clear();
  if (!d.blocks.empty())
    d.addBreak(std::to_string(d.blocks.size()) + " SPBasic block(s) allocated and never freed");
  for (void* b : d.blocks) std::free(b);
  d.blocks.clear();
  d.context = "outside any command";
}

Surface& Host::surface() { return impl_->surface; }

void Host::setSurfaceSize(int width, int height) {
  if (width <= 0 || height <= 0) throw std::invalid_argument("surface size must be positive");
  impl_->surface.width = width;
  impl_->surface.height = height;
  impl_->clearSurface();
}

}  // namespace thost
