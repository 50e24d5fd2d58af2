// Internal state of the headless host, shared by the files that implement the
// callbacks and suites. Nothing here is part of the public interface.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "thost/host.h"
#include "thost/pipl.h"
#include "thost/render.h"

namespace thost {

// Every call into the host in order, plus the failures tests asked for.
class CallLog {
 public:
  void record(const char* fn, std::string args, const char* via);
  // Counts one call of `fn` and tells whether it must fail, and with what.
  std::optional<PF_Err> failure(const std::string& fn);
  void failCall(const std::string& fn, PF_Err err, int nth);
  void clearFailures() {
    failures_.clear();
    fired_ = 0;
  }
  int fired() const { return fired_; }
  // A render's own log starts with the failures asked for so far, counted afresh.
  void copyFailures(const CallLog& from);
  void setRecording(bool on) { recording_ = on; }
  const std::vector<HostCall>& calls() const { return calls_; }
  void clear() { calls_.clear(); }

 private:
  bool recording_ = true;
  struct Failure {
    PF_Err err;
    int nth;       // 0 = every call
    int seen = 0;  // calls since the failure was set
  };
  std::vector<HostCall> calls_;
  std::map<std::string, Failure> failures_;
  int fired_ = 0;  // injected failures that happened since clearFailures
};

// The host's memory handles. A PF_Handle is the address of a block's master
// pointer, which points at the bytes (or is null for an empty handle).
//
// One store serves a set-up host and every render made from it, from any
// thread: each method locks, and callers that look a block up and then change
// it hold guard() across both.
class HandleStore {
 public:
  struct Block {
    char* master = nullptr;  // *handle
    std::unique_ptr<char[]> bytes;
    A_u_longlong size = 0;
    int locks = 0;
    A_long id = 0;
    bool byHost = false;  // made through the Host API, never a leak
    bool leakReported = false;
    const void* maker = nullptr;  // the command record (Host::Impl) it was made in
    long command = 0;             // that record's command serial at the time
  };

  static constexpr unsigned char kFill = 0xA5;

  // Null when the size is unreasonable (the host's "out of memory").
  PF_Handle create(A_u_longlong size, bool byHost, const void* maker = nullptr, long command = 0);
  PF_Handle createEmpty(bool byHost);
  std::unique_lock<std::recursive_mutex> guard() const {
    return std::unique_lock<std::recursive_mutex>(mutex_);
  }
  Block* find(PF_Handle h);
  const Block* find(PF_Handle h) const;
  // Moves the block (the handle stays); false when the size is unreasonable.
  bool resize(Block& block, A_u_longlong newSize);
  void dispose(PF_Handle h);
  std::vector<Block*> live();
  size_t count() const;
  void clear();

 private:
  static std::unique_ptr<char[]> allocate(A_u_longlong size);
  mutable std::recursive_mutex mutex_;
  std::map<PF_Handle, std::unique_ptr<Block>> blocks_;
  A_long nextId_ = 1;
};

// Suites by name and version: which exist, which are handed out to which
// identity, and the acquisition balance.
class SuiteRegistry {
 public:
  enum class Answer { Granted, Refused, Unknown };
  using Key = std::pair<std::string, int>;

  SuiteRegistry();
  // The same suites and removals, with no acquisitions counted or held.
  SuiteRegistry forRender() const;
  Answer acquire(const std::string& name, int version, App app, const void** table);
  Answer release(const std::string& name, int version);  // Refused = not held
  void remove(const Key& key) { removed_.insert(key); }
  void restore(const Key& key) { removed_.erase(key); }
  int acquired(const Key& key) const;
  int released(const Key& key) const;
  void clearCounts();
  // Suites held right now (acquired and not yet released), emptied by the call.
  std::map<Key, int> takeHeld();

 private:
  struct Entry {
    const void* table;
    bool premiereOnly;
  };
  std::map<Key, Entry> known_;
  std::set<Key> removed_;
  std::map<Key, int> acquired_, released_, held_;
};

// An image made with NewImageFromBuffer, kept as straight BGRA.
struct DrawbotImage {
  int width = 0, height = 0;
  std::vector<uint8_t> bgra;
  int refs = 1;
};

// A world the host knows the pixel format of; pixels are owned when the
// effect made the world through a suite.
struct WorldRecord {
  A_long format = 0;    // what the World Suite answers (PF_PixelFormat)
  A_long prFormat = 0;  // what the Pixel Format Suite answers (PrPixelFormat)
  std::unique_ptr<char[]> pixels;
  bool byEffect = false;
  A_long width = 0, height = 0;
};

// Memory blocks of lent worlds, kept for the next render of the same size: a
// fresh block of many megabytes costs a page fault per page on first touch,
// which would dwarf the render itself. Shared by a set-up host and its renders.
class BlockPool {
 public:
  std::unique_ptr<uint8_t[]> take(size_t bytes);  // null when out of memory
  void give(std::unique_ptr<uint8_t[]> block, size_t bytes);

