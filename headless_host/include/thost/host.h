// The headless host: loads the effect module and plays After Effects or
// Premiere Pro around it. Every call the effect makes into the host is
// recorded, contract breaks are collected loudly, and any suite or callback can
// be made to fail so tests reach every error path.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "aesdk/aesdk.h"

namespace thost {

enum class App { AfterEffects, PremierePro };

class Clip;         // render.h
enum class Depth;   // render.h

// One layer request of a render: a pre-render checkout_layer (checkoutId as
// the effect chose it) or a checkout_param of a layer parameter (checkoutId
// kParamCheckout). `frame` is the clip frame the time mapped to, -1 when the
// parameter names no layer.
struct LayerCheckout {
  static constexpr A_long kParamCheckout = -1;
  A_long checkoutId = 0;
  PF_ParamIndex layerIndex = 0;
  A_long time = 0, step = 0;
  A_u_long scale = 0;
  int frame = -1;
  bool operator==(const LayerCheckout& o) const {
    return checkoutId == o.checkoutId && layerIndex == o.layerIndex && time == o.time &&
           step == o.step && scale == o.scale && frame == o.frame;
  }
};
void PrintTo(const LayerCheckout& c, std::ostream* os);

// A world the host lent in the last render, as the effect saw it.
struct LentWorldInfo {
  enum class Kind { Output, LayerPixels, LayerParam, InputParam };
  Kind kind = Kind::Output;
  PF_ParamIndex layerIndex = 0;  // the layer parameter (not for the output)
  A_long checkoutId = 0;         // LayerPixels: the checkout id
  int frame = 0;                 // clip frame (not for the output)
  PF_EffectWorld* world = nullptr;
}; 

struct ApiVersion {
  A_short major = 13;
  A_short minor = 28;
};

// One call from the effect into the host, in order. `fn` is the callback or
// suite function name as the SDK spells it ("add_param", "AcquireSuite",
// "PF_UpdateParamUI", "host_new_handle", "sprintf", ...); `args` is a short
// comma-separated rendering of the interesting arguments, e.g.
// "PF Handle Suite,2" for AcquireSuite or "5" for PF_UpdateParamUI on index 5.
//
// `via` says where the call came in: "registration", "SPBasic", "utils",
// "inter", or the suite's name ("PF Handle Suite", ...). It is not part of
// operator==, so tests can compare {fn, args} pairs only.
//
// Handles are rendered as "#<id>" (see Host::handleId; "#0" is a null handle,
// "#?" one the host does not know). Numbers are decimal unless noted; floats
// use %g. The args of each fn:
//   PF_PluginDataCB     "<name>,<match name>,<category>,<entry>,0x<kind hex>,<api major>,<api minor>,<reserved>"
//   AcquireSuite        "<name>,<version>"        ReleaseSuite   "<name>,<version>"
//   IsEqual             "<a>,<b>"                 AllocateBlock  "<size>"
//   ReallocateBlock     "<new size>"              FreeBlock, Undefined  ""
//   host_new_handle     "<size>"                  host_resize_handle  "<new size>,#<id>"
//   host_lock_handle, host_unlock_handle, host_dispose_handle, host_get_handle_size  "#<id>"
//   sprintf             the text as formatted (before any truncation)
//   strcpy              the source text
//   atan, cos, ... (ansi maths)  the argument(s) as %g
//   add_param           "<id>"  (uu.id of the definition)
//   checkout_param      "<index>,<time>,<time step>,<time scale>"  (a layer parameter comes
//                       with its clip's frame at that time in u.ld, data null without a clip)
//   checkin_param       "<index>" of the checked-out definition ("?" if unknown)
//   checkout_layer      "<index>,<checkout id>,<time>,<time step>,<time scale>"  (PF_PreRenderCallbacks)
//   GuidMixInPtr        "<bytes>"
//   checkout_layer_pixels, checkin_layer_pixels  "<checkout id>"  (PF_SmartRenderCallbacks)
//   checkout_output     ""
//   register_ui         "<events>"
//   progress            "<current>,<total>"       abort  ""
//   AddSupportedPixelFormat  "0x<format hex>"      ClearSupportedPixelFormats  ""
//   GetPixelFormat, PF_GetPixelFormat  ""   (PF_GetPixelFormat answers PF_PixelFormat_ARGB32/
//                       ARGB64/ARGB128 for a lent 8/16/32-bit world; GetPixelFormat the Premiere
//                       ARGB_4444 format of that depth as the effect announced it)
//   NewWorldOfPixelFormat  "<w>,<h>,0x<format hex>"  PF_NewWorld  "<w>,<h>,0x<format hex>"
//   DisposeWorld, PF_DisposeWorld, dispose_world  ""   new_world (utils)  "<w>,<h>"
//   GetBlackForPixelFormat, GetWhiteForPixelFormat, ConvertColorToPixelFormattedData  "0x<format hex>"
//   iterate_generic     "<iterations>"
//   EffectWantsCheckedOutFramesToMatchRenderPixelFormat and the other Utility Suite functions  ""
//   PF_UpdateParamUI    "<index>"   (and the other Param Utils functions: "<index>" where they take one)
//   PF_GetDrawingReference, GetSupplier, GetSurface  ""
//   NewImageFromBuffer  "<w>,<h>,<row bytes>,<layout>"
//   DrawImage           "<x>,<y>,<opacity>"       PaintRect  "<left>,<top>,<width>,<height>"
//   ReleaseObject, RetainObject  "image" | "supplier" | "surface" | "draw" | "unknown"
//   any other callback or suite function  ""
struct HostCall {
  HostCall() = default;
  HostCall(std::string fn_, std::string args_, std::string via_ = {})
      : fn(std::move(fn_)), args(std::move(args_)), via(std::move(via_)) {}
  std::string fn;
  std::string args;
  std::string via;
  bool operator==(const HostCall& o) const { return fn == o.fn && args == o.args; }
};
void PrintTo(const HostCall& call, std::ostream* os);  // readable GoogleTest messages

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
// effect's memory (popup choices, button and checkbox labels). The string
// pointer inside `def` is redirected to the host's copy, so it stays valid.
struct AddedParam {
  PF_ParamIndex insertIndex;  // what the effect passed (-1 = append)
  PF_ParamDef def;
  std::string namesText;  // u.pd.u.namesptr, u.button_d.u.namesptr or u.bd.u.nameptr
};

// The loaded module (dlopen, or LoadLibrary on Windows), closed on destruction.
// On Windows, as After Effects does there, the PiPL resource is read out of the
// module and the effect's entry point is the one its code property names.
class PluginModule {
 public:
  explicit PluginModule(const std::string& path);  // throws std::runtime_error saying why
  ~PluginModule();
  PluginModule(const PluginModule&) = delete;
  PluginModule& operator=(const PluginModule&) = delete;
  PF_PluginDataEntryFunc dataEntry() const { return dataEntry_; }
  PF_FilterProc effectMain() const { return effectMain_; }
  const std::string& path() const { return path_; }
  // The PiPL bytes the module carries (Windows), or the effect description the
  // host was built with (elsewhere); empty when there is none.
  const std::vector<uint8_t>& pipl() const { return pipl_; }
  // True when pipl() came out of the module itself.
  bool piplFromModule() const { return piplFromModule_; }

