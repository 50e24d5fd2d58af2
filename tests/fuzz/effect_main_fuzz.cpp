// EffectMain driven through the headless host by a sequence of commands taken
// from the bytes: sequence commands, renders (pre-render and smart render in
// After Effects, PF_Cmd_RENDER in both hosts) at every depth, UI commands,
// events, control values, composition settings, host API versions and
// injected host failures.
//
// A host sets an effect up once per process (global and parameter setup fill
// process-wide state that a second parameter setup must not meet), so each
// host identity gets its own copy of the module, set up on first use, and
// every input runs one instance lifecycle on it. Contract breaks count as
// findings unless an injected failure or a removed suite made the host
// misbehave in that input, in which case only crashes, sanitizer reports and
// escaping exceptions do.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "fuzz_input.h"
#include "fuzz_targets.h"
#include "thost/host.h"
#include "thost/render.h"

namespace fuzz {
namespace {

namespace fs = std::filesystem;
using thost::App;
using thost::Host;

enum Identity { kAfterEffects, kOldAfterEffects, kPremiere, kIdentities };

const char* const kFailingCalls[] = {
    "host_new_handle", "host_lock_handle", "host_unlock_handle", "host_dispose_handle",
    "host_get_handle_size", "host_resize_handle", "AcquireSuite", "ReleaseSuite", "sprintf",
    "strcpy", "checkout_param", "checkin_param", "PF_UpdateParamUI", "PF_GetDrawingReference",
    "GetSupplier", "GetSurface", "NewImageFromBuffer", "DrawImage", "ReleaseObject",
    "AddSupportedPixelFormat", "ClearSupportedPixelFormats",
    "EffectWantsCheckedOutFramesToMatchRenderPixelFormat", "GetPixelFormat", "PF_GetPixelFormat",
    "checkout_layer", "checkout_layer_pixels", "checkin_layer_pixels", "checkout_output",
    "PF_GetCurrentState", "PF_AreStatesIdentical"};

const struct {
  const char* name;
  int version;
} kSuites[] = {{"PF Handle Suite", 2},        {"PF Param Utils Suite", 3},
               {"PF World Suite", 2},         {"PF Pixel Format Suite", 1},
               {"PF Utility Suite", 4},       {"PF Effect Custom UI Suite", 1},
               {"DRAWBOT Draw Suite", 1},     {"DRAWBOT Supplier Suite", 1},
               {"DRAWBOT Surface Suite", 2},  {"DRAWBOT Path Suite", 1}};

// Small frames of a few sizes and origins, so time frames need padding now and then.
std::shared_ptr<const thost::Clip> clip() {
  static const auto layer = std::make_shared<thost::MemoryClip>(12, [](int k, thost::Depth d) {
    const int w = 12 + (k % 3) * 5, h = 9 + (k % 2) * 4;
    thost::Image img(w, h, d);
    for (size_t i = 0; i < img.pixels.size(); ++i)
      img.pixels[i] = static_cast<uint8_t>(i * 13 + k * 29);
    if (d == thost::Depth::Float32)  // keep floats finite and small
      for (size_t i = 3; i < img.pixels.size(); i += 4) img.pixels[i] &= 0x3F;
    img.originX = (k % 4) - 1;
    img.originY = (k % 3) - 1;
    return img;
  });
  return layer;
}

// A copy of the module per identity, so that each has its own process-wide state.
// The folder goes when the process ends normally; scripts/fuzz points TMPDIR
// at a folder it removes, for runs that end otherwise.
struct ModuleCopies {
  fs::path dir;
  ~ModuleCopies() {
    std::error_code ignored;
    fs::remove_all(dir, ignored);
  }
};

std::string moduleCopy(int identity) {
  static const ModuleCopies copies = [] {
    std::string pattern = (fs::temp_directory_path() / "tesselux-fuzz-XXXXXX").string();
    const char* made = mkdtemp(pattern.data());
    if (!made) fail("cannot make a folder for the module copies");
    return ModuleCopies{fs::path(made)};
  }();
  const fs::path copy = copies.dir / ("tesselux-" + std::to_string(identity) + ".so");
  if (!fs::exists(copy)) fs::copy_file(Host::defaultPluginPath(), copy);
  return copy.string();
}

struct SetUp {
  Host* host = nullptr;
  std::vector<PF_ParamDef> controls;  // as parameter setup left them
};

// The set-up host of an identity, kept for the whole process on purpose, with
// its controls put back to their defaults so that inputs do not see each other.
Host& hostFor(int identity) {
  static SetUp setUps[kIdentities];
  SetUp& s = setUps[identity];
  if (!s.host) {
    const App app = identity == kPremiere ? App::PremierePro : App::AfterEffects;
    const thost::ApiVersion version =
        identity == kOldAfterEffects ? thost::ApiVersion{13, 8} : thost::ApiVersion{13, 28};
    auto* h = new Host(moduleCopy(identity), app, version);
    if (h->registerPlugin() != A_Err_NONE || h->globalSetup() != PF_Err_NONE ||
        h->paramsSetup() != PF_Err_NONE || !h->contractBreaks().empty())
      fail("the effect cannot be set up in the host");
    s.host = h;
    for (A_long i = 0; i < h->numParams(); ++i) s.controls.push_back(h->param(i));
    h->setLayerClip(0, clip());
  }
  for (size_t i = 0; i < s.controls.size(); ++i)
    s.host->param(static_cast<PF_ParamIndex>(i)) = s.controls[i];
  return *s.host;
}

void setApi(Input& in, Host& h, int identity) {
  static const A_short kNew[][2] = {{13, 9}, {13, 22}, {13, 23}, {13, 24}, {13, 28}, {14, 0},
                                    {99, 0}};
  static const A_short kOld[][2] = {{13, 8}, {13, 0}, {12, 30}, {0, 0}, {-1, -1}};
  static const A_short kPr[][2] = {{13, 4}, {13, 28}, {12, 0}, {13, 23}};
  const auto pick = [&](const A_short(*table)[2], size_t n) {
    const A_short* v = table[in.u8() % n];
    h.setApiVersion(v[0], v[1]);
  };
  if (identity == kAfterEffects) pick(kNew, sizeof kNew / sizeof kNew[0]);
  if (identity == kOldAfterEffects) pick(kOld, sizeof kOld / sizeof kOld[0]);
  if (identity == kPremiere) pick(kPr, sizeof kPr / sizeof kPr[0]);
}

// Changes one control the way a host could hold it, sometimes past its range.
void setControl(Input& in, Host& h) {
  const A_long n = h.numParams();
  if (n < 2) return;
  PF_ParamDef& def = h.param(in.range(1, n - 1));
  const bool wild = in.u8() < 32;
  switch (def.param_type) {
    case PF_Param_POPUP:
      def.u.pd.value = wild ? in.i32() : in.range(1, def.u.pd.num_choices);
      break;
    case PF_Param_FIX_SLIDER:
      def.u.fd.value = wild ? in.i32() : in.range(def.u.fd.valid_min, def.u.fd.valid_max);
      break;
    case PF_Param_FLOAT_SLIDER:
      def.u.fs_d.value = wild ? in.rawDouble()
                              : in.nearRangeDouble(def.u.fs_d.valid_min, def.u.fs_d.valid_max);
      break;
    case PF_Param_CHECKBOX:
      def.u.bd.value = wild ? in.i32() : in.range(0, 1);
      break;
    default:
      break;
  }
}

PF_EventExtra event(Input& in, Host& h) {
  PF_EventExtra e{};
  e.contextH = h.contextHandle();
  e.e_type = static_cast<PF_EventType>(in.range(PF_Event_NEW_CONTEXT, PF_Event_MOUSE_EXITED));
  e.effect_win.index = in.range(0, h.numParams() > 0 ? h.numParams() - 1 : 0);
  e.effect_win.area = static_cast<PF_EffectArea>(in.range(PF_EA_NONE, PF_EA_CONTROL));
  e.effect_win.current_frame = PF_LRect{in.range(-20, 20), in.range(-20, 40), 320, 37};
  e.effect_win.param_title_frame = PF_LRect{in.range(-20, 20), in.range(-20, 20), 320, 17};
  e.u.do_click.when = in.u32();
  e.u.do_click.num_clicks = static_cast<A_short>(in.range(1, 2));
  return e;
}

}  // namespace

int effectMainOne(const uint8_t* data, size_t size) {
  Input in(data, size);
  const int identity = in.u8() % kIdentities;
  Host& h = hostFor(identity);
  h.clearCalls();
  h.clearParamUIUpdates();  // records, like the calls: kept, they grow with every input
  h.clearFailures();
  h.clearContractBreaks();
  for (const auto& s : kSuites) h.restoreSuite(s.name, s.version);
  setApi(in, h, identity);
  if (h.maskParamIndex() >= 0) h.setLayerClip(h.maskParamIndex(), in.flag() ? clip() : nullptr);
  bool hostMisbehaved = false;
  bool preRendered = false;

  const int commands = in.range(1, 24);
  for (int c = 0; c < commands && !in.empty(); ++c) {
    try {
      switch (in.u8() % 21) {
        case 0:
          h.about();
          break;
        case 1:
          h.globalSetup();
          break;
        case 2:
          h.sequenceSetup();
          break;
        case 3:
          if (!h.sequenceData() && in.flag()) {
            // A project saved by another version: a block of another size.
            PF_Handle saved = in.flag() ? h.newHandle(static_cast<A_u_longlong>(in.range(0, 6000)))
                                        : h.newEmptyHandle();
            h.setSequenceData(saved);
          }
          h.sequenceResetup();
          break;
        case 4:
          h.sequenceFlatten();
          break;
        case 5:
          h.getFlattenedSequenceData();
          break;
        case 6:
          h.sequenceSetdown();
          break;
        case 7:
          h.updateParamsUI();
          break;
        case 8:
          if (h.numParams() > 1) h.userChangedParam(in.range(1, h.numParams() - 1));
          break;
        case 9:
        case 10: {
          PF_EventExtra e = event(in, h);
          if (c % 2) e.e_type = PF_Event_DRAW;
          h.event(e);
          break;
        }
        case 11:
        case 12:
          setControl(in, h);
          break;
        case 13: {
          const size_t n = sizeof kFailingCalls / sizeof kFailingCalls[0];
          const char* fn = kFailingCalls[in.u8() % n];
          const PF_Err err = in.flag() ? PF_Err_OUT_OF_MEMORY : in.i32();
          h.failCall(fn, err, in.range(0, 3));
          break;
        }
        case 14: {
          const auto& s = kSuites[in.u8() % (sizeof kSuites / sizeof kSuites[0])];
          h.removeSuite(s.name, s.version);
          hostMisbehaved = true;
          break;
        }
        case 15: {
          // Any time; steps and scales as a host has them (positive), but of any size.
          const A_long current = in.i32();
          const A_long step = in.flag() ? in.range(1, 3000) : in.range(1, INT32_MAX);
          const A_long total = in.flag() ? in.range(1, 300000) : in.i32();
          const auto scale =
              static_cast<A_u_long>(in.flag() ? in.range(1, 240000) : in.range(1, INT32_MAX));
          h.setTime(current, step, total, scale);
          break;
        }
        case 16: {
          const PF_RationalScale x{in.i32(), in.u32()};
          const PF_RationalScale y{in.i32(), in.u32()};
          h.setDownsample(x, y);
          break;
        }
        case 17:
        case 18: {
          const uint8_t depth = in.u8() % 3;
          h.setRenderDepth(depth == 0 ? thost::Depth::Bits8
                                      : depth == 1 ? thost::Depth::Bits16 : thost::Depth::Float32);
          if (identity == kPremiere || in.u8() < 40) {
            h.legacyRender();
            preRendered = false;  // a new render drops the last pre-render
          } else {
            preRendered = true;
            if (h.preRender() == PF_Err_NONE && in.u8() < 240) h.smartRender();
          }
          break;
        }
        case 19:
          // Another smart render of the last pre-render, as a host may ask.
          if (preRendered) h.smartRender();
          break;
        default: {
          // Commands that carry no extra record, by number, known or not.
          const PF_Cmd cmd = in.range(0, 40);
          if (cmd == PF_Cmd_PARAMS_SETUP || cmd == PF_Cmd_EVENT || cmd == PF_Cmd_USER_CHANGED_PARAM ||
              cmd == PF_Cmd_SMART_PRE_RENDER || cmd == PF_Cmd_SMART_RENDER ||
              cmd == PF_Cmd_RENDER)
            break;
          h.send(cmd);
          break;
        }
      }
    } catch (const std::exception& e) {
      std::fprintf(stderr, "exception: %s\n", e.what());
      fail("an exception escaped EffectMain");
    }
  }

  // End the instance as a host does, with the host behaving again.
  hostMisbehaved = hostMisbehaved || h.failuresFired() > 0;
  h.clearFailures();
  for (const auto& s : kSuites) h.restoreSuite(s.name, s.version);
  if (h.sequenceData()) h.sequenceSetdown();
  // Whatever the effect made and still holds is this input's: reported here,
  // then dropped, so that a leak a failing host caused is not blamed on a
  // later input in which the host behaved.
  h.finish();
  h.setTime(0, 100, 30000, 3000);
  h.setDownsample(PF_RationalScale{1, 1}, PF_RationalScale{1, 1});
  h.setRenderDepth(thost::Depth::Bits8);
  if (!hostMisbehaved && !h.contractBreaks().empty()) {
    for (const std::string& line : h.contractBreaks())
      std::fprintf(stderr, "contract break: %s\n", line.c_str());
    fail("a contract break with a well-behaved host");
  }
  h.clearContractBreaks();
  h.clearCalls();
  h.clearParamUIUpdates();
  return 0;
}

}  // namespace fuzz
