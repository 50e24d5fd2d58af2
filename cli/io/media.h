// Reading and writing clips: stills and numbered image sequences through
// OpenImageIO, videos through FFmpeg's libraries. A still is a clip of one
// frame.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "pixels.h"

namespace cli {

// A file that cannot be read or written; the message names it.
struct MediaError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct Rate {
  int num = 30, den = 1;
  double fps() const { return static_cast<double>(num) / den; }
};

// Colour and geometry tags of a video stream, carried to the output.
struct VideoTags {
  int colorRange = 0, colorPrimaries = 2, colorTrc = 2, colorSpace = 2, chromaLocation = 0;
  int sarNum = 0, sarDen = 1;
};

// The channels and samples a file holds, for outputs that can hold the same:
// grey stays grey, RGB gets no alpha, half floats stay half.
struct PixelLayout {
  int channels = 4;   // 1 grey, 2 grey and alpha, 3 RGB, 4 RGBA
  bool half = false;  // half-float samples (OpenEXR)
};

enum class MediaKind { Still, Sequence, Video, Null };

// Refuses a picture larger than a host world can be (PF_MAX_WORLD_WIDTH x
// PF_MAX_WORLD_HEIGHT): a damaged or hostile header would otherwise have the
// readers allocate gigabytes.
inline void checkSize(const std::string& path, long width, long height) {
  if (width > PF_MAX_WORLD_WIDTH || height > PF_MAX_WORLD_HEIGHT)
    throw MediaError(path + ": " + std::to_string(width) + " x " + std::to_string(height) +
                     " is larger than a host world can be (" + std::to_string(PF_MAX_WORLD_WIDTH) +
                     " x " + std::to_string(PF_MAX_WORLD_HEIGHT) + ")");
}

// How an output path is treated: "null:" discards, a name libavformat has a
// muxer for (other than its image writer) a video, taken as it stands; a name
// with a frame number ("%04d", or oiiotool's "#" for four digits and "@" for
// one) a sequence, unless a file of that very name exists; any other a still.
MediaKind mediaKind(const std::string& path);

// How an input is read: sequences and "null:" by name, any other file by its
// content: what libavformat's probe takes for a single image (and what it
// does not recognise) is a still for OpenImageIO, everything else a video
// (animated GIF and APNG included, with all their frames).
MediaKind sourceKind(const std::string& path);

// File `number` of a sequence pattern.
std::string sequenceName(const std::string& pattern, long number);

// Frames of a clip by index; one caller at a time.
class FrameSource {
 public:
  virtual ~FrameSource() = default;
  virtual int frameCount() const = 0;
  // The type frames are read in (half-float files read as float).
  virtual SampleType sampleType() const = 0;
  // The file's own rate, for videos.
  virtual std::optional<Rate> rate() const { return std::nullopt; }
  virtual std::optional<VideoTags> tags() const { return std::nullopt; }
  virtual std::optional<PixelLayout> layout() const { return std::nullopt; }
  // Each frame's presentation time in seconds from the first, for videos
  // (variable-rate ones keep them); empty for stills and sequences.
  virtual std::vector<double> frameTimes() const { return {}; }
  // Size of frame k without decoding it where the format allows.
  virtual std::pair<int, int> frameSize(int k) const = 0;
  virtual Picture read(int k) = 0;
  // Frame k in host pixels of the given depth, converted by the host rules;
  // a source that can decode straight into them (8-bit video) does so.
  virtual thost::Image readHost(int k, thost::Depth depth) { return toHost(read(k), depth, pixelPool); }
  // Frames readHost() decodes on the way to another (videos decoding forward
  // from a key frame), in the depth asked, are handed here when set, so a
  // cache can keep them.
  std::function<void(int, thost::Image&&)> onSideFrame;
  // Memory for the host images readHost() makes, when set.
  std::shared_ptr<thost::PixelPool> pixelPool;
};

std::unique_ptr<FrameSource> openSource(const std::string& path);

struct SinkSettings {
  std::string path;
  Rate rate;
  thost::Depth depth = thost::Depth::Bits8;
  int frameCount = 1;   // frames that will be written
  long firstNumber = 0; // sequence number of the first frame written
  std::string codec;    // video: empty for the container's default
  // video: the muxer by name (nut, matroska, y4m...), else by the path's
  // extension; a path of "-" writes to standard output and needs it
  std::string format;
  int crf = 18;         // video: H.264/H.265 quality
  std::optional<VideoTags> tags;
  // stills: the input's channels and samples, kept where the format holds them
  std::optional<PixelLayout> layout;
  // video: each written frame's time in seconds from the first written one,
  // from a variable-rate input; empty writes frames at `rate`.
  std::vector<double> frameTimes;
  // Audio to copy into a video output: the input file and the time range
  // (seconds) the written frames cover; empty path for none.
  std::string audioFrom;
  double audioStart = 0, audioEnd = 0;
  bool wholeClip = true;  // copy every audio packet, not only those in range
  bool quiet = false;     // video: encoders print no banner of their own (-q)
};

// Frames written in order. Nothing appears under the final name until
// commit(); a sink destroyed uncommitted removes what it wrote.
class FrameSink {
 public:
  virtual ~FrameSink() = default;
  // The sample type write() takes (from the host depth and what the format holds).
  virtual SampleType sampleType() const = 0;
  virtual void write(const Picture& picture) = 0;
  // Whether writeHost() takes host pixels of this depth straight (8-bit
  // video); otherwise callers on many threads convert them with fromHost()
  // first and call write(), so the conversion does not run one frame at a time.
  virtual bool takesHost(thost::Depth) const { return false; }
  // A rendered host picture; a sink that can convert straight from host
  // pixels (8-bit video) does so.
  virtual void writeHost(const thost::Image& image) { write(fromHost(image, sampleType())); }
  // A host picture made ready for the encoder on any thread, straight after
  // its render while it is still in the cache, for writePrepared() to write
  // in order; null where the sink has no such step for it (then writeHost()).
  struct Prepared {
    virtual ~Prepared() = default;
  };
  virtual std::shared_ptr<Prepared> prepareHost(const thost::Image&) const { return nullptr; }
  virtual void writePrepared(const Prepared&) { throw std::logic_error("this sink prepares no frames"); }
  virtual void commit() = 0;
};

std::unique_ptr<FrameSink> openSink(const SinkSettings& settings);

// Standard input copied into a temporary file, removed with this: the video
// reader indexes a stream before decoding it and seeks back in it, which a
// pipe cannot do.
class StdinSpool {
 public:
  StdinSpool();
  ~StdinSpool();
  StdinSpool(const StdinSpool&) = delete;
  StdinSpool& operator=(const StdinSpool&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// Sample type an image file of this name is written in for a host depth.
SampleType imageSampleType(const std::string& path, thost::Depth depth);

// Writes one still (through a temporary name and a rename).
void writeImage(const std::string& path, const Picture& picture);

// A temporary name beside `path`, keeping its extension so the format is chosen by it.
std::string temporaryName(const std::string& path);

}  // namespace cli
