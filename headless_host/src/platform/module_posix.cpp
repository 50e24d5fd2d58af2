// Loading the module with dlopen (Linux, macOS). There is no resource to read
// the PiPL from: the host carries the effect's generated description instead.
#include <dlfcn.h>

#include <stdexcept>

#include "thost/host.h"
#if __has_include("tesselux_pipl_bytes.h")
#include "tesselux_pipl_bytes.h"
#define THOST_HAVE_EFFECT_PIPL 1
#endif

namespace thost {

PluginModule::PluginModule(const std::string& path) : path_(path) {
  handle_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle_) {
    const char* why = dlerror();
    throw std::runtime_error("cannot load plug-in module: " + std::string(why ? why : path));
  }
  auto resolve = [this](const char* name) {
    dlerror();
    void* sym = dlsym(handle_, name);
    if (!sym) {
      const char* why = dlerror();
      const std::string text = why ? why : std::string(name) + ": symbol is null";
      dlclose(handle_);
      handle_ = nullptr;
      throw std::runtime_error("plug-in module " + path_ + " lacks " + name + ": " + text);
    }
    return sym;
  };
  // The module exports plain C functions; dlsym hands them out as void*.
  dataEntry_ = reinterpret_cast<PF_PluginDataEntryFunc>(resolve("PluginDataEntryFunction"));
  effectMain_ = reinterpret_cast<PF_FilterProc>(resolve("EffectMain"));
#ifdef THOST_HAVE_EFFECT_PIPL
  pipl_.assign(kTesseluxPiPL, kTesseluxPiPL + sizeof kTesseluxPiPL);
#endif
}

PluginModule::~PluginModule() {
  if (handle_) dlclose(handle_);
}

}  // namespace thost
