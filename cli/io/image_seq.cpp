// Stills and numbered image sequences; the codec module encodes and decodes them.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>

#include "io/image_codec.h"
#include "io/media.h"

namespace cli {

namespace fs = std::filesystem;

namespace {

std::string lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

std::string extensionOf(const std::string& path) {
  return lower(fs::path(path).extension().string());
}

// The position and length of the frame number's place in a pattern: printf's
// "%d" / "%04d", else, in the file's own name, oiiotool's run of "#" (four
// digits each) and "@" (one digit each).
bool findConversion(const std::string& pattern, size_t& at, size_t& len) {
  for (size_t i = 0; i < pattern.size(); ++i) {
    if (pattern[i] != '%') continue;
    size_t j = i + 1;
    while (j < pattern.size() && std::isdigit(static_cast<unsigned char>(pattern[j]))) ++j;
    if (j < pattern.size() && pattern[j] == 'd') {
      at = i;
      len = j + 1 - i;
      return true;
    }
  }
  const size_t slash = pattern.find_last_of('/');
  at = pattern.find_first_of("#@", slash == std::string::npos ? 0 : slash + 1);
  if (at == std::string::npos) return false;
  len = pattern.find_first_not_of("#@", at);
  len = (len == std::string::npos ? pattern.size() : len) - at;
  return true;
}

class ImageSource : public FrameSource {
 public:
  explicit ImageSource(std::vector<std::string> files) : codec_(loadImageCodec()), files_(std::move(files)) {
    headers_.reserve(files_.size());
    for (const std::string& f : files_) headers_.push_back(codec_->readHeader(f));
    type_ = headers_.front().type;
    // Frames of different types read in the deepest of them.
    for (const ImageHeader& h : headers_)
      if (sampleBytes(h.type) > sampleBytes(type_)) type_ = h.type;
  }
  int frameCount() const override { return static_cast<int>(files_.size()); }
  SampleType sampleType() const override { return type_; }
  // The first file's, when every file has it.
  std::optional<PixelLayout> layout() const override {
    const PixelLayout first = headers_.front().layout;
    for (const ImageHeader& h : headers_)
      if (h.layout.channels != first.channels || h.layout.half != first.half) return std::nullopt;
    return first;
  }
  std::pair<int, int> frameSize(int k) const override {
    return {headers_[static_cast<size_t>(k)].width, headers_[static_cast<size_t>(k)].height};
  }
  Picture read(int k) override {
    Picture p = codec_->readPicture(files_[static_cast<size_t>(k)]);
    return p.type == type_ ? p : convert(p, type_);
  }

 private:
  std::shared_ptr<const ImageCodec> codec_;
  std::vector<std::string> files_;
  std::vector<ImageHeader> headers_;
  SampleType type_ = SampleType::U8;
};

std::vector<std::string> sequenceFiles(const std::string& pattern) {
  size_t at = 0, len = 0;
  findConversion(pattern, at, len);
  const fs::path dir = fs::path(pattern).parent_path();
  const std::string dirName = dir.empty() ? "." : dir.string();
  std::error_code ec;
  if (!fs::is_directory(dirName, ec)) throw MediaError(pattern + ": folder " + dirName + " does not exist");
  const std::string prefix = pattern.substr(0, at);
  const std::string suffix = pattern.substr(at + len);
  std::set<long> numbers;
  for (const auto& entry : fs::directory_iterator(dirName, ec)) {
    std::string name = entry.path().string();
    if (dir.empty() && name.rfind("./", 0) == 0) name = name.substr(2);
    if (name.size() <= prefix.size() + suffix.size() || name.compare(0, prefix.size(), prefix) != 0 ||
        name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0)
      continue;
    const std::string digits = name.substr(prefix.size(), name.size() - prefix.size() - suffix.size());
    if (digits.empty() || digits.size() > 18 ||
        !std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; }))
      continue;
    const long n = std::stol(digits);
    if (sequenceName(pattern, n) == name) numbers.insert(n);
  }
  if (numbers.empty()) throw MediaError(pattern + ": no numbered files match");
  std::vector<std::string> files;
  long n = *numbers.begin();
  for (; numbers.count(n); ++n) files.push_back(sequenceName(pattern, n));
  // A gap would silently end the clip early: name the first missing file.
  if (files.size() != numbers.size())
    throw MediaError(pattern + ": " + sequenceName(pattern, n) + " is missing (the files run from " +
                     std::to_string(*numbers.begin()) + " to " + std::to_string(*numbers.rbegin()) +
                     ")");
  return files;
}

