#include "interrupt.h"

#include <atomic>

namespace cli {

namespace {

// A signal handler can reach nothing but a flag like this.
std::atomic<int> interruptFlag{0};
std::atomic<int> guardDepth{0};
extern "C" void onInterrupt(int sig) { interruptFlag.store(sig); }

}  // namespace

int interruptSignal() { return interruptFlag.load(); }

void throwIfInterrupted() {
  if (interruptFlag.load() != 0) throw Interrupted{};
}

InterruptGuard::InterruptGuard() : outermost_(guardDepth.fetch_add(1) == 0) {
  if (outermost_) interruptFlag.store(0);
  struct sigaction sa = {};
  sa.sa_handler = onInterrupt;
  sigemptyset(&sa.sa_mask);
  for (size_t i = 0; i < kSignals.size(); ++i) sigaction(kSignals[i], &sa, &old_[i]);
  struct sigaction ignore = {};
  ignore.sa_handler = SIG_IGN;
  sigemptyset(&ignore.sa_mask);
  sigaction(SIGXFSZ, &ignore, &oldXfsz_);
}

InterruptGuard::~InterruptGuard() {
  for (size_t i = 0; i < kSignals.size(); ++i) sigaction(kSignals[i], &old_[i], nullptr);
  sigaction(SIGXFSZ, &oldXfsz_, nullptr);
  guardDepth.fetch_sub(1);
}

}  // namespace cli
