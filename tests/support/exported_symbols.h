// The dynamic symbols a shared object defines, as `nm -D --defined-only` lists them.
#pragma once

#include <cstdio>
#include <set>
#include <sstream>
#include <string>

namespace test_support {

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

}  // namespace test_support
