// Stills and numbered image sequences through OpenImageIO.
#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/imageio.h>
#include <fcntl.h>
#include <sys/stat.h>
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

// The position and length of the "%d" / "%04d" conversion in a pattern.
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
  return false;
}

SampleType typeOf(const OIIO::TypeDesc& t) {
  if (t.basetype == OIIO::TypeDesc::UINT8 || t.basetype == OIIO::TypeDesc::INT8) return SampleType::U8;
  if (t.basetype == OIIO::TypeDesc::UINT16 || t.basetype == OIIO::TypeDesc::INT16) return SampleType::U16;
  return SampleType::F32;
}

OIIO::TypeDesc descOf(SampleType t) {
  return t == SampleType::U8 ? OIIO::TypeDesc::UINT8
         : t == SampleType::U16 ? OIIO::TypeDesc::UINT16
                                : OIIO::TypeDesc::FLOAT;
}

// Files keep straight (unassociated) alpha: the effect moves pixels and never
// blends them, so nothing is premultiplied on the way in or divided on the way out.
OIIO::ImageSpec readConfig() {
  OIIO::ImageSpec config;
  config.attribute("oiio:UnassociatedAlpha", 1);
  return config;
}

// libpng and libjpeg print their own complaints on stderr before the reader
// reports them; the command reports each failure as one line of its own, so
// fd 2 points at /dev/null while a file is decoded. Reads are serialised by the
// frame cache, and the command prints its errors only after the readers stop.
// TESSELUX_DECODER_MESSAGES=1 keeps them, and with them anything a crash in a
// decoder would print (the reader fuzzer sets it).
class QuietStderr {
 public:
  QuietStderr() {
    const char* keep = std::getenv("TESSELUX_DECODER_MESSAGES");
    if (keep && *keep && std::string(keep) != "0") return;
    std::fflush(stderr);
    saved_ = dup(STDERR_FILENO);
    const int devnull = open("/dev/null", O_WRONLY);
    if (devnull >= 0) {
      dup2(devnull, STDERR_FILENO);
      close(devnull);
    }
  }
  ~QuietStderr() {
    if (saved_ >= 0) {
      dup2(saved_, STDERR_FILENO);
      close(saved_);
    }
  }
  QuietStderr(const QuietStderr&) = delete;
  QuietStderr& operator=(const QuietStderr&) = delete;

 private:
  int saved_ = -1;
};

struct Header {
  int width = 0, height = 0;
  SampleType type = SampleType::U8;
};

Header readHeader(const std::string& path) {
  std::error_code ec;
  if (fs::is_directory(path, ec)) throw MediaError(path + ": is a directory, not an image");
  if (!fs::exists(path, ec)) throw MediaError(path + ": no such file");
  QuietStderr quiet;
  const OIIO::ImageSpec config = readConfig();
  auto in = OIIO::ImageInput::open(path, &config);
  if (!in) {
    std::string why = OIIO::geterror();
    if (why.empty()) why = "not a readable image";
    throw MediaError(path + ": " + why.substr(0, why.find('\n')));
  }
  const OIIO::ImageSpec& spec = in->spec();
  checkSize(path, spec.width, spec.height);
  return {spec.width, spec.height, typeOf(spec.format)};
}

