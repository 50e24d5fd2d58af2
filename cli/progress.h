// One self-rewriting line on stderr while frames are written: done/total,
// frames per second and time left. Silent unless stderr is a terminal.
#pragma once

#include <chrono>
#include <cstdio>
#include <string>

namespace cli {

class Progress {
 public:
  Progress(int total, bool enabled);
  ~Progress();  // ends the line
  void tick();  // one more frame written
  int done() const { return done_; }
  double elapsedSeconds() const;

 private:
  using Clock = std::chrono::steady_clock;
  int total_;
  int done_ = 0;
  bool enabled_;
  bool drawn_ = false;
  Clock::time_point start_;
  Clock::time_point lastDraw_;
};

// True when stderr is a terminal.
bool stderrIsTerminal();

}  // namespace cli