 private:
  static constexpr size_t kMaxKeptBytes = size_t{1} << 30;
  std::mutex mutex_;
  std::multimap<size_t, std::unique_ptr<uint8_t[]>> free_;
  size_t kept_ = 0;
};

// A world the host lends the effect (layer frames and the output): its pixels
// sit in a block with guard bytes before the first and after the last row, and
// every row is padded beyond width, so only rowbytes-correct access stays
// inside. Kept until the next render starts.
struct LentWorld {
  LentWorld() = default;
  ~LentWorld() {
    if (pool && block) pool->give(std::move(block), blockBytes);
  }
  LentWorld(const LentWorld&) = delete;
  LentWorld& operator=(const LentWorld&) = delete;

  PF_EffectWorld world{};
  std::shared_ptr<BlockPool> pool;
  std::unique_ptr<uint8_t[]> block;
  size_t blockBytes = 0;
  size_t lead = 0;     // guard bytes before the first row
  size_t rowUsed = 0;  // width * bytes per pixel
  Depth depth = Depth::Bits8;
  LentWorldInfo info;
  std::shared_ptr<const Image> source;  // the clip frame a layer world was copied from
  bool borrowed = false;                // over a clip frame's or an image's own memory

  static constexpr uint8_t kGuard = 0xCD;
};

// A layer a pre-render asked for, by checkout id, and what became of it.
struct PixelCheckout {
  PF_ParamIndex layer = 0;
  int frame = -1;          // -1: the parameter names no layer
  LentWorld* world = nullptr;
  int out = 0;             // checkouts minus checkins of the pixels
};

// One frame's render state: clips, the worlds lent, the SmartFX records and
// what the effect asked for. Begins afresh with every pre-render or legacy render.
struct RenderState {
  std::map<PF_ParamIndex, std::shared_ptr<const Clip>> clips;
  Depth depth = Depth::Bits8;
  bool guardWorlds = true;
  std::optional<A_long> premiereFormat;  // overrides the output's Premiere format

  std::deque<std::unique_ptr<LentWorld>> lent;
  std::vector<LayerCheckout> checkouts;
  std::map<A_long, PixelCheckout> requested;
  LentWorld* output = nullptr;
  LentWorld* input = nullptr;
  int outputCheckouts = 0;
  bool preRendered = false;
  // What the pre-render was made at; its smart render is of the same frame.
  A_long preTime = 0, preStep = 0;
  A_u_long preScale = 0;
  Depth preDepth = Depth::Bits8;

  PF_Handle preRenderData = nullptr;  // the handle pre-render handed over, now the host's
  void* preRenderPointer = nullptr;   // or data the effect gave a delete function for
  PF_DeletePreRenderDataFunc deletePreRenderData = nullptr;
  Image* into = nullptr;              // caller's picture the output starts from and goes to
  std::unique_ptr<Image> ownOutput;   // the output image made for a borrowed output world
  std::shared_ptr<PixelPool> outputPool;  // its memory; null: operator new
  PF_PreRenderInput preIn{};
  PF_PreRenderOutput preOut{};
  PF_PreRenderCallbacks preCb{};
  PF_PreRenderExtra preExtra{};
  PF_SmartRenderInput smartIn{};
  PF_SmartRenderCallbacks smartCb{};
  PF_SmartRenderExtra smartExtra{};

  std::vector<std::string> notices;  // tolerated checkouts left out by design
};

struct Host::Impl {
  // effect_ref and the registration token point here, so callbacks that get
  // one find their host without any global.
  struct Token {
    uint32_t magic;
    Impl* impl;
  };
  static constexpr uint32_t kTokenMagic = 0x74484F53u;  // "tHOS"

