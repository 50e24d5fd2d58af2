// Runs every registered case whose name contains argv[1] (all without one).
#include <cstring>

#include "benchmark/benchmark.h"

int main(int argc, char** argv) {
  const char* filter = argc > 1 ? argv[1] : "";
  for (const auto& b : benchmark::registry()) {
    if (b->name.find(filter) == std::string::npos) continue;
    benchmark::State state(b->iterations);
    b->fn(state);
    std::printf("%-40s", b->name.c_str());
    for (const auto& [key, value] : state.counters) std::printf(" %s=%.4g", key.c_str(), value);
    std::printf("\n");
    std::fflush(stdout);
  }
  return 0;
}
