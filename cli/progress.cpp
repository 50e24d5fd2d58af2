#include "progress.h"

#include <unistd.h>

namespace cli {

bool stderrIsTerminal() { return isatty(STDERR_FILENO) == 1; }

Progress::Progress(int total, bool enabled)
    : total_(total), enabled_(enabled), start_(Clock::now()), lastDraw_(start_) {}

Progress::~Progress() {
  if (drawn_) std::fprintf(stderr, "\n");
}

double Progress::elapsedSeconds() const {
  return std::chrono::duration<double>(Clock::now() - start_).count();
}

void Progress::tick() {
  ++done_;
  if (!enabled_) return;
  const Clock::time_point now = Clock::now();
  // A few redraws a second are enough, and the last frame always shows.
  if (done_ != total_ && now - lastDraw_ < std::chrono::milliseconds(200)) return;
  lastDraw_ = now;
  const double seconds = std::chrono::duration<double>(now - start_).count();
  const double fps = seconds > 0 ? done_ / seconds : 0.0;
  const int left = fps > 0 ? static_cast<int>((total_ - done_) / fps + 0.5) : 0;
  std::fprintf(stderr, "\r  frame %d/%d  %.1f fps  %d:%02d left  ", done_, total_, fps, left / 60, left % 60);
  std::fflush(stderr);
  drawn_ = true;
}

}  // namespace cli