 private:
  std::string path_;
  void* handle_ = nullptr;
  PF_PluginDataEntryFunc dataEntry_ = nullptr;
  PF_FilterProc effectMain_ = nullptr;
  std::vector<uint8_t> pipl_;
  bool piplFromModule_ = false;
};

// A straight-alpha BGRA drawing surface for the Drawbot suites.
struct Surface {
  int width = 0, height = 0;
  std::vector<uint8_t> bgra;  // width * height * 4, straight alpha
  bool writePng(const std::string& path) const;  // RGBA PNG; false on I/O failure
  // Reads any PNG into `out` as straight BGRA; false when the file is not a readable PNG.
  static bool readPng(const std::string& path, Surface& out);
};

// Readable name of a command ("PF_Cmd_GLOBAL_SETUP"; "PF_Cmd_<n>" for unnamed numbers).
std::string commandName(PF_Cmd cmd);

class Host {
 public:
  // Path of the module under test: $TESSELUX_PLUGIN, else the built default.
  static std::string defaultPluginPath();

  // The panel colour draw events start from (opaque #232323), as straight BGRA.
  static constexpr uint8_t kPanelGrey = 0x23;

  // Loads the module (throws std::runtime_error when it cannot). Hosts alive at
  // the same time share one loaded copy of a module, process-wide state
  // included, because dlopen hands out the same one; it is unloaded when the
  // last Host using it is destroyed.
  explicit Host(const std::string& pluginPath = defaultPluginPath(), App app = App::AfterEffects,
                ApiVersion version = {});
  ~Host();  // finish(), then prints any contract break nobody cleared to stderr
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  // Identity and composition settings, used for every later command.
  // Defaults: 1920 x 1080, 30 fps as time_scale 3000 / time_step 100, a
  // 10-second layer, current time 0, downsample 1/1.
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
  // An exception escaping EffectMain is rethrown after the same checks.
  //
  // PF_InData is one record that lives as long as the Host: setters and tests
  // (through inData()) edit it, and the effect sees those edits; before each
  // command the host refreshes only sequence_data (the instance's handle) and
  // num_params. PF_OutData is zero-filled before each command; a non-null
  // out_data->sequence_data afterwards is what the effect hands back. The
  // parameter array is passed to every command except the SmartFX ones (null
  // there); `output` is null.
  PF_Err send(PF_Cmd cmd, void* extra = nullptr);
  // The same, but the command goes to `entry` instead of the module's
  // EffectMain: a test runs a piece of effect code linked into itself with the
  // host's records, inside the host's scope and under the same checks.
  PF_Err sendTo(PF_FilterProc entry, PF_Cmd cmd, void* extra = nullptr);
  PF_Err about();
  PF_Err globalSetup();
  PF_Err globalSetdown();
  PF_Err paramsSetup();  // starts the parameter list afresh (input layer only)
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
  // Any event record the test builds itself (use contextHandle() for a valid
  // context). A draw event clears the surface first, as draw() does.
  PF_Err event(PF_EventExtra& extra);
  const PF_EventExtra& lastEvent() const;
  PF_ContextH contextHandle();  // the host's effect-window context (magic 0x05EA771E)

