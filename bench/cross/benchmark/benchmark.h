// The part of Google Benchmark's interface that render_bench.cpp uses, for the
// cross builds (Google Benchmark has no mingw or arm64 package here). Each
// registered case runs its fixed number of iterations once; main() prints one
// line per case with its counters.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace benchmark {

enum TimeUnit { kMillisecond };

class State {
 public:
  explicit State(int64_t iterations) : iterations_(iterations) {}
  struct Iterator {
    int64_t left;
    bool operator!=(const Iterator&) const { return left > 0; }
    void operator++() { --left; }
    int operator*() const { return 0; }
  };
  Iterator begin() { return {iterations_}; }
  Iterator end() { return {0}; }
  int64_t iterations() const { return iterations_; }
  void SetIterationTime(double) {}
  void SetBytesProcessed(int64_t) {}
  std::map<std::string, double> counters;

 private:
  int64_t iterations_;
};

struct Benchmark {
  std::string name;
  std::function<void(State&)> fn;
  int64_t iterations = 1;
  Benchmark* Iterations(int64_t n) { iterations = n; return this; }
  Benchmark* UseManualTime() { return this; }
  Benchmark* Unit(TimeUnit) { return this; }
};

inline std::vector<std::unique_ptr<Benchmark>>& registry() {
  static std::vector<std::unique_ptr<Benchmark>> all;
  return all;
}

template <typename F>
Benchmark* RegisterBenchmark(const char* name, F fn) {
  registry().push_back(std::make_unique<Benchmark>());
  registry().back()->name = name;
  registry().back()->fn = fn;
  return registry().back().get();
}

inline void ClobberMemory() { asm volatile("" : : : "memory"); }

template <typename T>
inline void DoNotOptimize(T&& value) {
  asm volatile("" : : "r,m"(value) : "memory");
}

}  // namespace benchmark
