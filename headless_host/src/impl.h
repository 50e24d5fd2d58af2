// Internal state of the headless host, shared by the files that implement the
// callbacks and suites. Nothing here is part of the public interface.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "thost/host.h"

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
  const std::vector<HostCall>& calls() const { return calls_; }
  void clear() { calls_.clear(); }

 private:
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
  };

  static constexpr unsigned char kFill = 0xA5;

  // Null when the size is unreasonable (the host's "out of memory").
  PF_Handle create(A_u_longlong size, bool byHost);
  PF_Handle createEmpty(bool byHost);
  Block* find(PF_Handle h);
  const Block* find(PF_Handle h) const;
  // Moves the block (the handle stays); false when the size is unreasonable.
  bool resize(Block& block, A_u_longlong newSize);
  void dispose(PF_Handle h);
  std::vector<Block*> live();
  size_t count() const { return blocks_.size(); }
  void clear() { blocks_.clear(); }

 private:
  static std::unique_ptr<char[]> allocate(A_u_longlong size);
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
  A_long format = 0;
  std::unique_ptr<char[]> pixels;
  bool byEffect = false;
  A_long width = 0, height = 0;
};

struct Host::Impl {
  // effect_ref and the registration token point here, so callbacks that get
  // one find their host without any global.
  struct Token {
    uint32_t magic;
    Impl* impl;
  };
  static constexpr uint32_t kTokenMagic = 0x74484F53u;  // "tHOS"

  Impl(const std::string& path, App app, ApiVersion version);
  ~Impl();

  // Resolving the host inside a C callback.
  static Impl* fromRef(PF_ProgPtr ref, const char* fn);  // checks the token
  static Impl* current(const char* fn);                  // the host inside a command
  PF_ProgPtr effectRef() { return reinterpret_cast<PF_ProgPtr>(&token); }

  // Records the call and returns the injected failure, if any.
  std::optional<PF_Err> enter(const char* fn, std::string args, const char* via);
  void addBreak(const std::string& text);

  // Commands.
  void beforeCommand(PF_Cmd cmd, void* extra);
  void afterCommand(PF_Cmd cmd, void* extra, PF_Err err, bool threw);
  void endOfCommandChecks();
  void takeSequenceData(PF_Cmd cmd);
  void reportLeaks();
  void disposeFlatCopy();
  void resetParams();
  void rebuildParamPointers();
  bool ownsHandle(PF_Handle h) const;
  void clearSurface();

  // Parameter helpers.
  bool validIndex(PF_ParamIndex index) const {
    return index >= 0 && static_cast<size_t>(index) < live.size();
  }

  Token token;
  PluginModule module;
  App app;
  PF_InData in{};
  PF_OutData out{};
  PF_UtilCallbacks utils{};
  SPBasicSuite basic{};

  CallLog log;
  std::vector<std::string> breaks;
  std::string context = "outside any command";
  bool inCommand = false;
  PF_Cmd currentCmd = -1;

  HandleStore handles;
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

}  // namespace thost
