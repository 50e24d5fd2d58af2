// What FFmpeg's libraries say when they refuse something: an encoder that
// will not open logs its reason ("the specified picture size ... is not
// valid", "width not divisible by 2") and returns only EINVAL. While a capture
// lives on a thread, the error lines logged on that thread are kept for the
// message; nothing is printed.
#pragma once

#include <string>
#include <vector>

struct AVDictionary;

namespace cli {

class AvLogCapture {
 public:
  AvLogCapture();
  ~AvLogCapture();
  AvLogCapture(const AvLogCapture&) = delete;
  AvLogCapture& operator=(const AvLogCapture&) = delete;
  // The error lines logged so far, joined with "; " (empty when none).
  std::string text() const;

 private:
  friend struct AvLogSink;
  std::vector<std::string> lines_;
  std::string partial_;
  AvLogCapture* previous_;
};

// `what` followed by what the libraries said, else by `fallback` (their error code's text).
std::string withLibraryReason(const std::string& what, const AvLogCapture& capture,
                              const std::string& fallback);

// Encoders that print to stderr themselves, not through FFmpeg's log (x265's
// banner and summary, SVT-AV1's banner), are told to print errors only.
void quietEncoder(const std::string& name, AVDictionary** options);

}  // namespace cli