  Impl(std::shared_ptr<PluginModule> module, App app, ApiVersion version);
  // A render's own command records, made from a set-up host: the same module,
  // handle store and parameters, its own in_data, effect_ref, call log, suite
  // balance and worlds. `setUp` must outlive it.
  Impl(const Impl& setUp, bool recordCalls);
  ~Impl();
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  // Resolving the host inside a C callback.
  static Impl* fromRef(PF_ProgPtr ref, const char* fn);  // checks the token
  static Impl* current(const char* fn);                  // the host inside a command
  PF_ProgPtr effectRef() { return reinterpret_cast<PF_ProgPtr>(&token); }

  // Records the call and returns the injected failure, if any.
  std::optional<PF_Err> enter(const char* fn, std::string args, const char* via);
  void addBreak(const std::string& text);

  // Commands.
  // Sends one command to `entry`, or to the module's EffectMain when null.
  PF_Err run(PF_Cmd cmd, void* extra, PF_LayerDef* output = nullptr,
             PF_FilterProc entry = nullptr);
  void beforeCommand(PF_Cmd cmd, void* extra);
  void afterCommand(PF_Cmd cmd, void* extra, PF_Err err, bool threw);
  void endOfCommandChecks();
  // The effect's PiPL against its registration and its global setup (pipl.cpp).
  bool piplApplies(PiPLDescription& d);
  void checkPiPLRegistration();
  void checkPiPLFlags();
  static std::string hex(uint32_t v);
  void takeSequenceData(PF_Cmd cmd);
  void reportLeaks();
  void disposeFlatCopy();
  void resetParams();
  void rebuildParamPointers();
  bool ownsHandle(PF_Handle h) const;
  void clearSurface();
  void reportCommandLeaks();

  // Rendering (render.cpp, smartfx.cpp).
  void beginRender();
  PF_Err preRender(const PF_RenderRequest* request);
  PF_Err smartRender();
  PF_Err legacyRender();
  void endRender();
  void adoptPreRenderData();      // after PF_Cmd_SMART_PRE_RENDER
  void checkResultRects();        // the pre-render's result_rect within its max_result_rect
  void discardPreRenderData();
  void setLayerGeometry();        // in_data size and duration from the layer clip
  void afterPixels(PF_Cmd cmd);   // after SMART_RENDER / RENDER: worlds and pixel checkins  // gives back what the host owns of the render; reports leaks of a render record
  PF_RenderRequest wholeFrameRequest();
  const std::shared_ptr<const Clip>& clipOf(PF_ParamIndex index) const;
  int frameAt(const Clip& clip, A_long time, A_long step, A_u_long scale);
  LentWorld* lendFrame(const Clip& clip, int frame, LentWorldInfo info);
  PF_Err lendLayerParam(PF_ParamIndex index, A_long time, A_long step, A_u_long scale,
                        PF_ParamDef& def);
  LentWorld* lendOutput(int width, int height, A_long originX, A_long originY);
  void checkLentWorlds();
  const WorldRecord* findWorld(const PF_EffectWorld* world) const;
  PF_ParamIndex maskIndex() const;  // the first layer parameter after the effect's own; -1 none
  void applyControls(const ControlValues& values);

  // Parameter helpers.
  bool validIndex(PF_ParamIndex index) const {
    return index >= 0 && static_cast<size_t>(index) < live.size();
  }

  Token token;
  std::shared_ptr<PluginModule> module;
  App app;
  bool renderRecord = false;  // made by Impl(setUp, ...) for one render
  PF_InData in{};
  PF_OutData out{};
  PF_UtilCallbacks utils{};
  SPBasicSuite basic{};

  CallLog log;
  std::vector<std::string> breaks;
  std::string context = "outside any command";
  bool inCommand = false;
  PF_Cmd currentCmd = -1;

  std::shared_ptr<HandleStore> handleStore;
  HandleStore& handles;
  std::shared_ptr<BlockPool> blockPool;
  long commandSerial = 0;
  PF_Handle sequence = nullptr;
  // The copy the last PF_Cmd_GET_FLATTENED_SEQUENCE_DATA returned: the host's,
  // kept readable until the next command starts, then disposed.
  PF_Handle flatCopy = nullptr;
  std::vector<char> flattened;
  // out_data->sequence_data for the next command (presetOutSequenceData).
  PF_Handle outSequencePreset = nullptr;
  A_long numParams = 0;
  Registration registration;

  SuiteRegistry suites;