Picture readPicture(const std::string& path) {
  std::error_code ec;
  if (fs::is_directory(path, ec)) throw MediaError(path + ": is a directory, not an image");
  QuietStderr quiet;
  const OIIO::ImageSpec config = readConfig();
  auto in = OIIO::ImageInput::open(path, &config);
  if (!in) {
    std::string why = OIIO::geterror();
    if (why.empty()) why = "not a readable image";
    throw MediaError(path + ": " + why.substr(0, why.find('\n')));
  }
  const OIIO::ImageSpec& spec = in->spec();
  const int nch = spec.nchannels;
  if (spec.width <= 0 || spec.height <= 0 || nch <= 0)
    throw MediaError(path + ": image has no pixels");
  checkSize(path, spec.width, spec.height);
  const SampleType type = typeOf(spec.format);
  const int bytes = sampleBytes(type);
  std::vector<uint8_t> raw(static_cast<size_t>(spec.width) * spec.height * nch * bytes);
  if (!in->read_image(0, 0, 0, nch, descOf(type), raw.data())) {
    std::string why = in->geterror();
    if (why.empty()) why = "cannot read its pixels";
    throw MediaError(path + ": " + why.substr(0, why.find('\n')));
  }
  Picture out(spec.width, spec.height, type);
  const int alpha = spec.alpha_channel >= 0 ? spec.alpha_channel : (nch == 2 ? 1 : nch >= 4 ? 3 : -1);
  const size_t n = static_cast<size_t>(spec.width) * spec.height;
  auto expand = [&](auto* dst, const auto* src, auto full) {
    for (size_t i = 0; i < n; ++i, src += nch, dst += 4) {
      if (nch >= 3) {
        dst[0] = src[0];
        dst[1] = src[1];
        dst[2] = src[2];
      } else {
        dst[0] = dst[1] = dst[2] = src[0];
      }
      dst[3] = alpha >= 0 ? src[alpha] : full;
    }
  };
  if (type == SampleType::U8)
    expand(out.data.data(), raw.data(), static_cast<uint8_t>(255));
  else if (type == SampleType::U16)
    expand(reinterpret_cast<uint16_t*>(out.data.data()), reinterpret_cast<const uint16_t*>(raw.data()),
           static_cast<uint16_t>(65535));
  else
    expand(reinterpret_cast<float*>(out.data.data()), reinterpret_cast<const float*>(raw.data()), 1.0f);
  return out;
}

class ImageSource : public FrameSource {
 public:
  explicit ImageSource(std::vector<std::string> files) : files_(std::move(files)) {
    headers_.reserve(files_.size());
    for (const std::string& f : files_) headers_.push_back(readHeader(f));
    type_ = headers_.front().type;
    // Frames of different types read in the deepest of them.
    for (const Header& h : headers_)
      if (sampleBytes(h.type) > sampleBytes(type_)) type_ = h.type;
  }
  int frameCount() const override { return static_cast<int>(files_.size()); }
  SampleType sampleType() const override { return type_; }
  std::pair<int, int> frameSize(int k) const override {
    return {headers_[static_cast<size_t>(k)].width, headers_[static_cast<size_t>(k)].height};
  }
  Picture read(int k) override {
    Picture p = readPicture(files_[static_cast<size_t>(k)]);
    return p.type == type_ ? p : convert(p, type_);
  }

