#include "malloc_failure.h"

#include <link.h>

#include <atomic>
#include <cstdint>
#include <cstring>

extern "C" void* __libc_malloc(size_t size);

namespace {

std::atomic<uintptr_t> g_begin{0}, g_end{0};
std::atomic<int> g_nth{0}, g_seen{0};
std::atomic<bool> g_fired{false};

struct Search {
  const char* suffix;
  uintptr_t begin, end;
};

int findModule(dl_phdr_info* info, size_t, void* data) {
  auto* s = static_cast<Search*>(data);
  const size_t n = std::strlen(info->dlpi_name), m = std::strlen(s->suffix);
  if (n < m || std::strcmp(info->dlpi_name + n - m, s->suffix) != 0) return 0;
  for (int i = 0; i < info->dlpi_phnum; ++i) {
    const ElfW(Phdr)& p = info->dlpi_phdr[i];
    if (p.p_type != PT_LOAD || !(p.p_flags & PF_X)) continue;
    s->begin = info->dlpi_addr + p.p_vaddr;
    s->end = s->begin + p.p_memsz;
    return 1;
  }
  return 0;
}

}  // namespace

namespace malloc_failure {

bool arm(const std::string& moduleSuffix, int nth) {
  Search s{moduleSuffix.c_str(), 0, 0};
  dl_iterate_phdr(findModule, &s);
  if (!s.begin) return false;
  g_seen = 0;
  g_fired = false;
  g_begin = s.begin;
  g_end = s.end;
  g_nth = nth;
  return true;
}

void disarm() { g_nth = 0; }
int seen() { return g_seen; }
bool fired() { return g_fired; }

}  // namespace malloc_failure

extern "C" void* malloc(size_t size) {
  if (g_nth > 0) {
    const auto caller = reinterpret_cast<uintptr_t>(__builtin_return_address(0));
    if (caller >= g_begin && caller < g_end && ++g_seen == g_nth) {
      g_fired = true;
      g_nth = 0;
      return nullptr;
    }
  }
  return __libc_malloc(size);
}