class ImageSink : public FrameSink {
 public:
  explicit ImageSink(const SinkSettings& s, bool sequence)
      : codec_(loadImageCodec()), s_(s), sequence_(sequence), type_(imageSampleType(s.path, s.depth)) {
    const fs::path dir = fs::path(sequence ? sequenceName(s.path, 0) : s.path).parent_path();
    std::error_code ec;
    if (!dir.empty() && !fs::is_directory(dir, ec))
      throw MediaError(s.path + ": folder " + dir.string() + " does not exist");
  }
  ~ImageSink() override {
    if (!committed_)
      for (const auto& [tmp, final] : written_) std::remove(tmp.c_str());
  }
  SampleType sampleType() const override { return type_; }
  void write(const Picture& picture) override {
    const std::string final = sequence_ ? sequenceName(s_.path, s_.firstNumber + next_) : s_.path;
    ++next_;
    const std::string tmp = temporaryName(final);
    written_.emplace_back(tmp, final);
    codec_->write(tmp, final, picture, s_.layout ? &*s_.layout : nullptr);
  }
  void commit() override {
    for (const auto& [tmp, final] : written_)
      if (std::rename(tmp.c_str(), final.c_str()) != 0)
        throw MediaError(final + ": cannot rename into place: " + std::strerror(errno));
    committed_ = true;
  }

 private:
  std::shared_ptr<const ImageCodec> codec_;
  SinkSettings s_;
  bool sequence_;
  SampleType type_;
  long next_ = 0;
  bool committed_ = false;
  std::vector<std::pair<std::string, std::string>> written_;
};

class NullSink : public FrameSink {
 public:
  explicit NullSink(thost::Depth depth) : type_(autoType(depth)) {}
  SampleType sampleType() const override { return type_; }
  void write(const Picture&) override {}
  void commit() override {}

 private:
  static SampleType autoType(thost::Depth d) {
    return d == thost::Depth::Bits8 ? SampleType::U8 : d == thost::Depth::Bits16 ? SampleType::U16 : SampleType::F32;
  }
  SampleType type_;
};

}  // namespace

// Defined in video_reader.cpp and video_writer.cpp.
std::unique_ptr<FrameSource> openVideoSource(const std::string& path);
std::unique_ptr<FrameSink> openVideoSink(const SinkSettings& settings);
bool videoMuxerFor(const std::string& path);
std::optional<bool> stillByContent(const std::string& path);

MediaKind mediaKind(const std::string& path) {
  if (path == "null:" || path == "null") return MediaKind::Null;
  if (path == "-") return MediaKind::Video;  // a stream, through a pipe
  // As ffmpeg does, a video name is taken as it stands ("50%done.mp4"); a
  // number pattern is for image files, and a file of that very name wins.
  if (videoMuxerFor(path)) return MediaKind::Video;
  size_t at = 0, len = 0;
  std::error_code ec;
  if (findConversion(path, at, len) && !fs::is_regular_file(path, ec)) return MediaKind::Sequence;
  return MediaKind::Still;
}

MediaKind sourceKind(const std::string& path) {
  const MediaKind byName = mediaKind(path);
  if (byName == MediaKind::Sequence || byName == MediaKind::Null) return byName;
  const std::optional<bool> still = stillByContent(path);
  if (still) return *still ? MediaKind::Still : MediaKind::Video;
  return byName;
}

