// The headless host: loads the effect module and plays After Effects or
// Premiere Pro around it. Every call the effect makes into the host is
// recorded, contract breaks are collected loudly, and any suite or callback can
// be made to fail so tests reach every error path.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "aesdk/aesdk.h"

namespace thost {

enum class App { AfterEffects, PremierePro };

struct ApiVersion {
  A_short major = 13;
  A_short minor = 28;
};

// One call from the effect into the host, in order. `fn` is the callback or
// suite function name as the SDK spells it ("add_param", "AcquireSuite",
// "PF_UpdateParamUI", "host_new_handle", "sprintf", ...); `args` is a short
// comma-separated rendering of the interesting arguments, e.g.
// "PF Handle Suite,2" for AcquireSuite or "5" for PF_UpdateParamUI on index 5.
struct HostCall {
  std::string fn;
  std::string args;
  bool operator==(const HostCall& o) const { return fn == o.fn && args == o.args; }
};

// What the registration callback received.
struct Registration {
  int callCount = 0;
  std::string name, matchName, category, entryPoint;
  A_long kind = 0, apiVersion = 0, apiSubversion = 0, reservedInfo = 0;
};

// A PF_UpdateParamUI call with a copy of the definition the effect passed.
struct ParamUIUpdate {
  PF_ParamIndex index;
  PF_ParamDef def;
};

// A parameter as the effect added it, with its strings copied out of the
// effect's memory (popup choices, button and checkbox labels).
struct AddedParam {
  PF_ParamIndex insertIndex;  // what the effect passed (-1 = append)
  PF_ParamDef def;
  std::string namesText;  // u.pd.u.namesptr, u.button_d.u.namesptr or u.bd.u.nameptr
};

// The dlopen'ed module, closed on destruction.
class PluginModule {
 public:
  explicit PluginModule(const std::string& path);  // throws std::runtime_error with dlerror()
  ~PluginModule();
  PluginModule(const PluginModule&) = delete;
  PluginModule& operator=(const PluginModule&) = delete;
  PF_PluginDataEntryFunc dataEntry() const { return dataEntry_; }
  PF_FilterProc effectMain() const { return effectMain_; }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  void* handle_ = nullptr;
  PF_PluginDataEntryFunc dataEntry_ = nullptr;
  PF_FilterProc effectMain_ = nullptr;
};

// A straight-alpha BGRA drawing surface for the Drawbot suites.
struct Surface {
  int width = 0, height = 0;
  std::vector<uint8_t> bgra;  // width * height * 4, straight alpha
  bool writePng(const std::string& path) const;  // RGBA PNG; false on I/O failure
};

class Host {
 public:
  // Path of the module under test: $TESSELUX_PLUGIN, else the built default.
  static std::string defaultPluginPath();

  explicit Host(const std::string& pluginPath = defaultPluginPath(), App app = App::AfterEffects,
                ApiVersion version = {});
  ~Host();  // disposes host-owned handles, then reports leaks (see contractBreaks)
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  // Identity and composition settings, used for every later command.
  void setApp(App app);
  void setApiVersion(A_short major, A_short minor);
  App app() const;
  void setLayerSize(A_long width, A_long height);  // in_data->width/height
  void setTime(A_long current, A_long step, A_long total, A_u_long scale);
  void setDownsample(PF_RationalScale x, PF_RationalScale y);

  // Registration: calls PluginDataEntryFunction with a recording callback.
  A_Err registerPlugin();
  const Registration& registration() const;

  // Commands. Each builds PF_InData/PF_OutData from the host state, calls
  // EffectMain, applies what the effect handed back (sequence data, num_params,
  // ...), checks the contract for the command and returns EffectMain's result.
  PF_Err send(PF_Cmd cmd, void* extra = nullptr);
  PF_Err about();
  PF_Err globalSetup();
  PF_Err globalSetdown();
  PF_Err paramsSetup();
  PF_Err sequenceSetup();
  PF_Err sequenceResetup();
  PF_Err sequenceFlatten();
  PF_Err getFlattenedSequenceData();
  PF_Err sequenceSetdown();
  PF_Err updateParamsUI();
  PF_Err userChangedParam(PF_ParamIndex index);
  // Events: the host fills a PF_EventExtra with a valid context handle.
  PF_Err click(PF_ParamIndex index, A_u_long when, PF_EffectArea area = PF_EA_PARAM_TITLE);
  PF_Err draw(PF_ParamIndex index, PF_EffectArea area, PF_LRect currentFrame = {0, 20, 320, 37},
              PF_LRect titleFrame = {0, 0, 320, 17});
  PF_Err event(PF_EventExtra& extra);  // any event record the test builds itself
  const PF_EventExtra& lastEvent() const;

  // Records of the last command, and what persists between commands.
  PF_InData& inData();    // as passed to the last command (editable before send())
  PF_OutData& outData();  // as returned by the last command
  std::string returnMessage() const;  // out_data->return_msg of the last command
  PF_Handle sequenceData() const;     // the instance's sequence handle as the host keeps it
  void setSequenceData(PF_Handle h);  // e.g. a handle made with newHandle() to simulate a project load

  // Parameters: what add_param received, and the host's live parameter array
  // (index 0 is the input layer) that UI commands pass to the effect.
  const std::vector<AddedParam>& addedParams() const;
  std::vector<PF_CustomUIInfo> registeredUI() const;
  PF_ParamDef& param(PF_ParamIndex index);
  A_long numParams() const;  // out_data->num_params as set by the last params setup
  const std::vector<ParamUIUpdate>& paramUIUpdates() const;
  void clearParamUIUpdates();

  // Premiere Pro pixel formats announced at global setup, in order.
  const std::vector<PrPixelFormat>& supportedPixelFormats() const;

  // Host handles (the same store the utility callbacks and the Handle Suite use).
  PF_Handle newHandle(A_u_longlong size);
  bool isLiveHandle(PF_Handle h) const;
  A_u_longlong handleSize(PF_Handle h) const;
  int lockCount(PF_Handle h) const;
  size_t liveHandleCount() const;

  // Suites: acquisitions and releases per "name,version".
  int acquireCount(const std::string& name, int version) const;
  int releaseCount(const std::string& name, int version) const;

  // Failure injection.
  void removeSuite(const std::string& name, int version);  // AcquireSuite then fails
  void restoreSuite(const std::string& name, int version);
  // Make callback `fn` (a HostCall::fn name) fail with `err` on its nth call
  // from now (1-based), or on every call when nth is 0. Callbacks that return
  // a pointer return null instead.
  void failCall(const std::string& fn, PF_Err err, int nth = 0);
  void clearFailures();

  // Recording.
  const std::vector<HostCall>& calls() const;
  std::vector<HostCall> callsTo(const std::string& fn) const;
  void clearCalls();

  // Contract breaks found so far (suite left acquired at the end of a command,
  // handle leaked or left locked, parameter checked out and not checked in,
  // unknown suite asked for, Drawbot object not released, ...), one line each.
  const std::vector<std::string>& contractBreaks() const;
  void clearContractBreaks();

  // Drawbot: the surface that draw events paint on (cleared to the panel
  // colour before each draw event).
  Surface& surface();
  void setSurfaceSize(int width, int height);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace thost