  // Records of the last command, and what persists between commands.
  PF_InData& inData();    // as passed to the last command (editable before send())
  PF_OutData& outData();  // as returned by the last command
  const PF_InData& inData() const;
  const PF_OutData& outData() const;
  std::string returnMessage() const;  // out_data->return_msg of the last command
  PF_Handle sequenceData() const;     // the instance's sequence handle as the host keeps it
  // Makes `h` the instance's sequence handle, e.g. one made with newHandle() to
  // simulate a project load. The host owns it from then on.
  void setSequenceData(PF_Handle h);
  // The bytes of the flat handle the last PF_Cmd_GET_FLATTENED_SEQUENCE_DATA
  // returned (empty if none was). That handle is the host's: it stays live,
  // in outData().sequence_data, until the next command starts or finish().
  const std::vector<char>& flattenedSequenceData() const;
  // For the next command only: out_data->sequence_data starts as `sentinel`
  // instead of null, so a test can see whether the effect wrote the field.
  // Left as it was, the field is not taken as a handle handed back.
  void presetOutSequenceData(PF_Handle sentinel);

  // Parameters: what add_param received, and the host's live parameter array
  // (index 0 is the input layer) that UI commands pass to the effect.
  const std::vector<AddedParam>& addedParams() const;
  std::vector<PF_CustomUIInfo> registeredUI() const;
  // A live definition; the reference stays valid until the next params setup.
  PF_ParamDef& param(PF_ParamIndex index);  // throws std::out_of_range
  A_long numParams() const;  // out_data->num_params as set by the last params setup
  const std::vector<ParamUIUpdate>& paramUIUpdates() const;
  void clearParamUIUpdates();

  // Premiere Pro pixel formats announced at global setup, in order.
  const std::vector<PrPixelFormat>& supportedPixelFormats() const;
  // The format the World Suite's PF_GetPixelFormat and the Pixel Format
  // Suite's GetPixelFormat answer for `world` (the host answers both from this
  // one code; worlds the host does not know get PF_Err_BAD_CALLBACK_PARAM).
  void setWorldPixelFormat(const PF_EffectWorld* world, A_long format);

  // Host handles (the same store the utility callbacks and the Handle Suite use).
  // New blocks are filled with 0xA5 and grown parts of resized blocks with 0xA5,
  // never zero, so an effect that relies on cleared memory shows up.
  PF_Handle newHandle(A_u_longlong size);  // made by the host: never reported as a leak
  PF_Handle newEmptyHandle();              // a live handle whose master pointer is null
  PF_Handle newHandleWithNullMaster() { return newEmptyHandle(); }  // the same, by another name
  bool isLiveHandle(PF_Handle h) const;
  A_u_longlong handleSize(PF_Handle h) const;
  int lockCount(PF_Handle h) const;
  size_t liveHandleCount() const;
  A_long handleId(PF_Handle h) const;                  // the id in call records; 0 if unknown
  std::vector<char> handleBytes(PF_Handle h) const;   // a copy of the block (empty if none)

  // Suites: acquisitions and releases per "name,version". Only successful
  // acquisitions are counted; every ReleaseSuite call of a known suite is.
  int acquireCount(const std::string& name, int version) const;
  int releaseCount(const std::string& name, int version) const;
  void clearSuiteCounts();

