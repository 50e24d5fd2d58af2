// Everything of an input video but the picture, carried into the output the
// way ffmpeg would: audio, subtitle and data streams copied where the output
// container holds them, audio it cannot hold re-encoded to the container's
// default audio codec (AAC for MP4/MOV, Opus for WebM), text subtitles it
// cannot hold converted to its own text format, anything else left out with
// a one-line warning; the container's and the streams' tags kept.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "io/av_common.h"

namespace cli::av {

// The part of the input the written frames cover, in seconds from the first
// video frame; `whole` keeps every packet.
struct StreamRange {
  double start = 0, end = 0;
  bool whole = true;
};

class AudioEncoder;
class SubtitleEncoder;

class SideStreams {
 public:
  // Opens `from` and adds the output streams for it to `oc` (after the video
  // stream, which must exist already); `outPath` names the output in messages.
  SideStreams(const std::string& from, const std::string& outPath, AVFormatContext* oc, StreamRange range);
  ~SideStreams();
  SideStreams(const SideStreams&) = delete;
  SideStreams& operator=(const SideStreams&) = delete;

  // The input's video stream tags (language, title, timecode...) and display
  // matrix-free side data onto `video`, its container tags onto the output.
  void copyTags(AVStream* video) const;
  // Field order of the input's video, for the encoder.
  AVFieldOrder fieldOrder() const;
  // Writes the packets up to `until` seconds of output time.
  void pump(double until);
  // Writes the rest and drains the encoders.
  void finish();

 private:
  struct Route {
    int out = -1;                          // output stream index, -1 for left out
    std::unique_ptr<AudioEncoder> encoder;  // set when re-encoded
    std::unique_ptr<SubtitleEncoder> subtitles;  // set when converted
  };
  void addStream(unsigned index);
  bool writeOne(AVPacket* pkt);
  bool inRange(const AVPacket* pkt) const;

  std::string outPath_;
  AVFormatContext* oc_;
  StreamRange range_;
  FormatPtr in_;
  int video_ = -1;
  double shift_ = 0;  // input seconds that become output time 0
  std::vector<Route> routes_;
  PacketPtr pending_;
  bool done_ = false;
};

}  // namespace cli::av
