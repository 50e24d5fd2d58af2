// libFuzzer's entry point for one target, chosen when the fuzzer is built.
#include <cstdio>
#include <cstdlib>

#include "fuzz_targets.h"

namespace fuzz {
void fail(const char* what) {
  std::fprintf(stderr, "fuzz finding: %s\n", what);
  std::abort();
}
}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return fuzz::TESSELUX_FUZZ_TARGET(data, size);
}
