// The dynamic symbols a shared object defines, as `nm -D --defined-only` lists
// them; on Windows the names in the DLL's export directory.
#pragma once

#ifdef _WIN32
#include <windows.h>
#endif

#include <cstdio>
#include <set>
#include <sstream>
#include <string>

namespace test_support {

#ifdef _WIN32
// Empty when the module cannot be mapped.
inline std::set<std::string> exportedSymbols(const std::string& path) {
  std::set<std::string> names;
  HMODULE module = LoadLibraryExA(path.c_str(), nullptr, DONT_RESOLVE_DLL_REFERENCES);
  if (!module) return names;
  const auto* base = reinterpret_cast<const unsigned char*>(module);
  const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
  const IMAGE_DATA_DIRECTORY& dir = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
  if (dir.VirtualAddress != 0) {
    const auto* exports = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(base + dir.VirtualAddress);
    const auto* nameRvas = reinterpret_cast<const DWORD*>(base + exports->AddressOfNames);
    for (DWORD i = 0; i < exports->NumberOfNames; ++i)
      names.insert(reinterpret_cast<const char*>(base + nameRvas[i]));
    // Exports by number only would have no name: count them as unnamed entries.
    for (DWORD i = exports->NumberOfNames; i < exports->NumberOfFunctions; ++i)
      names.insert("#" + std::to_string(exports->Base + i));
  }
  FreeLibrary(module);
  return names;
}
#else
// Empty when nm cannot be run or fails on the file.
inline std::set<std::string> exportedSymbols(const std::string& path) {
  std::set<std::string> names;
  FILE* pipe = popen(("nm -D --defined-only '" + path + "'").c_str(), "r");
  if (!pipe) return names;
  char line[1024];
  while (fgets(line, sizeof line, pipe)) {
    std::istringstream in(line);
    std::string address, type, name;
    in >> address >> type >> name;
    if (!name.empty()) names.insert(name);
  }
  if (pclose(pipe) != 0) names.clear();
  return names;
}
#endif

}  // namespace test_support