  std::vector<AddedParam> added;
  std::deque<PF_ParamDef> live;
  std::vector<PF_ParamDef*> livePointers;
  std::deque<std::string> ownedStrings;  // strings the live and added defs point at
  std::vector<PF_CustomUIInfo> ui;
  std::vector<ParamUIUpdate> uiUpdates;
  std::vector<std::pair<const PF_ParamDef*, PF_ParamIndex>> checkouts;

  std::vector<PrPixelFormat> pixelFormats;
  std::map<const PF_EffectWorld*, WorldRecord> worlds;
  RenderState render;
  std::set<void*> blocks;  // SPBasic AllocateBlock

  // Drawbot and the effect window context.
  PF_Context ctx{};
  PF_Context* ctxPointer = &ctx;
  PF_EventExtra lastEvent{};
  Surface surface;
  char drawTag = 0, supplierTag = 0, surfaceTag = 0;  // their addresses are the refs
  std::map<const void*, std::unique_ptr<DrawbotImage>> images;
  std::map<const void*, int> hostObjectRetains;
  DRAWBOT_DrawRef drawRef() { return reinterpret_cast<DRAWBOT_DrawRef>(&drawTag); }
  DRAWBOT_SupplierRef supplierRef() { return reinterpret_cast<DRAWBOT_SupplierRef>(&supplierTag); }
  DRAWBOT_SurfaceRef surfaceRef() { return reinterpret_cast<DRAWBOT_SurfaceRef>(&surfaceTag); }
};

// Callbacks that receive no effect_ref (the handle callbacks, SPBasic,
// ansi.sprintf, world and Drawbot queries) find their host here. It is set
// only while the host is inside one call into the module, by a Scope, so two
// hosts in one process never see each other's state.
class CurrentHost {
 public:
  static Host::Impl* get() { return current_; }
  class Scope {
   public:
    explicit Scope(Host::Impl* host) : previous_(current_) { current_ = host; }
    ~Scope() { current_ = previous_; }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    Host::Impl* previous_;
  };

 private:
  static thread_local Host::Impl* current_;
};

// Filling the callback tables and the suite tables.
void fillUtilCallbacks(PF_UtilCallbacks& utils);
void fillInteractCallbacks(PF_InteractCallbacks& inter);
void fillBasicSuite(SPBasicSuite& basic);
A_Err registrationCallback(PF_PluginDataPtr inPtr, const A_u_char* name, const A_u_char* matchName,
                           const A_u_char* category, const A_u_char* entryPoint, A_long kind,
                           A_long apiVersion, A_long apiSubversion, A_long reservedInfo);
const void* pixelFormatSuite1();
const void* utilitySuite4();
const void* handleSuite1();
const void* worldSuite2();
const void* customUISuite1();
const void* paramUtilsSuite3();
const void* drawSuite1();
const void* supplierSuite1();
const void* surfaceSuite2();
const void* pathSuite1();
void fillPreRenderCallbacks(PF_PreRenderCallbacks& cb);
void fillSmartRenderCallbacks(PF_SmartRenderCallbacks& cb);
A_long aePixelFormat(Depth depth);
A_long premiereArgbFormat(Depth depth);
int premiereBytesPerPixel(A_long format);

// The handle functions, shared by the utility callbacks ("utils") and the
// Handle Suite (its name as `via`).
namespace handlecb {
PF_Handle newHandle(A_u_longlong size, const char* via);
void* lock(PF_Handle handle, const char* via);
void unlock(PF_Handle handle, const char* via);
void dispose(PF_Handle handle, const char* via);
A_u_longlong size(PF_Handle handle, const char* via);
PF_Err resize(A_u_longlong size, PF_Handle* handle, const char* via);
}  // namespace handlecb

// Worlds made by the effect through a callback or suite; bytes per pixel
// follow from the format (4, 8 or 16).
PF_Err makeWorld(Host::Impl& host, A_long width, A_long height, bool clear, A_long format,
                 int bytesPerPixel, PF_EffectWorld* world);
PF_Err disposeWorld(Host::Impl& host, PF_EffectWorld* world);

// Small formatting helpers for call records and messages.
std::string handleLabel(const Host::Impl& host, PF_Handle h);
std::string hex32(uint32_t v);
std::string fmtFloat(double v);
std::string rectText(const PF_LRect& r);  // "(left,top)-(right,bottom)"

}  // namespace thost
