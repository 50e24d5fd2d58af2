// Loading the module with LoadLibrary (Windows). As After Effects does there,
// the PiPL resource (type "PiPL", id 16000) is read out of the module and the
// effect's entry point is the name its "8664" code property gives.
#include <windows.h>

#include <stdexcept>

#include "thost/host.h"
#include "thost/pipl.h"

namespace thost {

namespace {

std::wstring widen(const std::string& utf8) {
  if (utf8.empty()) return {};
  const int n = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), nullptr, 0);
  std::wstring w(static_cast<std::size_t>(n), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), w.data(), n);
  return w;
}

std::string lastError() { return "Windows error " + std::to_string(GetLastError()); }

// Resource type names compare without case; MAKEINTRESOURCE ids are numbers.
std::vector<uint8_t> readPiPL(HMODULE module) {
  HRSRC found = FindResourceW(module, MAKEINTRESOURCEW(16000), L"PIPL");
  if (!found) return {};
  HGLOBAL loaded = LoadResource(module, found);
  const DWORD size = SizeofResource(module, found);
  const auto* bytes = loaded ? static_cast<const uint8_t*>(LockResource(loaded)) : nullptr;
  if (!bytes) return {};
  return std::vector<uint8_t>(bytes, bytes + size);
}

}  // namespace

PluginModule::PluginModule(const std::string& path) : path_(path) {
  HMODULE module = LoadLibraryW(widen(path).c_str());
  if (!module) throw std::runtime_error("cannot load plug-in module " + path + ": " + lastError());
  handle_ = module;
  auto fail = [this, module](const std::string& why) {
    FreeLibrary(module);
    handle_ = nullptr;
    throw std::runtime_error("plug-in module " + path_ + ": " + why);
  };
  pipl_ = readPiPL(module);
  piplFromModule_ = true;
  if (pipl_.empty()) fail("no PiPL resource (type PiPL, id 16000)");
  PiPLDescription d;
  std::string error;
  if (!parsePiPL(pipl_.data(), pipl_.size(), d, error)) fail("malformed PiPL: " + error);
  if (d.entryPoint.empty()) fail("the PiPL names no Windows x64 entry point (8664)");
  auto resolve = [&](const char* name) {
    FARPROC sym = GetProcAddress(module, name);
    if (!sym) fail(std::string("lacks ") + name + ": " + lastError());
    return sym;
  };
  dataEntry_ = reinterpret_cast<PF_PluginDataEntryFunc>(resolve("PluginDataEntryFunction"));
  effectMain_ = reinterpret_cast<PF_FilterProc>(resolve(d.entryPoint.c_str()));
}

PluginModule::~PluginModule() {
  if (handle_) FreeLibrary(static_cast<HMODULE>(handle_));
}

}  // namespace thost
