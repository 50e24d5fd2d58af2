#include "av_log_capture.h"

extern "C" {
#include <libavutil/dict.h>
#include <libavutil/log.h>
}

#include <stdlib.h>

#include <cstdarg>
#include <cstdio>
#include <mutex>

namespace cli {

namespace {

// The capture of this thread, if any. FFmpeg's log hook is one for the
// process; each thread's messages go to that thread's capture only.
thread_local AvLogCapture* current = nullptr;

}  // namespace

struct AvLogSink {
  static void log(void* avcl, int level, const char* fmt, va_list vl) {
    AvLogCapture* c = current;
    if (!c) {
      av_log_default_callback(avcl, level, fmt, vl);
      return;
    }
    if (level > AV_LOG_ERROR) return;
    char buf[1024];
    std::vsnprintf(buf, sizeof buf, fmt, vl);
    c->partial_ += buf;
    for (size_t nl; (nl = c->partial_.find('\n')) != std::string::npos;) {
      std::string line = c->partial_.substr(0, nl);
      c->partial_.erase(0, nl + 1);
      while (!line.empty() && (line.back() == ' ' || line.back() == '.' || line.back() == '\r')) line.pop_back();
      if (!line.empty()) c->lines_.push_back(line);
    }
  }
};

AvLogCapture::AvLogCapture() : previous_(current) {
  static std::once_flag installed;
  std::call_once(installed, [] { av_log_set_callback(AvLogSink::log); });
  current = this;
}

AvLogCapture::~AvLogCapture() { current = previous_; }

std::string AvLogCapture::text() const {
  std::string out;
  std::vector<std::string> all = lines_;
  if (!partial_.empty()) all.push_back(partial_);
  for (const std::string& l : all) out += (out.empty() ? "" : "; ") + l;
  return out;
}

void quietEncoder(const std::string& name, AVDictionary** options) {
  if (name == "libx265") av_dict_set(options, "x265-params", "log-level=error", 0);
  // SVT-AV1 reads its level from the environment when its first encoder starts.
  if (name == "libsvtav1") setenv("SVT_LOG", "1", 0);
}

std::string withLibraryReason(const std::string& what, const AvLogCapture& capture,
                              const std::string& fallback) {
  const std::string said = capture.text();
  return what + ": " + (said.empty() ? fallback : said);
}

}  // namespace cli
