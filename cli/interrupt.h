// The signals that end a command (SIGINT, SIGTERM, SIGHUP) are caught while
// an InterruptGuard lives, so that the command stops at its next check and
// removes what it wrote instead of dying with temporary files left behind.
#pragma once

#include <array>
#include <csignal>

namespace cli {

// Thrown where a check finds a signal has come.
struct Interrupted {};

// The signal that asked the command to stop, 0 for none.
int interruptSignal();
// Throws Interrupted once a signal has come.
void throwIfInterrupted();

// Catches the signals while it lives and restores the previous handlers
// after. A file size limit (SIGXFSZ) is ignored instead: the write then fails
// with EFBIG and the command ends with that error, cleaning up the same way.
// Guards nest: an inner one keeps a signal that came before it.
class InterruptGuard {
 public:
  InterruptGuard();
  ~InterruptGuard();
  InterruptGuard(const InterruptGuard&) = delete;
  InterruptGuard& operator=(const InterruptGuard&) = delete;

 private:
  static constexpr std::array<int, 3> kSignals{SIGINT, SIGTERM, SIGHUP};
  std::array<struct sigaction, 3> old_ = {};
  struct sigaction oldXfsz_ = {};
  bool outermost_ = false;
};

}  // namespace cli