  // Failure injection.
  void removeSuite(const std::string& name, int version);  // AcquireSuite then fails
  void restoreSuite(const std::string& name, int version);
  // Make callback `fn` (a HostCall::fn name) fail with `err` on its nth call
  // from now (1-based), or on every call when nth is 0. Callbacks that return
  // a pointer return null instead; host_get_handle_size returns 0; sprintf
  // writes nothing and returns -1; the maths functions return NaN; IsEqual
  // returns false; callbacks returning void do nothing. The failing call is still recorded. The
  // registration callback is "PF_PluginDataCB" ("PluginDataCB" is accepted too).
  void failCall(const std::string& fn, PF_Err err, int nth = 0);
  void clearFailures();
  // How many injected failures have happened since the last clearFailures().
  int failuresFired() const;

  // ---- Rendering, one command at a time.
  // Layers are clips the host holds: index 0 is the effect's own layer, any
  // other index a layer parameter (null: the parameter names no layer). A host
  // time t shows frame floor(t / time_step) of a clip, clamped to its frames.
  // Worlds are lent in the render depth, with guard bytes around them and rows
  // padded beyond width; writes outside the output world, and any change to a
  // layer world, are contract breaks found at the end of the render.
  void setLayerClip(PF_ParamIndex index, std::shared_ptr<const Clip> clip);
  void setMaskClip(std::shared_ptr<const Clip> clip);  // maskParamIndex(); throws without one
  PF_ParamIndex maskParamIndex() const;  // first layer parameter after index 0; -1 if none
  // Worlds are lent in this depth. Premiere Pro's GetPixelFormat answers the
  // ARGB_4444 format of the depth (as announced, or that code when the effect
  // announced none for it).
  void setRenderDepth(Depth depth);
  void setGuardWorlds(bool on);  // default on
  // Premiere Pro: the format GetPixelFormat answers for the output world
  // instead of the announced one of the render depth (unset: no override).
  void setPremiereOutputFormat(std::optional<A_long> format);
  // A render starts with preRender() (After Effects) or legacyRender()
  // (PF_Cmd_RENDER); it sets in_data->width/height/extent_hint from frame
  // current_time of the layer clip and total_time from the clip's length, and
  // drops the previous render's worlds, requests and pre-render handle.
  // preRender() asks for the whole frame unless given a request.
  PF_Err preRender();
  PF_Err preRender(const PF_RenderRequest& request);
  // The render the last preRender() prepared; the output world it lends has
  // the size and origin of the pre-render's result_rect, as After Effects does.
  PF_Err smartRender();
  PF_Err legacyRender();  // output world the size and origin of the layer frame
  // What the last render asked for and got, kept until the next render.
  const std::vector<LayerCheckout>& layerCheckouts() const;
  int toleratedNotices() const;  // checkouts left out by design in the last render
  const std::vector<std::string>& toleratedNoticeTexts() const;
  PF_Handle preRenderData() const;  // what pre-render handed over (the host's)
  const PF_PreRenderOutput& preRenderOutput() const;
  PF_EffectWorld* outputWorld();         // null before the first render
  PF_EffectWorld* inputWorld();          // layer 0 at the current time (id 0, or params[0])
  PF_EffectWorld* checkoutWorld(A_long checkoutId);  // pixels served for an id; null if none
  // The mask layer's world: its pixels (SmartFX) or the last checkout of its
  // parameter (PF_Cmd_RENDER); null when it names no layer or was not asked for.
  PF_EffectWorld* maskWorld();
  std::vector<LentWorldInfo> lentWorlds() const;

  // Recording.
  const std::vector<HostCall>& calls() const;
  std::vector<HostCall> callsTo(const std::string& fn) const;
  void clearCalls();

  // Contract breaks found so far (suite left acquired at the end of a command,
  // handle leaked or left locked, parameter checked out and not checked in,
  // unknown suite asked for, Drawbot object not released, ...), one line each,
  // prefixed with the command in which they were found.
  const std::vector<std::string>& contractBreaks() const;
  void clearContractBreaks();
  // Ends the session as the destructor does: disposes what the host owns (the
  // instance's sequence handle and flattened copy, handles made with
  // newHandle()), then reports
  // every live handle, world or SPBasic block the effect made as a leak.
  // Safe to call more than once.
  void finish();

  // Drawbot: the surface that draw events paint on (cleared to the panel
  // colour before each draw event). Default size 320 x 40.
  Surface& surface();
  void setSurfaceSize(int width, int height);

  struct Impl;  // internal; the C callbacks reach it

 private:
  friend class RenderHost;
  std::unique_ptr<Impl> impl_;
};

}  // namespace thost