std::string sequenceName(const std::string& pattern, long number) {
  size_t at = 0, len = 0;
  if (!findConversion(pattern, at, len)) return pattern;
  char buf[64];
  if (pattern[at] == '%') {
    const std::string conv = pattern.substr(at, len - 1) + "ld";
    std::snprintf(buf, sizeof buf, conv.c_str(), number);
  } else {
    const std::string run = pattern.substr(at, len);
    const int digits = static_cast<int>(4 * std::count(run.begin(), run.end(), '#') +
                                        std::count(run.begin(), run.end(), '@'));
    std::snprintf(buf, sizeof buf, "%0*ld", std::min(digits, 40), number);
  }
  return pattern.substr(0, at) + buf + pattern.substr(at + len);
}

std::string temporaryName(const std::string& path) {
  static std::atomic<unsigned> counter{0};
  const fs::path p(path);
  const std::string name = "." + p.stem().string() + ".partial-" + std::to_string(getpid()) + "-" +
                           std::to_string(counter++) + p.extension().string();
  return (p.parent_path() / name).string();
}

SampleType imageSampleType(const std::string& path, thost::Depth depth) {
  const std::string ext = extensionOf(path);
  const SampleType wanted = depth == thost::Depth::Bits8    ? SampleType::U8
                            : depth == thost::Depth::Bits16 ? SampleType::U16
                                                            : SampleType::F32;
  if (ext == ".png") return wanted == SampleType::F32 ? SampleType::U16 : wanted;
  if (ext == ".tif" || ext == ".tiff") return wanted;
  if (ext == ".exr") return SampleType::F32;  // written as half unless the host depth is float
  return SampleType::U8;
}

std::unique_ptr<FrameSource> openSource(const std::string& path) {
  switch (sourceKind(path)) {
    case MediaKind::Sequence: return std::make_unique<ImageSource>(sequenceFiles(path));
    case MediaKind::Video: return openVideoSource(path);
    case MediaKind::Null: throw MediaError("null: is an output, not an input");
    case MediaKind::Still: break;
  }
  return std::make_unique<ImageSource>(std::vector<std::string>{path});
}

std::unique_ptr<FrameSink> openSink(const SinkSettings& s) {
  switch (mediaKind(s.path)) {
    case MediaKind::Sequence: return std::make_unique<ImageSink>(s, true);
    case MediaKind::Video: return openVideoSink(s);
    case MediaKind::Null: return std::make_unique<NullSink>(s.depth);
    case MediaKind::Still: break;
  }
  return std::make_unique<ImageSink>(s, false);
}

StdinSpool::StdinSpool() {
  const char* dir = std::getenv("TMPDIR");
  std::string name = std::string(dir && *dir ? dir : "/tmp") + "/tesselux-stdin-XXXXXX";
  const int fd = mkstemp(name.data());
  if (fd < 0) throw MediaError("-: cannot make a temporary file for standard input: " + std::string(std::strerror(errno)));
  path_ = name;
  std::vector<char> buf(1 << 20);
  for (;;) {
    ssize_t got = ::read(STDIN_FILENO, buf.data(), buf.size());
    if (got == 0) break;
    if (got < 0 && errno == EINTR) continue;
    ssize_t done = 0;
    while (got > 0 && done < got) {
      const ssize_t put = ::write(fd, buf.data() + done, static_cast<size_t>(got - done));
      if (put < 0 && errno == EINTR) continue;
      if (put <= 0) got = -1;
      else done += put;
    }
    if (got < 0) {
      const std::string why = std::strerror(errno);
      close(fd);
      std::remove(path_.c_str());
      throw MediaError("-: cannot keep standard input in " + path_ + ": " + why);
    }
  }
  close(fd);
}

StdinSpool::~StdinSpool() { std::remove(path_.c_str()); }

void writeImage(const std::string& path, const Picture& picture) {
  const std::string tmp = temporaryName(path);
  loadImageCodec()->write(tmp, path, picture, nullptr);
  if (std::rename(tmp.c_str(), path.c_str()) != 0) {
    std::remove(tmp.c_str());
    throw MediaError(path + ": cannot rename into place: " + std::strerror(errno));
  }
}

}  // namespace cli