 private:
  std::vector<std::string> files_;
  std::vector<Header> headers_;
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
    if (digits.empty() || digits.size() > 9 ||
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
      : s_(s), sequence_(sequence), type_(imageSampleType(s.path, s.depth)) {
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
    writeTo(tmp, final, picture);
  }
  void commit() override {
    for (const auto& [tmp, final] : written_)
      if (std::rename(tmp.c_str(), final.c_str()) != 0)
        throw MediaError(final + ": cannot rename into place: " + std::strerror(errno));
    committed_ = true;
  }

  static void writeTo(const std::string& tmp, const std::string& final, const Picture& picture) {
    auto out = OIIO::ImageOutput::create(tmp);
    if (!out) throw MediaError(final + ": no image writer for this file type");
    const bool keepsAlpha = out->supports("alpha");
    const int nch = keepsAlpha ? 4 : 3;
    OIIO::TypeDesc fileType = descOf(picture.type);
    const std::string ext = extensionOf(final);
    if (ext == ".exr" && picture.type != SampleType::F32) fileType = OIIO::TypeDesc::HALF;
    OIIO::ImageSpec spec(picture.width, picture.height, nch, fileType);
    spec.attribute("oiio:UnassociatedAlpha", 1);
    // No time stamp in the file: the same frame rendered twice (a farm piece
    // and a whole render) must give the same bytes.
    spec.attribute("DateTime", "");
    if (ext == ".jpg" || ext == ".jpeg") spec.attribute("Compression", "jpeg:95");
    // Writers that can encode into memory do, and the file is then written
    // here with every error checked: some (PNG) let a failed write of their
    // own pass, leaving a cut-off file on a full disk.
    std::vector<unsigned char> encoded;
    OIIO::Filesystem::IOVecOutput memory(encoded);
    const bool inMemory = out->supports("ioproxy") && out->set_ioproxy(&memory);
    if (!out->open(tmp, spec)) {
      std::remove(tmp.c_str());
      throw MediaError(final + ": cannot write: " + firstLine(out->geterror()));
    }
    const OIIO::stride_t xstride = 4 * sampleBytes(picture.type);
    const bool ok = out->write_image(descOf(picture.type), picture.data.data(), xstride) && out->close();
    if (!ok) {
      std::remove(tmp.c_str());
      throw MediaError(final + ": cannot write: " + firstLine(out->geterror()));
    }
    if (inMemory) writeChecked(tmp, final, encoded);
  }

  static void writeChecked(const std::string& tmp, const std::string& final,
                           const std::vector<unsigned char>& bytes) {
    errno = 0;
    bool ok = false;
    int why = 0;
    if (std::FILE* f = std::fopen(tmp.c_str(), "wb")) {
      ok = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size() && std::fflush(f) == 0;
      why = errno;
      if (std::fclose(f) != 0) {
        ok = false;
        if (!why) why = errno;
      }
    } else {
      why = errno;
    }
    if (!ok) {
      std::remove(tmp.c_str());
      throw MediaError(final + ": cannot write: " + std::strerror(why ? why : EIO));
    }
  }

 private:
  static std::string firstLine(const std::string& s) {
    return s.empty() ? std::string("unknown error") : s.substr(0, s.find('\n'));
  }
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

// Defined in video.cpp.
std::unique_ptr<FrameSource> openVideoSource(const std::string& path);
std::unique_ptr<FrameSink> openVideoSink(const SinkSettings& settings);

void checkSize(const std::string& path, long width, long height) {
  if (width > PF_MAX_WORLD_WIDTH || height > PF_MAX_WORLD_HEIGHT)
    throw MediaError(path + ": " + std::to_string(width) + " x " + std::to_string(height) +
                     " is larger than a host world can be (" + std::to_string(PF_MAX_WORLD_WIDTH) +
                     " x " + std::to_string(PF_MAX_WORLD_HEIGHT) + ")");
}

MediaKind mediaKind(const std::string& path) {
  if (path == "null:" || path == "null") return MediaKind::Null;
  size_t at = 0, len = 0;
  if (findConversion(path, at, len)) return MediaKind::Sequence;
  static const char* const kVideo[] = {".mp4", ".mov", ".mkv", ".avi", ".webm", ".m4v", ".mxf",
                                       ".mpg", ".mpeg", ".ts", ".m2ts", ".flv", ".wmv", ".nut", ".y4m"};
  const std::string ext = extensionOf(path);
  for (const char* v : kVideo)
    if (ext == v) return MediaKind::Video;
  return MediaKind::Still;
}

std::string sequenceName(const std::string& pattern, long number) {
  size_t at = 0, len = 0;
  if (!findConversion(pattern, at, len)) return pattern;
  const std::string conv = pattern.substr(at, len - 1) + "ld";
  char buf[64];
  std::snprintf(buf, sizeof buf, conv.c_str(), number);
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
  switch (mediaKind(path)) {
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

void writeImage(const std::string& path, const Picture& picture) {
  const std::string tmp = temporaryName(path);
  ImageSink::writeTo(tmp, path, picture);
  if (std::rename(tmp.c_str(), path.c_str()) != 0) {
    std::remove(tmp.c_str());
    throw MediaError(path + ": cannot rename into place: " + std::strerror(errno));
  }
}

}  // namespace cli
